#include "synx.h"

#include <cstring>

#include "drvlib.h"
#include "numbers.h"

SYNX SynxClass;
pthread_mutex_t SynxLock;

#define SYNX_KEYWORD(index, enumerator, keyword, form, gate, repeat, action) keyword,
const char SYNXCMD[SYNMAX][kSynxCmdSize] = {SYNX_COMMANDS(SYNX_KEYWORD)};
#undef SYNX_KEYWORD

#define SYNX_TRAITS(index, enumerator, keyword, form, gate, repeat, action) \
  {ParseForm::form, StepGate::gate, LineRepeat::repeat},
const SynxTraits kSynxTraits[SYNMAX] = {SYNX_COMMANDS(SYNX_TRAITS)};
#undef SYNX_TRAITS

namespace {

#define SYNX_INDEX(index, enumerator, keyword, form, gate, repeat, action) index,
constexpr int kIndices[] = {SYNX_COMMANDS(SYNX_INDEX)};
#undef SYNX_INDEX

constexpr bool RowsInIndexOrder() {
  for (int i = 0; i < SYNMAX; ++i) {
    if (kIndices[i] != i) return false;
  }
  return true;
}
static_assert(sizeof kIndices == SYNMAX * sizeof(int) && RowsInIndexOrder(),
              "one row per command, in index order");

bool IsBlank(char character) {
  return character == ' ' || character == '\n' || character == '\r' || character == '\t';
}

// An empty one lies at the end of the text.
std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Where the separator stands next, or the text ends.
size_t NextCut(std::string_view text, size_t from, char separator) {
  while (from < text.size() && text[from] != separator) ++from;
  return from;
}

// The text cut at every separator: piece number idx, if there is one. Empty pieces count, a last empty one
// too.
bool Piece(std::string_view text, int idx, char separator, std::string_view* piece) {
  size_t start = 0;
  for (; idx > 0; --idx) {
    const size_t cut = NextCut(text, start, separator);
    if (cut == text.size()) return false;
    start = cut + 1;
  }
  *piece = text.substr(start, NextCut(text, start, separator) - start);
  return true;
}

bool FindKeyword(std::string_view keyword, SYNXIDX* index) {
  if (keyword.size() >= static_cast<size_t>(kSynxCmdSize)) return false;
  char text[kSynxCmdSize] = "";
  keyword.copy(text, keyword.size());
  for (int i = 0; i < SYNMAX; ++i) {
    if (stricmp(text, SYNXCMD[i]) != 0) continue;
    *index = static_cast<SYNXIDX>(i);
    return true;
  }
  return false;
}

// One line on its way through the grammar.
class LineReader {
 public:
  LineReader(const char* line, ExplainedLine* result) : Line(line), Result(*result) {}

  void Read(bool needsParam) {
    Result.Fault = ReadLine(needsParam);
    Result.CmdIdx = Result.Fault == LineFault::None ? Result.Keyword : SYN_NUL;
  }

 private:
  LineFault ReadLine(bool needsParam) {
    const std::string_view line = Line;
    if (line.size() > static_cast<size_t>(kMaxLineLength)) {
      return Fault(LineFault::TooLong, Line + kMaxLineLength);
    }
    std::string_view code;
    Piece(line, 0, ';', &code);
    std::string_view comment;
    if (Piece(line.substr(code.size()), 1, ';', &comment)) Result.Comment = Trimmed(comment);
    if (Trimmed(code).empty()) return Fault(LineFault::Empty, Line);

    std::string_view keyword;
    Piece(code, 0, ':', &keyword);
    keyword = Trimmed(keyword);
    Result.KeywordColumn = Column(keyword.data());
    if (!FindKeyword(keyword, &Result.Keyword)) return Fault(LineFault::UnknownKeyword, keyword.data());
    const LineFault fault = ReadArguments(code, keyword, needsParam);
    if (fault != LineFault::None || Result.Keyword != SYN_NUL) return fault;
    return Fault(LineFault::KeywordNul, keyword.data());
  }

  LineFault ReadArguments(std::string_view code, std::string_view keyword, bool needsParam) {
    const ParseForm form = kSynxTraits[Result.Keyword].Form;
    if (form == ParseForm::KeywordOnly) return LineFault::None;
    if (!Piece(code, 1, ':', &Arguments)) {
      return Fault(LineFault::MissingColon, keyword.data() + keyword.size());
    }
    switch (form) {
      case ParseForm::OneWord:
        ReadParam(0);
        return ReadNumber(0, &Result.SlotIdx);
      case ParseForm::OneNumber:
        return ReadNumber(0, &Result.SlotIdx);
      case ParseForm::Channel:
        return ReadChannelForm();
      default:
        return ReadThreeFields(needsParam);
    }
  }

  LineFault ReadChannelForm() {
    std::string_view third;
    if (Piece(Arguments, 2, ',', &third)) return ReadThreeFields(true);
    ReadNumber(0, &Result.ChIdx);
    const LineFault fault = ReadParam(1);
    if (fault == LineFault::None) Result.SlotIdx.Given = true;
    return fault;
  }

  LineFault ReadThreeFields(bool needsParam) {
    ReadNumber(0, &Result.SlotIdx);
    const LineFault fault = ReadNumber(1, &Result.ChIdx);
    if (fault != LineFault::None || !needsParam) return fault;
    return ReadParam(2);
  }

  LineFault ReadNumber(int idx, LineNumber* number) {
    std::string_view piece;
    if (!Piece(Arguments, idx, ',', &piece)) return TooFewFields();
    number->Given = true;
    // A number ends at the separator behind its piece, or at the end of the line.
    number->Value = ToNumber<int>(piece.data());
    number->Text = Trimmed(piece);
    number->Column = Column(number->Text.data());
    return LineFault::None;
  }

  LineFault ReadParam(int idx) {
    std::string_view piece;
    if (!Piece(Arguments, idx, ',', &piece)) return TooFewFields();
    Result.HasParam = true;
    Result.Param = Trimmed(piece);
    Result.ParamColumn = Column(Result.Param.data());
    return LineFault::None;
  }

  LineFault TooFewFields() {
    std::string_view written = Arguments;
    while (!written.empty() && IsBlank(written.back())) written.remove_suffix(1);
    return Fault(LineFault::TooFewFields, written.data() + written.size());
  }

  LineFault Fault(LineFault fault, const char* place) {
    Result.FaultColumn = Column(place);
    return fault;
  }

  int Column(const char* place) const { return static_cast<int>(place - Line); }

  const char* Line;
  ExplainedLine& Result;
  std::string_view Arguments;
};

void CopyText(char* buffer, std::string_view text) {
  text.copy(buffer, kMaxParam - 1);
  buffer[text.size()] = '\0';
}

}  // namespace

void ExplainLine(const char* line, ExplainedLine* result, bool needsParam) {
  *result = ExplainedLine();
  LineReader(line, result).Read(needsParam);
}

bool IsLabel(const char* line, int* number) {
  // Said of nearly every line that a search passes, and at once.
  const char* start = line;
  while (IsBlank(*start)) ++start;
  if (*start != SYNXCMD[SYN_LINE][0]) return false;

  std::string_view piece;
  Piece(line, 0, ':', &piece);
  SYNXIDX keyword = SYN_NUL;
  if (!FindKeyword(Trimmed(piece), &keyword) || keyword != SYN_LINE) return false;
  if (!Piece(line, 1, ':', &piece)) return false;
  *number = ToNumber<int>(piece.data());
  return true;
}

SYNXIDX SYNX::Explain(const char* CmdName, int* SlotIdx, int* ChIdx, char* Param, char* CommentStr) {
  ExplainedLine line;
  ExplainLine(CmdName, &line, Param != nullptr);
  *ChIdx = line.ChIdx.Given ? line.ChIdx.Value : -1;
  if (line.SlotIdx.Given) *SlotIdx = line.SlotIdx.Value;
  if (line.HasParam && Param != nullptr) CopyText(Param, line.Param);
  CopyText(CommentStr, line.Comment);
  return line.CmdIdx;
}
