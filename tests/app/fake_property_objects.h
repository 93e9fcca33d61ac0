// SPDX-License-Identifier: GPL-3.0-or-later
// A segment for the property trees to read and write: plain fields, and
// every setter call recorded as text so that a test sees exactly what
// reached the object. The composition and the overlay are shown through the
// real model (app_fixtures.h).
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "app/model/properties_access.h"

namespace app::testing {

// Records each setter call as "Name arg arg ...".
struct CallLog {
  std::vector<std::string> calls;
  template <class... A>
  void Log(const char* name, const A&... args) {
    std::ostringstream line;
    line << name;
    ((line << ' ' << args), ...);
    calls.push_back(line.str());
  }
};

class FakeSegment : public SegmentAccess, public CallLog {
 public:
  My::Span time_span{10, 21};
  VLSegmentParams params;
  bool processing = false;
  int32_t start_frame = 0;
  std::vector<VLSegmentParams> sent;  // every record given to SetParams

  My::Span GetTimeSpan() const override { return time_span; }
  void SetTimeSpan(int32_t first, int32_t last) override { Log("SetTimeSpan", first, last); }
  const VLSegmentParams& GetParams() const override { return params; }
  void SetParams(const VLSegmentParams& v) override {
    Log("SetParams");
    sent.push_back(v);
  }
  bool IsProcessing() const override { return processing; }
  int32_t GetCompositionStartFrame() const override { return start_frame; }
};

}  // namespace app::testing
