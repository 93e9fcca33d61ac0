// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/command_line.h"

#include <gtest/gtest.h>

#include "testing/files.h"

namespace app {
namespace {

struct LineCase {
  std::vector<std::string> args;
  bool reg, unreg;
  std::string file;
};

TEST(VLCommandLineInfo, SwitchesAreExactAndTheLastBareTokenWins) {
  const LineCase cases[] = {
      {{"-reg"}, true, false, ""},
      {{"/unreg"}, false, true, ""},
      {{"-REG", "-Reg", "-register", "--reg", "-x"}, false, false, ""},
      {{"a.vlp", "-reg", "b.vlp"}, true, false, "b.vlp"},
      {{"/home/u/shot.vlp"}, false, false, "/home/u/shot.vlp"},
      {{"/reg", "/regs"}, true, false, "/regs"},
      {{"-unreg", "/reg"}, true, true, ""},
  };
  for (const LineCase& c : cases) {
    const VLCommandLineInfo info = ParseCommandLine(c.args);
    const std::string what = ::testing::PrintToString(c.args);
    EXPECT_EQ(info.registerOnly, c.reg) << what;
    EXPECT_EQ(info.unregisterOnly, c.unreg) << what;
    EXPECT_EQ(info.fileName, c.file) << what;
  }
  const char* argv[] = {"velomar", "-reg", "x.vlp"};
  EXPECT_EQ(ParseCommandLine(3, argv).fileName, "x.vlp");
}

TEST(VLCommandLineInfo, StartupFileIsAbsoluteAndOnlyForExistingFiles) {
  testing_support::TempDir dir;
  const std::string file = dir / "shot.VLP";
  testing_support::WriteFile(file, "x");
  VLCommandLineInfo info;
  info.fileName = file;
  EXPECT_EQ(StartupFile(info), file);
  info.fileName = dir / "missing.vlp";
  EXPECT_FALSE(StartupFile(info));
  info.fileName = dir.path().string();
  EXPECT_FALSE(StartupFile(info));
  info.fileName.clear();
  EXPECT_FALSE(StartupFile(info));
}

TEST(VLCommandLineInfo, ProjectExtensionInAnyCase) {
  EXPECT_TRUE(IsProjectPath("/a/b.vlp"));
  EXPECT_TRUE(IsProjectPath("B.VLP"));
  EXPECT_TRUE(IsProjectPath("c.vLp"));
  EXPECT_FALSE(IsProjectPath("frame.0001.bmp"));
  EXPECT_FALSE(IsProjectPath("a.vlpx"));
  EXPECT_FALSE(IsProjectPath("vlp"));
  EXPECT_FALSE(IsProjectPath("a.v1p"));
}

}  // namespace
}  // namespace app
