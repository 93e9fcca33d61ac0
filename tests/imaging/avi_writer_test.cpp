// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/avi_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "testing/avi_frames.h"
#include "testing/files.h"

namespace {

using testing_support::ReadAvi;
using testing_support::TempDir;

// Noise in every channel, alpha included, so that a dropped or swapped
// channel, a flipped row order or a lossy step shows in some byte.
img::image Noise(uint32_t w, uint32_t h, uint32_t seed, uint32_t top_down = 1) {
  img::image picture;
  picture.set_top_down(top_down);
  picture.resize(w, h, 4);
  std::mt19937 random(seed);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < 4 * w; ++x) picture.rows[y][x] = uint8_t(random());
  return picture;
}

// Bytes of the picture as the file must give them back: blue, green, red,
// and alpha where the stream keeps it, else 255.
std::vector<uint8_t> Expected(const img::image& p, bool alpha) {
  std::vector<uint8_t> out;
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) {
      const uint8_t* px = p.rows[y] + 4 * x;
      out.insert(out.end(), {px[0], px[1], px[2], alpha ? px[3] : uint8_t(255)});
    }
  return out;
}

std::vector<uint8_t> Bytes(const img::image& p) {
  std::vector<uint8_t> out;
  for (uint32_t y = 0; y < p.height; ++y) out.insert(out.end(), p.rows[y], p.rows[y] + 4 * p.width);
  return out;
}

struct Lossless {
  const char* coder;
  bool with_alpha;
};

class AviLossless : public ::testing::TestWithParam<Lossless> {};

// Every frame of a lossless coder comes back bit for bit, in order, with the
// rate written; a bottom-up frame comes back the right way up.
TEST_P(AviLossless, FramesReadBackBitExact) {
  const Lossless& p = GetParam();
  TempDir dir;
  const std::string file = dir / "out.avi";
  const uint32_t w = 66, h = 38;
  std::vector<img::image> frames = {Noise(w, h, 1), Noise(w, h, 2, 0), Noise(w, h, 3)};
  {
    img::avi::writer out(
        img::avi::find_coder(p.coder), "", file,
        {.width = w, .height = h, .rate = 30, .scale = 1, .with_alpha = p.with_alpha});
    EXPECT_EQ(out.with_alpha(), p.with_alpha);
    for (const auto& f : frames) out.write(f);
    EXPECT_FALSE(std::filesystem::exists(file)) << "the final name appears only when closed";
  }
  const auto contents = ReadAvi(file);
  EXPECT_EQ(contents.codec, p.coder);
  EXPECT_EQ(contents.rate_num * 1, 30 * contents.rate_den);
  ASSERT_EQ(contents.frames.size(), frames.size());
  EXPECT_EQ(contents.alpha, p.with_alpha);
  for (size_t i = 0; i < frames.size(); ++i)
    EXPECT_TRUE(Bytes(contents.frames[i]) == Expected(frames[i], p.with_alpha)) << "frame " << i;
  std::vector<std::string> left;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    left.push_back(e.path().filename().string());
  EXPECT_THAT(left, ::testing::ElementsAre("out.avi"));
}

INSTANTIATE_TEST_SUITE_P(Coders,
                         AviLossless,
                         ::testing::Values(Lossless{"ffv1", true},
                                           Lossless{"ffv1", false},
                                           Lossless{"utvideo", true},
                                           Lossless{"utvideo", false},
                                           Lossless{"png", true},
                                           Lossless{"png", false},
                                           Lossless{"rawvideo", true},
                                           Lossless{"rawvideo", false}),
                         [](const auto& i) {
                           return std::string(i.param.coder) +
                                  (i.param.with_alpha ? "Alpha" : "NoAlpha");
                         });

TEST(AviCoders, ListHasTheLosslessCodersWithTheirFlags) {
  std::vector<img::avi::AviCoderInfo> coders;
  img::avi::list_coders(coders, 720, 576);
  auto find = [&](const std::string& name) {
    auto at = std::find_if(coders.begin(), coders.end(),
                           [&](const auto& c) { return c.handler == name; });
    EXPECT_NE(at, coders.end()) << name;
    return at == coders.end() ? img::avi::AviCoderInfo{} : *at;
  };
  for (const char* name : {"ffv1", "utvideo", "png", "rawvideo"}) {
    const auto c = find(name);
    EXPECT_TRUE(c.accepts_32 && c.accepts_24) << name;
    EXPECT_FALSE(c.has_quality) << name;
  }
  EXPECT_FALSE(find("utvideo").is_temporal);
  EXPECT_FALSE(find("mjpeg").is_temporal);
  // A coder with frames referring to earlier ones, and one without alpha.
  const auto mpeg4 = find("mpeg4");
  EXPECT_TRUE(mpeg4.is_temporal);
  EXPECT_TRUE(mpeg4.has_quality);
  EXPECT_FALSE(mpeg4.accepts_32);
  for (const auto& c : coders) EXPECT_TRUE(c.accepts_32 || c.accepts_24) << c.handler;
}

// A coder without alpha writes 24-bit without complaint though alpha was
// asked for; its options string reaches the coder.
TEST(AviWriter, AlphaFollowsTheCoderAndOptionsApply) {
  TempDir dir;
  const std::string file = dir / "mjpeg.avi";
  {
    img::avi::writer out(img::avi::find_coder("mjpeg"), "qmax=3", file,
                         {.width = 32, .height = 16, .rate = 25, .with_alpha = true});
    EXPECT_FALSE(out.with_alpha());
    out.write(Noise(32, 16, 5));
    out.write(Noise(32, 16, 6));
  }
  EXPECT_EQ(ReadAvi(file).frames.size(), 2u);
}

TEST(AviWriter, FailuresCarryTheirFixedTexts) {
  TempDir dir;
  using img::avi::exception;
  const img::avi::settings s{.width = 16, .height = 16, .rate = 25};
  auto text_of = [](auto&& f) -> std::string {
    try {
      f();
    } catch (const exception& e) {
      return e.what();
    }
    return "no failure";
  };
  EXPECT_EQ(text_of([&] { img::avi::find_coder("no-such-coder"); }),
            "error opening video compressor");
  EXPECT_EQ(text_of([&] { img::avi::find_coder("aac"); }), "error opening video compressor");
  EXPECT_EQ(text_of([&] {
              img::avi::writer(img::avi::find_coder("ffv1"), "no_such_option=1", dir / "a.avi", s);
            }),
            "error opening video compressor");
  EXPECT_EQ(text_of([&] {
              img::avi::writer(img::avi::find_coder("ffv1"), "", dir / "missing/a.avi", s);
            }),
            "AVI file open error");
  EXPECT_EQ(text_of([&] {
              img::avi::writer out(img::avi::find_coder("ffv1"), "", dir / "b.avi", s);
              out.write(Noise(16, 8, 1));
            }),
            "video compression error");
  EXPECT_EQ(
      text_of([&] { img::avi::check_state(img::avi::find_coder("ffv1"), "level=3:slicecrc=1"); }),
      "no failure");
  // Nothing half-made stays behind; a file that failed on a frame keeps the
  // frames before it as a whole AVI.
  std::vector<std::string> left;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    left.push_back(e.path().filename().string());
  EXPECT_THAT(left, ::testing::ElementsAre("b.avi"));
  EXPECT_EQ(ReadAvi(dir / "b.avi").frames.size(), 0u);
}

}  // namespace
