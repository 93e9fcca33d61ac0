// SPDX-License-Identifier: GPL-3.0-or-later
// From what the user picked to the ordered list of a sequence's frames.
//
// The user names one file: any frame of a numbered series, or an ".ais" list.
// A sequence is a vector of full file names whose position is the frame
// index; of the numbers in the names only the first frame's survives
// (first_frame_number). Failures are std::runtime_error with the texts
// "could not read file: <name>" and "no images in sequence"; the output
// vector is not to be used after one.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace img {

struct frame_size {
  uint32_t width = 0;
  uint32_t height = 0;
  friend bool operator==(const frame_size&, const frame_size&) = default;
};

// An ".ais" name (any case) is read as a list, anything else is expanded as
// a numbered name. The size is the first image's (for a numbered name: the
// named file's).
void read_image_list(const std::string& name, std::vector<std::string>& frames, frame_size& size);

// One file name per line, with one leading and one trailing double quote
// stripped; empty lines dropped. Relative names resolve against the current
// working directory, not the list's folder: lists made by other tools rely on it.
void read_ais_list(const std::string& name, std::vector<std::string>& frames, frame_size& size);

// The entries of an ".ais" list as they stand in it, before resolution:
// CR LF or LF line ends, one quote stripped each side, empty lines dropped.
std::vector<std::string> parse_ais_list(std::istream& in);

// The files of the named one's folder whose names differ from it only in the
// last run of digits of the stem, with as many digits (so an unpadded series
// splits by digit count); folders are passed over, letters compare without
// regard to case, and the hits are sorted as byte strings. The named file
// must be readable. `has_alpha` tells whether it has an alpha channel.
void expand_numbered_name(const std::string& name,
                          std::vector<std::string>& frames,
                          frame_size& size,
                          bool& has_alpha);

// Size (and alpha, when asked) of one image through the multi-format reader.
void read_image_size(const std::string& name, frame_size& size, bool* has_alpha);

// frame_number, or 0 when the name has none.
uint32_t first_frame_number(const std::string& name);

// Whether `name` matches `pattern`, where '?' stands for exactly one digit
// and letters compare without regard to ASCII case. Exposed for tests.
bool matches_numbered_pattern(const std::string& name, const std::string& pattern);

// The file name with the last run of digits of its stem replaced by '?'.
std::string numbered_pattern(const std::string& file_name);

// The number in the last run of digits of the name's stem, if it has one
// that fits an unsigned 32-bit number.
std::optional<uint32_t> frame_number(const std::string& name);

// Frame numbers absent between neighbours of one series (same name around
// the number), first to last inclusive, in list order. The list closes up
// over them: the frame after a gap takes the next index.
struct frame_gap {
  uint32_t first = 0;
  uint32_t last = 0;
  friend bool operator==(const frame_gap&, const frame_gap&) = default;
};
std::vector<frame_gap> missing_frames(const std::vector<std::string>& frames);

}  // namespace img
