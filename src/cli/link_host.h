// SPDX-License-Identifier: GPL-3.0-or-later
// The other half of velomar-cli link: the host's plug-in as a server
// ("link host") for the requests the program's commands make, and those
// commands themselves, run on a project ("link request").
#pragma once

#include <string>
#include <vector>

namespace cli {

int RunLinkHost(const std::vector<std::string>& args);
int RunLinkRequest(const std::vector<std::string>& args);

}  // namespace cli
