// SPDX-License-Identifier: GPL-3.0-or-later
#include "widget_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "imaging/native_io.h"

namespace gui_testing {

CompOfFrames::CompOfFrames(int32_t frames) {
  img::image picture(16, 12);
  std::fill(picture.data, picture.data + picture.size, uint8_t(128));
  const std::string file = dir / "frame.bmp";
  img::native_writer().write(file, "BMP", picture, false);
  comp.LoadSequence(std::vector<std::string>(size_t(frames), file), 25, {1, 1}, 0);
}

std::string SaveSnapshot(const QImage& image, const std::string& name) {
  const char* tmp = std::getenv("VELOMAR_TEST_TMP");
  const std::filesystem::path folder =
      tmp ? std::filesystem::path(tmp) : std::filesystem::temp_directory_path();
  std::filesystem::create_directories(folder);
  const std::string path = (folder / (name + ".png")).string();
  image.save(QString::fromStdString(path));
  return path;
}

}  // namespace gui_testing
