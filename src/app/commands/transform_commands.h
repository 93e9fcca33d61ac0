// SPDX-License-Identifier: GPL-3.0-or-later
// Copy Transforms and Export Transforms: the keyframe text of the overlay's
// motion to the clipboard or to a file. Both are enabled by
// HasTransformsToExport (app/model/keyframe_export.h).
#pragma once

#include <string>

class VLComp;

namespace app {

class Clipboard;
class HostApplication;
class UserDialogs;

// Puts the keyframe text, with carriage return before every line feed, on
// the clipboard under "copying data into the clipboard", then brings the
// compositing host to the front when it runs (never launches it). A
// clipboard that cannot be opened ends the command silently: false, nothing
// shown, the operation stack as it was. `host` may be null. The wait cursor
// shows throughout when the composition has dialogs.
bool CopyTransforms(VLComp& comp, Clipboard& clipboard, HostApplication* host);

// Asks for the file ("Export Transformations") and writes the keyframe text
// there. False when the user cancels.
bool ExportTransforms(VLComp& comp, UserDialogs& dialogs);

// Writes the keyframe text to `path` under "exporting transformations".
// Opening or writing failures throw SystemError naming the file, with the
// operation name left on the stack for the report.
void ExportTransformsToFile(VLComp& comp, const std::string& path);

}  // namespace app
