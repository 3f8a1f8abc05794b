// A scenario's file, beside a machine with a card of each kind.
#include "scenario/scenario.h"
#include "fuzz.h"

namespace {

constexpr std::string_view kRack = R"([rack]
task_count = 2
[slots]
1 = "io"
2 = "stepper"
3 = "cylinder"
4 = "servo"
[inputs]
button = "1.0"
[outputs]
valve = "1.1"
[[counter]]
name = "parts"
when_input = "button"
)";
constexpr std::string_view kProgram = "LD: 1, 0, 1\nOUT: 1, 1, 1\nEND\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Scratch scratch;
  fuzz::Scratch::Write("rack.toml", kRack);
  fuzz::Scratch::Write("plc1/RESET.PLC", kProgram);
  fuzz::Scratch::Write("scenarios/fuzz.toml", fuzz::TextOf(data, size));
  rack::scenario::Scenario scenario;
  std::vector<std::string> errors;
  const bool isRight = rack::scenario::ReadScenario("scenarios/fuzz.toml", scenario, errors);
  fuzz::Require(isRight == errors.empty(), "a file is right or told what is wrong");
  fuzz::Require(!isRight || !scenario.expectations.empty(), "what is right expects something");
  return 0;
}
