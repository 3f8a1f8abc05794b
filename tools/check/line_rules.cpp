// Lines that the controller skips or reads otherwise than they look.
#include <algorithm>
#include <cctype>
#include <climits>
#include <string>
#include <string_view>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "drvlib.h"
#include "numbers.h"
#include "toml/words.h"

namespace check {

namespace {

struct LookAlike {
  std::string_view bytes;
  const char* name;
  const char* meant;
};
constexpr LookAlike kLookAlikes[] = {
    {"\xEF\xBC\x9A", "a full-width colon", "\":\""},
    {"\xEF\xBC\x8C", "a full-width comma", "\",\""},
    {"\xE3\x80\x81", "an ideographic comma", "\",\""},
    {"\xEF\xBC\x9B", "a full-width semicolon", "\";\""},
    {"\xEF\xBC\x86", "a full-width ampersand", "\"&\""},
    {"\xEF\xBC\x83", "a full-width number sign", "\"#\""},
    {"\xC2\xA0", "a no-break space", "a blank"},
    {"\xE3\x80\x80", "an ideographic space", "a blank"},
    {"\xE2\x88\x92", "a minus sign that is not ASCII", "\"-\""},
    {"\xE2\x80\x93", "a dash", "\"-\""},
    {"\xEF\xBB\xBF", "a byte order mark", "nothing"},
    {"\r", "a carriage return alone", "the end of the line"},
};

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
  return "\"" + std::string(text.substr(0, kShown)) + (text.size() > kShown ? "..." : "") + "\"";
}

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// Comments may hold any character.
size_t PlaceOf(const LookAlike& row, const Line& line) {
  return PieceOf(line.text, 0, ';').value_or("").find(row.bytes);
}

class LineRules {
 public:
  LineRules(const Program& program, const Line& line, Report* report)
      : inProgram_(program), ofLine_(line), parsed_(line.parsed), out_(*report) {}

  void Check() {
    for (const std::string& name : ofLine_.unknownIgnored) {
      Add(0, RuleId::UnknownIgnore,
          "\"check: ignore " + name + "\" names no rule and silences nothing" +
              DidYouMean(rack::Nearest(name, RuleNames())));
    }
    if (ofLine_.IsPiece()) return CheckPiece();
    if (CheckLookAlikes()) return;
    if (parsed_.Fault != LINEFAULT::None) return CheckFault();
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

  void CheckPiece() {
    const std::string taken =
        ofLine_.IsCommand() ? "executes this piece as the command " + std::string(SYNXCMD[parsed_.CmdIdx])
                            : "reads this piece as a line of its own";
    Add(0, RuleId::LineSplit, "the line has more than 1023 bytes: the controller " + taken + "; break it up");
  }

  bool CheckLookAlikes() {
    for (const LookAlike& row : kLookAlikes) {
      const size_t at = PlaceOf(row, ofLine_);
      if (at == std::string::npos) continue;
      Add(static_cast<int>(at), RuleId::WrongSeparator,
          std::string(row.name) + " is a letter like any other for the controller" +
              (ofLine_.IsCommand() ? "" : ", which skips the line") + "; " + row.meant +
              " was probably meant");
    }
    return HasLookAlike(ofLine_);
  }

  void CheckFault() {
    const std::string keyword = SYNXCMD[parsed_.Keyword];
    switch (parsed_.Fault) {
      case LINEFAULT::TooLong:
        if (ofLine_.text[0] == ';') return;  // a comment is skipped anyway
        return Add(parsed_.FaultColumn, RuleId::LineTooLong,
                   "the line has more than 999 characters: the controller skips it; break it up");
      case LINEFAULT::UnknownKeyword:
        return CheckUnknownKeyword();
      case LINEFAULT::MissingColon:
        return Add(parsed_.FaultColumn, RuleId::MissingColon,
                   keyword + " without \":\": the controller skips the line; did you mean \"" + keyword +
                       ": ...\"?");
      case LINEFAULT::TooFewFields:
        return Add(parsed_.FaultColumn, RuleId::TooFewFields,
                   keyword + " has too few fields: the controller skips the line; it needs \"" + keyword +
                       ": slot, channel, parameter\", the parameter may be empty");
      case LINEFAULT::KeywordNul:
        return Add(parsed_.FaultColumn, RuleId::NoAction,
                   "NUL is no command to execute: the controller skips the line");
      case LINEFAULT::None:
      case LINEFAULT::Empty:
        return;
    }
  }

  void CheckUnknownKeyword() {
    const std::string code = PieceOf(ofLine_.text, 0, ';').value_or("");
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
    const bool isAlone = SYNXTRAITS[known].Form == PARSEFORM::KeywordOnly;
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

  void CheckNumber(const LINENUMBER& number) {
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
    switch (SYNXTRAITS[parsed_.CmdIdx].Form) {
      case PARSEFORM::KeywordOnly:
        return 0;
      case PARSEFORM::OneWord:
      case PARSEFORM::OneNumber:
        return 1;
      case PARSEFORM::Channel:
      case PARSEFORM::ThreeFields:
        return 3;
    }
    return 3;
  }

  void CheckLostText() {
    const size_t zero = ofLine_.raw.find('\0');
    if (zero != std::string::npos) {
      Add(static_cast<int>(zero) - ofLine_.lead, RuleId::LostText,
          "the controller does not look at what stands behind a zero byte");
    }
    CheckLostPiece(ofLine_.text, 2, ';', 0, "a second \";\"");
    const std::string code = PieceOf(ofLine_.text, 0, ';').value_or("");
    const int taken = FieldsTaken();
    if (taken == 0) return CheckLostPiece(code, 1, ':', 0, "END or EXIT");
    CheckLostPiece(code, 2, ':', 0, "a second \":\"");
    const std::string arguments = PieceOf(code, 1, ':').value_or("");
    const char* limit = taken == 1 ? "the first field" : "the third field";
    CheckLostPiece(arguments, taken, ',', PieceColumn(code, 1, ':'), limit);
    const bool ignoresParam = ParameterKind() == rack::Parameter::Unlooked;
    if (ignoresParam && !parsed_.Param.empty() && parsed_.SlotIdx.Column >= 0) {
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
  const EXPLAINEDLINE& parsed_;
  Report& out_;
};

}  // namespace

bool HasLookAlike(const Line& line) {
  return std::any_of(std::begin(kLookAlikes), std::end(kLookAlikes),
                     [&](const LookAlike& row) { return PlaceOf(row, line) != std::string::npos; });
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
