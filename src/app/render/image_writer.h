// SPDX-License-Identifier: GPL-3.0-or-later
// Where rendered frames go: one file per frame, one AVI, or either of them
// behind a field interleaver. The render command hands each writer the
// composited frames in ascending order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "imaging/avi_writer.h"
#include "imaging/bitmap.h"

namespace app {

class ImageWriter {
 public:
  virtual ~ImageWriter() = default;
  // Takes the next frame. Throws on failure; what was written before stays.
  virtual void write(const img::image& frame) = 0;
  // Finishes the output and reports what failed in doing so; the
  // destructor does the same silently when close() was not called.
  virtual void close() {}
  // Passes over the next frame without writing it, because its output from
  // an earlier run is there whole. Only one file per frame can be kept so:
  // the other writers refuse.
  virtual void skip();
};

// One file per frame, named after the source frame it stands for: the
// directory, that frame's stem, and `extension`. Each file is written under
// a hidden temporary name in the same folder and renamed when whole, so a
// file of the final name is never half-written.
class DiscreteWriter : public ImageWriter {
 public:
  // `frames` are the composition's underlay names (kept by reference: they
  // must outlive the writer); the first file is named after frames[first].
  DiscreteWriter(std::string directory,
                 std::string extension,
                 bool with_alpha,
                 const std::vector<std::string>& frames,
                 int32_t first);
  // Throws img::io_error naming the final file when the frame cannot be
  // written, the folder is missing or not writable, or no source frame is
  // left to give a name; no file of that name appears then.
  void write(const img::image& frame) override;
  void skip() override { ++frame_; }
  // The file the next write makes.
  std::string next_name() const;
  // The file that stands for source frame `frame`; empty when there is no
  // such frame.
  static std::string FileName(const std::string& directory,
                              const std::string& extension,
                              const std::vector<std::string>& frames,
                              int32_t frame);

 private:
  std::string directory_;
  std::string extension_;
  bool with_alpha_;
  const std::vector<std::string>& frames_;
  int32_t frame_;
};

// Two source frames make one interlaced output frame: the earlier one gives
// the even rows (counted from 0 at the top) when `upper_first`, else the odd
// rows; the later one the others. A last unpaired frame is never written.
class FieldWriter : public ImageWriter {
 public:
  FieldWriter(std::unique_ptr<ImageWriter> inner, bool upper_first);
  void write(const img::image& frame) override;
  void close() override { inner_->close(); }

 private:
  std::unique_ptr<ImageWriter> inner_;
  bool upper_first_;
  img::image pending_;
};

// Frames into one AVI file through the chosen coder.
class AviWriter : public ImageWriter {
 public:
  AviWriter(const img::avi::AviCoderInfo& coder,
            const std::string& state,
            const std::string& file,
            const img::avi::settings& settings)
      : writer_(coder, state, file, settings) {}
  void write(const img::image& frame) override { writer_.write(frame); }
  void close() override { writer_.close(); }
  img::avi::writer& avi() { return writer_; }

 private:
  img::avi::writer writer_;
};

}  // namespace app
