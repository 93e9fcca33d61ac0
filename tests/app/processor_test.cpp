// SPDX-License-Identifier: GPL-3.0-or-later
// The tracker's worker: queueing, cancelling, the messages and statuses it
// leaves on the owning thread, its diagnostics and its error path.
#include "app/work/processor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/operation_stack.h"
#include "app/scripted_dialogs.h"
#include "imaging/cache.h"
#include "imaging/synthetic_shot.h"
#include "testing/files.h"

namespace {

img::synthetic_shot SmallShot() {
  img::synthetic_shot s;
  s.width = 160;
  s.height = 120;
  s.frames = 12;
  s.key_frame = 4;
  s.plate_left = 40;
  s.plate_top = 30;
  s.plate_width = 80;
  s.plate_height = 60;
  return s;
}

struct Fixture {
  img::synthetic_shot shot = SmallShot();
  std::atomic<int> broken_frame{-1};  // the loader fails on this frame
  std::atomic<int> loads{0};
  std::atomic<int> load_delay_ms{0};  // keeps a run in the worker's hands
  img::Cache cache{[this](const std::string& name, img::image& out) {
                     const int frame = std::stoi(name);
                     ++loads;
                     std::this_thread::sleep_for(std::chrono::milliseconds(load_delay_ms.load()));
                     if (frame == broken_frame) throw std::runtime_error("could not read " + name);
                     shot.render(frame, out);
                   },
                   int64_t(1) << 28};
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::OperationStack operations;
  VLComp comp{operations, &dialogs};
  app::Processor processor{
      {.queue = queue, .dialogs = dialogs, .cache = cache, .prefetcher = nullptr, .pump = [this] {
         queue.pump();
       }}};

  Fixture() {
    std::vector<std::string> names;
    for (int32_t f = 0; f < shot.frames; ++f) names.push_back(std::to_string(f));
    comp.TakeOverUnderlay(names, shot.width, shot.height);
    comp.SetJobs(&processor);
  }
  ~Fixture() { processor.cancel_all_and_wait(); }

  VLSegment& AddSegment(int32_t key, My::Span span) {
    auto segment = std::make_unique<VLSegment>(comp, key);
    img::bitmap<img::bit1> mask;
    img::synthetic_shot keyed = shot;
    keyed.key_frame = key;
    keyed.plate_mask(mask);
    segment->SetMaskDirect(mask);
    segment->SetTimeSpanDirect(span.first, span.last);
    VLSegment& s = *segment;
    comp.InsertSegment(comp.GetSegmentCount(), std::move(segment));
    return s;
  }

  // Pumps until the worker is idle and every message has run.
  void Finish() {
    ASSERT_TRUE(
        queue.pump_until([&] { return !processor.any_running(); }, std::chrono::seconds(60)));
    queue.pump();
  }

  std::vector<std::string> Notices() const {
    std::vector<std::string> texts;
    for (const auto& q : dialogs.questions()) texts.push_back(q.text);
    return texts;
  }
};

// Records every status a segment passes through.
struct StatusLog : VL::Listener {
  VLSegment& segment;
  std::vector<int32_t> statuses;
  explicit StatusLog(VLSegment& s) : segment(s) { s.GetInterface().SetListener(this); }
  void OnStateChanged() override { statuses.push_back(int32_t(segment.GetStatus())); }
};

TEST(Processor, TracksASegmentAndReportsThroughMessages) {
  Fixture f;
  VLSegment& segment = f.AddSegment(4, {1, 9});
  StatusLog log(segment);
  const int32_t before = f.comp.GetActionQueue().GetModifications();

  ASSERT_TRUE(segment.Process());
  EXPECT_FALSE(segment.Process()) << "a queued segment is refused";
  f.Finish();

  // Queued, backward, forward, idle.
  EXPECT_EQ(log.statuses, (std::vector<int32_t>{1, 3, 2, 0}));
  EXPECT_EQ(segment.GetDataSpan(), (My::Span{1, 9}));
  EXPECT_EQ(segment.GetData()->DataSpan(4), (My::Span{1, 9}));
  EXPECT_EQ(f.comp.GetActionQueue().GetModifications(), before + 8) << "one per frame";
  EXPECT_TRUE(f.Notices().empty());
  EXPECT_FALSE(segment.Process()) << "nothing left to track";

  // The stages of the run, nested as the loop calls them.
  const timing::node& root = segment.GetTiming().root();
  ASSERT_EQ(root.children.count("processing"), 1u);
  const timing::node& processing = root.children.at("processing");
  EXPECT_EQ(processing.calls_count, 1u);
  std::set<std::string> stages;
  for (const auto& [name, child] : processing.children) stages.insert(name);
  for (const char* stage : {"image loading", "key frame preparing", "profiles building",
                            "coherent motion", "discrepancy calculating", "optic flow optimizing"})
    EXPECT_TRUE(stages.count(stage)) << stage;
  EXPECT_TRUE(processing.children.at("key frame preparing").children.count("segmenting"));

  // A wider time span is filled in by the same command, and the stage
  // times of both runs add up.
  segment.SetTimeSpanDirect(0, 12);
  ASSERT_TRUE(segment.Process());
  f.Finish();
  EXPECT_EQ(segment.GetDataSpan(), (My::Span{0, 12}));
  EXPECT_EQ(segment.GetTiming().root().children.at("processing").calls_count, 2u);
}

TEST(Processor, RefusesAnEmptyOrFullMaskWithAWarning) {
  Fixture f;
  VLSegment& segment = f.AddSegment(4, {2, 6});
  img::bitmap<img::bit1> mask(f.shot.width, f.shot.height);
  for (uint32_t y = 0; y < mask.height; ++y)
    for (uint32_t i = 0; i < mask.stride; ++i) mask.rows[y][i] = 0;
  for (uint8_t fill : {uint8_t(0x00), uint8_t(0xFF)}) {
    for (uint32_t y = 0; y < mask.height; ++y)
      for (uint32_t i = 0; i < mask.stride; ++i) mask.rows[y][i] = fill;
    segment.SetMaskDirect(mask);
    EXPECT_FALSE(segment.Process());
    EXPECT_EQ(segment.GetStatus(), SegmentStatus::Idle);
  }
  ASSERT_EQ(f.dialogs.questions().size(), 2u);
  for (const auto& q : f.dialogs.questions()) {
    EXPECT_EQ(q.text, "Segment mask is empty.");
    EXPECT_EQ(q.icon, app::Icon::Warning);
  }
}

// The window's Delete frees a segment right after taking it from the
// worker: the worker and the messages of its run must be done with it by
// then (the sanitizer builds see any access after the free).
TEST(Processor, RemovedSegmentMayBeFreedAtOnceWhileItWasTracking) {
  Fixture f;
  f.load_delay_ms = 20;
  VLSegment& doomed = f.AddSegment(4, {0, 12});
  ASSERT_TRUE(doomed.Process());
  ASSERT_TRUE(f.queue.pump_until([&] { return doomed.GetDataSpan().length() >= 2; },
                                 std::chrono::seconds(60)));
  EXPECT_TRUE(f.processor.in_hand(doomed));
  f.processor.remove(doomed);
  EXPECT_FALSE(f.processor.in_hand(doomed));
  EXPECT_EQ(doomed.GetStatus(), SegmentStatus::Idle);
  f.comp.RemoveSegment(f.comp.IndexOf(&doomed)).reset();

  f.load_delay_ms = 0;
  VLSegment& next = f.AddSegment(6, {5, 8});
  ASSERT_TRUE(next.Process());
  f.Finish();
  EXPECT_EQ(next.GetDataSpan(), (My::Span{5, 8}));
}

TEST(Processor, CancelKeepsWhatWasComputedAndProcessResumes) {
  Fixture f;
  VLSegment& first = f.AddSegment(4, {0, 12});
  VLSegment& second = f.AddSegment(6, {5, 8});
  ASSERT_TRUE(first.Process());
  ASSERT_TRUE(second.Process());
  // Taking the queued one out makes it idle at once.
  f.processor.remove(second);
  EXPECT_EQ(second.GetStatus(), SegmentStatus::Idle);

  // Wait for a few frames, then cancel the running one and wait.
  ASSERT_TRUE(
      f.queue.pump_until([&] { return first.GetDataSpan().last - first.GetDataSpan().first >= 2; },
                         std::chrono::seconds(60)));
  first.Cancel();
  EXPECT_EQ(first.GetStatus(), SegmentStatus::Idle);
  EXPECT_FALSE(f.processor.any_running());
  const My::Span kept = first.GetDataSpan();
  EXPECT_GE(kept.last - kept.first, 2);
  EXPECT_EQ(first.GetData()->DataSpan(4), kept) << "every result reached the owning thread";
  ASSERT_EQ(f.dialogs.progress().size(), 1u);
  EXPECT_EQ(f.dialogs.progress()[0]->title, "Stopping calculation of segment...");
  EXPECT_TRUE(f.dialogs.progress()[0]->closed);
  EXPECT_EQ(second.GetDataSpan().last - second.GetDataSpan().first, 0) << "never ran";

  ASSERT_TRUE(first.Process());
  f.Finish();
  EXPECT_EQ(first.GetDataSpan(), (My::Span{0, 12}));
}

TEST(Processor, AFailedRunIsReportedAndTheNextSegmentStillRuns) {
  Fixture f;
  f.broken_frame = 2;
  VLSegment& failing = f.AddSegment(4, {0, 6});
  VLSegment& next = f.AddSegment(8, {7, 10});
  ASSERT_TRUE(failing.Process());
  ASSERT_TRUE(next.Process());
  f.Finish();

  EXPECT_EQ(f.Notices(), (std::vector<std::string>{"could not read 2"}));
  EXPECT_EQ(f.dialogs.questions()[0].icon, app::Icon::Warning);
  EXPECT_EQ(failing.GetDataSpan(), (My::Span{3, 6}))
      << "frame 3 was done before the failure, and the forward direction still ran";
  EXPECT_NE(failing.GetStatus(), SegmentStatus::Idle) << "a failed run posts no idle status";
  EXPECT_EQ(next.GetDataSpan(), (My::Span{7, 10}));
  EXPECT_EQ(next.GetStatus(), SegmentStatus::Idle);

  // Cancel recovers the stuck segment, and with the footage fixed it resumes.
  failing.Cancel();
  EXPECT_EQ(failing.GetStatus(), SegmentStatus::Idle);
  f.broken_frame = -1;
  ASSERT_TRUE(failing.Process());
  f.Finish();
  EXPECT_EQ(failing.GetDataSpan(), (My::Span{0, 6}));
}

TEST(Processor, WritesTheLogAndTheDiscrepancyTableToTheDebugDirectory) {
  testing_support::TempDir dir;
  Fixture f;
  VLSegment& segment = f.AddSegment(4, {3, 6});
  ::setenv("VL_DEBUG_DIR", dir.path().string().c_str(), 1);  // no separator: one is added
  EXPECT_EQ(app::Processor::DebugDirectory(), dir.path().string() + "/");
  ASSERT_TRUE(segment.Process());
  f.Finish();
  ::setenv("VL_DEBUG_DIR", (dir.path().string() + "/missing/").c_str(), 1);
  EXPECT_EQ(app::Processor::DebugDirectory(), dir.path().string() + "/missing/");
  ::unsetenv("VL_DEBUG_DIR");
  EXPECT_EQ(app::Processor::DebugDirectory(), "");

  std::ifstream table(dir.path().string() + "/Discrepancy.txt");
  std::string line;
  std::getline(table, line);
  EXPECT_EQ(line, "Frame\tsqr(Discr)\tStrange");
  std::vector<std::string> frames;
  while (std::getline(table, line)) frames.push_back(line.substr(0, line.find('\t')));
  EXPECT_EQ(frames, (std::vector<std::string>{"3", "4", "5"}));

  std::stringstream log;
  log << std::ifstream(dir.path().string() + "/Velomar.log").rdbuf();
  EXPECT_NE(log.str().find("\nfrom 4 to 3\n"), std::string::npos);
  EXPECT_NE(log.str().find("\nfrom 4 to 5\n"), std::string::npos);
}

TEST(Processor, ObjectLostIsToldWithTheFrameAsTheUserCountsIt) {
  EXPECT_EQ(app::ObjectLostText(17, 100),
            "Object leaved the scene\n(or tracking process lost it)\nat frame # 117");
}

}  // namespace
