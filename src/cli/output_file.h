// SPDX-License-Identifier: GPL-3.0-or-later
// Output files of velomar-cli: written whole or not at all.
#pragma once

#include <filesystem>
#include <string>

namespace cli {

// Writes `content` to `target` through a file beside it that is renamed over
// the target only when complete, so a failure leaves no partial file and an
// old target untouched. Throws SystemError naming the target.
void WriteWhole(const std::filesystem::path& target, const std::string& content);

// A hidden name beside `target`, unique to this call, for writing before
// the final rename, so that a failed write never leaves a partial or
// clobbered output file; a later WriteWhole of `target` removes it when the
// process that made it was killed.
std::string StagingName(const std::string& target);

// A new file name for results that could not be written where asked, in
// the user's state folder ($XDG_STATE_HOME, else ~/.local/state, else the
// temporary folder) under velomar/recovered, named after `target` and the
// time, never an existing file's. Creates the folders.
std::string RecoveryPath(const std::string& target);

}  // namespace cli
