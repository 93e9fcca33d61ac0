// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/staging_file.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using testing_support::TempDir;
using testing_support::WriteFile;

// The id of a process that has ended and been reaped.
pid_t EndedProcess() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  int status = 0;
  waitpid(child, &status, 0);
  return child;
}

std::set<std::string> Names(const TempDir& dir) {
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(dir.path())) names.insert(e.path().filename());
  return names;
}

TEST(StagingFile, LaterSaveRemovesOnlyFilesOfEndedProcessesOfThisHost) {
  TempDir dir;
  const std::string target = dir / "shot.vlp";
  // Our own name for a staging file tells the form, host included.
  const std::string own = fs::path(staging::NameBeside(target)).filename();
  ASSERT_THAT(own, testing::StartsWith(".shot.vlp.staging-"));
  const std::string host = own.substr(18, own.rfind('-', own.rfind('-') - 1) - 18);
  const std::string dead = std::to_string(EndedProcess()), live = std::to_string(getpid());
  const struct {
    std::string name;
    bool removed;
  } cases[] = {
      {".shot.vlp.staging-" + host + "-" + dead + "-0", true},
      {".shot.vlp.staging-" + host + "-" + dead + "-17", true},
      {".shot.vlp.staging-" + host + "-" + live + "-0", false},   // still writing
      {".shot.vlp.staging-other-" + dead + "-0", false},          // another machine's
      {".shot.vlp.staging-" + host + "-" + dead + "-0x", false},  // not ours at all
      {".shot.vlp.staging-" + host + "-" + dead, false},
      {".take.vlp.staging-" + host + "-" + dead + "-0", false},  // another target's
      {"shot.vlp", false},
  };
  for (const auto& c : cases) WriteFile(dir / c.name, std::string_view("x"));
  staging::RemoveStale(target);
  const std::set<std::string> left = Names(dir);
  for (const auto& c : cases) EXPECT_EQ(left.count(c.name) == 0, c.removed) << c.name;
}

TEST(StagingFile, WritableCheckNamesTheTargetAndLeavesNothing) {
  TempDir dir;
  EXPECT_NO_THROW(staging::CheckWritable(dir / "new.vlp"));
  EXPECT_TRUE(Names(dir).empty());
  fs::create_directory(dir / "folder");
  WriteFile(dir / "file", std::string_view("x"));
  for (const std::string& target : {dir / "missing/a.vlp", dir / "file/a.vlp", dir / "folder"}) {
    try {
      staging::CheckWritable(target);
      ADD_FAILURE() << target;
    } catch (const SystemError& e) {
      EXPECT_THAT(e.what(), testing::EndsWith("\nas a result of writing " + target));
    }
  }
  EXPECT_EQ(Names(dir), (std::set<std::string>{"file", "folder"}));
}

}  // namespace
