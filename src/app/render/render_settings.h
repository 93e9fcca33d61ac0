// SPDX-License-Identifier: GPL-3.0-or-later
// The AVI coder as the profile keeps it: "AviCoder" in "Preferences" names
// the encoder, and "Preferences\AviCoders\<name>" holds its option string
// under "State". The coder list is made once, at the first need.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "imaging/avi_writer.h"

namespace app {

class ProfileStore;
struct AppPreferences;

inline constexpr const char* kAviCoderKey = "AviCoder";
inline constexpr const char* kAviStateKey = "State";
// The profile section of a coder's state.
std::string AviCoderSection(const std::string& coder);

// The chosen coder's name; empty when none was chosen.
std::string ReadAviCoder(ProfileStore& profile);
// The coder's saved option string; empty when none was saved.
std::string ReadAviCoderState(ProfileStore& profile, const std::string& coder);

// The coders as the AVI menu lists them, probed at 720 x 576.
class AviCoderList {
 public:
  bool loaded() const { return loaded_; }
  const std::vector<img::avi::AviCoderInfo>& coders();
  // The listed coder of this name; null when the list has none.
  const img::avi::AviCoderInfo* find(const std::string& name);

 private:
  bool loaded_ = false;
  std::vector<img::avi::AviCoderInfo> coders_;
};

// The menu's " ..." entry of a coder.
std::string AviMenuText(const img::avi::AviCoderInfo& coder);

// Choosing a coder: its options are checked by opening it (throws
// img::avi::exception "error opening video compressor" and changes nothing
// when they are refused); then "avi" becomes the rendering format, and
// "AviCoder" and the coder's "State" are saved.
void ChooseAviCoder(AppPreferences& preferences,
                    ProfileStore& profile,
                    const img::avi::AviCoderInfo& coder,
                    const std::string& state);

}  // namespace app
