// SPDX-License-Identifier: GPL-3.0-or-later
// The project file's reader and writer as the application object takes them.
#pragma once

#include "app/commands/application.h"

namespace app {

ProjectFileAccess ProjectFiles();

}  // namespace app
