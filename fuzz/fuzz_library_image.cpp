// SPDX-License-Identifier: GPL-3.0-or-later
// Fuzz target of the library-backed image reader: any bytes, decoded from
// memory. Only img::io_error may come out; anything else (a crash, a
// sanitizer report, another exception) is a finding.
//
// The reader's pixel limit stays far below the fuzzer's memory limit, so a
// header that lies about its size is refused instead of being allocated.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz_target.h"
#include "imaging/image_header.h"
#include "imaging/library_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static img::library_reader reader(uint64_t(1) << 22);
  img::image out;
  bool has_alpha = false;
  try {
    reader.read_bytes(data, size, "fuzz input", out, &has_alpha);
  } catch (const img::io_error&) {
  }
  // The header answers and the mask route read the same bytes their own way.
  if (const auto declared = img::read_declared(data, size))
    (void)(uint64_t(declared->width) * declared->height);
  img::bitmap<img::bit1> bits;
  try {
    reader.read_bytes_bilevel(data, size, "fuzz input", bits, out);
  } catch (const img::io_error&) {
  }
  return 0;
}

namespace {

// A small picture with gradients, a hard edge and partial alpha, so that
// every format's seed carries real structure for the mutations to break.
img::image SeedPicture() {
  img::image p(23, 17);
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = uint8_t(x * 11);
      px[1] = uint8_t(y * 15);
      px[2] = x < 12 ? 40 : 220;
      px[3] = (x + y) % 5 == 0 ? 0 : uint8_t(128 + x);
    }
  return p;
}

}  // namespace

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  const auto folder =
      std::filesystem::temp_directory_path() / ("velomar-fuzz-seeds-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  const img::image picture = SeedPicture();
  std::vector<std::vector<uint8_t>> seeds;
  const struct {
    const char* format;
    bool alpha;
  } kinds[] = {{"PNG", true}, {"PNG", false}, {"GIF", true},  {"TIFF", true}, {"JPEG", false},
               {"BMP", true}, {"BMP", false}, {"DPX", false}, {"EXR", true}};
  img::library_writer writer;
  int n = 0;
  for (const auto& kind : kinds) {
    const std::string name = (folder / ("seed" + std::to_string(n++))).string();
    writer.write(name, kind.format, picture, kind.alpha);
    std::ifstream in(name, std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::filesystem::remove_all(folder);
  return seeds;
}
