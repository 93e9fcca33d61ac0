// SPDX-License-Identifier: GPL-3.0-or-later
// ".ais" lists: the line parser and the path resolution of each entry.
// Reading the entries' images is the image readers' own fuzz targets' work
// (a fuzzed list could name any file on the machine, a device included).
#include <filesystem>
#include <sstream>
#include <string>

#include "fuzz_target.h"
#include "imaging/image_list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  for (const auto& entry : img::parse_ais_list(in)) {
    if (entry.empty()) __builtin_trap();  // empty lines are dropped, never returned
    std::error_code ec;
    (void)std::filesystem::absolute(std::filesystem::path(entry), ec).lexically_normal();
    (void)img::numbered_pattern(entry);
    (void)img::first_frame_number(entry);
  }
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto bytes = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  return {
      bytes("frames/a0001.bmp\nframes/a0002.bmp\n"),
      bytes("\"C:\\shots\\x 01.tga\"\r\n\r\n\"C:\\shots\\x 02.tga\"\r\n"),
      bytes("\"\"\n\n\"\n"),
      bytes("../up/../../b.png"),
  };
}
