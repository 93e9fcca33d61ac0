// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli link: both ends of the link with the compositing host from a
// shell. "link serve" is the program's end without a window; "link send"
// plays the host's plug-in: it hands over footage, asks what is possible,
// and fetches the project or the motion, which the program delivers as a
// transaction of its own onto the plug-in's socket.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "app/commands/application.h"
#include "app/commands/command_texts.h"
#include "app/link/host_link.h"
#include "app/link/sleeper.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "app/scripted_dialogs.h"
#include "base/errors.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/link_host.h"
#include "cli/options.h"
#include "cli/project_session.h"
#include "cli/report.h"
#include "cli/track_run.h"
#include "exchange/link/records.h"
#include "exchange/link/transport.h"
#include "imaging/image_list.h"

namespace cli {

namespace {

namespace xl = exchange::link;
using xl::MessageType;

constexpr const char* kServing = "serving the link";
constexpr const char* kSending = "talking to Velomar over the link";

// Identity of the project file's current version: a save replaces the file,
// so its inode changes even within one tick of the clock.
struct FileStamp {
  uint64_t inode = 0;
  int64_t modified_ns = -1;
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

FileStamp Stamp(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return {};
  return {uint64_t(st.st_ino), int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

// A file that vanished is no change: the project in memory stays.
bool ChangedOnDisk(const std::string& path, const FileStamp& known) {
  if (path.empty()) return false;
  const FileStamp now = Stamp(path);
  return now.modified_ns >= 0 && now != known;
}

// What of the project the link changes: when it differs from the saved
// state, the project is saved.
std::string LinkedState(app::Velomar& app) {
  VLComp& comp = app.GetComposition();
  std::string state;
  for (const auto& f : comp.GetUnderlay()) state += f + '\n';
  state += '|';
  for (const auto& f : comp.GetOverlay().GetPaths()) state += f + '\n';
  return state;
}

std::chrono::milliseconds ParseMilliseconds(const Options& options,
                                            const std::string& name,
                                            int64_t fallback) {
  if (!options.has(name)) return std::chrono::milliseconds(fallback);
  const std::string& text = options.value(name);
  try {
    size_t used = 0;
    const long long value = std::stoll(text, &used);
    if (used == text.size() && value >= 0) return std::chrono::milliseconds(value);
  } catch (const std::exception&) {
  }
  throw UsageError(name + " takes milliseconds, 0 or more; not '" + text + "'");
}

int RunServe(const std::vector<std::string>& args) {
  Options options(args, {"--yes", "--json"}, {"--project", "--timeout"});
  if (!options.positional().empty()) throw UsageError("link serve takes no arguments");
  const bool json = options.flag("--json");
  xl::TransportOptions transport;
  transport.io_timeout = ParseMilliseconds(options, "--timeout", 5000);
  const std::string project = options.has("--project")
                                  ? std::filesystem::absolute(options.value("--project")).string()
                                  : std::string();

  ProjectSession session(options.flag("--yes"));
  app::Velomar& app = session.app();
  auto& queue = dynamic_cast<app::MessageQueue&>(app.GetQueue());
  FileStamp stamp;
  if (!project.empty() && std::filesystem::exists(project)) {
    if (session.Run([&] { session.Open(project); }, json, app::kOpeningProject) != 0) return 1;
    stamp = Stamp(project);
  }
  std::string saved = LinkedState(app);

  app::link::HostLink link({.app = app, .options = transport});
  std::unique_ptr<app::link::Sleeper> sleeper;
  try {
    sleeper = app::link::StartSleeper(
        {.queue = queue,
         .link = link,
         .on_error =
             [](const std::string& text) {
               std::fprintf(stderr, "velomar-cli: a peer was dropped: %s\n", text.c_str());
             }},
        {}, transport);
    if (!sleeper)
      throw std::runtime_error("another Velomar already serves " + xl::SocketPath(xl::kAppSocket));
  } catch (const std::exception& e) {
    return ReportFailure(kServing, e, json);
  }
  std::fprintf(stderr, "velomar-cli: serving on %s\n", sleeper->path().c_str());

  InterruptWatch watch;
  size_t notices = 0;
  while (!watch.fired() && !sleeper->HasEnded()) {
    // The project file changes under us when another command (track) saves
    // it; the plug-in must get what is on disk.
    if (ChangedOnDisk(project, stamp)) {
      app.Run([&] { app.OpenDocumentFile(project); });
      stamp = Stamp(project);
      saved = LinkedState(app);
    }
    link.Publish();
    app.Run([&] {
      // Back to the top at once when the file changes, so the plug-in's
      // next question is answered from what was saved.
      queue.pump_until(
          [&] { return watch.fired() || sleeper->HasEnded() || ChangedOnDisk(project, stamp); },
          std::chrono::milliseconds(50));
    });
    if (!project.empty() && app.IsProjectOpen() && LinkedState(app) != saved) {
      if (app.Run([&] { app.SaveProjectAs(project); })) {
        stamp = Stamp(project);
        saved = LinkedState(app);
        std::fprintf(stderr, "velomar-cli: saved %s\n", project.c_str());
      }
    }
    const auto& questions = session.dialogs().questions();
    for (; notices < questions.size(); ++notices)
      std::fprintf(stderr, "velomar-cli: %s\n", questions[notices].text.c_str());
  }
  sleeper.reset();
  std::fprintf(stderr, "velomar-cli: stopped\n");
  return 0;
}

// --- the plug-in's side ------------------------------------------------------

xl::ImageSequenceRecord Footage(const Options& options) {
  xl::ImageSequenceRecord record;
  const auto& files = options.positional();
  if (files.size() < 2) throw UsageError("link send underlay/overlay needs FRAME...");
  if (files.size() == 2) {
    img::frame_size size;
    img::read_image_list(files[1], record.frames, size);
  } else {
    for (size_t i = 1; i < files.size(); ++i) record.frames.push_back(files[i]);
  }
  for (auto& f : record.frames) f = std::filesystem::absolute(f).lexically_normal().string();
  record.StartFrame = int32_t(img::first_frame_number(record.frames.front()));
  if (options.has("--start"))
    record.StartFrame = ParseFrameIndex(options.value("--start"), "--start");
  if (options.has("--framerate")) {
    const std::string& text = options.value("--framerate");
    const int32_t rate = ParseFrameIndex(text, "--framerate");
    if (rate < 1) throw UsageError("--framerate takes frames per second, 1 or more");
    record.Framerate = uint32_t(rate);
  }
  if (options.has("--aspect")) {
    const std::string& text = options.value("--aspect");
    const size_t colon = text.find(':');
    if (colon == std::string::npos) throw UsageError("--aspect takes NUM:DEN");
    record.aspect = {ParseFrameIndex(text.substr(0, colon), "--aspect"),
                     ParseFrameIndex(text.substr(colon + 1), "--aspect")};
    if (record.aspect.num < 1 || record.aspect.den < 1)
      throw UsageError("--aspect takes two positive numbers, NUM:DEN");
  }
  return record;
}

xl::Message Exchange(const xl::Message& request, const xl::TransportOptions& transport) {
  std::string reply;
  xl::Transact(xl::SocketPath(xl::kAppSocket), request.ToBytes(), reply, transport);
  xl::Message message;
  message.FromBytes(reply);
  return message;
}

void PrintActions(const xl::PossibleActions& a, bool json) {
  if (json) {
    Json out;
    out.begin_object()
        .key("Underlay")
        .value(a.Underlay)
        .key("Overlay")
        .value(a.Overlay)
        .key("StillOverlay")
        .value(a.StillOverlay)
        .key("Transformations")
        .value(a.Transformations)
        .key("Project")
        .value(a.Project)
        .end_object();
    std::printf("%s\n", out.str().c_str());
    return;
  }
  std::printf("Underlay %d\nOverlay %d\nStillOverlay %d\nTransformations %d\nProject %d\n",
              a.Underlay, a.Overlay, a.StillOverlay, a.Transformations, a.Project);
}

void TransformationsJson(Json& out, const Transformations& t) {
  auto affine = [&](const types::affine& a) {
    out.begin_array().value(a.xx).value(a.xy).value(a.yx).value(a.yy).value(a.x).value(a.y);
    out.end_array();
  };
  out.key("first").value(t.first);
  out.key("InitialTransform");
  affine(t.InitialTransform);
  out.key("ExportInaccuracy").value(double(t.ExportInaccuracy));
  out.key("Task").value(FileWord(t.Task));
  out.key("ExportModel").value(FileWord(t.ExportModel));
  out.key("transforms").begin_array();
  for (const auto& a : t.GetTransforms()) affine(a);
  out.end_array();
}

void PrintTransformations(const Transformations& t, bool json) {
  if (json) {
    Json out;
    out.begin_object();
    TransformationsJson(out, t);
    out.end_object();
    std::printf("%s\n", out.str().c_str());
    return;
  }
  std::printf("first %d\nTask %s\nExportModel %s\nExportInaccuracy %g\nframes %zu\n", t.first,
              std::string(FileWord(t.Task)).c_str(), std::string(FileWord(t.ExportModel)).c_str(),
              double(t.ExportInaccuracy), t.GetTransforms().size());
  int32_t frame = t.first;
  for (const auto& a : t.GetTransforms())
    std::printf("%d %.17g %.17g %.17g %.17g %.17g %.17g\n", frame++, a.xx, a.xy, a.yx, a.yy, a.x,
                a.y);
}

void PrintProject(const xl::ProjectRecord& p, bool json) {
  auto list = [](Json& out, const std::vector<std::string>& frames) {
    out.begin_array();
    for (const auto& f : frames) out.value(f);
    out.end_array();
  };
  if (json) {
    Json out;
    out.begin_object().key("Name").value(p.Name);
    out.key("width").value(p.width).key("height").value(p.height);
    out.key("Framerate").value(p.Framerate);
    out.key("PixelAspectRatio").begin_array().value(p.aspect.num).value(p.aspect.den).end_array();
    out.key("underlay");
    list(out, p.underlay);
    out.key("overlay").begin_object().key("frames");
    list(out, p.overlay.frames);
    out.key("SourceOffset").value(p.overlay.SourceOffset);
    out.key("Trimming")
        .begin_array()
        .value(p.overlay.Trimming.first)
        .value(p.overlay.Trimming.last)
        .end_array();
    out.end_object();
    TransformationsJson(out, p.transformations);
    out.end_object();
    std::printf("%s\n", out.str().c_str());
    return;
  }
  std::printf("Name %s\nsize %ux%u\nFramerate %u\nPixelAspectRatio %d/%d\nunderlay %zu frames\n",
              p.Name.c_str(), p.width, p.height, p.Framerate, p.aspect.num, p.aspect.den,
              p.underlay.size());
  std::printf("overlay %zu frames, SourceOffset %d, Trimming %d:%d\n", p.overlay.frames.size(),
              p.overlay.SourceOffset, p.overlay.Trimming.first, p.overlay.Trimming.last);
  PrintTransformations(p.transformations, false);
}

// Asks for the project or the motion: the program answers "Empty" at once
// and delivers the data to our own socket, where we wait for it.
xl::Message Fetch(MessageType kind, const xl::TransportOptions& transport) {
  // The program says "Empty" and then sends nothing when it has nothing to
  // give; a plug-in asks first, and so do we, rather than wait in vain.
  const auto possible = xl::ReadPossibleActionsMessage(
      Exchange(xl::Message(MessageType::PossibleActions), transport));
  const bool project = kind == MessageType::Project;
  if (!(project ? possible.Project : possible.Transformations))
    throw std::runtime_error(project ? "Velomar has no project open"
                                     : "Velomar has no overlay motion to export");
  xl::TransportOptions listen = transport;
  listen.accept_wait = transport.reply_wait;
  xl::PipeServer plugin(xl::SocketPath(xl::kPluginSocket), listen);
  const xl::Message reply = Exchange(xl::Message(kind), transport);
  if (!reply.IsEmpty()) reply.Throw();
  std::string bytes;
  try {
    if (!plugin.Wait(bytes)) throw std::runtime_error("the link was stopped");
  } catch (const SystemError& e) {
    if (e.error_number() != ETIMEDOUT) throw;
    throw std::runtime_error("Velomar delivered nothing within " +
                             std::to_string(transport.reply_wait.count()) + " ms");
  }
  xl::Message delivered;
  try {
    delivered.FromBytes(bytes);
  } catch (...) {
    plugin.Reply(xl::MakeError("unknown message").ToBytes());
    throw;
  }
  const bool expected = delivered.GetType() == kind;
  plugin.Reply(expected ? std::string() : xl::MakeError("unknown message").ToBytes());
  if (!expected) delivered.Throw();
  return delivered;
}

int RunSend(const std::vector<std::string>& args) {
  Options options(args, {"--json"}, {"--framerate", "--aspect", "--start", "--timeout"});
  const bool json = options.flag("--json");
  if (options.positional().empty()) throw UsageError("link send needs a KIND");
  const std::string& kind = options.positional()[0];
  xl::TransportOptions transport;
  transport.reply_wait = ParseMilliseconds(options, "--timeout", 10000);
  try {
    if (kind == "underlay" || kind == "overlay") {
      const auto record = Footage(options);
      const xl::Message reply =
          Exchange(xl::MakeSequenceMessage(
                       kind == "underlay" ? MessageType::Underlay : MessageType::Overlay, record),
                   transport);
      if (!reply.IsEmpty()) reply.Throw();
      if (json)
        std::printf("{\"sent\": %zu}\n", record.frames.size());
      else
        std::printf("sent %zu frames\n", record.frames.size());
      return 0;
    }
    if (options.positional().size() != 1) throw UsageError("link send " + kind + " takes no FRAME");
    if (kind == "possible") {
      PrintActions(xl::ReadPossibleActionsMessage(
                       Exchange(xl::Message(MessageType::PossibleActions), transport)),
                   json);
    } else if (kind == "transformations") {
      PrintTransformations(
          xl::ReadTransformationsMessage(Fetch(MessageType::Transformations, transport)), json);
    } else if (kind == "project") {
      PrintProject(xl::ReadProjectMessage(Fetch(MessageType::Project, transport)), json);
    } else if (kind == "stop") {
      xl::SendStop(xl::SocketPath(xl::kAppSocket), transport);
    } else {
      throw UsageError("unknown KIND '" + kind + "'");
    }
    return 0;
  } catch (const UsageError&) {
    throw;
  } catch (const std::exception& e) {
    return ReportFailure(kSending, e, json);
  }
}

}  // namespace

int RunLink(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError("link needs serve, send, host or request");
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (args[0] == "serve") return RunServe(rest);
  if (args[0] == "send") return RunSend(rest);
  if (args[0] == "host") return RunLinkHost(rest);
  if (args[0] == "request") return RunLinkRequest(rest);
  throw UsageError("link needs serve, send, host or request, not '" + args[0] + "'");
}

const Command kLinkCommand = {
    "link", "the link with the compositing host: serve it, or act as the host",
    "usage: velomar-cli link serve [--project P.vlp] [--yes] [--timeout MS]\n"
    "       velomar-cli link send underlay|overlay FRAME... [--framerate N]\n"
    "                             [--aspect NUM:DEN] [--start N]\n"
    "       velomar-cli link send possible|transformations|project [--json] [--timeout MS]\n"
    "       velomar-cli link send stop\n"
    "       velomar-cli link host [--underlay FRAME] [--overlay FRAME]\n"
    "       velomar-cli link request WHAT P.vlp [--yes] [--json] [--host-command LINE]\n"
    "\n"
    "serve answers the host's plug-in on the socket VLApp in $XDG_RUNTIME_DIR\n"
    "(else a private folder in the temporary folder) until Ctrl-C or the stop\n"
    "signal, and removes the socket when it ends. Footage that arrives becomes\n"
    "the project (underlay) or its overlay; with --project the project is opened\n"
    "from P.vlp if it exists, saved there after every change the link brings,\n"
    "and read again when another command (track) saves it. --yes answers the\n"
    "questions a new underlay or overlay may raise. --timeout: how long a peer\n"
    "may stall inside a message (default 5000).\n"
    "\n"
    "send plays the host's plug-in against a running serve:\n"
    "  underlay, overlay  hands over footage: one FRAME stands for its numbered\n"
    "                     sequence, several are sent as listed; the start frame\n"
    "                     comes from the first name unless --start\n"
    "  possible           prints what the program can take or give now\n"
    "  transformations    fetches the overlay's motion: first frame, settings,\n"
    "                     then a line per frame: frame xx xy yx yy x y\n"
    "  project            fetches the whole project\n"
    "  stop               sends the stop signal\n"
    "For transformations and project the program delivers on the socket\n"
    "VLPlugin, where send listens; --timeout bounds the wait (default 10000).\n"
    "A refusal of the program (an Error message) fails with its text.\n"
    "\n"
    "host plays the plug-in's server on VLPlugin until Ctrl-C: it offers the\n"
    "footage given (a FRAME stands for its sequence) and prints a line for\n"
    "every transfer. request runs one of the program's commands on P.vlp\n"
    "against it: state (each command enabled or not, and its text), switch\n"
    "(front or start the host: --host-command), import-project,\n"
    "import-overlay (the project is saved after either), export-project,\n"
    "export-transformations. A command that is not possible now fails.\n",
    RunLink};

}  // namespace cli
