// SPDX-License-Identifier: GPL-3.0-or-later
#include "app_fixtures.h"

#include "imaging/native_io.h"

namespace app_testing {

std::string WriteImage(const testing_support::TempDir& dir,
                       const std::string& name,
                       uint32_t w,
                       uint32_t h,
                       bool alpha) {
  img::image picture(w, h);
  std::fill(picture.data, picture.data + picture.size, uint8_t(200));
  img::native_writer().write(dir / name, "BMP", picture, alpha);
  return dir / name;
}

CompFixture::CompFixture(int32_t frames) {
  const std::string frame = WriteImage(dir, "under.bmp", 8, 6, false);
  comp.hooks.purgeCache = [this] { log.push_back("purge"); };
  comp.LoadSequence(std::vector<std::string>(size_t(frames), frame), 25, {1, 1}, 0);
}

VLSegment& CompFixture::AddSegment(int32_t origin, My::Span span, double velocity) {
  comp.GetInterface().CreateSegment(origin, false);
  VLSegment& s = comp.GetSegmentObject(0);
  s.SetTimeSpanDirect(span.first, span.last);
  auto data = std::make_shared<VLSegmentData>();
  for (int32_t f = origin; f < span.last; ++f)
    data->Append(VLSegmentData::Direction::Forward,
                 types::affine::translation(velocity * (f - origin), 0));
  for (int32_t f = origin - 1; f >= span.first; --f)
    data->Append(VLSegmentData::Direction::Backward,
                 types::affine::translation(velocity * (f - origin), 0));
  s.ReplaceData(data);
  return s;
}

PanelFixture::PanelFixture()
    : CompFixture(100),
      composition(&comp.GetInterface()),
      overlay(&comp.GetOverlay().GetInterface()) {
  comp.GetOverlay().GetInterface().Import({WriteImage(dir, "o.bmp", 4, 4, true)});
}

}  // namespace app_testing
