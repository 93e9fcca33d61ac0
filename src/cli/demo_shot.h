// SPDX-License-Identifier: GPL-3.0-or-later
// The generated shot of demo-shot and demo, written as files a user can
// open: numbered frames and the plate's mask on the key frame.
#pragma once

#include <filesystem>
#include <string>

#include "imaging/synthetic_shot.h"

namespace cli {

struct DemoShotFiles {
  std::string first_frame;  // DIR/shot_0000.EXT
  std::string mask;         // DIR/mask_KKKK.bmp, white inside the plate
};

// Renders every frame of `shot` to DIR/shot_NNNN.EXT in `format` (a writer
// format word; EXT is its lower case) and the key frame's mask to a BMP.
// Creates DIR. With `progress`, counts the frames on standard error when it
// is a terminal.
// Throws what the writer throws.
DemoShotFiles WriteDemoShot(const std::filesystem::path& dir,
                            const img::synthetic_shot& shot,
                            const std::string& format,
                            bool progress);

}  // namespace cli
