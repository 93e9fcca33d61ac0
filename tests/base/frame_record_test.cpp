// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/frame_record.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/xml_tablet.h"
#include "testing/files.h"

namespace {

using testing::ThrowsMessage;
namespace fs = std::filesystem;

TEST(FrameRecord, RelativeOnTheSameDriveOnly) {
  struct Case {
    PathPolicy policy;
    const char* path;
    const char* base;
    FrameRecord expected;
  };
  const Case cases[] = {
      {PathPolicy::Posix, "/p/shots/a.png", "", {"/p/shots/a.png", true}},
      {PathPolicy::Posix, "/p/shots/a.png", "/p/", {"shots/a.png", false}},
      {PathPolicy::Posix, "/q/a.png", "/p/x/", {"../../q/a.png", false}},
      {PathPolicy::Windows, "c:\\P\\Shots\\a.png", "c:\\p\\", {"shots\\a.png", false}},
      {PathPolicy::Windows, "d:\\shots\\a.png", "c:\\p\\", {"d:\\shots\\a.png", true}},
      {PathPolicy::Windows, "c:\\p\\", "c:\\p\\", {"", false}},
  };
  for (const Case& c : cases)
    EXPECT_EQ(MakeFrameRecord(c.path, c.base, c.policy), c.expected) << c.path << " " << c.base;
}

TEST(FrameRecord, ResolvingAMissingPathSaysWhy) {
  testing_support::TempDir dir;
  const std::string base = dir.path().string() + "/";
  EXPECT_THAT(
      [&] {
        ResolveFrameRecord({"/no/such.png", true}, base);
      },
      ThrowsMessage<std::runtime_error>("path does not exist - /no/such.png"));
  EXPECT_THAT(
      [&] {
        ResolveFrameRecord({"a.png", false}, "");
      },
      ThrowsMessage<std::runtime_error>("absolute path expected"));
  EXPECT_THAT(
      [&] {
        ResolveFrameRecord({"../x/a.png", false}, base + "sub/");
      },
      ThrowsMessage<std::runtime_error>("path does not exist - " + base +
                                        "x/a.png\n(base path is " + base +
                                        "sub/, relative path is ../x/a.png)"));
  testing_support::WriteFile(dir / "a.png", std::string_view("x"));
  EXPECT_EQ(ResolveFrameRecord({"./a.png", false}, base), base + "a.png");
}

class Sequence : public ::testing::Test {
 protected:
  // A project folder with two frames beside it and one in another folder.
  void SetUp() override {
    project_ = dir_.path().string() + "/project/";
    fs::create_directories(project_ + "shots");
    fs::create_directories(project_ + "other");
    frames_ = {project_ + "shots/a.0001.png", project_ + "shots/a.0002.png",
               project_ + "other/b.png"};
    for (const auto& f : frames_) testing_support::WriteFile(f, std::string_view("x"));
  }

  std::string Write(const std::vector<std::string>& frames, const std::string& base) {
    xml::tablet doc;
    doc.create("Underlay");
    xml::filter f(doc.root(), false);
    auto copy = frames;
    SequenceFields(f, copy, base);
    std::ostringstream out;
    doc.write(out);
    return out.str();
  }

  std::vector<std::string> Read(const std::string& text,
                                const std::string& base,
                                std::vector<std::string> frames = {}) {
    xml::tablet doc;
    doc.parse(text);
    xml::filter f(doc.root(), true);
    SequenceFields(f, frames, base);
    return frames;
  }

  testing_support::TempDir dir_;
  std::string project_;
  std::vector<std::string> frames_;
};

TEST_F(Sequence, MovedProjectFolderStillResolves) {
  const std::string text = Write(frames_, project_);
  const std::string moved = dir_.path().string() + "/moved/";
  fs::rename(project_, moved);
  const std::vector<std::string> expected = {moved + "shots/a.0001.png", moved + "shots/a.0002.png",
                                             moved + "other/b.png"};
  EXPECT_EQ(Read(text, moved), expected);
}

TEST_F(Sequence, SavingElsewhereRebasesTheFolder) {
  const std::string elsewhere = dir_.path().string() + "/saved/as/";
  fs::create_directories(elsewhere);
  const std::string text = Write(frames_, elsewhere);
  EXPECT_NE(text.find("<Underlay path=\"../../project/shots/\">"), std::string::npos) << text;
  EXPECT_EQ(Read(text, elsewhere), frames_);
}

TEST_F(Sequence, EmptyListWritesNothingAndReadsAsEmptyOrUntouched) {
  const std::string text = Write({}, project_);
  EXPECT_EQ(text, "<?xml version=\"1.0\"?>\n<Underlay />\n");
  EXPECT_TRUE(Read(text, project_, {"keep"}).empty());
  EXPECT_EQ(Read(text, "", {"keep"}), std::vector<std::string>{"keep"});
}

TEST_F(Sequence, MissingFrameFailsNamingItAndKeepsTheList) {
  const std::string text = Write(frames_, project_);
  fs::remove(frames_[1]);
  const std::vector<std::string> before = {"keep"};
  std::vector<std::string> frames = before;
  xml::tablet doc;
  doc.parse(text);
  xml::filter f(doc.root(), true);
  EXPECT_THAT(
      [&] { SequenceFields(f, frames, project_); },
      ThrowsMessage<std::runtime_error>("path does not exist - " + frames_[1] + "\n(base path is " +
                                        project_ + "shots/, relative path is a.0002.png)"));
  EXPECT_EQ(frames, before);
}

}  // namespace
