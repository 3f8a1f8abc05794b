// The cards as the controller counts them, held against the rack file at each start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/shell.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CardTableTest : public testing::Test {
 protected:
  // A rack with nothing but the card that the false controllers count.
  void SetUp() override {
    Run("velmo-rack new m && rm m/scenarios/*");
    Run("printf '[rack]\ntask_count = 1\n[slots]\n3 = \"io\"\n[outputs]\nready_lamp = \"0.8\"\n' > "
        "m/rack.toml");
  }
  std::string Run(const std::string& command) { return shell.Run(command); }
  // A second of the machine with a controller that counts in that way.
  std::string Start(int way) {
    return Run("velmo-rack run --time virtual --for 1s --controller " MISCOUNT_PROGRAM " --tasks " +
               std::to_string(way) + " m");
  }
  // A scenario of such a machine.
  std::string Test(int way, const std::string& event = "") {
    Run("printf 'tasks = " + std::to_string(way) + "\n" + event +
        "[[expect]]\nthat = \"ready_lamp off\"\nat = \"300 ms\"\n' > m/scenarios/off.toml");
    return Run("velmo-rack test --controller " MISCOUNT_PROGRAM " m");
  }

  Shell shell;
};

TEST_F(CardTableTest, WhatTheControllerCountsOtherwiseIsToldAndTheRunGoesOn) {
  EXPECT_THAT(Start(1), Not(HasSubstr("velmo-rack: slot")));
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(Start(2),
              HasSubstr("velmo-rack: slot 3: the controller has read 0x84 and lists a card, the rack file "
                        "has a card \"io\" (0x83) there\n"));
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(Start(3),
              HasSubstr("velmo-rack: slot 3: the controller has read 0x83 and knows no such card, the rack "
                        "file has a card \"io\" (0x83) there\n"));
  EXPECT_THAT(Start(4),
              HasSubstr("velmo-rack: slot 7: the controller has read 0x81 and lists a card, the rack file "
                        "has nothing there\n"));
  EXPECT_THAT(Start(5), Not(HasSubstr("velmo-rack: slot")));
}

TEST_F(CardTableTest, AScenarioFailsByIt) {
  EXPECT_THAT(Test(1), HasSubstr("ok 1 - off: ready_lamp off at 300 ms\n"));
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(Test(3), HasSubstr("slot 3: the controller has read 0x83 and knows no such card"));
  EXPECT_EQ(shell.Status(), 1);
}

// A card that cannot be read says nothing about the two lists; one that is not probed for want of a driver neither.
TEST_F(CardTableTest, APulledCardAFailingBusAndAMissingDriverAreLeftOut) {
  EXPECT_THAT(Test(3, "[[event]]\nat = \"0 ms\"\nfault = \"pulled 1\"\n"), HasSubstr("ok 1 - "));
  EXPECT_EQ(shell.Status(), 0);
  EXPECT_THAT(Test(3, "[[event]]\nat = \"0 ms\"\nfault = \"bus\"\n"), HasSubstr("ok 1 - "));
  EXPECT_EQ(shell.Status(), 0);
  Run("sed -i 's/^task_count.*/device = \"none\"/' m/rack.toml");
  EXPECT_THAT(Run("velmo-rack run --time virtual --for 1s m"), Not(HasSubstr("velmo-rack: slot")));
}

// The card table has room for eleven plug-in cards: the twelfth is nobody's mistake.
TEST_F(CardTableTest, TheControllerAndTheRackFileCountAFullRackAlike) {
  Run("printf '[slots]\n' > m/rack.toml; for slot in 1 2 3 4 5 6 7 8 9 10 11 12; do "
      "printf \"$slot = 'io'\n\" >> m/rack.toml; done");
  const std::string output = Run("velmo-rack run --time virtual --for 1s m");
  EXPECT_THAT(output, HasSubstr("Card table full: slot 12 ignored"));
  EXPECT_THAT(output, Not(HasSubstr("velmo-rack: slot")));
}

}  // namespace
