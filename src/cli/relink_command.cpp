// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli relink: points a project at footage that moved. A project
// whose frames are gone cannot be opened, so the file is changed as a
// document first (each sequence's folder record, the frames keeping their
// names), then opened and saved by the program like any other project, so
// that nothing is written unless the whole project opens.
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "base/frame_record.h"
#include "base/paths.h"
#include "base/xml_tablet.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

// Points the sequence held by `element` at `folder` against the project's
// folder `base`, and returns how many frames it has. Throws when a frame is
// not in `folder`, naming the first few that are not.
size_t Repoint(xml::node element,
               const std::string& what,
               const std::string& folder,
               const std::string& base) {
  if (element.isNull() || element.children("Frame").empty())
    throw std::runtime_error("the project has no " + what + " to relink");
  if (!fs::is_directory(folder)) throw std::runtime_error("no such folder: " + folder);
  const std::string dir = Directory((fs::absolute(folder) / "x").lexically_normal().string());
  const std::vector<xml::node> frames = element.children("Frame");
  std::string missing;
  size_t count = 0;
  for (const xml::node& frame : frames) {
    std::string path;
    frame.getAttribute("path", path);
    const std::string there = CombinePath(path, dir);
    if (FileExists(there)) continue;
    if (count++ < 3) missing += (missing.empty() ? "" : ", ") + there;
  }
  if (count > 0)
    throw std::runtime_error(std::to_string(count) + " of " + std::to_string(frames.size()) + " " +
                             what + " frames are not in " + folder + ": " + missing +
                             (count > 3 ? ", ..." : ""));
  const FrameRecord record = MakeFrameRecord(dir, base);
  element.setAttribute("path", record.path);
  element.setAttribute("abs", record.abs ? "1" : "0");
  return frames.size();
}

int RunRelinkCommand(const Options& options) {
  if (options.positional().size() != 1) throw UsageError("relink needs one PROJECT");
  if (!options.has("--footage") && !options.has("--overlay"))
    throw UsageError("relink needs --footage DIR, --overlay DIR or both");
  const bool json = options.flag("--json");
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        const std::string project = fs::absolute(options.positional()[0]).string();
        xml::tablet doc;
        doc.read(project);
        const std::string base = Directory(project);
        size_t footage = 0, overlay = 0;
        if (options.has("--footage"))
          footage =
              Repoint(doc.root().Child("Underlay"), "footage", options.value("--footage"), base);
        if (options.has("--overlay"))
          overlay =
              Repoint(doc.root().Child("Overlay"), "overlay", options.value("--overlay"), base);
        std::ostringstream text;
        doc.write(text);
        app::LoadProjectText(session.comp(), project, text.str(), session.app().GetDialogs());
        session.app().OnSave();
        if (json) {
          Json j;
          j.begin_object().key("footage").value(footage).key("overlay").value(overlay).end_object();
          std::printf("%s\n", j.str().c_str());
        } else {
          if (options.has("--footage"))
            std::printf("footage: %zu frames in %s\n", footage, options.value("--footage").c_str());
          if (options.has("--overlay"))
            std::printf("overlay: %zu frames in %s\n", overlay, options.value("--overlay").c_str());
        }
      },
      json, "relinking the project");
}

}  // namespace

int RunRelink(const std::vector<std::string>& args) {
  return RunRelinkCommand(Options(args, {"--json", "--yes"}, {"--footage", "--overlay"}));
}

const Command kRelinkCommand = {
    "relink", "point a project at footage that moved",
    "usage: velomar-cli relink PROJECT.vlp [--footage DIR] [--overlay DIR] [--yes] [--json]\n"
    "\n"
    "Points the project's frames (--footage) or its overlay's (--overlay) at\n"
    "DIR, where the frames must be under the names the project knows them by.\n"
    "Everything else (segments, their masks and results, settings) stays as\n"
    "it was. The project is saved only when every frame was found and the\n"
    "whole project opens.\n",
    RunRelink};

}  // namespace cli
