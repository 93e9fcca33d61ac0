// The project file (".vlp"): one XML document with the root element
// "Velomar", read and written through the same field descriptions.
#pragma once

#include <string>

class VLComp;

namespace app {

class UserDialogs;

// Opens the project at `path` into `comp` (through VLComp::Load, which sets
// the project path first, because relative frame paths depend on it, and
// leaves no project behind when reading fails). The overlay-loading question
// goes through `dialogs`. Throws with the file's failure texts.
void LoadProjectFile(VLComp& comp, const std::string& path, UserDialogs& dialogs);

// Writes `comp` to `path` (through VLComp::Save, which keeps the old path
// when writing fails). Frame paths are stored relative to the new file's folder.
void SaveProjectFile(VLComp& comp, const std::string& path);

}  // namespace app
