// The label search: the first line of the input is the label's number, the rest the program.
#include <cstdio>

#include "fuzz.h"
#include "numbers.h"
#include "public.h"
#include "synx.h"

namespace {

constexpr std::size_t kPiece = kMaxLine - 1;  // that a line is read in

// Byte behind the first label of that number; npos: there is none.
std::size_t BehindLabel(std::string_view program, int wanted) {
  for (std::size_t from = 0; from < program.size();) {
    const std::size_t feed = program.find('\n', from);
    const std::size_t end = std::min(feed == program.npos ? program.size() : feed + 1, from + kPiece);
    int number = 0;
    if (IsLabel(std::string(program.substr(from, end - from)).c_str(), &number) && number == wanted)
      return end;
    from = end;
  }
  return program.npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Bytes input(fuzz::TextOf(data, size));
  const int label = ToNumber<int>(input.Line().c_str());
  const std::string program(input.Rest());
  if (program.empty()) return 0;

  std::string buffer = program;
  FILE* const file = fmemopen(buffer.data(), buffer.size(), "r");
  std::fgetc(file);
  const int found = GoFileLine(file, label);
  const std::size_t wanted = BehindLabel(program, label);
  fuzz::Require((found == 1) == (wanted != program.npos), "the label is found if there is one");
  if (found == 1) {
    fuzz::Require(std::ftell(file) == static_cast<long>(wanted), "the file stands behind the first label");
  } else {
    fuzz::Require(std::fgetc(file) == EOF, "the file is at its end");
  }
  std::fclose(file);
  fuzz::Require(GoFileLine(nullptr, label) == 0, "no file has no label");
  return 0;
}
