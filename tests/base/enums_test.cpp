#include "base/enums.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

// Every row writes its word and reads back to its value, as the project file does.
template <class E>
void ExpectEveryRowRoundTrips() {
  for (const auto& row : EnumTable<E>()) {
    std::ostringstream out;
    out << row.value;
    EXPECT_EQ(out.str(), row.word);
    std::istringstream in(out.str());
    E read{};
    ASSERT_TRUE(in >> read) << row.word;
    EXPECT_EQ(read, row.value) << row.word;
  }
}

TEST(Enums, EveryFileWordRoundTrips) {
  ExpectEveryRowRoundTrips<TaskType>();
  ExpectEveryRowRoundTrips<ExportModel>();
  ExpectEveryRowRoundTrips<Alignment>();
  ExpectEveryRowRoundTrips<AlphaInterpretation>();
  ExpectEveryRowRoundTrips<TransformClass>();
  ExpectEveryRowRoundTrips<MotionEstimation>();
}

TEST(Enums, UnknownOrMiscasedWordFailsAndLeavesValue) {
  for (const char* text : {"Affine", "AFFINE", "rigid+scale", "affine2", ""}) {
    std::istringstream in(text);
    TransformClass value = TransformClass::Rigid;
    EXPECT_FALSE(in >> value) << '"' << text << '"';
    EXPECT_EQ(value, TransformClass::Rigid) << text;
  }
  std::istringstream in("tracking");
  TaskType task = TaskType::Compensation;
  EXPECT_TRUE((in >> task).fail());
  EXPECT_EQ(task, TaskType::Compensation);
}

TEST(Enums, WordsAreReadOneAtATime) {
  std::istringstream in("  fast\tintensive\nNormal");
  MotionEstimation a{}, b{}, c = MotionEstimation::Fastest;
  EXPECT_TRUE(in >> a >> b);
  EXPECT_EQ(a, MotionEstimation::Fast);
  EXPECT_EQ(b, MotionEstimation::Intensive);
  EXPECT_FALSE(in >> c);
  EXPECT_EQ(c, MotionEstimation::Fastest);
}

TEST(Enums, HiddenAffineIsWrittenAsAffineAndReadBackAsZero) {
  EXPECT_EQ(FileWord(TransformClass::Affine1), "affine");
  EXPECT_EQ(Label(TransformClass::Affine1), "Affine");
  std::ostringstream out;
  out << TransformClass::Affine1;
  EXPECT_EQ(out.str(), "affine");
  EXPECT_EQ(FromFileWord<TransformClass>("affine"), TransformClass::Affine);
  for (const auto& row : EnumTable<TransformClass>())
    EXPECT_NE(row.value, TransformClass::Affine1) << "value 1 must not be offered";
}

TEST(Enums, LogNamesDifferFromFileWordsWhereTheyMust) {
  EXPECT_EQ(LogName(TransformClass::RigidScale), "rigid+scale");
  EXPECT_EQ(FileWord(TransformClass::RigidScale), "rigid+zoom");
  EXPECT_EQ(LogName(TransformClass::Translation), "translation");
  EXPECT_EQ(LogName(TransformClass::Affine1), "");
}

TEST(Enums, LabelsAreTheStoredTexts) {
  EXPECT_EQ(Label(ExportModel::RigidScale), "Rigid && Scale");  // one '&' in a menu
  EXPECT_EQ(Label(TransformClass::RigidScale), "Rigid && Scale");
  EXPECT_EQ(Label(Alignment::No), "None");
  EXPECT_EQ(FileWord(Alignment::No), "No");
  EXPECT_EQ(Label(AlphaInterpretation::InvPremul), "Inverted Premultiplied");
  EXPECT_EQ(Label(Still{true}), "Still");
  ASSERT_EQ(EnumTable<ExportModel>().size(), 8u);
  for (size_t i = 0; i < EnumTable<ExportModel>().size(); ++i)
    EXPECT_EQ(static_cast<size_t>(EnumTable<ExportModel>()[i].value), i) << "rows in value order";
}

}  // namespace
