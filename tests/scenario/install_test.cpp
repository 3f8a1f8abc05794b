// The programs as they are installed: they find each other from wherever they are called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenario/shell.h"

namespace {

using testing::HasSubstr;

TEST(InstallTest, InstalledProgramsFindControllerAndLibrary) {
  Shell shell;
  shell.Run("cmake --install '" VELMO_BUILD "' --prefix \"$PWD/usr\"");
  ASSERT_EQ(shell.Status(), 0);
  EXPECT_EQ(shell.Run("cd usr && ls bin lib/velmo"),
            "bin:\nVelmo\nvelmo-check\nvelmo-rack\n\nlib/"
            "velmo:\nVelmo\nlibvelmo-rack.so\nvelmo-check\nvelmo-rack\n");
  shell.Run("usr/bin/velmo-rack new m");
  EXPECT_EQ(shell.Run("usr/bin/velmo-check m"), "no findings\n");
  EXPECT_THAT(shell.Run("cd m && ../usr/bin/velmo-rack run --time virtual --for 1s ."),
              HasSubstr("PLC1: CmdIdx: EXIT"));
  EXPECT_EQ(shell.Status(), 0);
}

}  // namespace
