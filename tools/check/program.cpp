#include "check/program.h"

#include <algorithm>
#include <system_error>

#include "commands/command_rows.h"
#include "drvlib.h"
#include "numbers.h"
#include "public.h"
#include "readini.h"
#include "toml/toml_reader.h"
#include "toml/words.h"

namespace check {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kNameCharacters = "abcdefghijklmnopqrstuvwxyz-";
constexpr std::string_view kUtf16Marks[] = {"\xFF\xFE", "\xFE\xFF"};

std::string Trimmed(const std::string& raw) {
  std::vector<char> buffer(raw.c_str(), raw.c_str() + raw.size() + 1);
  ReadIni.Trim(buffer.data());
  return buffer.data();
}

size_t SkipBlanks(std::string_view text, size_t at) {
  return std::min(text.find_first_not_of(" \t", at), text.size());
}

// Letters and hyphens.
std::string_view WordAt(std::string_view text, size_t at) {
  const std::string_view rest = text.substr(at);
  return rest.substr(0, std::min(rest.find_first_not_of(kNameCharacters), rest.size()));
}

std::string MeantRule(std::string_view name) {
  const std::string nearest = rack::Nearest(std::string(name), RuleNames());
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

// "RULE, RULE": what stands behind the last one is a remark. Where the list ends.
size_t ReadIgnoredRules(std::string_view comment, size_t at, Line* line) {
  for (;;) {
    const std::string_view name = WordAt(comment, at);
    const Rule* rule = FindRule(name);
    if (rule != nullptr) {
      line->ignored.push_back(rule->id);
    } else {
      line->wrongIgnores.push_back("\"check: ignore " + std::string(name) +
                                   "\" names no rule and silences nothing" + MeantRule(name));
    }
    at = SkipBlanks(comment, at + name.size());
    if (at < comment.size() && comment[at] == ',') {
      at = SkipBlanks(comment, at + 1);
      continue;
    }
    const std::string_view next = WordAt(comment, at);
    if (rule != nullptr && FindRule(next) != nullptr) {
      line->wrongIgnores.push_back("\"" + std::string(next) + "\" is not separated by a comma from \"" +
                                   std::string(name) + "\" and is not silenced");
    }
    return at;
  }
}

// "ignore", whatever stands behind it and wherever its letters slipped to.
bool MeansIgnore(std::string_view word) {
  constexpr std::string_view kIgnore = "ignore";
  return word.substr(0, kIgnore.size() - 1) == kIgnore.substr(0, kIgnore.size() - 1) ||
         std::is_permutation(word.begin(), word.end(), kIgnore.begin(), kIgnore.end());
}

// Words to this program begin with "check: ignore"; letter case and blanks count. What only looks like it was
// meant for it; another remark that begins with "check:" was not.
void ReadIgnores(Line* line) {
  constexpr std::string_view kMark = "check:";
  constexpr std::string_view kWord = " ignore";
  std::string_view comment = line->raw;
  comment.remove_prefix(std::min(comment.size(), comment.find(';')));
  const std::string lower = rack::Lower(comment);
  for (size_t at = lower.find(kMark); at != lower.npos; at = lower.find(kMark, at)) {
    const size_t behind = at + kMark.size();
    const size_t word = SkipBlanks(comment, behind);
    const std::string_view written = WordAt(lower, word);
    const bool isExact = comment.substr(at, kMark.size()) == kMark &&
                         comment.substr(behind, kWord.size()) == kWord && written == kWord.substr(1);
    at = behind;
    if (isExact) {
      at = ReadIgnoredRules(comment, SkipBlanks(comment, word + written.size()), line);
    } else if (MeansIgnore(written)) {
      line->wrongIgnores.push_back(
          "\"" + std::string(comment.substr(at - kMark.size(), word + written.size() - at + kMark.size())) +
          "\" is not understood and silences nothing; did you mean \"check: ignore\"?");
    }
  }
}

bool IsContinuationByte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The first byte of a character that takes two units of UTF-16.
bool StartsPair(char c) {
  return (static_cast<unsigned char>(c) & 0xF8) == 0xF0;
}

int CharactersIn(std::string_view text) {
  return static_cast<int>(text.size()) -
         static_cast<int>(std::count_if(text.begin(), text.end(), IsContinuationByte));
}

int UnitsIn(std::string_view text) {
  return CharactersIn(text) + static_cast<int>(std::count_if(text.begin(), text.end(), StartsPair));
}

// Bytes of the word that begins there, a separator being one of its own.
size_t WordSize(std::string_view rest) {
  if (rest.empty()) return 0;
  const size_t size = std::min(rest.find_first_of(" \t\r\n,:;&"), rest.size());
  return size == 0 ? 1 : size;
}

template <class Count>
Columns ColumnsAt(std::string_view line, size_t byte, Count count) {
  const size_t first = std::min(line.size(), byte);
  const int column = count(line.substr(0, first)) + 1;
  return {column, column + count(line.substr(first, WordSize(line.substr(first))))};
}

size_t ByteOfRaw(const Line& line, int byte) {
  return static_cast<size_t>(std::max(0, line.lead + byte));
}

Columns BehindPieces(const Line& line, const Columns& columns) {
  return {line.pieceStart + columns.first, line.pieceStart + columns.behind};
}

Program LoadProgram(const fs::path& directory, const std::string& name) {
  Program program;
  program.path = (directory / name).lexically_normal().string();
  program.name = name;
  program.isMain = name == kResetProgram || name == kFlowProgram;
  const std::string text = ReadWholeFile(directory / name);
  for (const std::string_view mark : kUtf16Marks) program.isUtf16 |= text.compare(0, mark.size(), mark) == 0;
  if (program.isUtf16) return program;
  int number = 1;
  int pieceStart = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t lineEnd = std::min(text.find('\n', at), text.size() - 1) + 1;
    const size_t end = std::min(lineEnd, at + kMaxLine - 1);
    const Line& line = program.lines.emplace_back(number, pieceStart, text.substr(at, end - at));
    if (line.label) program.labels.emplace(*line.label, program.lines.size() - 1);
    const bool isLineEnd = text[end - 1] == '\n';
    number += isLineEnd ? 1 : 0;
    pieceStart = isLineEnd ? 0 : pieceStart + kMaxLine - 1;
    at = end;
  }
  return program;
}

bool IsProgramName(const std::string& name) {
  return stricmp(fs::path(name).extension().c_str(), ".PLC") == 0;
}

// Calls are followed until no new file is found.
void LoadCalledBlocks(Task* task) {
  std::vector<std::string> names;
  for (const auto& [name, program] : task->programs) names.push_back(name);
  for (size_t i = 0; i < names.size(); ++i) {
    for (const Line& line : task->programs.at(names[i]).lines) {
      for (const BlockName& block : CalledBlocks(line)) {
        if (task->Find(block.name) == nullptr) {
          std::error_code error;
          if (!fs::is_regular_file(task->directory / block.name, error)) continue;
          task->programs.emplace(block.name, LoadProgram(task->directory, block.name));
          names.push_back(block.name);
        }
        task->Find(block.name)->isCalled = true;
      }
    }
  }
}

// fileName: taken in addition, whatever its name.
Task LoadTask(int number, const fs::path& directory, const std::string& fileName) {
  Task task{number, directory, {}};
  for (const std::string& name : FileNames(directory)) {
    std::error_code error;
    if ((!IsProgramName(name) && name != fileName) || !fs::is_regular_file(directory / name, error)) continue;
    task.programs.emplace(name, LoadProgram(directory, name));
  }
  LoadCalledBlocks(&task);
  return task;
}

size_t PieceStartOf(const std::string& text, int idx, char separator) {
  size_t start = 0;
  for (; idx > 0 && start != std::string::npos; --idx) {
    start = text.find(separator, start);
    if (start != std::string::npos) ++start;
  }
  return start;
}

}  // namespace

Line::Line(int lineNumber, int startOfPiece, std::string bytes)
    : number(lineNumber), pieceStart(startOfPiece), raw(std::move(bytes)), text(Trimmed(raw)), lead(0) {
  const size_t begin = raw.find(text);
  if (begin != std::string::npos) lead = static_cast<int>(begin);
  ExplainLine(text.c_str(), &parsed);
  int found = 0;
  if (IsLabel(raw.c_str(), &found)) label = found;
  ReadIgnores(this);
}

Columns Line::CharactersOf(int byte) const {
  return BehindPieces(*this, CharactersAt(raw, ByteOfRaw(*this, byte)));
}

Columns Line::Utf16Of(int byte) const {
  return BehindPieces(*this, Utf16At(raw, ByteOfRaw(*this, byte)));
}

Columns CharactersAt(std::string_view line, size_t byte) {
  return ColumnsAt(line, byte, CharactersIn);
}

Columns Utf16At(std::string_view line, size_t byte) {
  return ColumnsAt(line, byte, UnitsIn);
}

Program* Task::Find(const std::string& name) {
  const auto found = programs.find(name);
  return found == programs.end() ? nullptr : &found->second;
}

const Program* Task::Find(const std::string& name) const {
  const auto found = programs.find(name);
  return found == programs.end() ? nullptr : &found->second;
}

const rack::CardCommands* ProgramTree::CardOf(int slotIdx) const {
  if (slotIdx == 0) return &rack::CommandsOf(rack::CardKind::Cpu);
  if (!rack || slotIdx < 0 || slotIdx >= static_cast<int>(rack->entries.size())) return nullptr;
  return rack->entries[static_cast<size_t>(slotIdx)];
}

ProgramTree LoadTree(const fs::path& directory, const std::optional<RackShape>& rack) {
  ProgramTree tree{directory, rack, {}};
  for (const std::string& name : FileNames(directory)) {
    std::error_code error;
    if (TaskNumber(name) < 0 || !fs::is_directory(directory / name, error)) continue;
    tree.tasks.push_back(LoadTask(TaskNumber(name), directory / name, ""));
  }
  return tree;
}

ProgramTree LoadTaskOnly(const fs::path& directory, const std::string& fileName,
                         const std::optional<RackShape>& rack) {
  ProgramTree tree{directory, rack, {}};
  tree.tasks.push_back(LoadTask(1, directory, fileName));
  return tree;
}

int TaskNumber(const std::string& name) {
  constexpr std::string_view kPrefix = "plc";
  if (name.compare(0, kPrefix.size(), kPrefix) != 0) return -1;
  const std::string digits = name.substr(kPrefix.size());
  const int number = ToNumber<int>(digits.c_str());
  return number >= 0 && std::to_string(number) == digits ? number : -1;
}

std::vector<BlockName> CalledBlocks(const Line& line) {
  const ExplainedLine& parsed = line.parsed;
  const rack::Parameter parameter = rack::RowOf(parsed.CmdIdx).parameter;
  if (parameter == rack::Parameter::Block) return {{std::string(parsed.Param), parsed.ParamColumn}};
  if (parameter != rack::Parameter::Condition) return {};
  const std::string condition(parsed.Param);
  std::vector<BlockName> blocks;
  for (const int branch : {1, 2}) {
    const std::optional<std::string> name = PieceOf(condition, branch, '&');
    if (!name || name->size() >= kMaxName) return {};
    if (stricmp(name->c_str(), "NUL") == 0) continue;
    blocks.push_back({*name, parsed.ParamColumn + PieceColumn(condition, branch, '&')});
  }
  return blocks;
}

std::optional<std::string> PieceOf(const std::string& text, int idx, char separator) {
  std::vector<char> piece(text.size() + 1);
  if (ReadIni.GetField2(text.c_str(), piece.data(), idx, separator) == 0) return std::nullopt;
  return piece.data();
}

int PieceColumn(const std::string& text, int idx, char separator) {
  return static_cast<int>(std::min(PieceStartOf(text, idx, separator), text.size()));
}

std::vector<std::string> FileNames(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string NearMiss(const std::string& name, const std::vector<std::string>& names) {
  for (const std::string& other : names) {
    if (stricmp(other.c_str(), name.c_str()) == 0) return other;
  }
  return rack::Nearest(name, names);
}

std::string ReadWholeFile(const fs::path& path) {
  std::string content;
  return rack::ReadWholeFile(path.string(), content) ? content : "";
}

}  // namespace check
