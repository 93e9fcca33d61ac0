// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli export on a project written by the program itself: a segment
// of known motion and a still overlay, so the expected text is known.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/model/setting_tables.h"
#include "cli_runner.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing_support::TempDir;

std::string Image(const TempDir& dir, const std::string& name, uint32_t w, uint32_t h) {
  img::image picture(w, h);
  std::fill(picture.data, picture.data + picture.size, uint8_t(200));
  img::native_writer().write(dir / name, "BMP", picture, true);
  return dir / name;
}

// Five frames of 8 x 6 at 25 fps, pixel aspect 10/11; with `motion`, one
// segment over frames 1..4 keyed at 2 moving 2 pixels right a frame, and a
// still overlay matched at 2 and placed 1 right, 0.5 down. The project's
// own export settings (Rigid, 3 pixels) are what the options override.
std::string WriteProject(const TempDir& dir, bool motion) {
  app::OperationStack operations;
  VLComp comp(operations);
  comp.LoadSequence(std::vector<std::string>(5, Image(dir, "u.bmp", 8, 6)), 25, {10, 11}, 0);
  app::AssignSetting(comp, "export_model", ExportModel::Rigid);
  app::AssignSetting(comp, "export_inaccuracy", 3.0f);
  if (motion) {
    comp.GetInterface().CreateSegment(2, false);
    VLSegment& s = comp.GetSegmentObject(0);
    s.SetTimeSpanDirect(1, 5);
    auto data = std::make_shared<VLSegmentData>();
    for (int f = 2; f < 5; ++f)
      data->Append(VLSegmentData::Direction::Forward, types::affine::translation(2.0 * (f - 2), 0));
    data->Append(VLSegmentData::Direction::Backward, types::affine::translation(-2.0, 0));
    s.ReplaceData(data);
  }
  comp.SetCurrentTime(2);
  comp.GetOverlay().GetInterface().Import({Image(dir, "o.bmp", 4, 4)});
  comp.GetOverlay().SetInitialTransformDirect(types::affine::translation(1, 0.5));
  const std::string path = dir / (motion ? "shot.vlp" : "still.vlp");
  app::SaveProjectFile(comp, path);
  return path;
}

const std::string kHeader =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t8"
    "\n\tSource Height\t6\n\tSource Pixel Aspect Ratio\t0.909091\n\tComp Pixel Aspect Ratio"
    "\t0.909091\n\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n";

TEST(CliExport, OverridesApplyToOneExportAndFailuresWriteNothing) {
  TempDir dir;
  const std::string project = WriteProject(dir, true), before = Slurp(project);
  Result r = Cli(dir, {"export", project, "-o", dir / "motion.txt", "--model=Translation",
                       "--inaccuracy", "0", "--task", "Compensation"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Slurp(dir / "motion.txt"), kHeader + "\t1\t6\t3\t0\n\t2\t4\t3\t0\n\t3\t2\t3\t0\n" +
                                           "\t4\t0\t3\t0\n\n\nEnd of Keyframe Data\n");
  EXPECT_EQ(Slurp(project), before);

  r = Cli(dir, {"export", "--json", project});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, StartsWith("{\"first\": 1, \"width\": 8, \"height\": 6, \"framerate\": 25"));
  EXPECT_THAT(r.out, HasSubstr("{\"frame\": 1, \"matrix\": [1, 0, 0, 1, -1, 0.5]"));

  r = Cli(dir, {"export", WriteProject(dir, false), "-o", dir / "none.txt"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "Error while exporting transformations:\nThere are no transformations to export.\n");
  EXPECT_FALSE(std::filesystem::exists(dir / "none.txt"));
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    EXPECT_NE(e.path().filename().string().rfind(".none.txt", 0), 0u) << e.path();
  r = Cli(dir, {"export", project, "-o", dir / "missing/motion.txt"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, StartsWith("Error while exporting transformations:\nSystem error: "));
}

}  // namespace
