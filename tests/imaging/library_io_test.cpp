// SPDX-License-Identifier: GPL-3.0-or-later
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

using testing::StrEq;
using testing::ThrowsMessage;
using testing_support::Bytes;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

// A picture where every channel of every pixel differs from its neighbours,
// so that a swapped channel, a flipped row or an off-by-one column shows.
// `smooth` gives gentle gradients instead, what JPEG is for.
img::image Pattern(uint32_t w, uint32_t h, uint32_t top_down = 1, bool smooth = false) {
  img::image p;
  p.set_top_down(top_down);
  p.resize(w, h, 4);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      if (smooth) {
        px[0] = uint8_t(40 + 2 * x), px[1] = uint8_t(200 - 3 * y), px[2] = uint8_t(90 + x + y);
        px[3] = 7;
      } else {
        px[0] = uint8_t(x * 7 + y * 3), px[1] = uint8_t(x * 2 + y * 11 + 5);
        px[2] = uint8_t(255 - x * 5 - y), px[3] = uint8_t(x * 13 + y * 17);
      }
    }
  return p;
}

// Largest difference of any channel, in picture order; alpha only if asked.
int MaxDifference(const img::image& a, const img::image& b, bool alpha) {
  EXPECT_EQ(a.width, b.width);
  EXPECT_EQ(a.height, b.height);
  int worst = 0;
  for (uint32_t y = 0; y < std::min(a.height, b.height); ++y)
    for (uint32_t x = 0; x < std::min(a.width, b.width) * 4; ++x)
      if (alpha || x % 4 != 3) worst = std::max(worst, std::abs(a.rows[y][x] - b.rows[y][x]));
  return worst;
}

bool AllOpaque(const img::image& p) {
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x)
      if (p.rows[y][4 * x + 3] != 255) return false;
  return true;
}

// Written and read back (into a buffer of the other row order), a lossless
// format keeps every byte; JPEG comes close. Without alpha the file reads
// opaque, not transparent, and says so.
TEST(LibraryIo, RoundTrips) {
  struct Case {
    const char* format;
    bool alpha;
    uint32_t top_down;
    int tolerance;
  };
  const Case cases[] = {{"PNG", true, 1, 0},  {"PNG", false, 0, 0}, {"png", true, 0, 0},
                        {"TIFF", true, 0, 0}, {"TIF", false, 1, 0}, {"BMP", true, 1, 0},
                        {"BMP", false, 0, 0}, {"DPX", true, 0, 0},  {"DPX", false, 1, 0},
                        {"EXR", true, 1, 0},  {"EXR", false, 0, 0}, {"JPEG", true, 1, 8},
                        {"JPG", false, 0, 8}};
  TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.format << " alpha " << c.alpha << " top " << c.top_down);
    const bool lossy = c.tolerance > 0;
    const std::string name = dir / (std::string("p.") + c.format);
    const img::image source =
        lossy ? Pattern(64, 48, c.top_down, true) : Pattern(37, 23, c.top_down);
    const uint64_t bytes = img::library_writer().write(name, c.format, source, c.alpha);
    EXPECT_EQ(bytes, std::filesystem::file_size(name));
    img::image back;
    back.set_top_down(c.top_down ^ 1);
    bool has_alpha = !c.alpha;
    img::library_reader().read(name, back, &has_alpha);
    EXPECT_EQ(back.top_down, c.top_down ^ 1);
    EXPECT_LE(MaxDifference(source, back, c.alpha && !lossy), c.tolerance);
    EXPECT_EQ(has_alpha, c.alpha && !lossy);
    if (!has_alpha) {
      EXPECT_TRUE(AllOpaque(back));
    }
  }
}

TEST(LibraryIo, GifTransparentColourReadsAsAlphaZero) {
  TempDir dir;
  img::image source = Pattern(20, 10);
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
  EXPECT_TRUE(AllOpaque(back));
  EXPECT_EQ(MaxDifference(source, back, false), 0);
}

// Encodes one frame with a raw encoder, for inputs our writer does not make
// (16-bit, 10-bit, out-of-range float). `fill` writes the planes.
std::vector<uint8_t> EncodeRaw(
    AVCodecID id, AVPixelFormat format, int w, int h, const std::function<void(AVFrame&)>& fill) {
  const AVCodec* codec = avcodec_find_encoder(id);
  AVCodecContext* c = avcodec_alloc_context3(codec);
  c->width = w, c->height = h, c->pix_fmt = format, c->time_base = {1, 25};
  EXPECT_EQ(avcodec_open2(c, codec, nullptr), 0);
  AVFrame* f = av_frame_alloc();
  f->format = format, f->width = w, f->height = h;
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

// Every component of every layout a decoder hands out holds an 8-bit level
// at the layout's depth: widened by bit replication (so that a fair
// narrowing gives the level back), or cut to its top bits, whose expected
// reading is then their rounded scale-up. Floats hold level / 255.
TEST(LibraryReader, EveryLayoutComesDownToEightBitsExactly) {
  const std::pair<AVCodecID, AVPixelFormat> layouts[] = {
      {AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY8},     {AV_CODEC_ID_PNG, AV_PIX_FMT_YA8},
      {AV_CODEC_ID_PNG, AV_PIX_FMT_GRAY16BE},  {AV_CODEC_ID_PNG, AV_PIX_FMT_YA16BE},
      {AV_CODEC_ID_PNG, AV_PIX_FMT_RGB48BE},   {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA64BE},
      {AV_CODEC_ID_TIFF, AV_PIX_FMT_RGB48LE},  {AV_CODEC_ID_TIFF, AV_PIX_FMT_RGBA64LE},
      {AV_CODEC_ID_TIFF, AV_PIX_FMT_GRAY16LE}, {AV_CODEC_ID_BMP, AV_PIX_FMT_RGB565LE},
      {AV_CODEC_ID_BMP, AV_PIX_FMT_RGB555LE},  {AV_CODEC_ID_DPX, AV_PIX_FMT_GBRP10LE},
      {AV_CODEC_ID_DPX, AV_PIX_FMT_GBRP12LE},  {AV_CODEC_ID_DPX, AV_PIX_FMT_RGBA64BE},
      {AV_CODEC_ID_EXR, AV_PIX_FMT_GBRPF32LE}, {AV_CODEC_ID_EXR, AV_PIX_FMT_GBRAPF32LE},
      {AV_CODEC_ID_EXR, AV_PIX_FMT_GRAYF32LE}};
  const int w = 19, h = 5;
  auto level = [](int x, int y, int c) { return (x * 37 + y * 101 + c * 71) % 256; };
  TempDir dir;
  for (const auto& [codec, format] : layouts) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    SCOPED_TRACE(d->name);
    const bool rgb = d->flags & AV_PIX_FMT_FLAG_RGB, alpha = d->flags & AV_PIX_FMT_FLAG_ALPHA;
    const bool is_float = d->flags & AV_PIX_FMT_FLAG_FLOAT;
    auto stored = [&](int x, int y, int c) -> uint32_t {
      const int depth = d->comp[c].depth, v = level(x, y, c);
      if (is_float) return std::bit_cast<uint32_t>(float(v) / 255.0f);
      if (depth <= 8) return uint32_t(v >> (8 - depth));
      uint32_t wide = 0;
      for (int filled = 0; filled < depth; filled += 8) wide = wide << 8 | uint32_t(v);
      return wide >> ((depth + 7) / 8 * 8 - depth);
    };
    auto expected = [&](int x, int y, int c) -> int {
      const int depth = d->comp[c].depth;
      if (is_float || depth >= 8) return level(x, y, c);
      const int top = (1 << depth) - 1;
      return ((level(x, y, c) >> (8 - depth)) * 255 + top / 2) / top;
    };
    WriteFile(dir / "layout", EncodeRaw(codec, format, w, h, [&](AVFrame& f) {
                // The line writer ORs bits into place: start from zero.
                for (int p = 0; p < 4 && f.data[p]; ++p)
                  std::memset(f.data[p], 0, size_t(f.linesize[p]) * h);
                std::vector<uint32_t> line(w);
                for (int y = 0; y < h; ++y)
                  for (int c = 0; c < d->nb_components; ++c) {
                    for (int x = 0; x < w; ++x) line[size_t(x)] = stored(x, y, c);
                    av_write_image_line2(line.data(), f.data, f.linesize, d, 0, y, c, w, 4);
                  }
              }));
    img::image back;
    bool has_alpha = !alpha;
    img::library_reader().read(dir / "layout", back, &has_alpha);
    ASSERT_EQ(back.width, uint32_t(w));
    ASSERT_EQ(back.height, uint32_t(h));
    EXPECT_EQ(has_alpha, alpha);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const uint8_t* p = back.rows[size_t(y)] + 4 * x;
        const int want[4] = {expected(x, y, rgb ? 2 : 0), expected(x, y, rgb ? 1 : 0),
                             expected(x, y, 0), alpha ? expected(x, y, rgb ? 3 : 1) : 255};
        for (int c = 0; c < 4; ++c) ASSERT_EQ(p[c], want[c]) << "x " << x << " y " << y << " " << c;
      }
  }
}

TEST(LibraryReader, FloatExrIsClampedAndRounded) {
  const float values[5] = {-1.0f, 0.0f, 0.5f, 1.0f, 3.0f};
  TempDir dir;
  WriteFile(dir / "f.exr", EncodeRaw(AV_CODEC_ID_EXR, AV_PIX_FMT_GBRPF32LE, 5, 1, [&](AVFrame& f) {
              for (int x = 0; x < 5; ++x) {
                reinterpret_cast<float*>(f.data[0])[x] = values[x];         // g
                reinterpret_cast<float*>(f.data[1])[x] = values[4 - x];     // b
                reinterpret_cast<float*>(f.data[2])[x] = values[x] * 0.5f;  // r
              }
            }));
  img::image back;
  bool has_alpha = true;
  img::library_reader().read(dir / "f.exr", back, &has_alpha);
  EXPECT_FALSE(has_alpha);
  const uint8_t level[5] = {0, 0, 128, 255, 255}, half[5] = {0, 0, 64, 128, 255};
  for (int x = 0; x < 5; ++x) {
    const uint8_t want[4] = {level[4 - x], level[x], half[x], 255};
    EXPECT_EQ(std::memcmp(back.rows[0] + 4 * x, want, 4), 0) << x;
  }
}

TEST(LibraryReader, InfoAndBytesInMemory) {
  TempDir dir;
  img::library_writer().write(dir / "a.png", "PNG", Pattern(5, 3), true);
  img::library_writer().write(dir / "b.tif", "TIFF", Pattern(5, 3), false);
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
  // PNG and JPEG answer from their headers: no pixel budget applies, and
  // damage past the header is for reading to find.
  img::library_writer().write(dir / "c.jpg", "JPEG", Pattern(7, 4), false);
  img::library_writer().write(dir / "d.png", "PNG", Pattern(7, 4), false);
  const auto png = ReadFile(dir / "d.png");
  WriteFile(dir / "cut.png", std::vector<uint8_t>(png.begin(), png.end() - 20));
  for (const char* name : {"c.jpg", "d.png", "cut.png"}) {
    ASSERT_TRUE(img::library_reader(1).info(dir / name, &info)) << name;
    EXPECT_EQ(std::tie(info.width, info.height, info.bit_count), std::tuple(7u, 4u, 24u)) << name;
  }

  img::library_writer().write(dir / "a.gif", "GIF", Pattern(9, 7), true);
  const auto bytes = ReadFile(dir / "a.gif");
  img::image from_file, from_memory;
  bool file_alpha = false, memory_alpha = false;
  reader.read(dir / "a.gif", from_file, &file_alpha);
  reader.read_bytes(bytes.data(), bytes.size(), "mem", from_memory, &memory_alpha);
  EXPECT_EQ(MaxDifference(from_file, from_memory, true), 0);
  EXPECT_TRUE(file_alpha && memory_alpha);
  EXPECT_THAT([&] { reader.read_bytes(bytes.data(), 20, "mem", from_memory, nullptr); },
              ThrowsMessage<img::io_error>(StrEq("image decoding failure")));
}

// Each failure carries its own text and the file's name.
TEST(LibraryReader, FailuresSayWhatFailed) {
  TempDir dir;
  img::library_writer().write(dir / "whole.png", "PNG", Pattern(40, 30), true);
  const auto png = ReadFile(dir / "whole.png");
  WriteFile(dir / "cut.png", std::vector<uint8_t>(png.begin(), png.begin() + png.size() / 2));
  WriteFile(dir / "note.png", std::string_view("just some text, no picture\n"));
  WriteFile(dir / "empty.png", std::string_view(""));
  // A BMP header claiming 60000 x 60000 uncompressed pixels, and no pixels.
  Bytes bmp;
  bmp.raw("BM").u32(54).u32(0).u32(54).u32(40).i32(60000).i32(60000).u16(1).u16(24).u32(0);
  WriteFile(dir / "liar.bmp", bmp.fill(20, 0).data());
  img::library_writer().write(dir / "a.gif", "GIF", Pattern(40, 30), false);
  // Damaged frames the decoders would otherwise fill in with made-up pixels.
  img::library_writer().write(dir / "whole.jpg", "JPEG", Pattern(40, 30, 1, true), false);
  img::library_writer().write(dir / "whole.exr", "EXR", Pattern(40, 30), false);
  for (const auto& [from, to] :
       {std::pair{"whole.jpg", "cut.jpg"}, {"a.gif", "cut.gif"}, {"whole.exr", "cut.exr"}}) {
    const auto whole = ReadFile(dir / from);
    WriteFile(dir / to, std::vector<uint8_t>(whole.begin(), whole.begin() + whole.size() * 2 / 3));
  }

  const char* kOpen = "could not open image file for reading or read error";
  const char* kUnknown = "image file format not recognised";
  const struct {
    std::string file;
    uint64_t pixel_limit;
    const char* text;
  } cases[] = {
      {dir / "missing.png", 0, kOpen},
      {dir.path().string(), 0, kOpen},
      {dir / "cut.png", 0, "image decoding failure"},
      {dir / "cut.jpg", 0, "image decoding failure"},
      {dir / "cut.gif", 0, "image decoding failure"},
      {dir / "cut.exr", 0, "image decoding failure"},
      {dir / "note.png", 0, kUnknown},
      {dir / "empty.png", 0, kUnknown},
      {dir / "liar.bmp", 0, "image file is shorter than its header says"},
      {dir / "whole.png", 40 * 30 - 1, "image is too large"},
      {dir / "a.gif", 40 * 30 - 1, "image is too large"},
      {dir / "whole.png", 40 * 30, nullptr},
      {dir / "a.gif", 40 * 30, nullptr},
  };
  for (const auto& c : cases) {
    img::image out;
    try {
      (c.pixel_limit ? img::library_reader(c.pixel_limit) : img::library_reader())
          .read(c.file, out);
      EXPECT_EQ(c.text, nullptr) << c.file << " was read";
    } catch (const img::io_error& e) {
      EXPECT_STREQ(e.what(), c.text) << c.file;
      EXPECT_EQ(e.file(), c.file);
    }
  }
  // Not an image of ours: info says no rather than failing.
  EXPECT_FALSE(img::library_reader().info(dir / "note.png", nullptr));
}

TEST(LibraryWriter, FailuresSayWhatFailedAndLeaveNoFile) {
  TempDir dir;
  const img::image picture = Pattern(4, 4);
  img::library_writer writer;
  EXPECT_THAT([&] { writer.write(dir / "a.xyz", "XYZ", picture, false); },
              ThrowsMessage<img::io_error>(StrEq("file format is not supported")));
  EXPECT_THAT(
      [&] { writer.write(dir / "no/such/dir/a.png", "PNG", picture, false); },
      ThrowsMessage<img::io_error>(StrEq("could not open image file for writing or write error")));
  EXPECT_THAT([&] { writer.write(dir / "e.png", "PNG", img::image(), false); },
              ThrowsMessage<img::io_error>(StrEq("image has no pixels")));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  img::image out;
  EXPECT_THAT([&] { img::library_reader().read(dir / "a.png", "XYZ", out); },
              ThrowsMessage<img::io_error>(StrEq("file format is not supported")));
}

// Several threads decode at once, as the cache's loaders and the prefetcher do.
TEST(LibraryReader, ThreadsReadConcurrently) {
  TempDir dir;
  const char* formats[] = {"PNG", "JPEG", "GIF", "TIFF"};
  std::vector<img::image> expected(4);
  for (int i = 0; i < 4; ++i) {
    img::library_writer().write(dir / std::to_string(i), formats[i], Pattern(96, 64), true);
    img::library_reader().read(dir / std::to_string(i), expected[size_t(i)]);
  }
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      img::library_reader reader;
      for (int round = 0; round < 8; ++round) {
        const int i = (t + round) % 4;
        img::image out;
        reader.read(dir / std::to_string(i), out);
        if (MaxDifference(out, expected[size_t(i)], true) != 0) ++mismatches;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(mismatches, 0);
}

}  // namespace

namespace {

TEST(LibraryWriter, MemoryEncodingIsTheFilesBytes) {
  TempDir dir;
  const img::image source = Pattern(19, 11);
  for (const char* format : {"PNG", "TIFF", "GIF"}) {
    const std::string name = dir / (std::string("m.") + format);
    img::library_writer().write(name, format, source, true);
    EXPECT_EQ(img::library_writer().encode(format, source, true), ReadFile(name)) << format;
  }
  EXPECT_THAT([&] { img::library_writer().encode("XYZ", source, false); },
              ThrowsMessage<img::io_error>(StrEq("file format is not supported")));
  EXPECT_THAT([&] { img::library_writer().encode("PNG", img::image(), false); },
              ThrowsMessage<img::io_error>(StrEq("image has no pixels")));
}

// A mask is stored as a one-bit greyscale PNG, so that a large mask stays
// short in the project file.
TEST(LibraryWriter, MaskPngIsOneBitGrey) {
  img::bitmap<img::bit1> mask(10, 2);
  std::fill(mask.rows[0], mask.rows[0] + mask.stride, uint8_t(0xFF));
  std::fill(mask.rows[1], mask.rows[1] + mask.stride, uint8_t(0));
  const std::vector<uint8_t> png = img::encode_png(mask);
  ASSERT_GT(png.size(), 26u);
  EXPECT_EQ(png[24], 1);  // IHDR bit depth
  EXPECT_EQ(png[25], 0);  // IHDR colour type: grey
  img::image back;
  img::library_reader().read_bytes(png.data(), png.size(), "mask", back, nullptr);
  ASSERT_EQ(back.width, 10u);
  for (uint32_t x = 0; x < 10; ++x) {
    EXPECT_EQ(back.rows[0][4 * x], 255) << x;
    EXPECT_EQ(back.rows[1][4 * x], 0) << x;
  }
  EXPECT_THROW(img::encode_png(img::bitmap<img::bit1>()), img::io_error);
}

}  // namespace
