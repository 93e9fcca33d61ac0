// SPDX-License-Identifier: GPL-3.0-or-later
// AVI output through FFmpeg: the list of video coders this build can put in
// an AVI file, and a writer that takes one blue-green-red-alpha frame at a
// time.
//
// A coder is an FFmpeg encoder named by its short name ("ffv1", "utvideo");
// its state is the encoder's option string ("key=value:key=value"), the form
// the profile keeps.
//
//   img::avi::writer out(coder, "", "shot.avi", {.width = 1920, .height = 1080, .rate = 25});
//   out.write(frame);  // as often as there are frames
//   out.close();       // or let the destructor do it
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/errors.h"
#include "imaging/bitmap.h"

namespace img::avi {

// A failure of the coder or of the file, with one of the fixed texts below;
// detail() says what the library reported, empty when it said nothing.
class exception : public xtd::exception {
 public:
  explicit exception(std::string text, std::string detail = {})
      : xtd::exception(std::move(text)), detail_(std::move(detail)) {}
  const std::string& detail() const { return detail_; }

 private:
  std::string detail_;
};

inline constexpr const char* kOpenCoderError = "error opening video compressor";
inline constexpr const char* kFileOpenError = "AVI file open error";
inline constexpr const char* kStreamCreateError = "AVI stream in file create error";
inline constexpr const char* kSetFormatError = "AVI stream set format error";
inline constexpr const char* kBeginError = "video compression begin error";
inline constexpr const char* kCompressError = "video compression error";
inline constexpr const char* kWriteError = "AVI stream write error";

// One coder of the list, flags in their fixed order.
struct AviCoderInfo {
  std::string handler;         // the encoder's short name: what "AviCoder" stores
  std::string name;            // the same, as the menu shows it
  std::string description;     // the encoder's long name
  bool accepts_32 = false;     // takes a picture with alpha (BGRA, through swscale if needed)
  bool accepts_24 = false;     // takes a picture without alpha (BGR24, likewise)
  bool has_quality = false;    // lossy: a quality or rate setting means something
  bool is_temporal = false;    // frames may refer to earlier ones (not intra-only)
  bool has_crunch = false;     // takes a target bit rate
  bool has_about = false;      // never: there is no about box
  bool has_configure = false;  // has options of its own, so a state is worth keeping
};

// The encoders of this FFmpeg build that the AVI muxer accepts and that take
// BGRA or BGR24 input, from the library's own capabilities, in its order.
// Experimental and hardware encoders are left out. The coders are not
// opened here (some external ones take seconds to start and stop), so the
// size only matters to the writer, which reports a size a coder refuses.
void list_coders(std::vector<AviCoderInfo>& out, uint32_t width, uint32_t height);

// The coder named `handler` (any listed encoder name), or
// kOpenCoderError when this build has no such encoder for AVI.
AviCoderInfo find_coder(const std::string& handler);

// Checks that `state` is a valid option string for the coder by opening the
// encoder with it; throws kOpenCoderError naming the option it refused.
void check_state(const AviCoderInfo& coder, const std::string& state);

struct settings {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t rate = 25;  // frames per `scale` seconds
  uint32_t scale = 1;
  bool with_alpha = true;
};

// Writes one AVI file. The file is made under a temporary name beside the
// final one and takes the final name when it is closed, so that a file of
// that name is always a whole AVI (earlier frames included when a render
// stops early). A file left unclosed by a failure is still finished and
// renamed by the destructor where the container allows it.
class writer {
 public:
  // Opens the coder with `state` and the file. `with_alpha` follows the
  // coder: off if it takes no alpha, on if it takes nothing without.
  // Throws avi::exception with the fixed text of the step that failed;
  // no file is left behind then.
  writer(const AviCoderInfo& coder,
         const std::string& state,
         const std::string& file,
         const settings& options);
  ~writer();
  writer(const writer&) = delete;
  writer& operator=(const writer&) = delete;

  // Compresses and stores one frame of the writer's width and height, rows
  // in picture order whatever the frame's top_down. Throws avi::exception;
  // frames written before stay in the file.
  void write(const image& frame);
  // Drains the coder, writes the index and renames the file; once only.
  void close();

  bool with_alpha() const;
  int64_t frames_written() const;

 private:
  struct state;
  std::unique_ptr<state> s_;
};

}  // namespace img::avi
