// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/project_files.h"

#include "app/file/project_file.h"

namespace app {

ProjectFileAccess ProjectFiles() {
  return {&LoadProjectFile, &SaveProjectFile};
}

}  // namespace app
