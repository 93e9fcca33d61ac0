// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/motion_json.h"

#include <charconv>
#include <cmath>

#include "base/enums.h"
#include "exchange/decompositions.h"

namespace {

void AppendNumber(std::string& out, double v) {
  if (!std::isfinite(v)) {
    out += "null";
    return;
  }
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
  out.append(buffer, result.ptr);
}

void AppendPoint(std::string& out, const types::affine& t, double px, double py) {
  double x, y;
  t.apply(px, py, x, y);
  out += '[';
  AppendNumber(out, x);
  out += ", ";
  AppendNumber(out, y);
  out += ']';
}

}  // namespace

std::string MotionJson(const FrameFormat& format,
                       const Transformations& record,
                       const std::vector<int64_t>* extrapolated) {
  const double w = format.width, h = format.height;
  std::string out = "{\"first\": " + std::to_string(record.first);
  out += ", \"width\": " + std::to_string(format.width);
  out += ", \"height\": " + std::to_string(format.height);
  out += ", \"framerate\": ";
  AppendNumber(out, format.framerate);
  out += ", \"pixel_aspect\": ";
  AppendNumber(out, double(format.pixel_aspect_num) / double(format.pixel_aspect_den));
  out += ", \"task\": \"";
  out += FileWord(record.Task);
  out += "\", \"frames\": [";

  const auto& transforms = record.GetTransforms();
  for (size_t i = 0; i < transforms.size(); ++i) {
    const types::affine t = FrameTransform(transforms[i], record.InitialTransform, record.Task);
    out += i == 0 ? "\n" : ",\n";
    out += "{\"frame\": " + std::to_string(record.first + int64_t(i)) + ", \"matrix\": [";
    const double values[6] = {t.xx, t.xy, t.yx, t.yy, t.x, t.y};
    for (int v = 0; v < 6; ++v) {
      if (v) out += ", ";
      AppendNumber(out, values[v]);
    }
    out += "], \"corners\": [";
    AppendPoint(out, t, 0, 0);
    out += ", ";
    AppendPoint(out, t, w, 0);
    out += ", ";
    AppendPoint(out, t, 0, h);
    out += ", ";
    AppendPoint(out, t, w, h);
    out += "]}";
  }
  out += "\n]";
  if (extrapolated) {
    out += ", \"extrapolated\": [";
    for (size_t i = 0; i < extrapolated->size(); ++i)
      out += (i ? ", " : "") + std::to_string((*extrapolated)[i]);
    out += "]";
  }
  out += "}\n";
  return out;
}
