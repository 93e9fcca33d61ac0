// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/render/image_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "imaging/io_types.h"
#include "imaging/multi_io.h"

namespace app {

namespace {

namespace fs = std::filesystem;

constexpr const char* kWriteFailure = "could not open image file for writing or write error";

}  // namespace

DiscreteWriter::DiscreteWriter(std::string directory,
                               std::string extension,
                               bool with_alpha,
                               const std::vector<std::string>& frames,
                               int32_t first)
    : directory_(std::move(directory)),
      extension_(std::move(extension)),
      with_alpha_(with_alpha),
      frames_(frames),
      frame_(first) {}

void ImageWriter::skip() {
  throw std::logic_error("this output has no file per frame to keep");
}

std::string DiscreteWriter::FileName(const std::string& directory,
                                     const std::string& extension,
                                     const std::vector<std::string>& frames,
                                     int32_t frame) {
  if (frame < 0 || size_t(frame) >= frames.size()) return std::string();
  const std::string stem = fs::path(frames[size_t(frame)]).stem().string();
  return (fs::path(directory) / (stem + "." + extension)).string();
}

std::string DiscreteWriter::next_name() const {
  return FileName(directory_, extension_, frames_, frame_);
}

void DiscreteWriter::write(const img::image& frame) {
  const std::string name = next_name();
  if (name.empty())
    throw img::io_error(kWriteFailure, directory_, "no source frame left to name the file");
  ++frame_;
  const fs::path final_name(name);
  // Hidden, and with the final name in it, so that a file left by a crash
  // says what it was.
  std::string hidden = ".";
  hidden += final_name.filename().string();
  hidden += ".partial";
  const std::string temporary = (final_name.parent_path() / hidden).string();
  try {
    img::multi_writer().write(temporary, extension_, frame, with_alpha_);
  } catch (const img::io_error& e) {
    std::error_code ignored;
    fs::remove(temporary, ignored);
    // The writers name the temporary file; the user knows only the final one.
    if (e.what() == std::string(kWriteFailure))
      throw img::io_error(kWriteFailure, name, e.detail());
    throw img::io_error(e.what(), name, e.detail());
  } catch (const std::system_error& e) {
    std::error_code ignored;
    fs::remove(temporary, ignored);
    throw img::io_error(kWriteFailure, name, e.code().message());
  }
  if (std::rename(temporary.c_str(), name.c_str()) != 0) {
    const std::string why = std::strerror(errno);
    std::error_code ignored;
    fs::remove(temporary, ignored);
    throw img::io_error(kWriteFailure, name, why);
  }
}

FieldWriter::FieldWriter(std::unique_ptr<ImageWriter> inner, bool upper_first)
    : inner_(std::move(inner)), upper_first_(upper_first) {
  pending_.set_top_down(0);
}

void FieldWriter::write(const img::image& frame) {
  if (pending_.empty()) {
    pending_ = frame;
    return;
  }
  if (frame.width != pending_.width || frame.height != pending_.height)
    throw img::io_error(kWriteFailure, std::string(), "frames of different sizes cannot interlace");
  const size_t row = size_t(frame.width) * 4;
  for (uint32_t y = upper_first_ ? 1 : 0; y < frame.height; y += 2)
    std::memcpy(pending_.rows[y], frame.rows[y], row);
  // The pair is gone whether or not the inner writer succeeds: a retry
  // must start a new pair, never mix a stale field into it.
  img::image out;
  out.set_top_down(0);
  out.swap(pending_);
  pending_.set_top_down(0);
  inner_->write(out);
}

}  // namespace app
