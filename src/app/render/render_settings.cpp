// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/render/render_settings.h"

#include <algorithm>

#include "app/ports.h"
#include "app/preferences.h"

namespace app {

std::string AviCoderSection(const std::string& coder) {
  return std::string(kPreferencesSection) + "\\AviCoders\\" + coder;
}

std::string ReadAviCoder(ProfileStore& profile) {
  return profile.get_string(kPreferencesSection, kAviCoderKey, std::string());
}

std::string ReadAviCoderState(ProfileStore& profile, const std::string& coder) {
  return profile.get_string(AviCoderSection(coder), kAviStateKey, std::string());
}

const std::vector<img::avi::AviCoderInfo>& AviCoderList::coders() {
  if (!loaded_) {
    img::avi::list_coders(coders_, 720, 576);
    loaded_ = true;
  }
  return coders_;
}

const img::avi::AviCoderInfo* AviCoderList::find(const std::string& name) {
  const auto& all = coders();
  const auto at = std::find_if(all.begin(), all.end(),
                               [&](const img::avi::AviCoderInfo& c) { return c.handler == name; });
  return at == all.end() ? nullptr : &*at;
}

std::string AviMenuText(const img::avi::AviCoderInfo& coder) {
  return coder.name + " ...";
}

void ChooseAviCoder(AppPreferences& preferences,
                    ProfileStore& profile,
                    const img::avi::AviCoderInfo& coder,
                    const std::string& state) {
  img::avi::check_state(coder, state);
  preferences.renderingFormat = "avi";
  profile.set_string(kPreferencesSection, kAviCoderKey, coder.handler);
  profile.set_string(AviCoderSection(coder.handler), kAviStateKey, state);
}

}  // namespace app
