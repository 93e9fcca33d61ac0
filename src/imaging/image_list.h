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

// Every decimal digit of the file name part becomes a one-character wildcard
// (so shot2_0001.tga also finds shot3_0001.tga); the folder is listed with
// case-insensitive matching, and the hits are sorted as byte strings. An
// unpadded series therefore splits by digit count. The named file must be
// readable. `has_alpha` tells whether the named file has an alpha channel.
void expand_numbered_name(const std::string& name,
                          std::vector<std::string>& frames,
                          frame_size& size,
                          bool& has_alpha);

// Size (and alpha, when asked) of one image through the multi-format reader.
void read_image_size(const std::string& name, frame_size& size, bool* has_alpha);

// The trailing decimal number of the name's stem; 0 when there is none or it
// does not fit an unsigned 32-bit number.
uint32_t first_frame_number(const std::string& name);

// Whether `name` matches `pattern`, where '?' stands for exactly one byte and
// letters compare without regard to ASCII case. Exposed for tests.
bool matches_numbered_pattern(const std::string& name, const std::string& pattern);

// The file name with every decimal digit of its name part replaced by '?'.
std::string numbered_pattern(const std::string& file_name);

}  // namespace img
