// SPDX-License-Identifier: GPL-3.0-or-later
// The host link on the loopback: a 10,000-frame motion built, framed, sent,
// read and parsed at the other end (what an export costs before the host
// starts on its keyframes), and small transactions per second with a fresh
// connection each, as every refresh of the panel makes one.
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "exchange/link/records.h"
#include "exchange/link/server.h"
#include "exchange/link/transport.h"

namespace {

namespace xl = exchange::link;

Transformations Motion(int frames) {
  Transformations record;
  auto& m = record.Own();
  for (int f = 0; f < frames; ++f) {
    const double t = f / 25.0, r = 0.05 * std::sin(0.31 * t), s = 1 + 0.03 * std::sin(0.17 * t);
    m.push_back({960 + 0.8 * f + 40 * std::sin(0.7 * t), 540 + 25 * std::sin(0.45 * t),
                 s * std::cos(r), -s * std::sin(r), s * std::sin(r), s * std::cos(r)});
  }
  return record;
}

// The plug-in's end: reads what arrives completely, then answers.
class Receiver : public xl::Server {
 public:
  explicit Receiver(const std::string& path) : Server(path) { Start(); }
  ~Receiver() override { Stop(); }
  size_t frames = 0;  // of the last motion; read after the transaction

 protected:
  bool OnMessage(xl::Message& m) override {
    if (m.GetType() == xl::MessageType::Transformations) {
      frames = xl::ReadTransformationsMessage(m).GetTransforms().size();
      m.Clear();
    } else {
      m = xl::MakePossibleActionsMessage({true, false, false, true, true});
    }
    return true;
  }
  void OnError(const char*) override {}
};

struct Loopback {
  Loopback() {
    char name[] = "/tmp/velomar-link-bench-XXXXXX";
    folder = ::mkdtemp(name);
    receiver = std::make_unique<Receiver>(folder + "/VLPlugin");
  }
  ~Loopback() {
    receiver.reset();
    std::filesystem::remove_all(folder);
  }
  std::string folder;
  std::unique_ptr<Receiver> receiver;
};

void BM_LinkTransformations(benchmark::State& state) {
  const Transformations motion = Motion(int(state.range(0)));
  Loopback link;
  size_t bytes = 0;
  for (auto _ : state) {
    const std::string request = xl::MakeTransformationsMessage(motion).ToBytes();
    std::string reply;
    xl::Transact(link.receiver->path(), request, reply);
    if (!reply.empty() || link.receiver->frames != motion.GetTransforms().size())
      state.SkipWithError("motion did not arrive whole");
    bytes = request.size();
  }
  state.counters["bytes"] = double(bytes);
}
BENCHMARK(BM_LinkTransformations)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The halves of it, on one thread.
void BM_LinkTransformationsBuild(benchmark::State& state) {
  const Transformations motion = Motion(int(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(xl::MakeTransformationsMessage(motion).ToBytes());
}
BENCHMARK(BM_LinkTransformationsBuild)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_LinkTransformationsParse(benchmark::State& state) {
  const std::string bytes = xl::MakeTransformationsMessage(Motion(int(state.range(0)))).ToBytes();
  for (auto _ : state) {
    xl::Message m;
    m.FromBytes(bytes);
    benchmark::DoNotOptimize(xl::ReadTransformationsMessage(m));
  }
}
BENCHMARK(BM_LinkTransformationsParse)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_LinkSmallRequests(benchmark::State& state) {
  Loopback link;
  const std::string request = xl::Message(xl::MessageType::PossibleActions).ToBytes();
  for (auto _ : state) {
    std::string reply;
    xl::Transact(link.receiver->path(), request, reply);
    xl::Message m;
    m.FromBytes(reply);
    benchmark::DoNotOptimize(xl::ReadPossibleActionsMessage(m));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LinkSmallRequests)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
