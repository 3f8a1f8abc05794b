#include "check/program.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "commands/command_rows.h"
#include "drvlib.h"
#include "numbers.h"
#include "public.h"
#include "readini.h"
#include "toml/words.h"

namespace check {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kIgnoreMark = "check: ignore ";
constexpr std::string_view kNameCharacters = "abcdefghijklmnopqrstuvwxyz-";
constexpr std::string_view kUtf16Marks[] = {"\xFF\xFE", "\xFE\xFF"};

std::string Trimmed(const std::string& raw) {
  std::vector<char> buffer(raw.c_str(), raw.c_str() + raw.size() + 1);
  ReadIni.Trim(buffer.data());
  return buffer.data();
}

void ReadIgnores(Line* line) {
  std::string_view rest = line->raw;
  rest.remove_prefix(std::min(rest.size(), rest.find(';')));
  for (size_t at = rest.find(kIgnoreMark); at != rest.npos; at = rest.find(kIgnoreMark)) {
    rest.remove_prefix(at + kIgnoreMark.size());
    const std::string_view name = rest.substr(0, rest.find_first_not_of(kNameCharacters));
    const Rule* rule = FindRule(name);
    if (rule != nullptr)
      line->ignored.push_back(rule->id);
    else
      line->unknownIgnored.emplace_back(name);
  }
}

bool IsContinuationByte(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
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
    const size_t end = std::min(lineEnd, at + MAXLINE - 1);
    const Line& line = program.lines.emplace_back(number, pieceStart, text.substr(at, end - at));
    if (line.label) program.labels.emplace(*line.label, program.lines.size() - 1);
    const bool isLineEnd = text[end - 1] == '\n';
    number += isLineEnd ? 1 : 0;
    pieceStart = isLineEnd ? 0 : pieceStart + MAXLINE - 1;
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

int Line::ColumnOf(int byte) const {
  const auto end = raw.begin() + std::min(static_cast<int>(raw.size()), lead + byte);
  const auto inside = std::count_if(raw.begin(), end, IsContinuationByte);
  return pieceStart + static_cast<int>(end - raw.begin() - inside) + 1;
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
  const EXPLAINEDLINE& parsed = line.parsed;
  const rack::Parameter parameter = rack::RowOf(parsed.CmdIdx).parameter;
  if (parameter == rack::Parameter::Block) return {{std::string(parsed.Param), parsed.ParamColumn}};
  if (parameter != rack::Parameter::Condition) return {};
  const std::string condition(parsed.Param);
  std::vector<BlockName> blocks;
  for (const int branch : {1, 2}) {
    const std::optional<std::string> name = PieceOf(condition, branch, '&');
    if (!name || name->size() >= MAXNAME) return {};
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
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace check
