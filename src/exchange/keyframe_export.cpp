// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/keyframe_export.h"

#include <memory>

#include "base/errors.h"
#include "exchange/ae5_keyframe_data.h"
#include "exchange/transform_applicator.h"

void WriteKeyframeText(std::ostream& out,
                       const FrameFormat& format,
                       const Transformations& record) {
  if (record.GetTransforms().empty())
    throw xtd::exception("There are no transformations to export");
  auto applicator = CreateTransformApplicator(record, format.width, format.height);
  if (!applicator) throw xtd::exception("Unknown export model");
  applicator->SetTransformations(record);

  const float aspect = float(format.pixel_aspect_num) / float(format.pixel_aspect_den);
  applicator->Begin(
      std::make_unique<AE5KeyframeData>(out, record.first, int32_t(record.GetTransforms().size()),
                                        format.framerate, format.width, format.height, aspect));
  while (applicator->Step()) {
  }
  // Destroying the applicator destroys the storage, which writes the footer.
}

std::string ClipboardText(std::string_view text) {
  std::string result;
  result.reserve(text.size() + text.size() / 16);
  for (char c : text) {
    if (c == '\n') result += '\r';
    result += c;
  }
  return result;
}
