// Every command of the language before the checker and before the explanation of a standstill.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check/check.h"
#include "machine/why.h"
#include "support/scratch.h"
#include "synx.h"

namespace {

// Entries of the card table: 0 cpu, 1 io, 2 stepper, 3 servo, 4 cylinder.
constexpr int kEntries = 5;

struct Expected {
  const char* keyword;
  const char* fields;  // "N" stands for the entry
  const char* taken;   // by the cards in these entries, the first of them below; null: goes to no card
  const char* stands;  // what a task says that stands at the line, for a quarter of a second
};
// In the order of the controller's table.
const Expected kExpected[] = {
    {"NUL", ": 1, 0, 0", nullptr, "reads on"},
    {"LD", ": N, 0, 1", "01",
     "LD 0, 0: 0.0 is off, should be on, for 0.2 s: nothing in rack.toml drives 0.0"},
    {"OUT", ": N, 0, 1", "01", "OUT 0, 0: lacks nothing, for 0.2 s"},
    {"FL", ": SUB.PLC", nullptr, "FL SUB.PLC: lacks nothing, for 0.2 s"},
    {"PARAM", ": 1, 0, 0", nullptr, "PARAM 1, 0: lacks nothing, for 0.2 s"},
    {"DG", ": N, 0, -1", "4", "DG 4, 0: waits for the end of the setup of cylinder 0, for 0.2 s"},
    {"#LE", ": 3", nullptr, "#LE 3: lacks nothing, for 0.2 s"},
    {"END", "", nullptr, "END: 0.8 s left of its second"},
    {"MOT", ": N, 0, 40&20&1", "23", "MOT 2, 0: lacks nothing, for 0.2 s"},
    {"LDG", ": N, 0,", "4", "LDG 4, 0: cylinder 0 moves, at 1.5, should reach 4, for 0.2 s"},
    {"DLY", ": 500", nullptr, "DLY 500: 0.3 s left"},
    {"GO", ": 3", nullptr, "GO 3: plc1/FLOW.PLC has no label #LE: 3, the line repeats, for 0.2 s"},
    {"RLY", ": 1, 0, 0", nullptr, "RLY 1, 0: lacks nothing, for 0.2 s"},
    {"MFL0", ": 1, 0, 0", nullptr, "MFL0 1, 0: lacks nothing, for 0.2 s"},
    {"MFL1", ": 1, 0, 0", nullptr, "MFL1 1, 0: lacks nothing, for 0.2 s"},
    {"MFL2", ": 1, 0, 0", nullptr, "MFL2 1, 0: lacks nothing, for 0.2 s"},
    {"MFL0END", ": 1, 0, 0", nullptr, "MFL0END 1, 0: lacks nothing, for 0.2 s"},
    {"MFL1END", ": 1, 0, 0", nullptr, "MFL1END 1, 0: lacks nothing, for 0.2 s"},
    {"MFL2END", ": 1, 0, 0", nullptr, "MFL2END 1, 0: lacks nothing, for 0.2 s"},
    {"EXIT", "", nullptr, "EXIT: lacks nothing, for 0.2 s"},
    {"RSTMOT", ": 1, 0, 0", nullptr, "RSTMOT 1, 0: lacks nothing, for 0.2 s"},
    {"LMOT", ": N, 0,", "23", "LMOT 2, 0: motor 0 still moves at 7, its move ends in 2.0 s, for 0.2 s"},
    {"SMOT", ": 1, 0, 0", nullptr, "SMOT 1, 0: lacks nothing, for 0.2 s"},
    {"MOZ", ": 1, 0, 0", nullptr, "MOZ 1, 0: lacks nothing, for 0.2 s"},
    {"IF", ": N, 0, 1&SUB.PLC&NUL", "01", "IF 0, 0: lacks nothing, for 0.2 s"},
    {"RSTMOZ", ": 1, 0, 0", nullptr, "RSTMOZ 1, 0: lacks nothing, for 0.2 s"},
    {"LMOZ", ": 1, 0, 0", nullptr, "LMOZ 1, 0: lacks nothing, for 0.2 s"},
    {"LED", ": 1, 0, 0", nullptr, "LED 1, 0: lacks nothing, for 0.2 s"},
    {"G_ST", ": 500", nullptr, "G_ST 500: lacks nothing, for 0.2 s"},
    {"DGO", ": 1, 0, 0", nullptr, "DGO 1, 0: lacks nothing, for 0.2 s"},
    {"LDGI", ": 1, 0, 0", nullptr, "LDGI 1, 0: lacks nothing, for 0.2 s"},
    {"ROW", ": N, 0, 40", "23", "ROW 2, 0: count is 5, should reach 40, for 0.2 s"},
    {"ROCLR", ": N, 0,", "23", "ROCLR 2, 0: lacks nothing, for 0.2 s"},
    {"OUTE", ": 1, 0, 0", nullptr, "OUTE 1, 0: lacks nothing, for 0.2 s"},
};
static_assert(std::size(kExpected) == SYNMAX, "every command of the language is looked at");

std::string LineOf(const Expected& command, int entry) {
  std::string line = std::string(command.keyword) + command.fields;
  const std::size_t place = command.taken == nullptr ? std::string::npos : line.find(" N,");
  if (place != std::string::npos) line[place + 1] = static_cast<char>('0' + entry);
  return line;
}

class CommandsTest : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    std::filesystem::create_directory("plc1");
    Write("rack.toml", "[slots]\n1 = \"io\"\n2 = \"stepper\"\n3 = \"servo\"\n4 = \"cylinder\"\n");
    Write("plc1/RESET.PLC", "EXIT\n");
    Write("plc1/SUB.PLC", "END\n");
  }

  // Rules that a line breaks.
  static std::vector<std::string> Broken(const std::string& line) {
    Write("plc1/FLOW.PLC", line + "\nEND\n");
    std::string error;
    const auto findings = check::CheckPath(".", "", &error);
    std::vector<std::string> rules;
    for (const check::Finding& finding : findings.value_or(std::vector<check::Finding>())) {
      if (finding.line == 1) rules.emplace_back(check::RuleOf(finding.rule).name);
    }
    return rules;
  }
  static bool Has(const std::vector<std::string>& rules, const char* rule) {
    return std::find(rules.begin(), rules.end(), rule) != rules.end();
  }
};

TEST_F(CommandsTest, TheCheckerKnowsWhichCardsTakeEachCommandAndWhichCommandsDoNothing) {
  for (int index = 0; index < SYNMAX; ++index) {
    const Expected& command = kExpected[index];
    ASSERT_STREQ(command.keyword, SYNXCMD[index]);
    const std::string keyword = command.keyword;
    for (int entry = 0; entry < kEntries; ++entry) {
      const std::vector<std::string> broken = Broken(LineOf(command, entry));
      const bool taken = command.taken == nullptr ||
                         std::string(command.taken).find(static_cast<char>('0' + entry)) != std::string::npos;
      EXPECT_EQ(Has(broken, "wrong-card"), !taken) << keyword << " on entry " << entry;
      const bool acts = command.taken != nullptr || keyword == "FL" || keyword == "#LE" || keyword == "END" ||
                        keyword == "DLY" || keyword == "GO" || keyword == "EXIT" || keyword == "G_ST";
      EXPECT_EQ(Has(broken, "no-action"), !acts) << keyword;
      EXPECT_FALSE(Has(broken, "unknown-keyword") || Has(broken, "too-few-fields")) << keyword;
    }
  }
}

TEST_F(CommandsTest, AStandingTaskSaysOfEachCommandWhatItLacks) {
  rack::Snapshot machine;
  const rack::CardKind kinds[] = {rack::CardKind::Cpu, rack::CardKind::Io, rack::CardKind::Stepper,
                                  rack::CardKind::Servo, rack::CardKind::Cylinder};
  for (const rack::CardKind kind : kinds) {
    rack::CardView card;
    card.kind = kind;
    card.motors.assign(static_cast<std::size_t>(rack::RowOf(kind).motors),
                       {true, false, 7, 2'000'000'000, 0, {}, {}});
    card.counts.assign(static_cast<std::size_t>(rack::RowOf(kind).counters), 5);
    card.cylinders.assign(static_cast<std::size_t>(rack::RowOf(kind).cylinders), {1500, 4, 0x61});
    machine.cards.push_back(card);
  }
  rack::TaskView task;
  task.task = 1;
  task.mainFile = task.file = "plc1/FLOW.PLC";
  task.standsNanos = 240'000'000;
  for (const Expected& command : kExpected) {
    task.text = LineOf(command, command.taken == nullptr ? 0 : command.taken[0] - '0');
    task.labelMissing = std::string(command.keyword) == "GO";
    EXPECT_EQ(rack::WhyStanding(machine, task), command.stands);
  }
}

}  // namespace
