// SPDX-License-Identifier: GPL-3.0-or-later
// The settings file of velomar-cli as outside input: any text either reads
// or fails with an exception, and what reads is written back as text that
// reads to the same sections.
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "app/profile_store.h"
#include "fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  app::MemoryProfileStore::Sections sections;
  try {
    sections = app::ParseSettings(in, "fuzz");
  } catch (const std::runtime_error&) {
    return 0;  // a malformed line, told with its number
  }
  std::istringstream written(app::SettingsText(sections));
  if (app::ParseSettings(written, "written") != sections) __builtin_trap();
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto bytes = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  return {
      bytes("[Preferences]\nCacheMemoryQuota=500\nProperty Hint Language=0\n"),
      bytes("# comment\n; another\n\n[A]\r\nkey = value with spaces \r\n[B]\nx=\\s\\t\\n\\r\\\\\n"),
      bytes("[Recent]\nFile1=/tmp/a.vlp\nFile2=\n[Recent]\nFile1=again\n"),
      bytes("key=before any section\n"),
      bytes("[]\n[x\n=no key\n"),
      bytes("[S]\n[k=v\nk=a]\\s\n  spaced key  =  \\s value \\s \n"),
  };
}
