// The text tools, and the console in front of a descriptor that takes what it likes.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "drvlib.h"
#include "fuzz.h"
#include "hostile_board.h"
#include "kova_dig.h"
#include "motfields.h"
#include "numbers.h"
#include "readini.h"

namespace {

using fuzz::ExactText;
using fuzz::Require;

void TryTrims(std::string_view text, char character) {
  int (READINI::*const trims[])(char*) = {&READINI::Trim, &READINI::TrimBlank};
  for (const auto trim : trims) {
    ExactText buffer(text);
    (ReadIni.*trim)(buffer.Get());
    const std::string once = buffer.Get();
    (ReadIni.*trim)(buffer.Get());
    Require(once == buffer.Get(), "a trimmed text stays as it is");
    Require(once.empty() || (once.front() != ' ' && once.back() != ' '), "no blank is left at an end");
  }
  int (READINI::*const sides[])(char*, char) = {&READINI::TrimLeft, &READINI::TrimRight};
  for (const auto trim : sides) {
    ExactText buffer(text);
    const std::size_t before = std::strlen(buffer.Get());
    const int result = (ReadIni.*trim)(buffer.Get(), character);
    Require(result == (std::strlen(buffer.Get()) < before ? 1 : 0),
            "the result says whether something was removed");
  }
  void (READINI::*const cuts[])(char*) = {&READINI::GetZero, &READINI::GetZeroR};
  for (const auto cut : cuts) {
    ExactText buffer(text);
    (ReadIni.*cut)(buffer.Get());
    Require(std::strchr(buffer.Get(), '\n') == nullptr, "a value has no line feed");
  }
}

void TryFields(std::string_view text, int index, char separator) {
  ExactText source(text);
  ExactText whole("", std::strlen(source.Get()) + 1);
  const int found = ReadIni.GetField2(source.Get(), whole.Get(), index, separator);
  constexpr int kRoom = 20;
  ExactText bounded("", kRoom);
  const int fits = BoundedField(source.Get(), bounded.Get(), kRoom, index, separator);
  Require(found == 1 || (fits == 0 && whole.Get()[0] == '\0'), "both find the same fields");
  Require(fits != 1 || std::strcmp(bounded.Get(), whole.Get()) == 0, "both take the same text");
  Require(fits != -1 || std::strlen(whole.Get()) >= kRoom, "only a field without room is refused");

  ExactText parameter("", MAXBUFFER);
  ReadIni.Get1Par(index, parameter.Get(), source.Get());
  int number = 0;
  long wide = 0;
  float fraction = 0;
  unsigned natural = 0;
  const int result = ReadIni.Get1Par(index, &number, source.Get());
  Require(result == ReadIni.Get1Par(index, &wide, source.Get()) &&
              result == ReadIni.Get1Par(index, &fraction, source.Get()) &&
              result == ReadIni.Get1Par(index, &natural, source.Get()),
          "a token is there for each kind of number or for none");
}

void TryParameters(std::string_view text) {
  ExactText source(text);
  MotFields fields;
  for (const int limit : {200, kMaxMotField}) ReadMotFields(source.Get(), limit, &fields);
  IfFields condition;
  if (!ReadIfFields(source.Get(), &condition)) return;
  ExactText name("", kMaxName);
  Require(PassBlockName(condition.szFun0, name.Get()) == (stricmp(name.Get(), "NUL") == 0 ? 0 : 1),
          "NUL is no block");
  Require(std::strcmp(name.Get(), condition.szFun0) == 0, "the name of the block is handed over whole");
}

void TryComparison(std::string_view first, std::string_view second) {
  ExactText one(first);
  ExactText other(second);
  const int order = stricmp(one.Get(), other.Get());
  const int back = stricmp(other.Get(), one.Get());
  Require((order < 0) == (back > 0) && (order == 0) == (back == 0), "the order of two texts is one order");
}

void TrySamples(std::string_view text) {
  std::vector<unsigned long> samples(text.begin(), text.end());
  MidValueFilter(samples.data(), static_cast<long>(samples.size()));
  std::vector<float> numbers(text.begin(), text.end());
  Sort(numbers.data(), static_cast<long>(numbers.size()));
  Require(std::is_sorted(numbers.begin(), numbers.end()), "sorted is sorted");
}

// What was printed must come out in order, and each gap must say how many lines it stands for.
void CheckShown(const std::string& shown, const std::vector<std::string>& printed) {
  std::size_t next = 0;
  for (fuzz::Bytes lines(shown); !lines.IsEmpty();) {
    const std::string line = lines.Line();
    int hidden = 0;
    char rest = '\0';
    if (std::sscanf(line.c_str(), "-- %d lines not shown -%c", &hidden, &rest) == 2 && rest == '-') {
      Require(hidden > 0, "a gap is of at least one line");
      next += static_cast<std::size_t>(hidden);
      continue;
    }
    Require(next < printed.size() && printed[next] == line, "the lines come out as they were printed");
    ++next;
  }
  Require(next == printed.size(), "each line is shown or counted");
}

// Lines of tasks, some of them a try that is repeated, some of them long.
void TryConsole(fuzz::Bytes input) {
  std::string control(input.Line());
  fuzz::HostileBoard board;
  board.console = fuzz::Bytes(input.Rest());
  std::vector<std::string> printed;
  for (const char byte : control) {
    const int task = 1 + (byte & 7);
    const RepeatedTry mark(task, (byte & 8) != 0);
    const std::size_t length = (byte & 16) != 0 ? 3000 : 20;
    const std::string text = std::to_string(printed.size()) + std::string(length, '.');
    printed.push_back("PLC" + std::to_string(task) + ": " + text);
    Wprintf(task, "%s\n", text.c_str());
    if ((byte & 32) != 0) OfferConsole();
  }
  board.console = fuzz::Bytes();
  Require(OfferConsole(), "a console that takes everything leaves nothing");
  CheckShown(board.printed, printed);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  pthread_mutex_init(&DispLock, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Bytes input(fuzz::TextOf(data, size));
  const std::uint8_t kind = input.Byte();
  if (kind % 4 == 0) {
    TryConsole(input);
    return 0;
  }
  const int index = input.Byte() % 16 - 2;
  const char separator = static_cast<char>(input.Byte('&'));
  const std::string_view text = input.Rest();
  TryTrims(text, separator);
  TryFields(text, index, separator);
  TryParameters(text);
  TryComparison(text.substr(0, text.size() / 2), text.substr(text.size() / 2));
  TrySamples(text);
  ExactText number(text);
  ToWideNumber(number.Get());
  ToFloat(number.Get());
  return 0;
}
