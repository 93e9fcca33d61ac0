#include "app/work/processor.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <utility>

#include "app/messages.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "base/timing.h"
#include "imaging/cache.h"
#include "imaging/prefetcher.h"
#include "tracking/key_frame.h"

namespace app {

namespace {

// Adds the figures of `from` and its children to `into`, node by node.
void AddTiming(timing::node& into, const timing::node& from) {
  into.calls_count += from.calls_count;
  into.node_time += from.node_time;
  into.subtree_time += from.subtree_time;
  into.node_count += from.node_count;
  into.subtree_count += from.subtree_count;
  for (const auto& [name, child] : from.children) AddTiming(into.child(name), child);
}

// The segment's new tracking state; at the end of a run it also brings the
// run's stage times into the segment's timing tree. The worker never
// touches that tree itself, as the owning thread may be saving it.
class SegmentStatusMessage : public VLMessage {
 public:
  SegmentStatusMessage(VLSegment& segment,
                       int32_t status,
                       std::shared_ptr<timing::tree> times = nullptr)
      : segment_(segment), status_(status), times_(std::move(times)) {}
  void Execute() override {
    if (times_) {
      timing::node& root = segment_.GetTiming().root();
      for (const auto& [name, child] : times_->root().children) AddTiming(root.child(name), child);
    }
    segment_.SetStatus(status_);
    if (VLComp* comp = segment_.GetComposition()) {
      if (VLViewControl* view = comp->GetViewControl(); view && status_ == kSegmentIdle)
        view->OnSegmentIdle(segment_);
      comp->RefreshView();
    }
  }

 private:
  VLSegment& segment_;
  int32_t status_;
  std::shared_ptr<timing::tree> times_;
};

// A direction ended because the object was lost. The text is made here, on
// the owning thread, with the composition's start frame as it is now.
class ObjectLostMessage : public VLMessage {
 public:
  ObjectLostMessage(VLSegment& segment, UserDialogs& dialogs, int32_t frame)
      : segment_(segment), dialogs_(dialogs), frame_(frame) {}
  void Execute() override {
    const VLComp* comp = segment_.GetComposition();
    dialogs_.inform(ObjectLostText(frame_, comp ? comp->GetStartFrame() : 0), Icon::Information);
  }

 private:
  VLSegment& segment_;
  UserDialogs& dialogs_;
  int32_t frame_;
};

// The frame loop's view of the processor and the segment.
class Host : public tracking::TrackingHost {
 public:
  Host(Processor& processor, VLSegment& segment, const ProcessorPorts& ports)
      : processor_(processor), segment_(segment), ports_(ports) {}
  bool interrupted() const override { return processor_.IsInterrupted(); }
  void direction_started(int direction) override {
    ports_.queue.post(std::make_unique<SegmentStatusMessage>(
        segment_, direction == 1 ? kSegmentForward : kSegmentBackward));
  }
  void append(int direction,
              My::Span& span,
              const types::affine& transform,
              int32_t /*frame*/) override {
    segment_.AddTransform(direction == 1, span, transform, ports_.queue);
  }
  void lost(int32_t frame) override {
    ports_.queue.post(std::make_unique<ObjectLostMessage>(segment_, ports_.dialogs, frame));
  }

 private:
  Processor& processor_;
  VLSegment& segment_;
  const ProcessorPorts& ports_;
};

bool Covered(const VLSegment& segment) {
  const My::Span time = segment.GetTimeSpan(), data = segment.GetDataSpan();
  return time.first >= data.first && time.last <= data.last;
}

}  // namespace

std::string ObjectLostText(int32_t frame, int32_t start_frame) {
  return "Object leaved the scene\n(or tracking process lost it)\nat frame # " +
         std::to_string(int64_t(frame) + start_frame);
}

Processor::Processor(ProcessorPorts ports) : ports_(std::move(ports)) {
  SetRestart(true);
  // The user goes on working while a segment tracks.
  SetBelowNormalPriority();
  Resume();
}

Processor::~Processor() {
  Interrupt();
  Stop();
}

std::string Processor::DebugDirectory() {
  const char* value = std::getenv("VL_DEBUG_DIR");
  if (!value || !*value) return {};
  std::string dir = value;
  if (dir.back() != '/' && dir.back() != '\\') dir += '/';
  return dir;
}

bool Processor::any_running() const {
  return !const_cast<Processor*>(this)->WaitIdleFor(std::chrono::nanoseconds(0));
}

bool Processor::enqueue(VLSegment& segment) {
  // The mask was tested by the segment, which asks to be queued.
  if (Covered(segment) || segment.GetStatus() != kSegmentIdle) return false;
  segment.SetStatus(kSegmentQueued);
  Enqueue([&](std::deque<VLSegment*>& queue) { queue.push_back(&segment); });
  return true;
}

void Processor::remove(VLSegment& segment) {
  auto lock = Lock();
  const auto it = std::find(queue_.begin(), queue_.end(), &segment);
  if (it != queue_.end()) {
    segment.SetStatus(kSegmentIdle);
    queue_.erase(it);
  }
  // The item in hand may be a finished one; the flag is cleared when the
  // next item is taken, so a stray request costs nothing.
  if (item_ == &segment) Interrupt();
}

void Processor::cancel_all() {
  auto lock = Lock();
  Interrupt();
  for (VLSegment* segment : queue_) segment->SetStatus(kSegmentIdle);
  queue_.clear();
}

void Processor::cancel_all_and_wait() {
  cancel_all();
  WaitIdle();
  // The run's last messages still refer to its segment, which the caller
  // may be about to delete: they run now.
  if (ports_.pump) ports_.pump();
}

void Processor::wait_until(const std::function<bool()>& done) {
  for (;;) {
    if (ports_.pump) ports_.pump();
    if (done()) return;
    // Every message of a run is posted before the worker goes idle.
    if (WaitIdleFor(std::chrono::milliseconds(5))) {
      if (ports_.pump) ports_.pump();
      return;
    }
  }
}

void Processor::OnError(const char* text) {
  CWorkThreadBase::OnError(text);
  ports_.queue.post(std::make_unique<AsyncMessageBox>(ports_.dialogs, text, Icon::Warning));
}

void Processor::Process(VLSegment*& item) {
  VLSegment& segment = *item;
  const VLComp& comp = *segment.GetComposition();

  const std::string dir = DebugDirectory();
  // A file that cannot be opened loses its lines and nothing else.
  std::ofstream log, table;
  if (!dir.empty()) {
    log.open(dir + "Velomar.log", std::ios::out | std::ios::trunc);
    table.open(dir + "Discrepancy.txt", std::ios::out | std::ios::trunc);
    table << "Frame\tsqr(Discr)\tStrange\n";
  }

  auto times = std::make_shared<timing::tree>();
  tracking::TimingTreeTimer timer(times.get());
  Host host(*this, segment, ports_);
  const VLSegmentDataPtr data = segment.GetData();
  tracking::TrackingRun run;
  run.segment.key_frame = segment.GetOrigin();
  run.segment.time_span = segment.GetTimeSpan();
  run.segment.params = segment.GetParams();
  run.segment.mask = &segment.GetMask();
  run.segment.data = data.get();
  run.segment.frames = &comp.GetUnderlay();
  run.host = &host;
  run.cache = &ports_.cache;
  run.prefetcher = ports_.prefetcher;
  run.log = dir.empty() ? nullptr : &log;
  run.table = dir.empty() ? nullptr : &table;
  run.timer = &timer;
  {
    tracking::StageScope processing(&timer, "processing");
    tracking::TrackSegment(run, data->DataSpan(run.segment.key_frame));
  }
  ports_.queue.post(std::make_unique<SegmentStatusMessage>(segment, kSegmentIdle, times));
}

}  // namespace app
