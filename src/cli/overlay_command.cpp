// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli overlay import: the Import Overlay command of the application,
// its questions answered by --yes, the project saved when it worked.
#include <cstdio>
#include <stdexcept>

#include "app/model/comp.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"

namespace cli {

int RunOverlay(const std::vector<std::string>& args) {
  Options options(args, {"--json", "--yes", "--still"}, {});
  const bool json = options.flag("--json");
  const auto& pos = options.positional();
  if (pos.empty() || pos[0] != "import") throw UsageError("overlay needs import");
  if (pos.size() != 3) throw UsageError("overlay import needs PROJECT and PATH");
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        session.app().ImportOverlayFile(pos[2], options.flag("--still"));
        // The command announces a finished import; without the notice the
        // overlay was not taken (a question said no), and nothing is saved.
        const auto notices = Notices(session.dialogs());
        if (notices.empty()) throw std::runtime_error("the overlay was not imported: " + pos[2]);
        session.app().OnSave();
        if (json) {
          Json j;
          j.begin_object()
              .key("notice")
              .value(notices.back())
              .key("frames")
              .value(session.comp().GetOverlay().GetFrameCount())
              .end_object();
          std::printf("%s\n", j.str().c_str());
        } else {
          std::printf("%s\n", notices.back().c_str());
        }
      },
      json);
}

const Command kOverlayCommand = {
    "overlay", "import a project's overlay",
    "usage: velomar-cli overlay import PROJECT.vlp PATH [--still] [--yes] [--json]\n"
    "\n"
    "Lays the image PATH (with --still) or the sequence it belongs to (one\n"
    "numbered frame or an .ais list) over the project's frames, in place of\n"
    "any overlay it had, and saves the project. Prints the program's notice:\n"
    "\"Still overlay imported.\" or \"Overlay sequence of N frames imported.\"\n"
    "Footage of another size than the frames, or without an alpha channel,\n"
    "raises a question: --yes answers it with its yes button; without --yes\n"
    "the command fails with the question's text and nothing is saved.\n",
    RunOverlay};

}  // namespace cli
