#include "imaging/library_io.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <thread>

#include "testing/files.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

namespace {

using testing::HasSubstr;
using testing_support::Bytes;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

// A picture where every channel of every pixel differs from its neighbours,
// so that a swapped channel, a flipped row or an off-by-one column shows.
img::image Pattern(uint32_t w, uint32_t h, uint32_t top_down, bool vary_alpha) {
  img::image p;
  p.set_top_down(top_down);
  p.resize(w, h, 4);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = uint8_t(x * 7 + y * 3);
      px[1] = uint8_t(x * 2 + y * 11 + 5);
      px[2] = uint8_t(255 - x * 5 - y);
      px[3] = vary_alpha ? uint8_t(x * 13 + y * 17) : 255;
    }
  return p;
}

// Largest difference of any channel, in picture order; alpha only if asked.
int MaxDifference(const img::image& a, const img::image& b, bool alpha) {
  EXPECT_EQ(a.width, b.width);
  EXPECT_EQ(a.height, b.height);
  int worst = 0;
  for (uint32_t y = 0; y < std::min(a.height, b.height); ++y)
    for (uint32_t x = 0; x < std::min(a.width, b.width); ++x)
      for (int c = 0; c < (alpha ? 4 : 3); ++c)
        worst = std::max(worst, std::abs(int(a.rows[y][4 * x + c]) - int(b.rows[y][4 * x + c])));
  return worst;
}

bool AllAlpha(const img::image& p, uint8_t value) {
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x)
      if (p.rows[y][4 * x + 3] != value) return false;
  return true;
}

// Encodes one frame with a raw FFmpeg encoder, for inputs our writer does
// not make (16-bit, 10-bit, out-of-range float). `fill` writes the planes.
std::vector<uint8_t> EncodeRaw(
    AVCodecID id, AVPixelFormat format, int w, int h, const std::function<void(AVFrame&)>& fill) {
  const AVCodec* codec = avcodec_find_encoder(id);
  AVCodecContext* c = avcodec_alloc_context3(codec);
  c->width = w;
  c->height = h;
  c->pix_fmt = format;
  c->time_base = {1, 25};
  EXPECT_EQ(avcodec_open2(c, codec, nullptr), 0);
  AVFrame* f = av_frame_alloc();
  f->format = format;
  f->width = w;
  f->height = h;
  EXPECT_EQ(av_frame_get_buffer(f, 0), 0);
  fill(*f);
  AVPacket* p = av_packet_alloc();
  EXPECT_EQ(avcodec_send_frame(c, f), 0);
  EXPECT_EQ(avcodec_receive_packet(c, p), 0);
  std::vector<uint8_t> bytes(p->data, p->data + p->size);
  av_packet_free(&p);
  av_frame_free(&f);
  avcodec_free_context(&c);
  return bytes;
}

struct Lossless {
  const char* format;
  bool with_alpha;
  uint32_t top_down;
};

void PrintTo(const Lossless& c, std::ostream* out) {
  *out << c.format;
}

class LibraryRoundTrip : public testing::TestWithParam<Lossless> {};

// Written and read back, every byte survives; without alpha the file reads
// opaque (255), not transparent.
TEST_P(LibraryRoundTrip, ReadsBackEveryByte) {
  const Lossless& c = GetParam();
  TempDir dir;
  const std::string name = dir / (std::string("p.") + c.format);
  const img::image source = Pattern(37, 23, c.top_down, true);
  const uint64_t bytes = img::library_writer().write(name, c.format, source, c.with_alpha);
  EXPECT_EQ(bytes, std::filesystem::file_size(name));

  img::image back;
  back.set_top_down(c.top_down ^ 1);
  bool has_alpha = !c.with_alpha;
  img::library_reader().read(name, back, &has_alpha);
  EXPECT_EQ(back.top_down, c.top_down ^ 1);
  EXPECT_EQ(MaxDifference(source, back, c.with_alpha), 0);
  EXPECT_EQ(has_alpha, c.with_alpha);
  if (!c.with_alpha) {
    EXPECT_TRUE(AllAlpha(back, 255));
  }
}

INSTANTIATE_TEST_SUITE_P(Formats,
                         LibraryRoundTrip,
                         testing::Values(Lossless{"PNG", true, 1},
                                         Lossless{"PNG", false, 0},
                                         Lossless{"png", true, 0},
                                         Lossless{"TIFF", true, 0},
                                         Lossless{"TIF", false, 1},
                                         Lossless{"BMP", true, 1},
                                         Lossless{"BMP", false, 0},
                                         Lossless{"DPX", true, 0},
                                         Lossless{"DPX", false, 1},
                                         Lossless{"EXR", true, 1},
                                         Lossless{"EXR", false, 0}),
                         [](const auto& i) {
                           return std::string(i.param.format) +
                                  (i.param.with_alpha ? "Alpha" : "Opaque") +
                                  (i.param.top_down ? "TopDown" : "BottomUp");
                         });

TEST(LibraryReader, BottomUpDestinationIsFilledThroughItsRowTable) {
  TempDir dir;
  const img::image source = Pattern(16, 9, 1, false);
  img::library_writer().write(dir / "a.png", "PNG", source, false);
  img::image back;
  back.set_top_down(0);
  img::library_reader().read(dir / "a.png", back);
  ASSERT_EQ(back.top_down, 0u);
  // The first buffer row holds the bottom of the picture.
  EXPECT_EQ(back.rows[8], back.data);
  EXPECT_EQ(std::memcmp(back.data, source.rows[8], 16 * 4), 0);
  EXPECT_EQ(MaxDifference(source, back, true), 0);
}

TEST(LibraryReader, JpegComesBackClose) {
  TempDir dir;
  // Smooth content: what JPEG is for. Sharp edges are its known loss.
  img::image source(64, 48);
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      uint8_t* p = source.rows[y] + 4 * x;
      p[0] = uint8_t(40 + 2 * x), p[1] = uint8_t(200 - 3 * y), p[2] = uint8_t(90 + x + y), p[3] = 7;
    }
  for (const char* word : {"JPEG", "JPG"}) {
    img::library_writer().write(dir / "a.jpg", word, source, true);
    img::image back;
    bool has_alpha = true;
    img::library_reader().read(dir / "a.jpg", back, &has_alpha);
    EXPECT_LE(MaxDifference(source, back, false), 8) << word;
    EXPECT_FALSE(has_alpha);
    EXPECT_TRUE(AllAlpha(back, 255));
  }
}

TEST(LibraryReader, GifTransparentColourReadsAsAlphaZero) {
  TempDir dir;
  img::image source = Pattern(20, 10, 1, false);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 20; ++x) source.rows[y][4 * x + 3] = (x + y) % 3 == 0 ? 0 : 255;
  img::library_writer().write(dir / "t.gif", "GIF", source, true);
  img::image back;
  bool has_alpha = false;
  img::library_reader().read(dir / "t.gif", back, &has_alpha);
  EXPECT_TRUE(has_alpha);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 20; ++x) {
      const uint8_t* want = source.rows[y] + 4 * x;
      const uint8_t* got = back.rows[y] + 4 * x;
      ASSERT_EQ(got[3], want[3]) << x << "," << y;
      // Fewer than 256 colours: the opaque ones survive exactly.
      if (want[3] == 255) {
        ASSERT_EQ(std::memcmp(got, want, 3), 0) << x << "," << y;
      }
    }

  // Written without alpha, the same picture is opaque and says so.
  img::library_writer().write(dir / "o.gif", "gif", source, false);
  img::library_reader().read(dir / "o.gif", back, &has_alpha);
  EXPECT_FALSE(has_alpha);
  EXPECT_TRUE(AllAlpha(back, 255));
  EXPECT_EQ(MaxDifference(source, back, false), 0);
}

// A layout written by a raw encoder, read back through whatever layout the
// decoder hands out.
struct Layout {
  const char* name;
  AVCodecID codec;
  AVPixelFormat format;
};

void PrintTo(const Layout& l, std::ostream* out) {
  *out << l.name;
}

class LibraryLayouts : public testing::TestWithParam<Layout> {};

// The 8-bit level of component c at column x, row y.
int Level(int x, int y, int c) {
  return (x * 37 + y * 101 + c * 71) % 256;
}

// Every component holds an 8-bit level at the layout's depth: widened by
// bit replication (so that a fair narrowing gives the level back), or cut
// to its top bits, whose expected reading is then their rounded scale-up.
TEST_P(LibraryLayouts, ComponentsComeDownToEightBitsExactly) {
  const Layout& layout = GetParam();
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(layout.format);
  const bool rgb = (d->flags & AV_PIX_FMT_FLAG_RGB) != 0;
  const bool is_float = (d->flags & AV_PIX_FMT_FLAG_FLOAT) != 0;
  const int w = 19, h = 5;
  auto stored = [&](int x, int y, int c) -> uint32_t {
    const int depth = d->comp[c].depth, v = Level(x, y, c);
    if (is_float) {
      const float f = float(v) / 255.0f;
      uint32_t bits;
      std::memcpy(&bits, &f, 4);
      return bits;
    }
    if (depth <= 8) return uint32_t(v >> (8 - depth));
    uint32_t wide = 0;
    for (int filled = 0; filled < depth; filled += 8) wide = wide << 8 | uint32_t(v);
    return wide >> ((depth + 7) / 8 * 8 - depth);
  };
  auto expected = [&](int x, int y, int c) -> int {
    const int depth = d->comp[c].depth;
    if (is_float || depth >= 8) return Level(x, y, c);
    const int top = (1 << depth) - 1;
    return ((Level(x, y, c) >> (8 - depth)) * 255 + top / 2) / top;
  };
  const auto bytes = EncodeRaw(layout.codec, layout.format, w, h, [&](AVFrame& f) {
    // The line writer ORs bits into place: start from zero.
    for (int p = 0; p < 4 && f.data[p]; ++p) std::memset(f.data[p], 0, size_t(f.linesize[p]) * h);
    std::vector<uint32_t> line(w);
    for (int y = 0; y < h; ++y)
      for (int c = 0; c < d->nb_components; ++c) {
        for (int x = 0; x < w; ++x) line[size_t(x)] = stored(x, y, c);
        av_write_image_line2(line.data(), f.data, f.linesize, d, 0, y, c, w, 4);
      }
  });
  TempDir dir;
  WriteFile(dir / "layout", bytes);
  img::image back;
  bool has_alpha = false;
  img::library_reader().read(dir / "layout", back, &has_alpha);
  ASSERT_EQ(back.width, uint32_t(w));
  ASSERT_EQ(back.height, uint32_t(h));
  const bool alpha = (d->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
  EXPECT_EQ(has_alpha, alpha);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const uint8_t* p = back.rows[size_t(y)] + 4 * x;
      const int want[4] = {rgb ? expected(x, y, 2) : expected(x, y, 0),
                           rgb ? expected(x, y, 1) : expected(x, y, 0), expected(x, y, 0),
                           alpha ? expected(x, y, rgb ? 3 : 1) : 255};
      for (int c = 0; c < 4; ++c)
        ASSERT_EQ(p[c], want[c]) << "x " << x << " y " << y << " byte " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Decoders,
    LibraryLayouts,
    testing::Values(Layout{"PngGrey8", AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY8},
                    Layout{"PngGreyAlpha8", AV_CODEC_ID_PNG, AV_PIX_FMT_YA8},
                    Layout{"PngGrey16", AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY16BE},
                    Layout{"PngGreyAlpha16", AV_CODEC_ID_PNG, AV_PIX_FMT_YA16BE},
                    Layout{"PngRgb48", AV_CODEC_ID_PNG, AV_PIX_FMT_RGB48BE},
                    Layout{"PngRgba64", AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA64BE},
                    Layout{"TiffRgb48", AV_CODEC_ID_TIFF, AV_PIX_FMT_RGB48LE},
                    Layout{"TiffRgba64", AV_CODEC_ID_TIFF, AV_PIX_FMT_RGBA64LE},
                    Layout{"TiffGrey16", AV_CODEC_ID_TIFF, AV_PIX_FMT_GRAY16LE},
                    Layout{"BmpRgb565", AV_CODEC_ID_BMP, AV_PIX_FMT_RGB565LE},
                    Layout{"BmpRgb555", AV_CODEC_ID_BMP, AV_PIX_FMT_RGB555LE},
                    Layout{"DpxPlanar10", AV_CODEC_ID_DPX, AV_PIX_FMT_GBRP10LE},
                    Layout{"DpxPlanar12", AV_CODEC_ID_DPX, AV_PIX_FMT_GBRP12LE},
                    Layout{"DpxRgba64", AV_CODEC_ID_DPX, AV_PIX_FMT_RGBA64BE},
                    Layout{"ExrFloat", AV_CODEC_ID_EXR, AV_PIX_FMT_GBRPF32LE},
                    Layout{"ExrFloatAlpha", AV_CODEC_ID_EXR, AV_PIX_FMT_GBRAPF32LE},
                    Layout{"ExrGreyFloat", AV_CODEC_ID_EXR, AV_PIX_FMT_GRAYF32LE}),
    [](const auto& i) { return std::string(i.param.name); });

TEST(LibraryReader, FloatExrIsClampedAndRounded) {
  TempDir dir;
  const float values[5] = {-1.0f, 0.0f, 0.5f, 1.0f, 3.0f};
  const uint8_t expected[5] = {0, 0, 128, 255, 255};
  const auto bytes = EncodeRaw(AV_CODEC_ID_EXR, AV_PIX_FMT_GBRPF32LE, 5, 1, [&](AVFrame& f) {
    for (int x = 0; x < 5; ++x) {
      reinterpret_cast<float*>(f.data[0])[x] = values[x];         // g
      reinterpret_cast<float*>(f.data[1])[x] = values[4 - x];     // b
      reinterpret_cast<float*>(f.data[2])[x] = values[x] * 0.5f;  // r
    }
  });
  WriteFile(dir / "f.exr", bytes);
  img::image back;
  bool has_alpha = true;
  img::library_reader().read(dir / "f.exr", back, &has_alpha);
  EXPECT_FALSE(has_alpha);
  const uint8_t half[5] = {0, 0, 64, 128, 255};
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(back.rows[0][4 * x + 1], expected[x]) << x;
    EXPECT_EQ(back.rows[0][4 * x + 0], expected[4 - x]) << x;
    EXPECT_EQ(back.rows[0][4 * x + 2], half[x]) << x;
    EXPECT_EQ(back.rows[0][4 * x + 3], 255) << x;
  }
}

TEST(LibraryReader, InfoReportsSizeAndAlpha) {
  TempDir dir;
  img::library_writer().write(dir / "a.png", "PNG", Pattern(5, 3, 1, true), true);
  img::library_writer().write(dir / "b.tif", "TIFF", Pattern(5, 3, 1, true), false);
  img::library_reader reader;
  img::file_info info;
  ASSERT_TRUE(reader.info(dir / "a.png", &info));
  EXPECT_EQ(info.name, dir / "a.png");
  EXPECT_EQ(info.format, "???");
  EXPECT_EQ(info.width, 5u);
  EXPECT_EQ(info.height, 3u);
  EXPECT_EQ(info.bit_count, 32u);
  EXPECT_FALSE(info.uncompressed);
  ASSERT_TRUE(reader.info(dir / "b.tif", "tif", &info));
  EXPECT_EQ(info.bit_count, 24u);
  EXPECT_FALSE(reader.info(dir / "b.tif", "TGA", &info));
}

TEST(LibraryReader, BytesInMemoryReadAsTheFileDoes) {
  TempDir dir;
  img::library_writer().write(dir / "a.gif", "GIF", Pattern(9, 7, 1, true), true);
  const auto bytes = ReadFile(dir / "a.gif");
  img::image from_file, from_memory;
  bool file_alpha = false, memory_alpha = false;
  img::library_reader().read(dir / "a.gif", from_file, &file_alpha);
  img::library_reader().read_bytes(bytes.data(), bytes.size(), "mem", from_memory, &memory_alpha);
  EXPECT_EQ(MaxDifference(from_file, from_memory, true), 0);
  EXPECT_EQ(file_alpha, memory_alpha);
  EXPECT_THAT(
      [&] { img::library_reader().read_bytes(bytes.data(), 20, "mem", from_memory, nullptr); },
      testing::ThrowsMessage<img::io_error>(testing::StrEq("image decoding failure")));
}

// Each failure carries its own text and the file's name.
TEST(LibraryReader, FailuresSayWhatFailed) {
  TempDir dir;
  img::library_writer().write(dir / "whole.png", "PNG", Pattern(40, 30, 1, true), true);
  const auto png = ReadFile(dir / "whole.png");
  WriteFile(dir / "cut.png", std::vector<uint8_t>(png.begin(), png.begin() + png.size() / 2));
  WriteFile(dir / "note.png", std::string_view("just some text, no picture\n"));
  WriteFile(dir / "empty.png", std::string_view(""));
  // A BMP header claiming 60000 x 60000 uncompressed pixels, and no pixels.
  Bytes bmp;
  bmp.raw("BM").u32(54).u32(0).u32(54).u32(40).i32(60000).i32(60000).u16(1).u16(24).u32(0);
  bmp.fill(20, 0);
  WriteFile(dir / "liar.bmp", bmp.data());

  struct Case {
    std::string file;
    const char* text;
  };
  const Case cases[] = {
      {dir / "missing.png", "could not open image file for reading or read error"},
      {dir.path().string(), "could not open image file for reading or read error"},
      {dir / "cut.png", "image decoding failure"},
      {dir / "note.png", "image file format not recognised"},
      {dir / "empty.png", "image file format not recognised"},
      {dir / "liar.bmp", "image file is shorter than its header says"},
  };
  for (const Case& c : cases) {
    img::image out;
    try {
      img::library_reader().read(c.file, out);
      ADD_FAILURE() << c.file << " was read";
    } catch (const img::io_error& e) {
      EXPECT_STREQ(e.what(), c.text) << c.file;
      EXPECT_EQ(e.file(), c.file);
    }
  }
  // Not an image of ours: info says no rather than failing.
  EXPECT_FALSE(img::library_reader().info(dir / "note.png", nullptr));
}

TEST(LibraryReader, RefusesPicturesAboveItsPixelLimit) {
  TempDir dir;
  img::library_writer().write(dir / "a.png", "PNG", Pattern(40, 30, 1, false), false);
  img::library_writer().write(dir / "a.gif", "GIF", Pattern(40, 30, 1, false), false);
  for (const char* file : {"a.png", "a.gif"}) {
    img::image out;
    EXPECT_THAT([&] { img::library_reader(40 * 30 - 1).read(dir / file, out); },
                testing::ThrowsMessage<img::io_error>(testing::StrEq("image is too large")))
        << file;
    EXPECT_NO_THROW(img::library_reader(40 * 30).read(dir / file, out)) << file;
  }
}

TEST(LibraryWriter, FailuresSayWhatFailedAndLeaveNoFile) {
  TempDir dir;
  const img::image picture = Pattern(4, 4, 1, false);
  img::library_writer writer;
  EXPECT_THAT(
      [&] { writer.write(dir / "a.xyz", "XYZ", picture, false); },
      testing::ThrowsMessage<img::io_error>(testing::StrEq("file format is not supported")));
  EXPECT_THAT([&] { writer.write(dir / "no/such/dir/a.png", "PNG", picture, false); },
              testing::ThrowsMessage<img::io_error>(
                  testing::StrEq("could not open image file for writing or write error")));
  EXPECT_THAT([&] { writer.write(dir / "e.png", "PNG", img::image(), false); },
              testing::ThrowsMessage<img::io_error>(testing::StrEq("image has no pixels")));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  img::image out;
  EXPECT_THAT(
      [&] { img::library_reader().read(dir / "a.png", "XYZ", out); },
      testing::ThrowsMessage<img::io_error>(testing::StrEq("file format is not supported")));
}

// Several threads decode at once, as the cache's loaders and the prefetcher do.
TEST(LibraryReader, ThreadsReadConcurrently) {
  TempDir dir;
  const img::image source = Pattern(96, 64, 1, true);
  const char* formats[] = {"PNG", "JPEG", "GIF", "TIFF"};
  std::vector<img::image> expected(4);
  for (int i = 0; i < 4; ++i) {
    img::library_writer().write(dir / std::to_string(i), formats[i], source, true);
    img::library_reader().read(dir / std::to_string(i), expected[size_t(i)]);
  }
  std::vector<int> mismatches(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      img::library_reader reader;
      for (int round = 0; round < 8; ++round) {
        const int i = (t + round) % 4;
        img::image out;
        reader.read(dir / std::to_string(i), out);
        if (MaxDifference(out, expected[size_t(i)], true) != 0) ++mismatches[size_t(t)];
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_THAT(mismatches, testing::Each(0));
}

}  // namespace
