// SPDX-License-Identifier: GPL-3.0-or-later
// Library-backed reading of a 1920x1080 frame into blue-green-red-alpha:
// file read, decode and conversion into the final image, per frame. The
// destination is reused, as the cache reuses a slot's buffer, so the
// figure is the decoder's and the converter's, not the allocator's.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "imaging/library_io.h"

namespace {

// Texture of the kind the tracker sees: smooth shading with fine detail,
// so that neither codec gets an unusually easy frame.
img::image Frame(bool with_alpha) {
  img::image p(1920, 1080);
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      const double s = std::sin(x * 0.031) * std::cos(y * 0.027);
      const uint8_t grain = uint8_t((x * 2654435761u ^ y * 40503u) >> 27);
      px[0] = uint8_t(96 + 80 * s + grain);
      px[1] = uint8_t((x + y) / 12 + grain);
      px[2] = uint8_t(128 - 100 * s);
      px[3] = with_alpha ? uint8_t(y * 255 / 1079) : 255;
    }
  return p;
}

class Files {
 public:
  Files()
      : folder_(std::filesystem::temp_directory_path() /
                ("velomar-bench-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
    img::library_writer writer;
    writer.write(path("frame.png"), "PNG", Frame(false), false);
    writer.write(path("alpha.png"), "PNG", Frame(true), true);
    writer.write(path("frame.jpg"), "JPEG", Frame(false), false);
  }
  ~Files() { std::filesystem::remove_all(folder_); }
  std::string path(const char* name) const { return (folder_ / name).string(); }

 private:
  std::filesystem::path folder_;
};

const Files& files() {
  static const Files f;
  return f;
}

void Read(benchmark::State& state, const char* file, uint32_t top_down) {
  const std::string name = files().path(file);
  img::library_reader reader;
  img::image out;
  out.set_top_down(top_down);
  for (auto _ : state) {
    reader.read(name, out);
    benchmark::DoNotOptimize(out.data);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size));
}

void BM_LibraryReadPng1080(benchmark::State& s) {
  Read(s, "frame.png", 1);
}
void BM_LibraryReadPngAlpha1080(benchmark::State& s) {
  Read(s, "alpha.png", 1);
}
void BM_LibraryReadPngBottomUp1080(benchmark::State& s) {
  Read(s, "frame.png", 0);
}
void BM_LibraryReadJpeg1080(benchmark::State& s) {
  Read(s, "frame.jpg", 1);
}
void BM_LibraryReadJpegBottomUp1080(benchmark::State& s) {
  Read(s, "frame.jpg", 0);
}

BENCHMARK(BM_LibraryReadPng1080)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryReadPngAlpha1080)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryReadPngBottomUp1080)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryReadJpeg1080)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryReadJpegBottomUp1080)->Unit(benchmark::kMillisecond);

}  // namespace
