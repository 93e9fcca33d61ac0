// SPDX-License-Identifier: GPL-3.0-or-later
// The program's end of the host link: the server thread answering a
// plug-in while the test thread owns the composition and pumps its
// messages, the requests to a stand-in plug-in, and the commands' rules.
#include <mutex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/commands/application.h"
#include "app/commands/project_files.h"
#include "app/link/host_launcher.h"
#include "app/link/host_link.h"
#include "app/link/sleeper.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"
#include "app_fixtures.h"
#include "base/errors.h"
#include "exchange/link/server.h"
#include "testing/files.h"

namespace {

namespace xl = exchange::link;
using app::link::LinkSnapshot;
using namespace std::chrono_literals;
using xl::Message;
using xl::MessageType;

xl::TransportOptions Quick() {
  xl::TransportOptions o;
  o.io_timeout = 500ms;
  o.reply_wait = 2000ms;
  return o;
}

// The host's plug-in: answers by `answer` and keeps every message it got.
class FakePlugin : public xl::Server {
 public:
  using Answer = std::function<bool(Message&)>;
  FakePlugin(const std::string& path, Answer answer)
      : Server(path, Quick()), answer_(std::move(answer)) {
    Start();
  }
  ~FakePlugin() override { Stop(); }
  std::vector<std::string> received() {
    std::lock_guard lock(mutex_);
    return received_;
  }

 protected:
  bool OnMessage(Message& m) override {
    {
      std::lock_guard lock(mutex_);
      received_.push_back(m.ToBytes());
    }
    return answer_(m);
  }
  void OnError(const char*) override {}

 private:
  Answer answer_;
  std::mutex mutex_;
  std::vector<std::string> received_;
};

struct LinkFixture {
  testing_support::TempDir dir;
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs{app::ScriptedDialogs::Mode::Affirmative};
  app::MemoryProfileStore profile;
  app::Velomar app{
      {.queue = queue, .dialogs = dialogs, .profile = profile, .files = app::ProjectFiles()}};
  app::link::HostLink link{{.app = app, .plugin_path = dir / "VLPlugin", .options = Quick()}};
  app::link::Sleeper sleeper{{.queue = queue, .link = link}, dir / "VLApp", Quick()};

  Message Ask(const Message& request) {
    std::string reply;
    xl::Transact(sleeper.path(), request.ToBytes(), reply, Quick());
    Message m;
    m.FromBytes(reply);
    return m;
  }
  std::vector<std::string> Footage(int n) {
    std::vector<std::string> frames;
    for (int i = 0; i < n; ++i)
      frames.push_back(app_testing::WriteImage(dir, "f" + std::to_string(i) + ".bmp", 8, 6, false));
    return frames;
  }
  // A project of 5 frames whose overlay moves 2 pixels a frame over 1..4.
  void OpenWithMotion() {
    xl::ImageSequenceRecord r;
    r.frames = Footage(5);
    link.Receive(MessageType::Underlay, r);
    VLComp& comp = app.GetComposition();
    comp.GetInterface().CreateSegment(2, false);
    VLSegment& s = comp.GetSegmentObject(0);
    s.SetTimeSpanDirect(1, 5);
    auto data = std::make_shared<VLSegmentData>();
    for (int f = 2; f < 5; ++f)
      data->Append(VLSegmentData::Direction::Forward, types::affine::translation(2.0 * (f - 2), 0));
    data->Append(VLSegmentData::Direction::Backward, types::affine::translation(-2.0, 0));
    s.ReplaceData(data);
    comp.SetCurrentTime(2);
    comp.GetOverlay().GetInterface().Import({app_testing::WriteImage(dir, "o.bmp", 4, 4, false)});
    link.Publish();
  }
};

xl::PossibleActions Offered(LinkFixture& f) {
  return xl::ReadPossibleActionsMessage(f.Ask(Message(MessageType::PossibleActions)));
}

TEST(LinkSleeper, FootageArrivesOnTheOwningThreadAndTheAnswersFollowTheProject) {
  LinkFixture f;
  xl::PossibleActions expected;
  expected.Underlay = true;
  EXPECT_EQ(Offered(f), expected);

  xl::ImageSequenceRecord footage;
  footage.frames = f.Footage(3);
  footage.Framerate = 25;
  footage.aspect = {10, 11};
  footage.StartFrame = 100;
  EXPECT_TRUE(f.Ask(xl::MakeSequenceMessage(MessageType::Underlay, footage)).IsEmpty());
  // Nothing changed yet: the server only posted.
  EXPECT_FALSE(f.app.IsProjectOpen());
  f.queue.pump();
  VLComp& comp = f.app.GetComposition();
  EXPECT_EQ(comp.GetUnderlay(), footage.frames);
  EXPECT_EQ(comp.GetFramerate(), 25u);
  EXPECT_EQ(comp.GetPixelAspect(), (PixelAspectRatio{10, 11}));
  EXPECT_EQ(comp.GetStartFrame(), 100);

  expected.Overlay = expected.Project = true;
  EXPECT_EQ(Offered(f), expected);
  footage.frames.resize(1);
  EXPECT_TRUE(f.Ask(xl::MakeSequenceMessage(MessageType::Overlay, footage)).IsEmpty());
  f.queue.pump();
  EXPECT_EQ(comp.GetOverlay().GetPaths(), footage.frames);
}

TEST(LinkSleeper, BusyProgramRefusesFootageWithItsText) {
  LinkFixture f;
  xl::ImageSequenceRecord footage;
  footage.frames = f.Footage(1);
  EXPECT_THAT(
      [&] { f.Ask(xl::MakeSequenceMessage(MessageType::Overlay, footage)).Throw(); },
      ::testing::ThrowsMessage<xl::BadMessage>("Velomar is busy now, rendering is ongoing"));
  f.app.mainWindowEnabled = false;
  f.link.Publish();
  EXPECT_THAT([&] { f.Ask(xl::MakeSequenceMessage(MessageType::Underlay, footage)).Throw(); },
              ::testing::ThrowsMessage<xl::BadMessage>(
                  "Velomar is busy now, tracking or rendering is ongoing"));
  EXPECT_EQ(f.queue.pending(), 0u);
  EXPECT_THAT([&] { f.Ask(xl::MakeError("x")).Throw(); },
              ::testing::ThrowsMessage<xl::BadMessage>("unknown message"));
}

TEST(LinkSleeper, RequestedMotionAndProjectGoToThePlugin) {
  LinkFixture f;
  FakePlugin plugin(f.link.GetPluginPath(), [](Message& m) {
    m.Clear();
    return true;
  });
  f.OpenWithMotion();
  ASSERT_TRUE(Offered(f).Transformations);
  EXPECT_TRUE(f.Ask(Message(MessageType::Transformations)).IsEmpty());
  EXPECT_TRUE(f.Ask(Message(MessageType::Project)).IsEmpty());
  EXPECT_THAT(plugin.received(), ::testing::IsEmpty());
  f.queue.pump();
  const auto got = plugin.received();
  ASSERT_EQ(got.size(), 2u);

  Message motion;
  motion.FromBytes(got[0]);
  const Transformations t = xl::ReadTransformationsMessage(motion);
  EXPECT_EQ(t.first, 1);
  ASSERT_EQ(t.GetTransforms().size(), 4u);
  EXPECT_EQ(t.GetTransforms()[3].x - t.GetTransforms()[0].x, 6.0);

  Message project;
  project.FromBytes(got[1]);
  const xl::ProjectRecord p = xl::ReadProjectMessage(project);
  EXPECT_EQ(p.underlay, f.app.GetComposition().GetUnderlay());
  EXPECT_EQ(p.width, 8u);
  EXPECT_EQ(p.height, 6u);
  EXPECT_EQ(p.overlay.frames.size(), 1u);
  EXPECT_EQ(p.transformations.GetTransforms().size(), 4u);
}

TEST(LinkRequests, PluginAnswersReachTheUser) {
  LinkFixture f;
  // Absent plug-in: nothing possible, and no error.
  EXPECT_EQ(f.link.QueryPossibleActions(), xl::PossibleActions{});
  EXPECT_FALSE(f.link.Refresh().importProject.enabled);

  std::vector<std::string> frames = f.Footage(2);
  FakePlugin plugin(f.link.GetPluginPath(), [&](Message& m) {
    switch (m.GetType()) {
      case MessageType::PossibleActions: {
        xl::PossibleActions a;
        a.Underlay = a.Overlay = a.Project = a.Transformations = true;
        m = xl::MakePossibleActionsMessage(a);
        return true;
      }
      case MessageType::Underlay: {
        xl::ImageSequenceRecord r;
        r.frames = frames;
        r.StartFrame = 3;
        m = xl::MakeSequenceMessage(MessageType::Underlay, r);
        return true;
      }
      default:
        m = xl::MakeError("no active composition");
        return true;
    }
  });
  auto ui = f.link.Refresh();
  EXPECT_TRUE(ui.importProject.enabled);
  EXPECT_FALSE(ui.importOverlay.enabled);  // no underlay yet
  EXPECT_EQ(ui.importOverlay.text, "Import Live Overlay");
  f.link.OnImportProject();
  EXPECT_EQ(f.app.GetComposition().GetUnderlay(), frames);
  EXPECT_EQ(f.app.GetComposition().GetStartFrame(), 3);
  EXPECT_TRUE(f.app.GetOperations().empty());

  EXPECT_TRUE(f.link.Refresh().importOverlay.enabled);
  EXPECT_THAT([&] { f.link.OnImportOverlay(); },
              ::testing::ThrowsMessage<xl::BadMessage>("no active composition"));
  EXPECT_EQ(f.app.GetOperations().innermost(), "requesting AE for overlay");
  EXPECT_THAT([&] { f.link.OnExportProject(); },
              ::testing::ThrowsMessage<xl::BadMessage>("no active composition"));
}

TEST(LinkRules, CommandsFollowThePluginAndTheProject) {
  LinkSnapshot s;
  EXPECT_EQ(app::link::SwitchToHostUi(s), (app::link::CommandUi{false, "Launch After Effects"}));
  s.hostCommand = true;
  EXPECT_TRUE(app::link::SwitchToHostUi(s).enabled);
  s.hostWindow = true;
  EXPECT_EQ(app::link::SwitchToHostUi(s).text, "Switch to After Effects ®");

  s.idle = s.hasUnderlay = s.hasFrames = true;
  // The plug-in decides: nothing without it.
  EXPECT_FALSE(app::link::ImportProjectUi(s).enabled);
  EXPECT_FALSE(app::link::ImportOverlayUi(s).enabled);
  EXPECT_EQ(app::link::ImportOverlayUi(s).text, "Import Overlay");
  EXPECT_FALSE(app::link::ExportProjectUi(s).enabled);
  EXPECT_FALSE(app::link::ExportTransformationsUi(s).enabled);
  s.actions = {true, true, true, true, true};
  EXPECT_TRUE(app::link::ImportProjectUi(s).enabled);
  EXPECT_EQ(app::link::ImportOverlayUi(s), (app::link::CommandUi{true, "Import Still Overlay"}));
  EXPECT_TRUE(app::link::ExportProjectUi(s).enabled);
  EXPECT_EQ(app::link::ExportTransformationsUi(s).text, "Export Transformations");
  EXPECT_EQ(app::link::ExportTransformationsUi(s, true).text, "");
  s.mainWindowEnabled = false;
  EXPECT_FALSE(app::link::ImportOverlayUi(s).enabled);
  s.hasFrames = false;
  EXPECT_FALSE(app::link::ExportTransformationsUi(s).enabled);
  // The program never offers a still overlay.
  EXPECT_FALSE(app::link::OfferedActions(s).StillOverlay);
}

TEST(HostLauncher, CommandFromTheSettingsStartsTheHost) {
  using app::link::SplitCommandLine;
  EXPECT_THAT(SplitCommandLine(" host  -a 'b c' \"d \\\" e\" f\\ g "),
              ::testing::ElementsAre("host", "-a", "b c", "d \" e", "f g"));
  EXPECT_THROW(SplitCommandLine("host 'open"), std::runtime_error);

  testing_support::TempDir dir;
  app::MemoryProfileStore profile;
  app::link::HostLauncher launcher(profile);
  EXPECT_FALSE(launcher.is_running());
  EXPECT_THAT([&] { launcher.LaunchHost(); },
              ::testing::ThrowsMessage<SystemError>(::testing::EndsWith("CreateProcess(AE)")));
  profile.set_string("Preferences", "HostCommand", dir / "no-such-host");
  EXPECT_THAT([&] { launcher.activate_or_launch(); },
              ::testing::ThrowsMessage<SystemError>(::testing::EndsWith("CreateProcess(AE)")));
  const std::string mark = dir / "started";
  app::MemoryProfileStore other;
  other.set_string("Preferences", "HostCommand", "touch '" + mark + "'");
  app::link::HostLauncher real(other);
  real.activate_or_launch();
  for (int i = 0; i < 400 && !std::filesystem::exists(mark); ++i) std::this_thread::sleep_for(5ms);
  EXPECT_TRUE(std::filesystem::exists(mark));
}

}  // namespace
