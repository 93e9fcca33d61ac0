// SPDX-License-Identifier: GPL-3.0-or-later
#include "testing/files.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace testing_support {

TempDir::TempDir() {
  const char* root = std::getenv("VELOMAR_TEST_TMP");
  std::filesystem::path base =
      root ? std::filesystem::path(root) : std::filesystem::temp_directory_path();
  std::random_device device;
  for (int attempt = 0; attempt < 100; ++attempt) {
    auto candidate = base / ("velomar-test-" + std::to_string(device()));
    std::error_code ec;
    std::filesystem::create_directories(base, ec);
    if (std::filesystem::create_directory(candidate, ec)) {
      path_ = candidate;
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary folder under " + base.string());
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string TempDir::operator/(std::string_view file) const {
  return (path_ / file).string();
}

Bytes& Bytes::u8(uint32_t v) {
  data_.push_back(uint8_t(v));
  return *this;
}
Bytes& Bytes::u16(uint32_t v) {
  return u8(v).u8(v >> 8);
}
Bytes& Bytes::u32(uint32_t v) {
  return u16(v).u16(v >> 16);
}
Bytes& Bytes::i32(int32_t v) {
  return u32(uint32_t(v));
}
Bytes& Bytes::raw(std::string_view text) {
  data_.insert(data_.end(), text.begin(), text.end());
  return *this;
}
Bytes& Bytes::append(const std::vector<uint8_t>& more) {
  data_.insert(data_.end(), more.begin(), more.end());
  return *this;
}
Bytes& Bytes::fill(size_t count, uint8_t value) {
  data_.insert(data_.end(), count, value);
  return *this;
}

void WriteFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  std::ofstream out(name, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + name);
}

void WriteFile(const std::string& name, std::string_view text) {
  std::ofstream out(name, std::ios::binary);
  out.write(text.data(), std::streamsize(text.size()));
  if (!out) throw std::runtime_error("cannot write " + name);
}

std::vector<uint8_t> ReadFile(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + name);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
}

}  // namespace testing_support
