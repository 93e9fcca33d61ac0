// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/link_host.h"

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <thread>

#include "app/commands/application.h"
#include "app/commands/command_texts.h"
#include "app/link/host_launcher.h"
#include "app/link/host_link.h"
#include "app/model/comp.h"
#include "app/profile_store.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"
#include "cli/report.h"
#include "cli/track_run.h"
#include "exchange/link/server.h"
#include "imaging/image_list.h"

namespace cli {

namespace {

namespace xl = exchange::link;
using xl::Message;
using xl::MessageType;

std::vector<std::string> Expand(const std::string& file) {
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list(file, frames, size);
  for (auto& f : frames) f = std::filesystem::absolute(f).lexically_normal().string();
  return frames;
}

// The plug-in's server: offers the footage it was given, takes motion and
// projects and prints what arrived, one line of JSON or a summary each.
class HostSimulator : public xl::Server {
 public:
  HostSimulator(std::vector<std::string> underlay, std::vector<std::string> overlay)
      : Server(xl::SocketPath(xl::kPluginSocket)),
        underlay_(std::move(underlay)),
        overlay_(std::move(overlay)) {
    Start();
  }
  ~HostSimulator() override { Stop(); }
  bool ended() { return HasEnded(); }

 protected:
  bool OnMessage(Message& m) override {
    switch (m.GetType()) {
      case MessageType::PossibleActions: {
        xl::PossibleActions a;
        a.Underlay = !underlay_.empty();
        a.Overlay = !overlay_.empty();
        a.StillOverlay = overlay_.size() == 1;
        a.Transformations = a.Project = true;
        m = xl::MakePossibleActionsMessage(a);
        return true;
      }
      case MessageType::Underlay:
      case MessageType::Overlay: {
        const auto& frames = m.GetType() == MessageType::Underlay ? underlay_ : overlay_;
        if (frames.empty()) {
          m = xl::MakeError("no footage selected");
          return true;
        }
        xl::ImageSequenceRecord r;
        r.frames = frames;
        r.StartFrame = int32_t(img::first_frame_number(frames.front()));
        Print("sent " + std::string(xl::MessageTypeName(m.GetType())) + " " +
              std::to_string(frames.size()) + " frames");
        m = xl::MakeSequenceMessage(m.GetType(), r);
        return true;
      }
      case MessageType::Transformations: {
        const auto t = xl::ReadTransformationsMessage(m);
        Print("received Transformations first " + std::to_string(t.first) + " frames " +
              std::to_string(t.GetTransforms().size()));
        m.Clear();
        return true;
      }
      case MessageType::Project: {
        const auto p = xl::ReadProjectMessage(m);
        Print("received Project " + p.Name + " " + std::to_string(p.width) + "x" +
              std::to_string(p.height) + " underlay " + std::to_string(p.underlay.size()) +
              " overlay " + std::to_string(p.overlay.frames.size()) + " frames " +
              std::to_string(p.transformations.GetTransforms().size()));
        m.Clear();
        return true;
      }
      default:
        return false;
    }
  }
  void OnError(const char* text) override {
    std::fprintf(stderr, "velomar-cli: a peer was dropped: %s\n", text);
  }

 private:
  void Print(const std::string& line) {
    std::lock_guard lock(mutex_);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
  }

  std::vector<std::string> underlay_, overlay_;
  std::mutex mutex_;
};

void PrintCommands(const app::link::LinkCommands& c, bool json) {
  const std::pair<const char*, const app::link::CommandUi*> rows[] = {
      {"switch", &c.switchToHost},
      {"import-project", &c.importProject},
      {"import-overlay", &c.importOverlay},
      {"export-project", &c.exportProject},
      {"export-transformations", &c.exportTransformations}};
  if (json) {
    Json out;
    out.begin_object();
    for (const auto& [name, ui] : rows)
      out.key(name)
          .begin_object()
          .key("enabled")
          .value(ui->enabled)
          .key("text")
          .value(ui->text)
          .end_object();
    out.end_object();
    std::printf("%s\n", out.str().c_str());
    return;
  }
  for (const auto& [name, ui] : rows)
    std::printf("%-23s %-8s %s\n", name, ui->enabled ? "enabled" : "disabled", ui->text.c_str());
}

}  // namespace

int RunLinkHost(const std::vector<std::string>& args) {
  Options options(args, {}, {"--underlay", "--overlay"});
  if (!options.positional().empty()) throw UsageError("link host takes no arguments");
  try {
    const auto underlay = options.has("--underlay") ? Expand(options.value("--underlay"))
                                                    : std::vector<std::string>();
    const auto overlay =
        options.has("--overlay") ? Expand(options.value("--overlay")) : std::vector<std::string>();
    HostSimulator host(underlay, overlay);
    std::fprintf(stderr, "velomar-cli: host listening on %s\n", host.path().c_str());
    InterruptWatch watch;
    while (!watch.fired() && !host.ended())
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return 0;
  } catch (const std::exception& e) {
    return ReportFailure("acting as the host", e, false);
  }
}

int RunLinkRequest(const std::vector<std::string>& args) {
  Options options(args, {"--yes", "--json"}, {"--host-command"});
  const auto& pos = options.positional();
  if (pos.size() != 2) throw UsageError("link request needs WHAT and PROJECT");
  const std::string& what = pos[0];
  const std::string project = std::filesystem::absolute(pos[1]).string();
  const bool json = options.flag("--json");
  ProjectSession session(options.flag("--yes"));
  app::Velomar& app = session.app();
  app::MemoryProfileStore profile;
  if (options.has("--host-command"))
    profile.set_string(app::link::kHostCommandSection, app::link::kHostCommandKey,
                       options.value("--host-command"));
  app::link::HostLauncher launcher(profile);
  app::link::HostLink link({.app = app, .host = &launcher});
  return session.Run(
      [&] {
        if (std::filesystem::exists(project)) session.Open(project);
        if (what == "state") {
          PrintCommands(link.Refresh(), json);
          return;
        }
        const app::link::LinkCommands ui = link.Refresh();
        const std::pair<const char*, const app::link::CommandUi*> known[] = {
            {"switch", &ui.switchToHost},
            {"import-project", &ui.importProject},
            {"import-overlay", &ui.importOverlay},
            {"export-project", &ui.exportProject},
            {"export-transformations", &ui.exportTransformations}};
        const app::link::CommandUi* chosen = nullptr;
        for (const auto& [name, state] : known)
          if (what == name) chosen = state;
        if (!chosen) throw UsageError("unknown request '" + what + "'");
        // The window would show the command greyed out; say so instead.
        if (!chosen->enabled) throw std::runtime_error(what + " is not possible now");
        if (what == "switch")
          link.OnSwitchToHost();
        else if (what == "import-project")
          link.OnImportProject();
        else if (what == "import-overlay")
          link.OnImportOverlay();
        else if (what == "export-project")
          link.OnExportProject();
        else
          link.OnExportTransformations();
        if ((what == "import-project" || what == "import-overlay") && app.IsProjectOpen())
          app.SaveProjectAs(project);
      },
      json, "talking to the host over the link");
}

}  // namespace cli
