// The start of the controller: banner, cards, tasks, scripts, restart.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "machine.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kBanner =
    "Velmo System Software Ver:0.0.0.4 \n"
    "Support 8 PLCs.\n"
    "Velmo Machine Works\n"
    "RunEnv: DIRECTORY\n\n";

// What the board's scan does on an empty rack.
constexpr const char* kScanOfCpuCard =
    "#0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 #0 1>A3 ";

// Lets nobody, the superuser included, change or remove a file; false where that is not to be had.
bool Keep(const std::filesystem::path& file, bool kept) {
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  int flags = 0;
  bool done = ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0;
  flags = kept ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  done = done && ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0;
  close(descriptor);
  return done;
}

TEST(StartUp, EmptyRackOnEitherDeviceName) {
  const struct {
    const char* device;
    const char* number;
  } rows[] = {{"em_isa", "1"}, {"em335x_isa", "2"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.device);
    TestMachine machine("[rack]\ndevice = \"" + std::string(row.device) + "\"\ntask_count = 2\n");
    machine.Start();
    machine.WaitForConsole("PLC2: Leave TaskPLC2.\n");
    EXPECT_THAT(machine.Console(), StartsWith("Load ISA Driver successfully![HANDLE][" +
                                              std::string(row.number) + "]\n" + kBanner +
                                              "CardID: 0xa3 SlotID: 0 Type: kOVA_CPU\n"
                                              "\n"
                                              "Allow PLC[1]: 2\n"));
    EXPECT_EQ(machine.ScanBus(),
              std::string(kScanOfCpuCard) +
                  "#0 8>02 #1 4>FF #2 4>FF #3 4>FF #4 4>FF #5 4>FF #6 4>FF #7 4>FF #8 4>FF "
                  "#9 4>FF #10 4>FF #11 4>FF #12 4>FF ");
    EXPECT_EQ(machine.LinesWith("PLC2: "),
              "Load TaskPLC2.\nID:PROCESS, TID is THREAD, g_Flag: FLAG.\n"
              "RESET.PLC lost Task quit!\nLeave TaskPLC2.\n");
  }
}

TEST(StartUp, WithoutADeviceNothingIsScannedAndNoTaskStarts) {
  TestMachine machine("[rack]\ndevice = \"none\"\n[slots]\n3 = \"io\"\n");
  machine.Write("plc1/RESET.PLC", "EXIT\n");
  machine.Start();
  machine.WaitForConsole("Load TaskNet.\nID: PROCESS, TID: THREAD, g_Flag: FLAG.\n");
  machine.WaitForConsole("GlobeHKey Task Load\n");
  EXPECT_THAT(machine.Console(), StartsWith("Velmo Load Driver Failed![-1] \n\n" + std::string(kBanner) +
                                            "No Hardware Installed!\nAllow PLC[1]: 0\n"));
  EXPECT_EQ(machine.LinesWith("PLC1: "), "");
  EXPECT_EQ(machine.ScanBus(), "");
}

TEST(StartUp, WithoutADeviceTheArgumentStillStartsTasks) {
  TestMachine machine("[rack]\ndevice = \"none\"\n");
  machine.Write("plc1/RESET.PLC", "OUT: 0, 1, 1\nLD: 0, 3, 1\nEXIT\n");
  machine.StartUntil("\r", {"--tasks", "1"});
  // No card is in the table: OUT says so, LD waits for ever.
  EXPECT_THAT(machine.Log(),
              StartsWith(Line("OUT", 0, 1, "1") + "Task_OUT Fail[-1]:SlotIDx:0, ChIdx:1 1\n" +
                         Line("LD", 0, 3, "1") + "SYN_LD: SlotIdx:0  ChIdx:3 1\n" + Again("LD", 0, 3, "1")));
}

TEST(StartUp, EveryKindOfCardInTheOrderOfTheSlots) {
  TestMachine machine(
      "[slots]\n2 = \"servo\"\n5 = \"io\"\n7 = \"stepper\"\n12 = \"cylinder\"\n[rack]\ntask_count = 0\n");
  machine.Start();
  machine.WaitForConsole("Load TaskNet.\n");
  EXPECT_THAT(machine.Console(),
              StartsWith("Load ISA Driver successfully![HANDLE][1]\n" + std::string(kBanner) +
                         "CardID: 0xa3 SlotID: 0 Type: kOVA_CPU\n"
                         "CardID: 0x84 SlotID: 2 Type: kOVA_ASDA\n"
                         "CardID: 0x83 SlotID: 5 Type: kOVA_IOS\n"
                         "CardID: 0x81 SlotID: 7 Type: kOVA_STMTR\n"
                         "CardID: 0x82 SlotID: 12 Type: kOVA_CYMSTR\n"
                         "\n"
                         "Allow PLC[1]: 0\n"));
  std::string servo;
  std::string stepper;
  for (int channel = 0; channel < 8; ++channel) {
    const std::string number = std::to_string(channel);
    servo += "#2 5<0" + number + " #2 18<FF #2 18<00 #2 19<FF #2 19<00 ";
    stepper += "#7 7<0" + number + " #7 18<FF #7 18<00 #7 19<FF #7 19<00 ";
  }
  EXPECT_EQ(machine.ScanBus(), kScanOfCpuCard + std::string("#0 8>00 #1 4>FF #2 4>84 ") + servo +
                                   "#3 4>FF #4 4>FF #5 4>83 #6 4>FF #7 4>81 " + stepper +
                                   "#8 4>FF #9 4>FF #10 4>FF #11 4>FF #12 4>82 ");
}

TEST(StartUp, AFullCardTablePassesOverTheTwelfthCard) {
  std::string rack = "[rack]\ntask_count = 0\n[slots]\n";
  for (int slot = 1; slot <= 12; ++slot) rack += std::to_string(slot) + " = \"io\"\n";
  TestMachine machine(rack);
  machine.Start();
  machine.WaitForConsole("Allow PLC");
  EXPECT_EQ(CountOf(machine.Console(), "Type: kOVA_IOS\n"), 11);
  EXPECT_THAT(machine.Console(), HasSubstr("Card table full: slot 12 ignored\nCardID: 0xa3 SlotID: 0"));
}

TEST(StartUp, NumberOfTasks) {
  const struct {
    const char* argument;  // empty: none
    const char* Switch;
    const char* line;
    int tasks;
  } rows[] = {
      {"", "0", "Allow PLC[1]: 0\n", 0},    {"", "3", "Allow PLC[1]: 3\n", 3},
      {"", "9", "Allow PLC[1]: 1\n", 1},    {"0", "2", "Allow PLC[2]: 0\n", 0},
      {"1", "2", "Allow PLC[2]: 1\n", 1},   {"8", "2", "Allow PLC[2]: 8\n", 8},
      {"9", "2", "Allow PLC[2]: 1\n", 1},   {"-3", "2", "Allow PLC[2]: -3\n", 0},
      {"two", "2", "Allow PLC[2]: 0\n", 0}, {"4x", "2", "Allow PLC[2]: 4\n", 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.argument) + " on switch " + row.Switch);
    TestMachine machine("[rack]\ntask_count = " + std::string(row.Switch) + "\n");
    machine.Start(*row.argument == '\0' ? std::vector<std::string>()
                                        : std::vector<std::string>{"--tasks=" + std::string(row.argument)});
    // The network thread is made last; a task without a program leaves.
    machine.WaitForConsole("Load TaskNet.\n");
    EXPECT_TRUE(machine.Await([&] { return CountOf(machine.Console(), ": Leave TaskPLC") == row.tasks; }));
    EXPECT_THAT(machine.Console(), HasSubstr(row.line));
    EXPECT_EQ(CountOf(machine.Console(), ": Load TaskPLC"), row.tasks);
  }
}

TEST(StartUp, EveryThreadHasItsLines) {
  TestMachine machine;
  machine.Start({"--tasks", "8"});
  machine.WaitForConsole("GlobeHKey Task Load\n");
  machine.WaitForConsole("Load TaskNet.\n");
  for (int task = 1; task <= 8; ++task) {
    const std::string number = std::to_string(task);
    machine.WaitForConsole("PLC" + number + ": Leave TaskPLC" + number + ".\n");
    const std::string numbers = task <= 5 ? "ID:PROCESS, TID is THREAD, g_Flag: FLAG.\n"
                                          : "ID: PROCESS, TID: THREAD, g_Flag: FLAG.\n";
    EXPECT_EQ(machine.LinesWith("PLC" + number + ": "), "Load TaskPLC" + number + ".\n" + numbers +
                                                            "RESET.PLC lost Task quit!\nLeave TaskPLC" +
                                                            number + ".\n");
  }
  EXPECT_TRUE(machine.Await([&] {
    return CountOf(machine.Console(), "\nID: PROCESS, TID: THREAD, g_Flag: FLAG.\n") == 2;
  })) << machine.Console();
  const std::string raw = machine.Read("../console");
  EXPECT_THAT(raw, HasSubstr("g_Flag: 0."));
  EXPECT_THAT(raw, HasSubstr("g_Flag: 1."));
  EXPECT_EQ(machine.Errors(), "");
}

TEST(StartUp, ScriptFilesArePrepared) {
  TestMachine machine;
  const struct {
    const char* name;
    const char* before;
    const char* after;
    mode_t mode;
  } rows[] = {
      {"run.sh", "#!/bin/sh\r\n./Velmo\r", "#!/bin/sh\n\n./Velmo\n", 0777},
      {"user.sh", "a\rb\n", "a\nb\n", 0777},
      {"userinfo.txt", "name\r\n", "name\n\n", 0600},
      {"scan", "s\r\n", "s\r\n", 0777},
      {"test_isa", "t\r", "t\r", 0777},
      {"Velmo", "v\r", "v\r", 0777},
      {"other.sh", "o\r\n", "o\r\n", 0600},
  };
  for (const auto& row : rows) {
    machine.Write(row.name, row.before);
    chmod(machine.Path(row.name).c_str(), 0600);
  }
  machine.Start();
  machine.WaitForConsole("Allow PLC");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(machine.Read(row.name), row.after);
    struct stat status = {};
    ASSERT_EQ(stat(machine.Path(row.name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, row.mode);
  }
  EXPECT_THAT(machine.Console(), HasSubstr("RunEnv: DIRECTORY\n\n"
                                           "Prcessing System file run.sh....\nPrcessing finished\n\n"
                                           "Prcessing System file user.sh....\nPrcessing finished\n\n"
                                           "Prcessing System file userinfo.txt....\nPrcessing finished\n\n"
                                           "CardID: 0xa3"));
  // The board's home belongs to the run.
  EXPECT_EQ(machine.Read(".velmo-rack/home/root/run.sh"), "#!/bin/sh\n\n./Velmo\n");
  struct stat copy = {};
  ASSERT_EQ(stat(machine.Path(".velmo-rack/home/root/run.sh").c_str(), &copy), 0);
  EXPECT_EQ(copy.st_mode & 0777, 0777U);
  EXPECT_FALSE(std::filesystem::exists(machine.Path("tmp.txt")));
}

// Starts a controller in which that call fails.
void StartFailing(TestMachine& machine, const char* call) {
  setenv("VELMO_FAILING_CALL", call, 1);
  machine.Start({"--controller", FAILING_CONTROLLER});
  unsetenv("VELMO_FAILING_CALL");
}

TEST(StartUp, ALockThatCannotBeMadeEndsTheProcess) {
  const char* texts[] = {"FileLock", "HardLock", "HardLock", "HardLock", "DispLock", "DispLock", "UdpLock"};
  for (int lock = 0; lock < 7; ++lock) {
    TestMachine machine;
    StartFailing(machine, ("pthread_mutex_init " + std::to_string(lock + 1)).c_str());
    EXPECT_EQ(machine.WaitForEnd(), 1);
    EXPECT_THAT(machine.Errors(), testing::ContainsRegex("(^|\n)" + std::string(texts[lock]) +
                                                         " mutex_lock fail: Cannot allocate memory\n"));
    EXPECT_EQ(machine.ScanBus(), "");
    EXPECT_EQ(CountOf(machine.Console(), "Allow PLC"), 0);
  }
}

TEST(StartUp, AThreadThatCannotBeMadeIsToldAndTheOthersStart) {
  const std::string lines[] = {"Load TaskPLC1.\n", "Load TaskPLC2.\n", "Load TaskKey.\n", "Load TaskNet.\n"};
  for (int thread = 0; thread < 4; ++thread) {
    TestMachine machine("[rack]\ntask_count = 2\n");
    StartFailing(machine, ("pthread_create " + std::to_string(thread + 1)).c_str());
    for (int other = 0; other < 4; ++other) {
      if (other != thread) machine.WaitForConsole(lines[other]);
    }
    EXPECT_EQ(CountOf(machine.Console(), "main: Resource temporarily unavailable\n"), 1);
    EXPECT_EQ(CountOf(machine.Console(), lines[thread]), 0);
  }
}

TEST(Restart, TheRequestIsTakenAwayAndTheFilesAreSyncedBeforeTheRestart) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "EXIT\n");
  machine.Write("reboot.txt", "");
  machine.Start({"--once"});
  EXPECT_EQ(machine.WaitForEnd(), 85);
  EXPECT_EQ(CountOf(machine.Console(), "Velmo: Reboot!\n"), 1);
  EXPECT_FALSE(std::filesystem::exists(machine.Path("reboot.txt")));

  std::vector<rack::JournalKind> end;
  for (const rack::JournalRecord& record : machine.Journal()) {
    if (record.task == rack::kMainThread) end.push_back(record.kind);
  }
  ASSERT_GE(end.size(), 2U);
  EXPECT_EQ(end[end.size() - 2], rack::JournalKind::Sync);
  EXPECT_EQ(end[end.size() - 1], rack::JournalKind::Restart);
}

TEST(Restart, AfterAFailedRestartTheMachineRunsOn) {
  TestMachine machine;
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nEXIT\n");
  machine.Write("reboot.txt", "");
  machine.Start({"--restart-fails"});
  machine.WaitForConsole("Velmo: Reboot!\n");
  EXPECT_TRUE(machine.Await([&] { return machine.Live().controller.restarts == 1; }));
  EXPECT_EQ(machine.Live().controller.syncs, 1U);
  EXPECT_FALSE(std::filesystem::exists(machine.Path("reboot.txt")));
  machine.SetInput(0, 0, true);
  machine.WaitForLog("EXIT");
  EXPECT_EQ(machine.Live().controller.attaches, 1U);
}

// As on a file system that can only be read: else the board would restart at each start. Message, removal, sync: what
// comes behind a failed removal does not happen.
TEST(Restart, ARequestThatCannotBeRemovedRestartsNothing) {
  TestMachine machine("[rack]\ntask_count = 0\n");
  machine.Start({"--restart-fails"});
  machine.Write("reboot.txt", "");
  if (!Keep(machine.Path("reboot.txt"), true)) GTEST_SKIP() << "no file can be kept from being removed here";
  machine.WaitForConsole(
      "Velmo: Reboot!\nreboot.txt cannot be removed: Operation not permitted, no restart\n");
  const rack::Nanos then = machine.Live().now;
  EXPECT_TRUE(machine.Await([&] { return machine.Live().now > then + 12 * rack::kSecond; }));
  EXPECT_EQ(CountOf(machine.Console(), "Velmo: Reboot!\n"), 1);
  EXPECT_EQ(CountOf(machine.Console(), "cannot be removed"), 1);
  EXPECT_EQ(machine.Live().controller.syncs, 0U);
  EXPECT_EQ(machine.Live().controller.restarts, 0U);

  EXPECT_TRUE(Keep(machine.Path("reboot.txt"), false));
  std::filesystem::remove(machine.Path("reboot.txt"));
  const rack::Nanos gone = machine.Live().now;
  EXPECT_TRUE(machine.Await([&] { return machine.Live().now > gone + 6 * rack::kSecond; }));
  machine.Write("reboot.txt", "");
  EXPECT_TRUE(machine.Await([&] { return machine.Live().controller.restarts == 1; }));
  EXPECT_EQ(CountOf(machine.Console(), "Velmo: Reboot!\n"), 2);
}

TEST(Console, TheMachineRunsOnWhenItsConsoleIsGone) {
  TestMachine machine("", rack::TimeMode::Real);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nOUT: 0, 3, 1\nEXIT\n");
  const int console = machine.StartOnPipe();
  EXPECT_TRUE(machine.Await([&] { return machine.Live().tasks[1].line == 1; }));
  close(console);
  machine.AwaitPolls();
  machine.SetInput(0, 0, true);
  EXPECT_TRUE(machine.Await([&] { return machine.Bus().find("5<08") != std::string::npos; }));
  EXPECT_EQ(kill(machine.Controller(), 0), 0);
}

// A reader that stops, as a terminal after Ctrl-S: no task, no key and no datagram waits for it.
void RunWhileTheConsoleStands(int (TestMachine::*start)(), int nearlyFull) {
  TestMachine machine("[rack]\ntask_count = 2\n", rack::TimeMode::Real);
  machine.Write("plc1/RESET.PLC", "LD: 0, 0, 1\nOUT: 0, 3, 1\nEXIT\n");
  machine.Write("plc1/FLOW.PLC", "OUT: 0, 5, 1\nEXIT\n");
  machine.Write("plc2/RESET.PLC", "G_ST: 0\n#LE: 1\nLED: 0, 0, floods\nGO: 1\n");
  const int console = (machine.*start)();
  int held = 0;
  EXPECT_TRUE(machine.Await([&] { return ioctl(console, FIONREAD, &held) == 0 && held > nearlyFull; }));
  machine.AwaitPolls();
  machine.SetInput(0, 0, true);
  EXPECT_TRUE(machine.Await([&] { return machine.Bus().find("5<08") != std::string::npos; }));
#ifndef __SANITIZE_THREAD__  // to which, behind the rack in real time, a wait for a condition never gives its mutex up
  // Again and again: the flood may keep the task's last line from being printed for longer than a key stays.
  EXPECT_TRUE(machine.Await([&] {
    machine.Tap(kEnter);
    return machine.Bus().find("5<28") != std::string::npos;
  }));
#endif

  std::string text;
  char part[4096];
  ssize_t count;
  while (text.find(" lines not shown --\n") == std::string::npos &&
         (count = read(console, part, sizeof part)) > 0) {
    text.append(part, static_cast<size_t>(count));
  }
  EXPECT_THAT(text, HasSubstr("PLC1: Task_PLC1 Running\n"));
  EXPECT_THAT(text, HasSubstr("\n-- "));
  close(console);
}

TEST(Console, TheMachineRunsOnWhileItsConsoleStandsStill) {
  // Of a pipe's 64 KB some bytes of each page stay free; a socket counts more than the text.
  RunWhileTheConsoleStands(&TestMachine::StartOnPipe, 60'000);
  RunWhileTheConsoleStands(&TestMachine::StartOnSocket, 8'000);
}

TEST(Console, RepeatedLinesLeaveAtOnceThroughAPipe) {
  TestMachine machine("", rack::TimeMode::Real);
  machine.Write("plc1/RESET.PLC", "LMOT: 0, 0, ; once\nROW: 0, 0, 1\n");
  const int console = machine.StartOnPipe();
  std::string text;
  char part[512];
  ssize_t count;
  while (text.find('\r') == std::string::npos && (count = read(console, part, sizeof part)) > 0) {
    text.append(part, static_cast<size_t>(count));
  }
  EXPECT_THAT(text, HasSubstr("PLC1: CmdIdx: ROW SlotIdx[0] ChIdx[0][1] [] [RESET.PLC]               \r"));
  close(console);
}

}  // namespace
