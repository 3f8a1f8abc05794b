// A machine's directory before the checker: "== NAME" begins a file.
#include <cctype>

#include "check/check.h"
#include "fuzz.h"

namespace {

bool IsOfMachine(const std::string& name) {
  return name == "Velmo.conf" || name == "rack.toml" || fuzz::IsProgramName(name);
}

void CheckOutput(const check::Checked& checked) {
  const check::OutputNotes notes{false, true, checked.racks};
  for (const check::Format format :
       {check::Format::Text, check::Format::Gcc, check::Format::Sarif, check::Format::Json}) {
    for (const char character : check::Render(checked.findings, format, false, notes)) {
      const bool isControl = std::iscntrl(static_cast<unsigned char>(character)) != 0;
      fuzz::Require(!isControl || character == '\n', "no control character is shown raw");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Scratch scratch;
  fuzz::Scratch::Write("plc1/RESET.PLC", "END\n");
  for (const fuzz::InputFile& file : fuzz::FilesOf(fuzz::TextOf(data, size), "plc1/FLOW.PLC")) {
    if (IsOfMachine(file.name)) fuzz::Scratch::Write(file.name, file.text);
  }
  std::string error;
  const auto checked = check::CheckPaths({"."}, "", &error);
  fuzz::Require(checked.has_value() == error.empty(), "a machine is checked or told why not");
  if (checked) CheckOutput(*checked);
  check::GraphOfPath(".", "", &error);
  return 0;
}
