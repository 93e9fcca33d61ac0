// SPDX-License-Identifier: GPL-3.0-or-later
// A small project as a user builds one with velomar-cli: a generated shot
// (a textured plate moving over a background), a segment on its key frame
// with the plate's mask, and a still overlay glued to the plate, so that a
// render shows the tracked motion.
#pragma once

#include <cstdint>
#include <string>

#include "testing/files.h"

namespace e2e {

// Writes the frames NAME_0000.tga ... of `width` x `height` into dir/NAME,
// then dir/NAME.vlp; returns the project's path. With `distinct` > 0 only
// that many frames are rendered and the others are hard links to them,
// which makes long shots cheap. Fails the test (and returns an empty
// string) when a command fails.
std::string MakeShotProject(const testing_support::TempDir& dir,
                            const std::string& name,
                            int32_t frames,
                            uint32_t width,
                            uint32_t height,
                            int32_t distinct = 0);

}  // namespace e2e
