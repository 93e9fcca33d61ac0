// SPDX-License-Identifier: GPL-3.0-or-later
// Files written beside their target and renamed over it only when complete.
// Their names say whose they are, so that a file left by a process that was
// killed in the middle of a save can be recognised and removed later:
//
//   .shot.vlp.staging-HOST-PID-N
//
// hidden, with the target's name first, then the host and the id of the
// process that writes it, then a counter of that process.
#pragma once

#include <string>

namespace staging {

// A new staging name beside `target`, unique within this process.
std::string NameBeside(const std::string& target);

// Creates the file NameBeside gives, exclusively (an existing file or link
// is never followed), and returns its descriptor; `name` gets its name.
// Returns -1 with errno set when it cannot be created.
int CreateBeside(const std::string& target, std::string& name);

// Removes the staging files of `target` that processes of this host left
// and that no longer run. Files of running processes, of other hosts (a
// shared folder) and anything else are left alone; failures are ignored,
// as the next save tries again.
void RemoveStale(const std::string& target);

// Throws SystemError ("... as a result of writing TARGET") unless a file
// can be created beside `target` and `target` is no folder: what a save to
// `target` will need, checked before work that it would otherwise lose.
void CheckWritable(const std::string& target);

}  // namespace staging
