// SPDX-License-Identifier: GPL-3.0-or-later
// The state the enabling rules look at, read from the project.
#pragma once

#include "app/commands/command_rules.h"

class VLComp;

namespace app {

// `mainWindowEnabled` is the program's: false while a modal phase holds the
// window.
CommandSnapshot SnapshotOf(const VLComp& comp, bool mainWindowEnabled = true);

}  // namespace app
