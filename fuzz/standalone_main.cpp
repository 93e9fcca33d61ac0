// SPDX-License-Identifier: GPL-3.0-or-later
// Driver for fuzz targets built without libFuzzer.
//
//   fuzz_x                    replays the seeds and a fixed set of mutations
//   fuzz_x FILE...            runs each file once
//   fuzz_x --write-seeds DIR  writes the seeds as a starting corpus
//
// A crash, a sanitizer report or an escaped exception fails the run.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "fuzz_target.h"

namespace {

void Run(const std::vector<uint8_t>& input) {
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

// Deterministic mutations in the spirit of the fuzzer's own: truncation at
// every header-sized length, single bit flips, and 16/32-bit fields forced
// to extreme values.
int Replay() {
  std::mt19937 random(12345);
  size_t runs = 0;
  for (const auto& seed : VelomarFuzzSeeds()) {
    Run(seed);
    ++runs;
    for (size_t n = 0; n < seed.size() && n < 96; ++n) {
      Run(std::vector<uint8_t>(seed.begin(), seed.begin() + n));
      ++runs;
    }
    if (seed.empty()) continue;
    for (int i = 0; i < 400; ++i) {
      std::vector<uint8_t> m = seed;
      const size_t at = random() % std::min<size_t>(m.size(), 128);
      switch (i % 4) {
        case 0:
          m[at] ^= uint8_t(1u << (random() % 8));
          break;
        case 1:
          m[at] = 0xFF;
          if (at + 1 < m.size()) m[at + 1] = 0xFF;
          break;
        case 2:
          for (size_t k = at; k < m.size() && k < at + 4; ++k) m[k] = (k == at + 3) ? 0x7F : 0xFF;
          break;
        default:
          m[at] = uint8_t(random());
          m.resize(m.size() - random() % m.size());
          break;
      }
      Run(m);
      ++runs;
    }
  }
  std::printf("replayed %zu inputs\n", runs);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 1) return Replay();
  if (argc == 3 && std::strcmp(argv[1], "--write-seeds") == 0) {
    std::filesystem::create_directories(argv[2]);
    int n = 0;
    for (const auto& seed : VelomarFuzzSeeds()) {
      std::ofstream out(std::filesystem::path(argv[2]) / ("seed-" + std::to_string(n++)),
                        std::ios::binary);
      out.write(reinterpret_cast<const char*>(seed.data()), std::streamsize(seed.size()));
    }
    return 0;
  }
  for (int i = 1; i < argc; ++i) {
    std::ifstream in(argv[i], std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", argv[i]);
      return 2;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    Run(data);
  }
  return 0;
}
