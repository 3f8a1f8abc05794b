// Each rule of the program checker that says what the controller will do: the wrong program runs on the controller,
// which is seen to do so, and the checker finds the rule in that very machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "check/check.h"
#include "process/machine.h"
#include "process/network.h"
#include "rows.h"
#include "support/rule_example.h"

namespace {

using testing::HasSubstr;

// The order of the cards is that of the rules' examples; entry and slot differ. The stepper motors need minutes for
// the examples' moves, the servo motors some seconds; the I/O card's first input is on.
std::string RackFile(int tasks) {
  return "[rack]\ntask_count = " + std::to_string(tasks) +
         "\non_at_start = [\"1.0\"]\n[slots]\n7 = \"io\"\n8 = { card = \"stepper\", pulses_per_unit = 2 }\n"
         "9 = { card = \"cylinder\", travel_time = \"20 ms\", setup_time = \"3 ms\" }\n"
         "10 = { card = \"servo\", pulses_per_unit = 250 }\n";
}

std::string WrongExample(const std::string& rule) {
  const check::Rule* found = check::FindRule(rule);
  return found == nullptr ? "" : found->wrong;
}

// A program in the machine.
struct Placed {
  const Row* shown;
  int task;                      // which runs its plc1
  std::set<std::string> places;  // its directories and files
  std::set<int> tasksWithExit;   // tasks whose reset program ends at once
  std::string rack;              // what the rack file has below the cards
};

// Writes the files of an example so that its plc1 becomes the given task's; directories that no task can run stay.
// The number of tasks that it takes.
int Place(const TestMachine& machine, const std::string& example, int task, Placed* placed) {
  int tasks = 1;
  for (const ExampleFile& file : FilesOfExample(example)) {
    std::string path = file.path;
    if (path == "rack.toml") {
      placed->rack = file.text;
      placed->places.insert(path);
      continue;
    }
    const std::size_t slash = path.find('/');
    const int number = slash == path.npos ? 0 : std::stoi(path.substr(3));
    if (number >= 1 && number <= 8) {
      tasks = std::max(tasks, number);
      path = DirectoryOf(task + number - 1) + path.substr(slash);
      if (path.find("/RESET.PLC") != path.npos && file.text.find("EXIT") != std::string::npos)
        placed->tasksWithExit.insert(task + number - 1);
    }
    machine.Write(path, file.text);
    placed->places.insert(path.substr(0, path.find('/')));
  }
  for (int i = 0; i < tasks; ++i) placed->places.insert(DirectoryOf(task + i));
  return tasks;
}

// What the task has logged since it was told to open FLOW.PLC, without what it says about the Enter key.
std::string FlowLog(const TestMachine& machine, int task) {
  const std::string log = machine.Log(task);
  const std::string start = "Run: [" + DirectoryOf(task) + "/FLOW.PLC]";
  const std::size_t at = log.find(start);
  if (at == log.npos) return "";
  const std::string rest = Without(log.substr(at + start.size()), "HKEY_Enter");
  return rest.compare(0, 1, "\n") == 0 ? rest.substr(1) : rest;
}

void ExpectFinding(const TestMachine& machine, const std::string& rule, const std::set<std::string>& places) {
  std::string error;
  const auto findings = check::CheckPath(machine.Path(""), "", &error);
  ASSERT_TRUE(findings) << error;
  const bool found = std::any_of(findings->begin(), findings->end(), [&](const check::Finding& finding) {
    if (check::RuleOf(finding.rule).name != rule) return false;
    const auto path = std::filesystem::path(finding.file).lexically_relative(machine.Path(""));
    const auto isNamed = [&](const std::string& place) {
      return path == "." ? finding.message.find("no directory " + place + ":") != std::string::npos
                         : *path.begin() == place;
    };
    return std::any_of(places.begin(), places.end(), isNamed);
  });
  EXPECT_TRUE(found) << check::Render(*findings, check::Format::Text, false);
}

void ExpectLogAndBus(TestMachine& machine, const Placed& placed) {
  const Row& row = *placed.shown;
  if (row.goes == Then::Own) return;
  const std::string bus = machine.Bus(placed.task);
  const std::string log = FlowLog(machine, placed.task);
  const bool isWhole = row.goes == Then::Rests;
  EXPECT_EQ(isWhole ? log : log.substr(0, row.log.size()), row.log);
  if (row.bus == nullptr) return;
  // What the program does in its second round says nothing new.
  const std::string expected = row.bus;
  const bool hasGoneOn = log.size() > row.log.size() && !expected.empty();
  EXPECT_EQ(hasGoneOn ? bus.substr(0, expected.size()) : bus, expected);
}

// A task that pauses may miss a key.
void ExpectWayOutByMinus(TestMachine& machine, const Placed& placed) {
  if (placed.shown->goes != Then::Stays && placed.shown->goes != Then::Rests) return;
  EXPECT_TRUE(machine.Await([&] {
    const bool isOut = CountOf(FlowLog(machine, placed.task), " [RESET.PLC] ") > 0;
    if (!isOut) machine.Press(kDec);
    return isOut;
  })) << FlowLog(machine, placed.task);
}

class RulesSeen : public testing::TestWithParam<Group> {};

TEST_P(RulesSeen, TheControllerDoesWhatTheRuleSays) {
  TestMachine machine;
  std::vector<Placed> programs;
  int tasks = 0;
  for (const Row& row : GetParam().rows) {
    programs.push_back({&row, tasks + 1, {}, {}, {}});
    tasks += Place(machine, row.program == nullptr ? WrongExample(row.rule) : row.program, tasks + 1,
                   &programs.back());
  }
  ASSERT_LE(tasks, 8);
  std::string rack = RackFile(tasks);
  for (const Placed& placed : programs) rack += placed.rack;
  machine.Write("rack.toml", rack);
  machine.Start();
  for (const Placed& placed : programs) {
    for (const int task : placed.tasksWithExit) machine.WaitForLog("CmdIdx: EXIT", task);
  }
  machine.Press(kEnter);
  for (const Placed& placed : programs) {
    const std::size_t size = placed.shown->log.size();
    machine.Await([&] { return FlowLog(machine, placed.task).size() >= size; });
  }
  machine.AwaitPolls();  // what a program that rests logs beyond its expectation shows
  const auto forEach = [&](const auto& look) {
    for (const Placed& placed : programs) {
      SCOPED_TRACE(placed.shown->rule + std::string(" in ") + DirectoryOf(placed.task));
      look(placed);
    }
  };
  forEach([&](const Placed& placed) { ExpectLogAndBus(machine, placed); });
  forEach([&](const Placed& placed) {
    if (placed.shown->seen) placed.shown->seen(machine, placed.task);
  });
  forEach([&](const Placed& placed) { ExpectWayOutByMinus(machine, placed); });
  forEach([&](const Placed& placed) { ExpectFinding(machine, placed.shown->rule, placed.places); });
  EXPECT_EQ(machine.Errors(), "");
}

INSTANTIATE_TEST_SUITE_P(Group, RulesSeen, testing::ValuesIn(Groups()),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

// Writes a rule's wrong example, checks it, and starts it.
void StartExample(TestMachine& machine, const std::string& rule, int tasks = 1) {
  Placed placed;
  Place(machine, WrongExample(rule), 1, &placed);
  machine.Write("rack.toml", RackFile(tasks) + placed.rack);
  ExpectFinding(machine, rule, placed.places);
  machine.Start();
}

// Both would take minutes with the pause that follows other commands.
TEST(RulesSeenAlone, BusyLoopAndEmptyBlockRunAtFullSpeed) {
  const struct {
    const char* rule;
    std::uint32_t rack::TaskRecord::*rounds;
  } rows[] = {{"busy-loop", &rack::TaskRecord::searches}, {"empty-block", &rack::TaskRecord::endReads}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rule);
    TestMachine machine;
    StartExample(machine, row.rule);
    machine.WaitForLog("CmdIdx: EXIT");
    machine.Tap(kEnter);
    const rack::Nanos start = machine.Live().now;
    EXPECT_TRUE(machine.Await([&] { return machine.Live().tasks[1].*row.rounds >= 5000; }));
    EXPECT_LT(machine.Live().now - start, 25'000 * rack::kMillisecond);
  }
}

TEST(RulesSeenAlone, BusyWaitAsksAtFullSpeed) {
  TestMachine machine;
  StartExample(machine, "busy-wait");
  machine.WaitForLog("CmdIdx: EXIT");
  machine.Tap(kEnter);
  machine.WaitForLog("CmdIdx: LD ");
  const rack::Nanos start = machine.Live().now;
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(), "CmdIdx: LD ") >= 5000; }));
  EXPECT_LT(machine.Live().now - start, 1'000 * rack::kMillisecond);
}

TEST(RulesSeenAlone, LongPauseIsDeafToAShortKey) {
  TestMachine machine;
  StartExample(machine, "long-pause");
  machine.WaitForLog("CmdIdx: EXIT");
  machine.Press(kEnter);
  machine.WaitForLog("CmdIdx: LD ");
  const int rounds = CountOf(machine.Log(), "CmdIdx: GO ");
  machine.Tap(kDec);
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(), "CmdIdx: GO ") > rounds + 1; }));
  EXPECT_EQ(CountOf(machine.Log(), "CmdIdx: EXIT"), 1) << machine.Log();
  EXPECT_THAT(machine.Console(), HasSubstr("PLCKey: KeyPad=12"));
}

TEST(RulesSeenAlone, LongDelayIsDeafToAShortKey) {
  TestMachine machine;
  StartExample(machine, "long-delay");
  machine.WaitForLog("CmdIdx: EXIT");
  machine.Press(kEnter);
  const int rounds = CountOf(machine.Log(), "SYN_END");
  machine.Tap(kDec);
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(), "SYN_END") > rounds; }));
  EXPECT_EQ(CountOf(machine.Log(), "CmdIdx: EXIT"), 1) << machine.Log();
  EXPECT_THAT(machine.Console(), HasSubstr("PLCKey: KeyPad=12"));
}

TEST(RulesSeenAlone, MainProgramThatCallsItselfDoesNotPause) {
  TestMachine machine;
  machine.Write("rack.toml", RackFile(1));
  machine.Write("plc1/RESET.PLC", "FL: RESET.PLC\nEXIT\n");
  machine.Write("plc1/FLOW.PLC", "DLY: 100\nEND\n");
  ExpectFinding(machine, "main-as-block", {"plc1"});
  machine.Start();
  EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Log(), "CmdIdx: FL ") >= 1000; }));
  EXPECT_LT(machine.Live().now, 5'000 * rack::kMillisecond);
  EXPECT_EQ(CountOf(machine.Log(), "CmdIdx: EXIT"), 0);
}

// The switch says more than 8 tasks, which starts one.
TEST(RulesSeenAlone, ConfigurationThatIsNotReadOrOutOfRange) {
  const std::string flow = "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nEND\n== Velmo.conf\n";
  const struct {
    const char* rule;
    std::string machine;
    int port;  // the one that the controller takes
  } rows[] = {
      {"conf-unread", WrongExample("conf-unread"), 2017},
      {"conf-unread", flow + "[UDP]\t\nPort=8000", 2017},
      {"conf-unread", flow + "[UDP]\r\nPort=8000", 2017},
      {"conf-unread", flow + "[UDP]\nPlace=1\n[TCP]\n[UDP]\nPort=8000", 2017},
      {"conf-unread", flow + "[UDP] Port=8000", 2017},
      {"conf-unread", flow + "[UDP]\nPort:8000", 2017},
      {"conf-unread", flow + "[KEYPAD]\nPort=8000", 2017},
      {"conf-port", WrongExample("conf-port"), 14464},
      {"conf-port", flow + "[UDP]\nPort=80000\n[KEYPAD]\nFunctionPort=300", 14464},
  };
  const OwnNetwork network;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.machine);
    TestMachine machine("", rack::TimeMode::Real);
    machine.Write("rack.toml", RackFile(9));
    machine.Write("plc2/RESET.PLC", "EXIT\n");
    Placed placed;
    Place(machine, row.machine, 1, &placed);
    machine.Start();
    machine.WaitForLog("CmdIdx: EXIT");
    AwaitPort(machine, row.port);
    const bool hasBadKeyPort = row.machine.find("FunctionPort") != std::string::npos;
    EXPECT_EQ(
        CountOf(machine.Console(), "Velmo.conf: FunctionPort 300 refused, ports 9 to 255 are possible\n"),
        hasBadKeyPort ? 1 : 0);
    EXPECT_EQ(machine.LinesWith("PLC2: "), "");
    ExpectFinding(machine, row.rule, {"Velmo.conf"});
    ExpectFinding(machine, "idle-directory", {"plc2"});
    EXPECT_EQ(machine.Errors(), "");
  }
}

TEST(RulesSeenAlone, FunctionKeysAtAnotherPortAreNotSeen) {
  const struct {
    const char* conf;
    const char* bus;  // what is read for the function keys
  } rows[] = {{"[KEYPAD]\nFunctionPort=11\n", "#0 11>FF #0 2>00 "}, {"", "#0 2>00 #0 2>00 "}};
  constexpr int kCancelKey = 1;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.conf);
    TestMachine machine;
    machine.Write("rack.toml", "[rack]\nfunction_port = 12\n");
    machine.Write("Velmo.conf", "[UDP]\nPort=" + std::to_string(FreePort()) + "\n" + row.conf);
    machine.Write("plc1/RESET.PLC", "EXIT\n");
    machine.Write("plc1/FLOW.PLC", "DLY: 100\nEND\n");
    ExpectFinding(machine, "key-port", {"Velmo.conf"});
    machine.StartUntil("CmdIdx: EXIT");
    machine.HoldFunctionKeys(kCancelKey, 150);
    machine.AwaitPolls();
    EXPECT_THAT(machine.Bus(0), HasSubstr(row.bus));
    EXPECT_EQ(machine.LinesWith("PLCKey: KeyPad"), "");
  }
}

TEST(RulesSeenAlone, NoTaskRunsWithoutACountOrADevice) {
  for (const char* rack : {"[rack]\ntask_count = 0\n", "[rack]\ndevice = \"none\"\n"}) {
    SCOPED_TRACE(rack);
    TestMachine machine(rack);
    machine.Write("plc1/RESET.PLC", "EXIT\n");
    machine.Write("plc1/FLOW.PLC", "DLY: 100\nEND\n");
    ExpectFinding(machine, "idle-directory", {"plc1"});
    machine.Start();
    machine.WaitForConsole("GlobeHKey Task Load\n");
    EXPECT_EQ(machine.LinesWith("PLC1: "), "");
  }
}

TEST(RulesSeenTable, HasEveryRule) {
  std::vector<std::string> seen = {
      "busy-loop",      "busy-wait", "long-delay", "long-pause",
      "conf-unread",    "conf-port", "key-port",  // in the tests above
      "unknown-ignore",                           // concerns the checker alone
      "rack-file",                                // no controller is started
  };
  for (const Group& group : Groups()) {
    for (const Row& row : group.rows) seen.push_back(row.rule);
  }
  std::sort(seen.begin(), seen.end());
  seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
  EXPECT_THAT(check::RuleNames(), testing::UnorderedElementsAreArray(seen));
}

}  // namespace
