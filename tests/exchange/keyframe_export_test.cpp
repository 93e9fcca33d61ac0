// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/keyframe_export.h"

#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "exchange/ae5_keyframe_data.h"
#include "exchange/motion_json.h"

namespace {

using types::affine;

// Frame 3 of a 100 x 50 composition at 25 fps, a shear-and-scale after an initial
// transform; expected values are the formulas worked independently.
const FrameFormat kFormat{100, 50, 25, 1, 1};
const std::string kHeader =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t100\n"
    "\tSource Height\t50\n\tSource Pixel Aspect Ratio\t1\n\tComp Pixel Aspect Ratio\t1\n";
const std::string kFooter = "\n\nEnd of Keyframe Data\n";

Transformations OneFrame(ExportModel model) {
  Transformations record;
  record.Own() = {affine{4, -6, 1.2, 0.3, -0.1, 0.9}};
  record.InitialTransform = affine::translation(2, 1);
  record.ExportInaccuracy = 0.5f;
  record.ExportModel = model;
  record.first = 3;
  return record;
}

std::string Text(const FrameFormat& format, const Transformations& record) {
  std::ostringstream out;
  WriteKeyframeText(out, format, record);
  return out.str();
}

std::string Block(const std::string& header, const char* columns, const char* row) {
  return "\n" + header + "\n\tFrame" + columns + "\n\t3\t" + row + "\n";
}
std::string Effect(const char* name, const char* effect, int index) {
  return std::string(name) + "\t" + effect + "\tEffect Parameter #" + std::to_string(index);
}

TEST(WriteKeyframeText, OneFrameIsByteExactUnderEveryModel) {
  const char* xy = "\tX pixels\tY pixels";
  const char* deg = "\tdegrees";
  const auto place = [](const char* row) {
    return Block("Position", "\tX pixels\tY pixels\tZ pixels", row);
  };
  const std::string position = place("74.2\t12.2\t0");
  const std::string rotation = Block("Rotation", deg, "-10.7843");
  const auto scale = [](const char* row) {
    return Block("Scale", "\tX percent\tY percent\tZ percent", row);
  };
  const auto transform = [](int index, const char* name, const char* columns, const char* row) {
    return Block(Effect(name, "Transform", index), columns, row);
  };
  const auto pin = [&](int index, const char* name, const char* row) {
    return Block(Effect(name, "Corner Pin", index), xy, row);
  };
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"Translation", position},
      {"Rigid", position + rotation},
      {"RigidScale", position + scale("106.888\t106.888\t0") + rotation},
      {"Affine3", position + scale("117.004\t94.8683\t0") + Block("Rotation", deg, "-18.4349") +
                      transform(6, "Skew", "", "16.6992")},
      {"Affine1",
       transform(2, "Position", xy, "74.2\t12.2") + transform(3, "Uniform Scale", "", "0") +
           transform(4, "Scale Height", "", "94.8683") +
           transform(5, "Scale Width", "", "117.004") + transform(6, "Skew", "", "13.6713") +
           transform(7, "Skew Axis", deg, "18.4349") + transform(8, "Rotation", deg, "-18.4349")},
      {"Affine2",
       transform(2, "Position", xy, "74.2\t12.2") + transform(4, "Scale Height", "", "105.357") +
           transform(6, "Skew", "", "-18.8922") + transform(7, "Skew Axis", deg, "-61.3079") +
           transform(8, "Rotation", deg, "-1.07435")},
      {"CornerPin", pin(1, "Upper Left", "6.7\t-5.3") + pin(2, "Upper Right", "126.7\t-15.3") +
                        pin(3, "Lower Left", "21.7\t39.7") + pin(4, "Lower Right", "141.7\t29.7")},
  };
  for (const auto& [word, blocks] : cases) {
    const auto model = FromFileWord<ExportModel>(word);
    ASSERT_TRUE(model) << word;
    EXPECT_EQ(Text(kFormat, OneFrame(*model)), kHeader + blocks + kFooter) << word;
  }
  EXPECT_EQ(Text(kFormat, OneFrame(ExportModel::Auto)),
            Text(kFormat, OneFrame(ExportModel::Affine3)));
  // Compensation writes the inverse motion and ignores the initial transform.
  Transformations compensation = OneFrame(ExportModel::RigidScale);
  compensation.Task = TaskType::Compensation;
  EXPECT_EQ(Text(kFormat, compensation), kHeader + place("28.9189\t37.6577\t0") +
                                             scale("96.2953\t96.2953\t0") +
                                             Block("Rotation", deg, "10.7843") + kFooter);
  // The pixel aspect is the float quotient.
  EXPECT_THAT(Text({720, 576, 25, 768, 720}, OneFrame(ExportModel::Translation)),
              ::testing::HasSubstr("\tSource Pixel Aspect Ratio\t1.06667\n"
                                   "\tComp Pixel Aspect Ratio\t1.06667\n"));
  // NTSC rates as the host names them; whole ones unchanged.
  for (const auto& [rate, text] : {std::pair{30000.0 / 1001.0, "\tUnits Per Second\t29.97\n"},
                                   std::pair{24000.0 / 1001.0, "\tUnits Per Second\t23.976\n"},
                                   std::pair{59.94, "\tUnits Per Second\t59.94\n"},
                                   std::pair{25.0, "\tUnits Per Second\t25\n"}})
    EXPECT_THAT(Text({720, 576, rate, 1, 1}, OneFrame(ExportModel::Translation)),
                ::testing::HasSubstr(text));
}

TEST(WriteKeyframeText, NothingToExportOrUnknownModelThrowsBeforeWriting) {
  Transformations empty = OneFrame(ExportModel::Rigid);
  empty.Own().clear();
  for (const Transformations& record :
       {empty, OneFrame(ExportModel(8)), OneFrame(ExportModel(-1))}) {
    std::ostringstream out;
    EXPECT_THROW(WriteKeyframeText(out, kFormat, record), xtd::exception);
    EXPECT_EQ(out.str(), "");
  }
}

// A stream that throws on failure (as the file command sets it up): the failure
// reaches the caller, and the footer written during unwinding must not terminate.
TEST(WriteKeyframeText, FailingStreamReportsAsTheStreamSays) {
  struct RefusingBuffer : std::streambuf {
    int overflow(int) override { return traits_type::eof(); }
  } buffer;
  std::ostream out(&buffer);
  out.exceptions(std::ios::badbit | std::ios::failbit);
  EXPECT_THROW(WriteKeyframeText(out, kFormat, OneFrame(ExportModel::Rigid)), std::ios::failure);
}

// What the models never write: rows padded to the block's columns, a pair in a
// one-column block (no row end), unknown blocks (nothing, columns kept), magnitudes.
TEST(AE5KeyframeData, RowsFollowTheColumnCountOfTheirBlock) {
  std::ostringstream out;
  {
    AE5KeyframeData d(out, 0, 10, 25, 100, 50, 1.0f);
    d.SelectEffect("Transform");
    d.SelectEffectParameter(2);
    d.AddKeyframe(-3, 1234.5678, 0.000012345678);
    d.AddKeyframe(6, 0.1 + 0.2);
    d.SelectLayerParameter(1);
    d.AddKeyframe(4, 1234567.0, -1e-300);
    d.AddKeyframe(6, 100.0);
    for (int unknown : {4, 0}) d.SelectLayerParameter(unknown);
    // Effect names compare case-sensitively.
    for (auto [effect, unknown] :
         {std::pair{"Transform", 1}, {"Transform", 9}, {"transform", 2}, {"Corner Pin", 5}}) {
      d.SelectEffect(effect);
      d.SelectEffectParameter(unknown);
    }
    d.AddKeyframe(1, 2.0);
    d.SelectEffect("Transform");
    d.SelectLayerParameter(3);
    d.SelectEffectParameter(6);  // the layer parameter cleared the effect: nothing
    d.AddKeyframe(5, 1.5, -2);
    d.AddKeyframe(6, 0.25);
  }
  EXPECT_EQ(out.str(),
            kHeader +
                "\nPosition\tTransform\tEffect Parameter #2\n\tFrame\tX pixels\tY pixels\n"
                "\t-3\t1234.57\t1.23457e-05\n\t6\t0.3\t0\n"
                "\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n"
                "\t4\t1.23457e+06\t-1e-300\t0\n\t6\t100\t0\t0\n\t1\t2\t0\t0\n"
                "\nRotation\n\tFrame\tdegrees\n\t5\t1.5\t-2\t6\t0.25\n" +
                kFooter);
}

TEST(ClipboardText, PutsACarriageReturnBeforeEveryLineFeed) {
  EXPECT_EQ(ClipboardText("a\n\nb\tc\n"), "a\r\n\r\nb\tc\r\n");
  EXPECT_EQ(ClipboardText("no line end"), "no line end");
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
  // Tracking carries the initial transform; a singular frame compensated is null.
  record.Task = TaskType::Tracking;
  record.Own() = {affine::translation(0.1, 0)};
  record.InitialTransform = affine::translation(0.2, 0);
  EXPECT_THAT(MotionJson({4, 4, 25, 1, 1}, record),
              ::testing::HasSubstr("\"matrix\": [1, 0, 0, 1, 0.30000000000000004, 0]"));
  record.Own() = {affine{0, 0, 0, 0, 0, 0}};
  record.Task = TaskType::Compensation;
  EXPECT_THAT(MotionJson({4, 4, 25, 1, 1}, record),
              ::testing::HasSubstr("\"matrix\": [null, null, null, null, null, null]"));
}

}  // namespace
