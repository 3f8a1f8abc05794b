// The machines in good style run their scenarios to the end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "scenario/shell.h"

namespace {

class MachineTest : public testing::TestWithParam<const char*> {};

TEST_P(MachineTest, ItsScenariosPass) {
  Shell shell;
  const std::string output =
      shell.Run(std::string("velmo-rack test '" VELMO_SOURCE "/tests/check/machines/") + GetParam() + "'");
  EXPECT_EQ(shell.Status(), 0) << output;
  EXPECT_THAT(output, testing::HasSubstr("\nok 1 - "));
}

INSTANTIATE_TEST_SUITE_P(Machines, MachineTest,
                         testing::Values("dosing", "indexing-table", "pick-and-place", "press", "sorter"),
                         [](const auto& of) {
                           std::string name = of.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
