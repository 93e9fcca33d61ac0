// SPDX-License-Identifier: GPL-3.0-or-later
// Test helpers: a private temporary folder per test, and byte-level file
// building, so that every file a test reads is written by the test itself.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

// A fresh folder, removed with everything in it when the object dies.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // Full name of `file` inside the folder, as a string.
  std::string operator/(std::string_view file) const;

 private:
  std::filesystem::path path_;
};

// Little-endian byte builder for file headers.
class Bytes {
 public:
  Bytes& u8(uint32_t v);
  Bytes& u16(uint32_t v);
  Bytes& u32(uint32_t v);
  Bytes& i32(int32_t v);
  Bytes& raw(std::string_view text);
  Bytes& append(const std::vector<uint8_t>& more);
  Bytes& fill(size_t count, uint8_t value);
  const std::vector<uint8_t>& data() const { return data_; }
  size_t size() const { return data_.size(); }

 private:
  std::vector<uint8_t> data_;
};

void WriteFile(const std::string& name, const std::vector<uint8_t>& bytes);
void WriteFile(const std::string& name, std::string_view text);
std::vector<uint8_t> ReadFile(const std::string& name);

}  // namespace testing_support
