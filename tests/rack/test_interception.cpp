// The calls as a controller makes them, on a machine in a folder of the test. The restart calls carry a
// command and magic numbers that the system itself would refuse.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "preload/bus_target.h"
#include "rack_fixture.h"

namespace {

class InterceptionTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char folder[] = "/tmp/rack-machine-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    ASSERT_EQ(chdir(folder), 0);
    for (const char* name : {"run", "run/home", "run/home/root", "plc1"}) ASSERT_EQ(mkdir(name, 0777), 0);
    const std::string state = std::string(folder) + "/run/state";
    setenv("VELMO_RACK_STATE", state.c_str(), 1);
    auto setup = std::make_unique<rack::RackSetup>();
    rack::MakeEmptySetup(*setup);
    setup->image.device = rack::DeviceName::Em335xIsa;
    setup->image.restartFails = 1;
    std::string error;
    Machine = std::make_unique<rack::StateFile>();
    ASSERT_TRUE(Machine->Create(state, *setup, error)) << error;
    // Only now: the process's first stream decides whether it has a rack.
    std::ofstream("plc1/RESET.PLC") << "OUT: 0,1,1\nGO: 5,\nDLY: 1,\n#LE: 5,\nEND:";
  }
  static void TearDownTestSuite() { Machine.reset(); }

  static rack::RackLive& Live() { return Machine->State()->live; }
  static inline std::unique_ptr<rack::StateFile> Machine;
};

TEST_F(InterceptionTest, OnlyTheDeviceOfTheRackOpensAndAnswers) {
  EXPECT_EQ(open("/dev/em_isa", O_RDWR), -1);
  EXPECT_EQ(errno, ENOENT);
  const int device = open("/dev/em335x_isa", O_RDWR);
  ASSERT_GE(device, 0);
  EXPECT_EQ(Live().controller.process, getpid());
  EXPECT_EQ(Live().controller.deviceOpen, 1U);
  unsigned char byte = 1;
  EXPECT_EQ(read(device, &byte, 1), 1);
  EXPECT_EQ(byte, 0xA3);
  const unsigned char output[] = {0x42, 5};
  EXPECT_EQ(write(device, output, 2), 2);
  byte = 5;
  EXPECT_EQ(read(device, &byte, 1), 1);
  EXPECT_EQ(byte, 0x42);
  EXPECT_EQ(close(device), 0);
  EXPECT_EQ(Live().controller.deviceOpen, 0U);
  EXPECT_EQ(read(device, &byte, 1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(InterceptionTest, RestartAndSyncAreRecordedAndGoNoFurther) {
  const std::uint32_t syncs = Live().controller.syncs;
  const std::uint32_t restarts = Live().controller.restarts;
  sync();
  syscall(SYS_sync);
  EXPECT_EQ(Live().controller.syncs, syncs + 2);
  EXPECT_EQ(reboot(0x12345), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(syscall(SYS_reboot, 0, 0, 0x54321, nullptr), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(Live().controller.restarts, restarts + 2);
  EXPECT_EQ(rack::CallsSoFar().restartCommand, 0x54321U);
}

TEST_F(InterceptionTest, FilesOfTheBoardOutsideTheMachineStayInTheRun) {
  FILE* file = std::fopen("/home/root/run.sh", "w");
  ASSERT_NE(file, nullptr);
  std::fputs("x", file);
  std::fclose(file);
  EXPECT_EQ(chmod("/home/root/run.sh", 0701), 0);
  struct stat info {};
  ASSERT_EQ(stat("run/home/root/run.sh", &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0701U);
  EXPECT_EQ(info.st_size, 1);
}

TEST_F(InterceptionTest, ProgramLinesAreKnownAndALabelSearchIsNone) {
  FILE* program = std::fopen("plc1/RESET.PLC", "rt");
  ASSERT_NE(program, nullptr);
  // Not to be inlined: where it calls from is what tells a pass from a label search.
  const auto pass = [&](char(&line)[100]) __attribute__((noinline)) {
    return std::fgets(line, 100, program) != nullptr;
  };
  char line[100];
  const rack::TaskRecord& task = Live().tasks[1];
  ASSERT_NE(task.mainFile, 0U);
  EXPECT_STREQ(Live().programFiles[task.mainFile - 1], "plc1/RESET.PLC");
  EXPECT_TRUE(pass(line));
  EXPECT_TRUE(pass(line));
  EXPECT_STREQ(task.text, "GO: 5,\n");
  EXPECT_EQ(task.line, 2U);
  std::rewind(program);
  for (int i = 0; i < 4; ++i) ASSERT_NE(std::fgets(line, sizeof line, program), nullptr);
  EXPECT_EQ(task.line, 2U);
  EXPECT_EQ(task.searches, 1U);
  EXPECT_TRUE(pass(line));
  EXPECT_EQ(task.line, 5U);
  EXPECT_FALSE(pass(line));
  EXPECT_FALSE(pass(line));
  EXPECT_EQ(task.endReads, 2U);
  EXPECT_STREQ(task.text, "END:");
  EXPECT_EQ(std::fopen("plc1/NONE.PLC", "rt"), nullptr);
  EXPECT_EQ(task.failedOpens, 1U);
  EXPECT_STREQ(task.failedPath, "plc1/NONE.PLC");
  std::fclose(program);
  EXPECT_EQ(task.mainFile, 0U);
}

TEST_F(InterceptionTest, APlacedBusAnswersInsteadOfTheRack) {
  class FailingBus final : public rack::BusTarget {
   public:
    int Read(std::uint8_t /*port*/) override { return -1; }
    void Write(std::uint8_t port, std::uint8_t value) override { last = port << 8 | value; }
    int last = 0;
  } bus;
  rack::UseBus(&bus);
  const int device = open("/dev/em_isa", O_RDWR);
  unsigned char byte = 4;
  EXPECT_EQ(read(device, &byte, 1), -1);
  const unsigned char output[] = {0x81, 4};
  EXPECT_EQ(write(device, output, 2), 2);
  EXPECT_EQ(bus.last, 0x0481);
  EXPECT_EQ(close(device), 0);
  rack::UseBus(nullptr);
}

}  // namespace
