// SPDX-License-Identifier: GPL-3.0-or-later
// The project file (".vlp"): one XML document with the root element
// "Velomar", read and written through the same field descriptions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class VLComp;

namespace app {

class UserDialogs;

// Opens the project at `path` into `comp` (through VLComp::Load, which sets
// the project path first, because relative frame paths depend on it, and
// leaves no project behind when reading fails). The overlay-loading question
// goes through `dialogs`. Throws with the file's failure texts. `comp` must
// hold no project (the caller closes it, asking about unsaved work); one
// still open is a fault of the caller (std::logic_error, nothing changed).
// A relative `path` is taken against the working folder.
void LoadProjectFile(VLComp& comp, const std::string& path, UserDialogs& dialogs);

// Writes `comp` to `path` (through VLComp::Save, which keeps the old path
// when writing fails). Frame paths are stored relative to the new file's folder.
void SaveProjectFile(VLComp& comp, const std::string& path);

// As LoadProjectFile, from the document's text instead of the file at
// `path` (which still names the project and so the base of its frame
// paths). Mask pictures above `maxMaskPixels` are refused before decoding.
void LoadProjectText(VLComp& comp,
                     const std::string& path,
                     std::string_view text,
                     UserDialogs& dialogs,
                     uint64_t maxMaskPixels = uint64_t(UINT32_MAX) / 4);

// The text SaveProjectFile would write for `path`, leaving the project's
// path and saved state alone. Fills the overlay's transformations.
std::string ProjectFileText(VLComp& comp, const std::string& path);

}  // namespace app
