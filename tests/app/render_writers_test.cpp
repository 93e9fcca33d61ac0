// SPDX-License-Identifier: GPL-3.0-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "app/render/async_writer.h"
#include "app/render/image_writer.h"
#include "imaging/multi_io.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using testing_support::ReadFile;
using testing_support::TempDir;

// Row y of frame `index` is filled with the byte 16 * index + y, so every
// row says which frame and row it came from.
img::image Frame(int index, uint32_t w = 5, uint32_t h = 6) {
  img::image p(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < 4 * w; ++x) p.rows[y][x] = uint8_t(16 * index + y);
  return p;
}

std::vector<std::string> Names(const fs::path& dir) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

// Remembers the first byte of every row of each frame it is given.
struct RowRecorder : app::ImageWriter {
  std::vector<std::vector<int>>* frames;
  explicit RowRecorder(std::vector<std::vector<int>>* f) : frames(f) {}
  void write(const img::image& frame) override {
    std::vector<int> rows;
    for (uint32_t y = 0; y < frame.height; ++y) rows.push_back(frame.rows[y][0]);
    frames->push_back(rows);
  }
};

struct Interlace {
  const char* name;
  bool upper_first;
  int inputs;
  std::vector<std::vector<int>> expected;  // first byte of each row, per output frame
};

class FieldWriterCase : public ::testing::TestWithParam<Interlace> {};

// The earlier frame of each pair gives the even rows with upper first, the
// odd rows otherwise; a last unpaired frame never comes out.
TEST_P(FieldWriterCase, InterlacesPairsAndDropsTheUnpairedLast) {
  std::vector<std::vector<int>> out;
  app::FieldWriter writer(std::make_unique<RowRecorder>(&out), GetParam().upper_first);
  for (int i = 0; i < GetParam().inputs; ++i) writer.write(Frame(i));
  EXPECT_EQ(out, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Fields,
    FieldWriterCase,
    ::testing::Values(
        Interlace{"UpperFirst", true, 2, {{0, 17, 2, 19, 4, 21}}},
        Interlace{"LowerFirst", false, 2, {{16, 1, 18, 3, 20, 5}}},
        Interlace{"OddCountDropsLast", true, 5, {{0, 17, 2, 19, 4, 21}, {32, 49, 34, 51, 36, 53}}},
        Interlace{"OneFrameWritesNothing", false, 1, {}}),
    [](const auto& i) { return std::string(i.param.name); });

// Files take the stems of the source frames from the first one on, one per
// output frame also behind a field writer, in the format word given; no
// temporary file stays.
TEST(DiscreteWriter, NamesFollowSourceStemsOnePerOutputFrame) {
  TempDir dir;
  const std::vector<std::string> frames = {"/shots/a_0000.png", "/shots/a_0001.png",
                                           "/shots/a_0002.png", "/shots/a_0003.png",
                                           "/other/a_0004.jpeg"};
  {
    app::DiscreteWriter plain(dir.path().string(), "tga", true, frames, 2);
    plain.write(Frame(1));
    plain.write(Frame(2));
    plain.write(Frame(3));
    EXPECT_THROW(plain.write(Frame(4)), img::io_error) << "no source frame left to name it";
  }
  EXPECT_THAT(Names(dir.path()), ::testing::ElementsAre("a_0002.tga", "a_0003.tga", "a_0004.tga"));
  img::image back;
  img::multi_reader().read(dir / "a_0003.tga", back);
  img::image want = Frame(2);
  for (uint32_t y = 0; y < want.height; ++y)
    EXPECT_EQ(0, std::memcmp(back.rows[y], want.rows[y], 4 * want.width)) << "row " << y;

  TempDir fields;
  app::FieldWriter interlaced(
      std::make_unique<app::DiscreteWriter>(fields.path().string(), "png", false, frames, 0), true);
  for (int i = 0; i < 5; ++i) interlaced.write(Frame(i));
  EXPECT_THAT(Names(fields.path()), ::testing::ElementsAre("a_0000.png", "a_0001.png"));
}

struct BadOutput {
  const char* name;
  // Prepares the case; returns the folder to write into.
  std::function<std::string(const TempDir&)> folder;
};

class DiscreteWriterFailure : public ::testing::TestWithParam<BadOutput> {};

// A frame that cannot be written is a clear error naming the final file,
// and nothing of it stays under that name or any other.
TEST_P(DiscreteWriterFailure, ClearErrorAndNoPartialFile) {
  TempDir dir;
  const std::string folder = GetParam().folder(dir);
  const std::vector<std::string> frames = {"f_0001.bmp"};
  app::DiscreteWriter writer(folder, "tga", true, frames, 0);
  const std::string final_name = writer.next_name();
  try {
    writer.write(Frame(0, 64, 64));
    FAIL() << "no failure";
  } catch (const img::io_error& e) {
    EXPECT_STREQ(e.what(), "could not open image file for writing or write error");
    EXPECT_EQ(e.file(), final_name);
  }
  EXPECT_FALSE(fs::exists(final_name));
  if (fs::is_directory(folder)) {
    EXPECT_THAT(Names(folder), ::testing::IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(Outputs,
                         DiscreteWriterFailure,
                         ::testing::Values(BadOutput{"FolderIsAFile",
                                                     [](const TempDir& d) {
                                                       testing_support::WriteFile(
                                                           d / "out", std::string_view("x"));
                                                       return d / "out";
                                                     }},
                                           BadOutput{"FolderMissing",
                                                     [](const TempDir& d) { return d / "none"; }}),
                         [](const auto& i) { return std::string(i.param.name); });

// A full disk, simulated by the file size limit: the write fails midway,
// and no half-written frame is left.
TEST(DiscreteWriterFailureDisk, FullDiskLeavesNoPartialFrame) {
  TempDir dir;
  const std::vector<std::string> frames = {"f_0001.bmp", "f_0002.bmp"};
  app::DiscreteWriter writer(dir.path().string(), "tga", true, frames, 0);
  writer.write(Frame(0, 8, 8));
  struct rlimit old {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  auto previous = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = old;
  small.rlim_cur = 4096;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THROW(writer.write(Frame(1, 64, 64)), img::io_error);
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, previous);
  EXPECT_THAT(Names(dir.path()), ::testing::ElementsAre("f_0001.tga"));
}

// Fails on the frame with the given number (from 0).
struct FailingWriter : app::ImageWriter {
  int fail_at;
  int count = 0;
  explicit FailingWriter(int n) : fail_at(n) {}
  void write(const img::image&) override {
    if (count++ == fail_at) throw std::runtime_error("disk gone");
  }
};

// Encoding on the second thread gives the same files as encoding in line,
// byte for byte and with the same names, also around frames passed over
// (kept from an earlier run), and a failure there reaches the caller at its
// next write or at close.
TEST(AsyncWriter, SameBytesAsInLineAndFailuresComeBack) {
  TempDir a, b;
  std::vector<std::string> frames;
  for (int i = 0; i < 6; ++i) frames.push_back("s_" + std::to_string(i) + ".bmp");
  {
    app::DiscreteWriter in_line(a.path().string(), "png", true, frames, 0);
    app::AsyncWriter overlapped(
        std::make_unique<app::DiscreteWriter>(b.path().string(), "png", true, frames, 0));
    for (int i = 0; i < 6; ++i) {
      if (i == 2 || i == 3) {
        in_line.skip();
        overlapped.skip();
        continue;
      }
      img::image f = Frame(i, 33, 17);
      in_line.write(f);
      overlapped.write(f);
      // The caller reuses its buffer at once, as the back buffer does.
      f = Frame(9, 33, 17);
    }
    overlapped.close();
  }
  ASSERT_EQ(Names(b.path()),
            (std::vector<std::string>{"s_0.png", "s_1.png", "s_4.png", "s_5.png"}));
  ASSERT_EQ(Names(a.path()), Names(b.path()));
  for (const auto& name : Names(a.path()))
    EXPECT_EQ(ReadFile(a / name), ReadFile(b / name)) << name;

  app::AsyncWriter failing(std::make_unique<FailingWriter>(1));
  failing.write(Frame(0));
  failing.write(Frame(1));
  EXPECT_THROW(
      {
        failing.write(Frame(2));
        failing.close();
      },
      std::runtime_error);
}

}  // namespace
