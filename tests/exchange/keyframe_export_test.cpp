#include "exchange/keyframe_export.h"

#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "exchange/motion_json.h"

namespace {

using types::affine;

// One frame, numbered 3, of a 100 x 50 composition at 25 frames per second,
// moved by a shear-and-scale with an initial transform. Expected values come
// from the formulas worked independently, rounded to six digits.
const FrameFormat kFormat{100, 50, 25, 1, 1};

Transformations OneFrame(ExportModel model) {
  Transformations record;
  record.Own() = {affine{4, -6, 1.2, 0.3, -0.1, 0.9}};
  record.InitialTransform = affine::translation(2, 1);
  record.ExportInaccuracy = 0.5f;
  record.Task = TaskType::Tracking;
  record.ExportModel = model;
  record.first = 3;
  return record;
}

const char kHeader[] =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t100\n"
    "\tSource Height\t50\n\tSource Pixel Aspect Ratio\t1\n\tComp Pixel Aspect Ratio\t1\n";
const char kFooter[] = "\n\nEnd of Keyframe Data\n";

struct TextCase {
  const char* model;  // file word
  const char* blocks;
};

class OneFrameText : public ::testing::TestWithParam<TextCase> {};

TEST_P(OneFrameText, IsByteExact) {
  const auto model = FromFileWord<ExportModel>(GetParam().model);
  ASSERT_TRUE(model);
  std::ostringstream out;
  WriteKeyframeText(out, kFormat, OneFrame(*model));
  EXPECT_EQ(out.str(), std::string(kHeader) + GetParam().blocks + kFooter);
}

INSTANTIATE_TEST_SUITE_P(Models,
                         OneFrameText,
                         ::testing::Values(TextCase{"Translation",
                                                    "\n"
                                                    "Position\n"
                                                    "\tFrame\tX pixels\tY pixels\tZ pixels\n"
                                                    "\t3\t74.2\t12.2\t0\n"},
                                           TextCase{"Rigid",
                                                    "\n"
                                                    "Position\n"
                                                    "\tFrame\tX pixels\tY pixels\tZ pixels\n"
                                                    "\t3\t74.2\t12.2\t0\n"
                                                    "\n"
                                                    "Rotation\n"
                                                    "\tFrame\tdegrees\n"
                                                    "\t3\t-10.7843\n"},
                                           TextCase{"RigidScale",
                                                    "\n"
                                                    "Position\n"
                                                    "\tFrame\tX pixels\tY pixels\tZ pixels\n"
                                                    "\t3\t74.2\t12.2\t0\n"
                                                    "\n"
                                                    "Scale\n"
                                                    "\tFrame\tX percent\tY percent\tZ percent\n"
                                                    "\t3\t106.888\t106.888\t0\n"
                                                    "\n"
                                                    "Rotation\n"
                                                    "\tFrame\tdegrees\n"
                                                    "\t3\t-10.7843\n"},
                                           TextCase{"Affine3",
                                                    "\n"
                                                    "Position\n"
                                                    "\tFrame\tX pixels\tY pixels\tZ pixels\n"
                                                    "\t3\t74.2\t12.2\t0\n"
                                                    "\n"
                                                    "Scale\n"
                                                    "\tFrame\tX percent\tY percent\tZ percent\n"
                                                    "\t3\t117.004\t94.8683\t0\n"
                                                    "\n"
                                                    "Rotation\n"
                                                    "\tFrame\tdegrees\n"
                                                    "\t3\t-18.4349\n"
                                                    "\n"
                                                    "Skew\tTransform\tEffect Parameter #6\n"
                                                    "\tFrame\n"
                                                    "\t3\t16.6992\n"},
                                           TextCase{
                                               "Affine1",
                                               "\n"
                                               "Position\tTransform\tEffect Parameter #2\n"
                                               "\tFrame\tX pixels\tY pixels\n"
                                               "\t3\t74.2\t12.2\n"
                                               "\n"
                                               "Uniform Scale\tTransform\tEffect Parameter #3\n"
                                               "\tFrame\n"
                                               "\t3\t0\n"
                                               "\n"
                                               "Scale Height\tTransform\tEffect Parameter #4\n"
                                               "\tFrame\n"
                                               "\t3\t94.8683\n"
                                               "\n"
                                               "Scale Width\tTransform\tEffect Parameter #5\n"
                                               "\tFrame\n"
                                               "\t3\t117.004\n"
                                               "\n"
                                               "Skew\tTransform\tEffect Parameter #6\n"
                                               "\tFrame\n"
                                               "\t3\t13.6713\n"
                                               "\n"
                                               "Skew Axis\tTransform\tEffect Parameter #7\n"
                                               "\tFrame\tdegrees\n"
                                               "\t3\t18.4349\n"
                                               "\n"
                                               "Rotation\tTransform\tEffect Parameter #8\n"
                                               "\tFrame\tdegrees\n"
                                               "\t3\t-18.4349\n"},
                                           TextCase{"Affine2",
                                                    "\n"
                                                    "Position\tTransform\tEffect Parameter #2\n"
                                                    "\tFrame\tX pixels\tY pixels\n"
                                                    "\t3\t74.2\t12.2\n"
                                                    "\n"
                                                    "Scale Height\tTransform\tEffect Parameter #4\n"
                                                    "\tFrame\n"
                                                    "\t3\t105.357\n"
                                                    "\n"
                                                    "Skew\tTransform\tEffect Parameter #6\n"
                                                    "\tFrame\n"
                                                    "\t3\t-18.8922\n"
                                                    "\n"
                                                    "Skew Axis\tTransform\tEffect Parameter #7\n"
                                                    "\tFrame\tdegrees\n"
                                                    "\t3\t-61.3079\n"
                                                    "\n"
                                                    "Rotation\tTransform\tEffect Parameter #8\n"
                                                    "\tFrame\tdegrees\n"
                                                    "\t3\t-1.07435\n"},
                                           TextCase{"CornerPin",
                                                    "\n"
                                                    "Upper Left\tCorner Pin\tEffect Parameter #1\n"
                                                    "\tFrame\tX pixels\tY pixels\n"
                                                    "\t3\t6.7\t-5.3\n"
                                                    "\n"
                                                    "Upper Right\tCorner Pin\tEffect Parameter #2\n"
                                                    "\tFrame\tX pixels\tY pixels\n"
                                                    "\t3\t126.7\t-15.3\n"
                                                    "\n"
                                                    "Lower Left\tCorner Pin\tEffect Parameter #3\n"
                                                    "\tFrame\tX pixels\tY pixels\n"
                                                    "\t3\t21.7\t39.7\n"
                                                    "\n"
                                                    "Lower Right\tCorner Pin\tEffect Parameter #4\n"
                                                    "\tFrame\tX pixels\tY pixels\n"
                                                    "\t3\t141.7\t29.7\n"}),
                         [](const auto& info) { return std::string(info.param.model); });

TEST(WriteKeyframeText, AutoWritesTheChosenModel) {
  std::ostringstream automatic, mixed;
  WriteKeyframeText(automatic, kFormat, OneFrame(ExportModel::Auto));
  WriteKeyframeText(mixed, kFormat, OneFrame(ExportModel::Affine3));
  EXPECT_EQ(automatic.str(), mixed.str());
}

TEST(WriteKeyframeText, PixelAspectIsTheFloatQuotient) {
  std::ostringstream out;
  WriteKeyframeText(out, {720, 576, 25, 768, 720}, OneFrame(ExportModel::Translation));
  EXPECT_THAT(out.str(), ::testing::HasSubstr("\tSource Pixel Aspect Ratio\t1.06667\n"
                                              "\tComp Pixel Aspect Ratio\t1.06667\n"));
}

TEST(WriteKeyframeText, NothingToExportOrUnknownModelThrowsBeforeWriting) {
  Transformations empty = OneFrame(ExportModel::Rigid);
  empty.Own().clear();
  Transformations unknown = OneFrame(ExportModel(8));
  for (const Transformations* record : {&empty, &unknown}) {
    std::ostringstream out;
    EXPECT_THROW(WriteKeyframeText(out, kFormat, *record), xtd::exception);
    EXPECT_EQ(out.str(), "");
  }
}

// A stream that throws on failure, as the file command sets it up: the
// failure reaches the caller, and the footer written while the applicator is
// destroyed during unwinding must not end the program.
TEST(WriteKeyframeText, FailingStreamReportsAsTheStreamSays) {
  struct RefusingBuffer : std::streambuf {
    int overflow(int) override { return traits_type::eof(); }
  } buffer;
  std::ostream out(&buffer);
  out.exceptions(std::ios::badbit | std::ios::failbit);
  EXPECT_THROW(WriteKeyframeText(out, kFormat, OneFrame(ExportModel::Rigid)), std::ios::failure);
}

TEST(ClipboardText, PutsACarriageReturnBeforeEveryLineFeed) {
  EXPECT_EQ(ClipboardText("a\n\nb\tc\n"), "a\r\n\r\nb\tc\r\n");
  EXPECT_EQ(ClipboardText("no line end"), "no line end");
  EXPECT_EQ(ClipboardText(""), "");
}

TEST(MotionJson, ListsTheTaskTransformAndCornersOfEachFrame) {
  Transformations record;
  record.Own() = {affine::translation(1.5, -2), affine{0, 0, 2, 0, 0, 2}};
  record.Task = TaskType::Compensation;
  record.InitialTransform = affine::translation(100, 100);  // ignored in compensation
  record.first = 7;
  EXPECT_EQ(MotionJson({10, 20, 30, 648, 720}, record),
            "{\"first\": 7, \"width\": 10, \"height\": 20, \"framerate\": 30, "
            "\"pixel_aspect\": 0.9, \"task\": \"Compensation\", \"frames\": [\n"
            "{\"frame\": 7, \"matrix\": [1, -0, -0, 1, -1.5, 2], "
            "\"corners\": [[-1.5, 2], [8.5, 2], [-1.5, 22], [8.5, 22]]},\n"
            "{\"frame\": 8, \"matrix\": [0.5, -0, -0, 0.5, 0, 0], "
            "\"corners\": [[0, 0], [5, 0], [0, 10], [5, 10]]}\n"
            "]}\n");
}

TEST(MotionJson, TrackingCarriesTheInitialTransformAndSingularFramesGiveNull) {
  Transformations record;
  record.Own() = {affine::translation(0.1, 0)};
  record.InitialTransform = affine::translation(0.2, 0);
  const std::string tracking = MotionJson({4, 4, 25, 1, 1}, record);
  EXPECT_THAT(tracking, ::testing::HasSubstr("\"matrix\": [1, 0, 0, 1, 0.30000000000000004, 0]"));

  record.Own() = {affine{0, 0, 0, 0, 0, 0}};
  record.Task = TaskType::Compensation;
  EXPECT_THAT(MotionJson({4, 4, 25, 1, 1}, record),
              ::testing::HasSubstr("\"matrix\": [null, null, null, null, null, null]"));
}

}  // namespace
