// Eight tasks on one rack, and what they cost when they have nothing to do.
#include <gtest/gtest.h>

#include <chrono>

#include "machine.h"

namespace {

TEST(EightTasks, AKeyStartsEveryProduction) {
  TestMachine machine("[rack]\ntask_count = 8\n[slots]\n12 = \"io\"\n");
  for (int task = 1; task <= 8; ++task) {
    const std::string number = std::to_string(task);
    machine.Write("plc" + number + "/RESET.PLC", "EXIT\n");
    machine.Write("plc" + number + "/FLOW.PLC",
                  "DLY: 500\nFL: SUB" + number + ".PLC\nOUT: 1, " + number + ", 0\nEXIT\n");
    machine.Write("plc" + number + "/SUB" + number + ".PLC", "OUT: 1, " + number + ", 1\nEND\n");
  }
  machine.Start();
  for (int task = 1; task <= 8; ++task) machine.WaitForLog("EXIT", task);
  machine.Press(kEnter);
  for (int task = 1; task <= 8; ++task) {
    SCOPED_TRACE(task);
    const std::string number = std::to_string(task);
    const std::string block = "SUB" + number + ".PLC";
    machine.WaitForLog(Line("EXIT", 1, -1, "", "FLOW.PLC"), task);
    EXPECT_EQ(machine.Log(task),
              Line("EXIT", 0, -1, "") + "HKEY_Enter: Task Run[]\nPLC" + number + " Run: [plc" + number +
                  "/FLOW.PLC]\n" + Line("DLY", 500, -1, "500", "FLOW.PLC") +
                  Line("FL", 0, -1, block, "FLOW.PLC") + Line("OUT", 1, task, "1", block) +
                  Line("END", 1, -1, "", block) + "SYN_END:1 \n" + Line("OUT", 1, task, "0", "FLOW.PLC") +
                  Line("EXIT", 1, -1, "", "FLOW.PLC"));
    EXPECT_EQ(CountOf(machine.Bus(task), "<"), 2);
  }
}

TEST(EightTasks, IdleOnesCostNextToNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the limit is that of the controller as it ships, not of an instrumented one";
#endif
  TestMachine machine("[rack]\ntask_count = 8\n", rack::TimeMode::Real);
  for (int task = 1; task <= 8; ++task) machine.Write("plc" + std::to_string(task) + "/RESET.PLC", "EXIT\n");
  machine.Start();
  for (int task = 1; task <= 8; ++task) machine.WaitForLog("EXIT", task);
  const auto begin = std::chrono::steady_clock::now();
  const double before = machine.ProcessorSeconds();
  for (int i = 0; i < 10; ++i) machine.AwaitPolls();
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  const double used = machine.ProcessorSeconds() - before;
  EXPECT_GT(used, 0);
  EXPECT_LT(used, 0.02 * elapsed.count());
}

}  // namespace
