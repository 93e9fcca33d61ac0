// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/transform_commands.h"

#include <cerrno>
#include <fstream>
#include <sstream>

#include "app/commands/command_texts.h"
#include "app/model/comp.h"
#include "app/model/keyframe_export.h"
#include "base/errors.h"

namespace app {

namespace {

// The wait cursor for one command; restored on every way out.
class WaitCursor {
 public:
  explicit WaitCursor(UserDialogs* dialogs) : dialogs_(dialogs) {
    if (dialogs_) dialogs_->set_wait_cursor(true);
  }
  ~WaitCursor() {
    if (dialogs_) dialogs_->set_wait_cursor(false);
  }
  WaitCursor(const WaitCursor&) = delete;
  WaitCursor& operator=(const WaitCursor&) = delete;

 private:
  UserDialogs* dialogs_;
};

}  // namespace

bool CopyTransforms(VLComp& comp, Clipboard& clipboard, HostApplication* host) {
  WaitCursor cursor(comp.GetDialogs());
  std::ostringstream text;
  WriteKeyframeText(comp, text);
  if (!CopyToClipboard(clipboard, comp.GetOperations(), text.str())) return false;
  if (host && host->is_running()) host->activate_or_launch();
  return true;
}

bool ExportTransforms(VLComp& comp, UserDialogs& dialogs) {
  const auto choice = dialogs.choose_save_file(ExportTransformsChoice());
  if (!choice) return false;
  ExportTransformsToFile(comp, choice->path);
  return true;
}

void ExportTransformsToFile(VLComp& comp, const std::string& path) {
  WaitCursor cursor(comp.GetDialogs());
  OperationStack& operations = comp.GetOperations();
  operations.push(kExportingTransformations);
  std::ofstream out;
  // Any failure of opening or writing throws; the stream's own exception
  // says only "iostream error", so it is turned into the system's reason.
  out.exceptions(std::ios::failbit | std::ios::badbit);
  try {
    errno = 0;
    out.open(path);
    WriteKeyframeText(comp, out);
    out.close();
  } catch (const std::ios_base::failure&) {
    const int error = errno != 0 ? errno : EIO;
    throw SystemError(error, ("writing " + path).c_str());
  }
  operations.pop();
}

}  // namespace app
