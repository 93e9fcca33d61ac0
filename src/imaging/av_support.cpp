// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/av_support.h"

#include <cstdlib>
#include <mutex>
#include <string>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace img::av {

void quiet_library_log() {
  static std::once_flag once;
  // VELOMAR_CODEC_LOG keeps the libraries' own log, to see why a file failed.
  std::call_once(once, [] {
    if (!std::getenv("VELOMAR_CODEC_LOG")) av_log_set_level(AV_LOG_QUIET);
  });
}

std::string error_text(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

}  // namespace img::av
