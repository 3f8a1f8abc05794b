// One line of a program.
#include "fuzz.h"
#include "public.h"
#include "synx.h"

namespace {

using fuzz::Require;

bool IsWithin(std::string_view part, std::string_view line) {
  return part.empty() ||
         (part.data() >= line.data() && part.data() + part.size() <= line.data() + line.size());
}

void CheckNumber(const LineNumber& number, std::string_view line) {
  Require(IsWithin(number.Text, line), "the text of a number is part of the line");
  Require(number.Column >= -1 && number.Column <= static_cast<int>(line.size()),
          "a number's column is in the line");
}

void CheckParts(std::string_view line, bool needsParam) {
  ExplainedLine parts;
  ExplainLine(line.data(), &parts, needsParam);
  const int length = static_cast<int>(line.size());
  Require(IsWithin(parts.Param, line) && IsWithin(parts.Comment, line), "the texts are part of the line");
  Require(parts.KeywordColumn >= 0 && parts.KeywordColumn <= length, "the keyword's column is in the line");
  Require(parts.FaultColumn >= 0 && parts.FaultColumn <= length, "the fault's column is in the line");
  Require(parts.ParamColumn >= -1 && parts.ParamColumn <= length, "the parameter's column is in the line");
  CheckNumber(parts.SlotIdx, line);
  CheckNumber(parts.ChIdx, line);
  Require(parts.CmdIdx >= 0 && parts.CmdIdx < SYNMAX, "the command is in the table");
  Require((parts.Fault == LineFault::None) == (parts.CmdIdx != SYN_NUL), "a line is executed or has a fault");
  Require(length <= kMaxLineLength || parts.Fault == LineFault::TooLong,
          "a line that is too long is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ExactText text(fuzz::TextOf(data, size));
  const std::string_view line = text.Get();
  CheckParts(line, true);
  CheckParts(line, false);

  fuzz::ExactText parameter("", kMaxParam);
  fuzz::ExactText comment("", kMaxParam);
  int slot = 0;
  int channel = 0;
  const SYNXIDX command = SynxClass.Explain(text.Get(), &slot, &channel, parameter.Get(), comment.Get());
  ExplainedLine parts;
  ExplainLine(text.Get(), &parts);
  Require(command == parts.CmdIdx, "tasks and tools read the same command");
  Require(comment.Get() == parts.Comment, "the comment is handed over whole");
  Require(!parts.HasParam || parameter.Get() == parts.Param, "the parameter is handed over whole");

  int number = 0;
  if (IsLabel(text.Get(), &number) && line.size() <= static_cast<std::size_t>(kMaxLineLength)) {
    Require(parts.Keyword == SYN_LINE || parts.Fault == LineFault::Empty || line.find(';') != line.npos,
            "what GO finds is a label");
  }
  return 0;
}
