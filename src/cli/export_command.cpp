// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli export: the keyframe text (or, with --json, the per-frame
// motion) of a project's overlay, without changing the project.
#include <cmath>
#include <cstdio>
#include <sstream>

#include "app/commands/command_texts.h"
#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/model/keyframe_export.h"
#include "app/scripted_dialogs.h"
#include "base/errors.h"
#include "cli/commands.h"
#include "cli/frames.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/report.h"

namespace cli {

namespace {

template <class E>
E ParseWord(const std::string& option, const std::string& word) {
  if (const auto value = FromFileWord<E>(word)) return *value;
  std::string words;
  for (const auto& row : EnumTable<E>()) {
    if (!words.empty()) words += ", ";
    words += row.word;
  }
  throw UsageError(option + " takes one of " + words + "; not '" + word + "'");
}

float ParseInaccuracy(const std::string& text) {
  size_t used = 0;
  float value = 0;
  try {
    value = std::stof(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || !std::isfinite(value) || value < 0)
    throw UsageError("--inaccuracy takes a number of pixels, 0 or more; not '" + text + "'");
  return value;
}

}  // namespace

int RunExport(const std::vector<std::string>& raw) {
  Options options(WithLongOutput(raw), {"--json"},
                  {"--output", "--model", "--inaccuracy", "--task"});
  const bool json = options.flag("--json");
  if (options.positional().size() != 1) throw UsageError("export needs one PROJECT");
  app::ExportOverrides overrides;
  if (options.has("--model"))
    overrides.model = ParseWord<ExportModel>("--model", options.value("--model"));
  if (options.has("--task"))
    overrides.task = ParseWord<TaskType>("--task", options.value("--task"));
  if (options.has("--inaccuracy"))
    overrides.inaccuracy = ParseInaccuracy(options.value("--inaccuracy"));

  app::OperationStack operations;
  app::ScriptedDialogs dialogs(app::ScriptedDialogs::Mode::Affirmative);
  VLComp comp(operations, &dialogs);
  try {
    app::LoadProjectFile(comp, options.positional()[0], dialogs);
    ReportGaps(comp.GetUnderlay());
  } catch (const std::exception& e) {
    return ReportFailure(app::kOpeningProject, e, json);
  }
  try {
    std::string content;
    if (json) {
      content = app::OverlayMotionJson(comp, overrides);
    } else {
      std::ostringstream text;
      app::WriteKeyframeText(comp, text, overrides);
      content = text.str();
    }
    // The numbers still come out, so the host would take guesses for tracking.
    std::vector<int32_t> guessed;
    for (const int32_t f : app::ExtrapolatedFrames(comp))
      guessed.push_back(f + comp.GetStartFrame());
    if (!guessed.empty())
      std::fprintf(stderr,
                   "velomar-cli: frames %s were not tracked: their motion is extrapolated from "
                   "the nearest tracked frames (track them to replace it)\n",
                   RunsText(guessed).c_str());
    if (options.has("--output")) {
      WriteWhole(options.value("--output"), content);
    } else {
      std::fwrite(content.data(), 1, content.size(), stdout);
      if (std::fflush(stdout) != 0) throw SystemError("writing standard output");
    }
    return 0;
  } catch (const std::exception& e) {
    return ReportFailure(app::kExportingTransformations, e, json);
  }
}

const Command kExportCommand = {
    "export", "the keyframe text of a project's overlay motion",
    "usage: velomar-cli export PROJECT.vlp [-o FILE] [--model WORD] [--inaccuracy PIXELS]\n"
    "                          [--task WORD] [--json]\n"
    "\n"
    "Writes the keyframe text of the overlay's motion (\"Adobe After Effects 5.0\n"
    "Keyframe Data\", to paste onto a layer; see the README) to FILE, or to\n"
    "standard output.\n"
    "The options replace the project's settings for this export only; the\n"
    "project file is not changed:\n"
    "  --model       Auto, Translation, Rigid, RigidScale, Affine1, Affine2,\n"
    "                Affine3 or CornerPin\n"
    "  --inaccuracy  pixels a point may stray once keys are thinned; 0 keeps all\n"
    "  --task        Tracking or Compensation\n"
    "With --json the same motion per frame, as data:\n"
    "  {\"first\", \"width\", \"height\", \"framerate\", \"pixel_aspect\", \"task\",\n"
    "   \"frames\": [{\"frame\", \"matrix\": [xx, xy, yx, yy, x, y], \"corners\": [[x, y] x4]}],\n"
    "   \"extrapolated\": [frames]}\n"
    "Frames that no tracked result covers (a segment never tracked, a run that\n"
    "stopped early) still get a motion, extrapolated from the nearest tracked\n"
    "frames; standard error names them and --json lists them.\n"
    "Fails (status 1) when the overlay has no frames or no motion span, or the\n"
    "file cannot be written; a failed write leaves no partial file.\n",
    RunExport};

}  // namespace cli
