// SPDX-License-Identifier: GPL-3.0-or-later
// Raster images: one pixel buffer, a row table and a handful of numbers.
//
// img::bitmap<Kind> is a plain value (copies are deep). All pixel access goes
// through `rows`, indexed from the top of the picture whatever `top_down`
// says, so that code above this header never looks at the row order.
// Flipping `top_down` on a filled image turns the picture upside down without
// moving a byte; the file readers rely on that.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <vector>

namespace img {

// The pixel buffers of every bitmap: 64-byte aligned so that vector loops
// may use aligned loads on row 0. Frame-sized buffers (4 MB and more) are
// laid on 2 MB boundaries and offered to the kernel as huge pages: a frame
// that must be fresh memory (a new cache entry) then costs a handful of
// page faults instead of two thousand. Throws std::bad_alloc.
uint8_t* allocate_pixels(size_t bytes);
void release_pixels(uint8_t* buffer) noexcept;

// Pixel kinds. row_bytes is the length of one row before alignment.
struct bit1 {  // one bit; bit (128 >> (x & 7)) of byte x >> 3; set = inside the mask
  static constexpr uint64_t row_bytes(uint64_t width) { return (width + 7) / 8; }
};
struct grey8 {  // a grey level or a palette index
  static constexpr uint64_t row_bytes(uint64_t width) { return width; }
};
struct rgb16 {  // little-endian 5-5-5: blue bits 0-4, green 5-9, red 10-14, bit 15 unused
  static constexpr uint64_t row_bytes(uint64_t width) { return width * 2; }
};
struct rgb24 {  // blue, green, red
  static constexpr uint64_t row_bytes(uint64_t width) { return width * 3; }
};
struct rgba32 {  // blue, green, red, alpha; alpha is the top byte of the LE word
  static constexpr uint64_t row_bytes(uint64_t width) { return width * 4; }
};

// Thrown by resize when an image would not fit the 32-bit byte count that
// the cache and the file formats work with.
class image_too_large : public std::length_error {
 public:
  image_too_large() : std::length_error("image is too large") {}
};

template <class Kind>
class bitmap {
 public:
  using kind = Kind;

  uint8_t* data = nullptr;  // null when the image is empty
  bool owns_data = true;    // false only for a wrapped foreign buffer
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t alignment = 4;  // row alignment in bytes
  uint32_t top_down = 1;   // 1: first buffer row is the top row; 0: the bottom row
  uint32_t stride = 0;     // bytes of one row after alignment
  uint32_t size = 0;       // stride * height: the charge against the cache quota
  std::vector<uint8_t*> rows;

  bitmap() = default;
  bitmap(uint32_t w, uint32_t h, uint32_t align = 4) { resize(w, h, align); }
  bitmap(const bitmap& other) { *this = other; }
  bitmap(bitmap&& other) noexcept { swap(other); }
  ~bitmap() { clear(); }

  bitmap& operator=(bitmap&& other) noexcept {
    if (this != &other) {
      clear();
      swap(other);
    }
    return *this;
  }

  // Deep copy. Same stride and row order: one block copy; otherwise row by
  // row through both row tables, which is how a bottom-up image becomes
  // top-down or loses its row padding. The destination keeps its own
  // top_down and, when the size matches, its alignment.
  bitmap& operator=(const bitmap& src) {
    if (this == &src) return *this;
    if (width != src.width || height != src.height) resize(src.width, src.height, 4);
    if (stride == src.stride && top_down == src.top_down) {
      if (size) std::memcpy(data, src.data, size);
    } else {
      // Zero-width images have null rows, which memcpy must not see even for 0 bytes.
      const size_t n = size_t(Kind::row_bytes(width));
      if (n)
        for (uint32_t y = 0; y < height; ++y) std::memcpy(rows[y], src.rows[y], n);
    }
    return *this;
  }

  // Resizes the buffer. Pixels survive only a change of alignment alone; in
  // every other case the contents are undefined and the caller overwrites
  // them. A buffer whose byte size stays the same is kept. (0, 0, 4) releases
  // the pixels. Throws image_too_large past 32-bit sizes, and the allocator's
  // bad_alloc; the image is unchanged when it throws.
  void resize(uint32_t new_width, uint32_t new_height, uint32_t new_alignment) {
    if (new_width == width && new_height == height && new_alignment == alignment) return;

    const uint64_t row = Kind::row_bytes(new_width);
    uint64_t new_stride = row;
    if (new_alignment > 1 && row % new_alignment != 0)
      new_stride = (row / new_alignment + 1) * new_alignment;
    if (new_stride > UINT32_MAX || new_stride * new_height > UINT32_MAX) throw image_too_large();
    const uint32_t new_size = uint32_t(new_stride * new_height);

    // Everything that may throw happens before the first field changes.
    const bool only_alignment = data != nullptr && new_width == width && new_height == height;
    std::vector<uint8_t*> old_rows;
    if (only_alignment) old_rows = rows;
    std::vector<uint8_t*> new_rows(new_height, nullptr);
    // A wrapped foreign buffer is never adopted, even when the byte size
    // stays: the image would otherwise free memory it does not own.
    uint8_t* new_data = data;
    if (new_size != size || !owns_data) new_data = new_size ? allocate(new_size) : nullptr;

    uint8_t* old_data = data;
    width = new_width;
    height = new_height;
    alignment = new_alignment;
    stride = uint32_t(new_stride);
    size = new_size;
    data = new_data;
    rows.swap(new_rows);
    fill_rows();

    // A change of alignment alone keeps the pixels. (With an equal byte size
    // the stride is equal too, so the buffer was kept and nothing moves.)
    if (only_alignment && data != old_data) {
      const size_t n = size_t(row);
      for (uint32_t y = 0; y < height; ++y) std::memcpy(rows[y], old_rows[y], n);
    }
    if (owns_data && old_data != nullptr && old_data != data) release(old_data);
    owns_data = true;
  }

  // Stores the row order and rebuilds the row table; pixels stay in place.
  void set_top_down(uint32_t value) {
    if (value == top_down) return;
    top_down = value;
    fill_rows();
  }

  // Wraps a foreign buffer of `h` rows of `row_stride` bytes without taking
  // ownership; it is never freed here. `order` is the top_down of the buffer.
  // Throws std::invalid_argument when a row does not fit its stride and
  // image_too_large past 32-bit sizes; the image is unchanged then.
  void wrap(uint8_t* buffer, uint32_t w, uint32_t h, uint32_t row_stride, uint32_t order) {
    if (row_stride < Kind::row_bytes(w)) throw std::invalid_argument("row stride too short");
    if (uint64_t(row_stride) * h > UINT32_MAX) throw image_too_large();
    std::vector<uint8_t*> new_rows(h, nullptr);
    clear();
    data = h ? buffer : nullptr;
    owns_data = false;
    width = w;
    height = h;
    alignment = 1;
    stride = row_stride;
    size = row_stride * h;
    top_down = order;
    rows.swap(new_rows);
    fill_rows();
  }

  // Releases the pixels of an owning image (it becomes 0 by 0, alignment 4);
  // a wrapping image only forgets its buffer.
  void clear() noexcept {
    if (owns_data) {
      resize(0, 0, 4);  // never allocates, so cannot throw
    } else {
      data = nullptr;
      width = height = stride = size = 0;
      alignment = 4;
      rows.clear();
      owns_data = true;
    }
  }

  bool empty() const { return data == nullptr; }

  void swap(bitmap& other) noexcept {
    std::swap(data, other.data);
    std::swap(owns_data, other.owns_data);
    std::swap(width, other.width);
    std::swap(height, other.height);
    std::swap(alignment, other.alignment);
    std::swap(top_down, other.top_down);
    std::swap(stride, other.stride);
    std::swap(size, other.size);
    rows.swap(other.rows);
  }

 private:
  static uint8_t* allocate(size_t n) { return allocate_pixels(n); }
  static void release(uint8_t* p) { release_pixels(p); }

  // Points the row table (already `height` long) at the buffer.
  void fill_rows() {
    if (data == nullptr) {
      std::fill(rows.begin(), rows.end(), nullptr);
    } else if (top_down) {
      for (uint32_t i = 0; i < height; ++i) rows[i] = data + size_t(stride) * i;
    } else {
      for (uint32_t i = 0; i < height; ++i) rows[height - 1 - i] = data + size_t(stride) * i;
    }
  }
};

// Format conversions. The destination takes the source's width and height
// (alignment 4 when it must be resized) and keeps its own top_down; copying
// runs through the row tables, so the picture stays the right way up.

// Drops alpha.
void convert_to_rgb24(bitmap<rgb24>& dst, const bitmap<rgba32>& src);
// Alpha becomes 0: a picture without alpha reads as transparent in its alpha byte.
void convert_to_rgba32(bitmap<rgba32>& dst, const bitmap<rgb24>& src);
// Each 5-bit channel c becomes c * 255 / 31 (truncating); alpha 0; bit 15 ignored.
void convert_to_rgba32(bitmap<rgba32>& dst, const bitmap<rgb16>& src);

using image = bitmap<rgba32>;

}  // namespace img
