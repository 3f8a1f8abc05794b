// Lines that the controller skips or reads otherwise than they look.
#include <algorithm>
#include <cctype>
#include <climits>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "check/characters.h"
#include "check/topics.h"
#include "commands/command_rows.h"
#include "drvlib.h"
#include "numbers.h"
#include "toml/words.h"

namespace check {

namespace {

constexpr bool kDoesNothing[] = {
#define SYNX_NOTHING(index, enumerator, keyword, form, gate, repeat, action) \
  std::string_view(#action) == "Nothing" && (enumerator) != SYN_LINE,
    SYNX_COMMANDS(SYNX_NOTHING)
#undef SYNX_NOTHING
};

const std::vector<std::string>& Keywords() {
  static const std::vector<std::string> keywords = [] {
    std::vector<std::string> list;
    for (const auto& keyword : SYNXCMD) {
      if (std::string_view(keyword) != SYNXCMD[SYN_NUL]) list.emplace_back(keyword);
    }
    return list;
  }();
  return keywords;
}

bool FindKeyword(const std::string& word, SYNXIDX* index) {
  for (int i = SYN_NUL + 1; i < SYNMAX; ++i) {
    if (stricmp(word.c_str(), SYNXCMD[i]) != 0) continue;
    *index = static_cast<SYNXIDX>(i);
    return true;
  }
  return false;
}

std::string Quoted(std::string_view text) {
  constexpr size_t kShown = 40;
  text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
  size_t size = 0;
  while (size < text.size() && size < kShown) size += CharacterAt(text, size).size;
  return "\"" + std::string(text.substr(0, size)) + (text.size() > size ? "..." : "") + "\"";
}

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

struct FoundLookAlike {
  size_t byte;
  char32_t code;
  LookAlike looks;
};

// A comment may hold any character, and so may a file's name.
bool IsInBlockName(const std::vector<BlockName>& names, size_t byte) {
  return std::any_of(names.begin(), names.end(), [&](const BlockName& name) {
    const auto first = static_cast<size_t>(name.column);
    return byte >= first && byte < first + name.name.size();
  });
}

// Each character once, where it stands first.
std::vector<FoundLookAlike> LookAlikesIn(const Line& line) {
  constexpr char32_t kWideSemicolon = 0xFF1B;
  const std::string_view code = std::string_view(line.text).substr(0, line.text.find(';'));
  const bool isPlain = std::all_of(code.begin(), code.end(), [](char c) { return c > 0 && c != '\r'; });
  if (isPlain) return {};
  const std::vector<BlockName> names = CalledBlocks(line);
  std::vector<FoundLookAlike> found;
  std::set<char32_t> seen;
  for (size_t at = 0; at < code.size();) {
    const Character character = CharacterAt(code, at);
    const std::optional<LookAlike> looks = LookAlikeOf(character.code);
    if (looks && !IsInBlockName(names, at) && seen.insert(character.code).second)
      found.push_back({at, character.code, *looks});
    if (character.code == kWideSemicolon) break;  // a comment was meant
    at += character.size;
  }
  return found;
}

// Only control characters, such as the end-of-file mark of other systems: no word that was meant as a command.
bool HasNothingToRead(const std::string& code) {
  return std::all_of(code.begin(), code.end(),
                     [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0 || c == ' '; });
}

class LineRules {
 public:
  LineRules(const Program& program, const Line& line, Report* report)
      : inProgram_(program), ofLine_(line), parsed_(line.parsed), out_(*report) {}

  void Check() {
    for (const std::string& message : ofLine_.wrongIgnores) Add(0, RuleId::UnknownIgnore, message);
    if (ofLine_.IsPiece()) return CheckPiece();
    CheckZeroByte();
    if (CheckLookAlikes()) return;
    if (parsed_.Fault != LineFault::None) return CheckFault();
    if (kDoesNothing[parsed_.CmdIdx]) return CheckNoAction();
    CheckNumbers();
    CheckPause();
    CheckLostText();
  }

 private:
  void Add(int byte, RuleId rule, const std::string& message) {
    out_.Add(inProgram_, ofLine_, byte, rule, message);
  }

  rack::Parameter ParameterKind() const { return rack::RowOf(parsed_.CmdIdx).parameter; }
  bool IsPause() const { return ParameterKind() == rack::Parameter::Millis; }

  bool IsDelay() const { return rack::RowOf(parsed_.CmdIdx).waitsFor == rack::WaitsFor::Pause; }

  // A piece that is no command is skipped, as the comment or line would have been that it was cut from.
  void CheckPiece() {
    std::string taken;
    if (ofLine_.IsCommand()) {
      taken = "executes this piece as the command " + std::string(SYNXCMD[parsed_.CmdIdx]);
    } else if (ofLine_.label) {
      taken = "finds label " + std::to_string(*ofLine_.label) + " in this piece at a GO";
    } else {
      return;
    }
    Add(0, RuleId::LineSplit, "the line has more than 1023 bytes: the controller " + taken + "; break it up");
  }

  // Also in a line that is empty for the controller because it begins with it.
  void CheckZeroByte() {
    const size_t zero = ofLine_.raw.find('\0');
    if (zero == std::string::npos) return;
    Add(static_cast<int>(zero) - ofLine_.lead, RuleId::LostText,
        "the controller does not look at what stands behind a zero byte");
  }

  bool CheckLookAlikes() {
    const std::vector<FoundLookAlike> found = LookAlikesIn(ofLine_);
    for (const FoundLookAlike& row : found) {
      Add(static_cast<int>(row.byte), RuleId::WrongSeparator,
          row.looks.name + " is a letter like any other for the controller" + EffectOf(row.byte) + "; " +
              row.looks.meant + " was probably meant");
    }
    return !found.empty();
  }

  std::string EffectOf(size_t byte) const {
    if (!ofLine_.IsCommand()) return ", which skips the line";
    for (const LineNumber* number : {&parsed_.SlotIdx, &parsed_.ChIdx}) {
      const auto first = static_cast<size_t>(number->Column);
      if (number->Column >= 0 && byte >= first && byte < first + number->Text.size())
        return ", which reads " + std::to_string(number->Value) + " there";
    }
    return "";
  }

  void CheckFault() {
    const std::string keyword = SYNXCMD[parsed_.Keyword];
    switch (parsed_.Fault) {
      case LineFault::TooLong:
        if (ofLine_.text[0] == ';') return;  // a comment is skipped anyway
        return Add(
            parsed_.FaultColumn, RuleId::LineTooLong,
            "the line has more than 999 characters: the controller skips it" +
                (ofLine_.label ? ", though GO finds its label " + std::to_string(*ofLine_.label) : "") +
                "; break it up");
      case LineFault::UnknownKeyword:
        return CheckUnknownKeyword();
      case LineFault::MissingColon:
        return Add(parsed_.FaultColumn, RuleId::MissingColon,
                   keyword + " without \":\": the controller skips the line; did you mean \"" + keyword +
                       ": ...\"?");
      case LineFault::TooFewFields:
        return Add(parsed_.FaultColumn, RuleId::TooFewFields,
                   keyword + " has too few fields: the controller skips the line; it needs \"" + keyword +
                       ": slot, channel, parameter\", the parameter may be empty");
      case LineFault::KeywordNul:
        return Add(parsed_.FaultColumn, RuleId::NoAction,
                   "NUL is no command to execute: the controller skips the line");
      case LineFault::None:
      case LineFault::Empty:
        return;
    }
  }

  void CheckUnknownKeyword() {
    const std::string code = PieceOf(ofLine_.text, 0, ';').value_or("");
    if (HasNothingToRead(code)) return;
    std::string keyword = PieceOf(code, 0, ':').value_or("");
    keyword.erase(keyword.find_last_not_of(" \t\r\n") + 1);
    const size_t wordEnd = keyword.find_first_of(" \t,");
    SYNXIDX known = SYN_NUL;
    if (wordEnd != std::string::npos && FindKeyword(keyword.substr(0, wordEnd), &known)) {
      return CheckKeywordWithText(known, keyword, wordEnd, code.find(':') != std::string::npos);
    }
    Add(parsed_.FaultColumn, RuleId::UnknownKeyword,
        Quoted(keyword) + " is no command: the controller skips the line" +
            DidYouMean(keyword.empty() ? "" : rack::Nearest(Upper(keyword), Keywords())));
  }

  // "OUT 1, 2, 1": the ":" is missing. "END now": there is nothing to write.
  void CheckKeywordWithText(SYNXIDX known, const std::string& keyword, size_t wordEnd, bool hasColon) {
    const bool isAlone = kSynxTraits[known].Form == ParseForm::KeywordOnly;
    if (isAlone || hasColon) {
      return Add(parsed_.FaultColumn, RuleId::UnknownKeyword,
                 Quoted(keyword) + " is no command: the controller skips the line" +
                     DidYouMean(std::string(SYNXCMD[known]) + (isAlone ? "" : ":")));
    }
    Add(static_cast<int>(wordEnd), RuleId::MissingColon,
        std::string(SYNXCMD[known]) + " is not followed by \":\": the controller skips the line" +
            DidYouMean(std::string(SYNXCMD[known]) + ":"));
  }

  void CheckNoAction() {
    Add(parsed_.KeywordColumn, RuleId::NoAction,
        std::string(SYNXCMD[parsed_.CmdIdx]) + " does nothing: the controller logs the line and goes on");
  }

  // The slot index of a command of one word is the number its text begins with; only the pauses use it.
  void CheckNumbers() {
    if (ParameterKind() != rack::Parameter::Block) CheckNumber(parsed_.SlotIdx);
    CheckNumber(parsed_.ChIdx);
  }

  void CheckNumber(const LineNumber& number) {
    if (!number.Given || number.Column < 0) return;
    const std::string text(number.Text);
    CheckNumberText(inProgram_, ofLine_, number.Column, text, &out_);
    if (IsPause() || ToWideNumber(text.c_str()) == number.Value) return;
    Add(number.Column, RuleId::ValueCut,
        Quoted(text) + " does not fit 32 bits: the controller takes it for " + std::to_string(number.Value));
  }

  void CheckPause() {
    if (!IsPause()) return;
    const std::string text(parsed_.Param);
    const long long pause = ToWideNumber(text.c_str());
    const std::string keyword = SYNXCMD[parsed_.CmdIdx];
    if (pause > INT_MAX) {
      return Add(parsed_.ParamColumn, RuleId::PauseRange,
                 keyword + " above 2147483647 ms: the controller cuts it to " +
                     std::to_string(parsed_.SlotIdx.Value) + "; milliseconds were probably not meant");
    }
    if (pause < 0) {
      const char* effect = IsDelay() ? "pauses 0 ms" : "leaves the pause as it is";
      return Add(parsed_.ParamColumn, RuleId::PauseRange,
                 keyword + " with a negative number: the controller " + effect + "; did you mean \"" +
                     std::to_string(-pause) + "\"?");
    }
    if (IsDelay() && pause >= 1000) {
      Add(parsed_.ParamColumn, RuleId::LongDelay,
          "a pause of " + std::to_string(pause) +
              " ms: the task sees no key meanwhile; wait for an input or loop over short pauses");
    }
    if (!IsDelay() && pause >= 1000) {
      Add(parsed_.ParamColumn, RuleId::LongPause,
          "a pause of " + std::to_string(pause) +
              " ms after each command: the task sees hardly any key; pause with DLY where it is wanted");
    }
  }

  // How many fields the command takes; the rest of them is not looked at.
  int FieldsTaken() const {
    switch (kSynxTraits[parsed_.CmdIdx].Form) {
      case ParseForm::KeywordOnly:
        return 0;
      case ParseForm::OneWord:
      case ParseForm::OneNumber:
        return 1;
      case ParseForm::Channel:
      case ParseForm::ThreeFields:
        return 3;
    }
    return 3;
  }

  void CheckLostText() {
    CheckLostPiece(ofLine_.text, 2, ';', 0, "a second \";\"");
    const std::string code = PieceOf(ofLine_.text, 0, ';').value_or("");
    const int taken = FieldsTaken();
    if (taken == 0) return CheckLostPiece(code, 1, ':', 0, "END or EXIT");
    CheckLostPiece(code, 2, ':', 0, "a second \":\"");
    const std::string arguments = PieceOf(code, 1, ':').value_or("");
    const char* limit = taken == 1 ? "the first field" : "the third field";
    CheckLostPiece(arguments, taken, ',', PieceColumn(code, 1, ':'), limit);
    const bool ignoresParam = ParameterKind() == rack::Parameter::Unlooked;
    const bool isFiller = parsed_.Param.empty() || parsed_.Param == "0";
    if (ignoresParam && !isFiller && parsed_.SlotIdx.Column >= 0) {
      Add(parsed_.ParamColumn, RuleId::LostText,
          std::string(SYNXCMD[parsed_.CmdIdx]) + " takes no parameter: the controller does not look at " +
              Quoted(parsed_.Param));
    }
  }

  // A remark to this checker counts nowhere.
  void CheckLostPiece(const std::string& text, int idx, char separator, int start, const char* behind) {
    const std::optional<std::string> piece = PieceOf(text, idx, separator);
    if (!piece || piece->find("check: ") != std::string::npos) return;
    const size_t first = piece->find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return;
    const int column = start + PieceColumn(text, idx, separator) + static_cast<int>(first);
    Add(column, RuleId::LostText,
        "the controller does not look at what stands behind " + std::string(behind) + ": " +
            Quoted(piece->substr(first)));
  }

  const Program& inProgram_;
  const Line& ofLine_;
  const ExplainedLine& parsed_;
  Report& out_;
};

}  // namespace

bool HasLookAlike(const Line& line) {
  return !LookAlikesIn(line).empty();
}

void CheckNumberText(const Program& program, const Line& line, int byte, const std::string& text,
                     Report* report) {
  size_t at = text.find_first_not_of(" \t");
  if (at == std::string::npos) at = text.size();
  const int start = byte + static_cast<int>(at);
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  size_t end = at;
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  const bool isWhole = text.find_first_not_of(" \t", end) == std::string::npos;
  if (end > at && isWhole) return;
  const std::string shown = text.empty() ? "an empty field" : Quoted(text);
  const long long value = ToWideNumber(text.c_str());
  report->Add(program, line, start, RuleId::OddNumber,
              shown + " is no whole number: the controller reads " + std::to_string(value));
}

void CheckLines(const Program& program, Report* report) {
  if (program.isUtf16) {
    report->Add(
        program.path, 1, 1, RuleId::WrongSeparator,
        "the file is written in UTF-16: the controller finds no command in it; save it as plain text");
  }
  for (const Line& line : program.lines) LineRules(program, line, report).Check();
}

}  // namespace check
