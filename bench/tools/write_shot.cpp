// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the generated shot at any size for the end-to-end comparison:
// DIR/shot_NNNN.EXT, DIR/mask_KKKK.bmp (white inside the plate) and
// DIR/truth.txt (the plate's motion per frame: six numbers a line, the
// affine that carries key-frame coordinates into the frame).
//
//   velomar_write_shot DIR [WIDTH HEIGHT FRAMES FORMAT]   (1920 1080 60 png)
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <string>

#include "imaging/multi_io.h"
#include "imaging/synthetic_shot.h"

int main(int argc, char** argv) {
  if (argc != 2 && argc != 6) {
    std::fprintf(stderr, "usage: velomar_write_shot DIR [WIDTH HEIGHT FRAMES FORMAT]\n");
    return 2;
  }
  try {
    const std::filesystem::path dir(argv[1]);
    img::synthetic_shot shot;
    shot.width = argc == 6 ? uint32_t(std::stoul(argv[2])) : 1920;
    shot.height = argc == 6 ? uint32_t(std::stoul(argv[3])) : 1080;
    shot.frames = argc == 6 ? std::stoi(argv[4]) : 60;
    const std::string format = argc == 6 ? argv[5] : "PNG";
    shot.key_frame = shot.frames / 2;
    // A plate of about 400 x 300 in the middle, as the per-frame aim assumes.
    shot.plate_width = 400;
    shot.plate_height = 300;
    shot.plate_left = (shot.width - shot.plate_width) / 2.0;
    shot.plate_top = (shot.height - shot.plate_height) / 2.0;
    std::filesystem::create_directories(dir);
    std::string ext = format;
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    img::multi_writer writer;
    img::image frame;
    std::ofstream truth(dir / "truth.txt");
    truth << std::setprecision(17);
    for (int32_t f = 0; f < shot.frames; ++f) {
      shot.render(f, frame);
      char name[32];
      std::snprintf(name, sizeof name, "shot_%04d.", f);
      writer.write((dir / (name + ext)).string(), format, frame, false);
      const types::affine m = shot.plate_motion(f);
      truth << m.xx << ' ' << m.xy << ' ' << m.yx << ' ' << m.yy << ' ' << m.x << ' ' << m.y
            << '\n';
    }
    img::image picture;
    shot.plate_mask_picture(picture);
    char key_name[32];
    std::snprintf(key_name, sizeof key_name, "mask_%04d.bmp", shot.key_frame);
    writer.write((dir / key_name).string(), "BMP", picture, false);
    std::printf("%d frames of %u x %u in %s, key frame %d\n", shot.frames, shot.width, shot.height,
                dir.string().c_str(), shot.key_frame);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velomar_write_shot: %s\n", e.what());
    return 1;
  }
}
