// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/io_types.h"

#include <cctype>

namespace img {

std::string upper_extension(const std::string& name) {
  const auto slash = name.find_last_of("/\\");
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string ext = name.substr(dot + 1);
  for (char& c : ext) c = char(std::toupper(static_cast<unsigned char>(c)));
  return ext;
}

std::string make_filter(const std::vector<std::string>& extensions) {
  std::string out;
  for (const auto& ext : extensions) {
    if (!out.empty()) out += ';';
    out += "*.";
    out += ext;
  }
  return out;
}

}  // namespace img
