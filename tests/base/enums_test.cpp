// SPDX-License-Identifier: GPL-3.0-or-later
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

TEST(Enums, WordsAreReadOneAtATimeAndUnknownOrMiscasedOnesFail) {
  for (const char* text : {"Affine", "AFFINE", "rigid+scale", "affine2", ""}) {
    std::istringstream in(text);
    TransformClass value = TransformClass::Rigid;
    EXPECT_FALSE(in >> value) << '"' << text << '"';
    EXPECT_EQ(value, TransformClass::Rigid) << text;
  }
  // Whitespace ends a word; a failed read leaves the value.
  std::istringstream in("  fast\tintensive\nNormal");
  MotionEstimation a{}, b{}, c = MotionEstimation::Fastest;
  EXPECT_TRUE(in >> a >> b);
  EXPECT_EQ(a, MotionEstimation::Fast);
  EXPECT_EQ(b, MotionEstimation::Intensive);
  EXPECT_FALSE(in >> c);
  EXPECT_EQ(c, MotionEstimation::Fastest);
}

TEST(Enums, StoredTextsWhereWordLabelOrLogNameDiffer) {
  const std::pair<std::string_view, std::string_view> texts[] = {
      {FileWord(TransformClass::Affine1), "affine"},  // value 1 is written as affine...
      {Label(TransformClass::Affine1), "Affine"},
      {LogName(TransformClass::Affine1), ""},
      {LogName(TransformClass::RigidScale), "rigid+scale"},
      {FileWord(TransformClass::RigidScale), "rigid+zoom"},
      {LogName(TransformClass::Translation), "translation"},
      {Label(ExportModel::RigidScale), "Rigid && Scale"},  // one '&' in a menu
      {Label(TransformClass::RigidScale), "Rigid && Scale"},
      {Label(Alignment::No), "None"},
      {FileWord(Alignment::No), "No"},
      {Label(AlphaInterpretation::InvPremul), "Inverted Premultiplied"},
      {Label(Still{true}), "Still"},
  };
  for (const auto& [text, expected] : texts) EXPECT_EQ(text, expected);
  // ...and read back as value 0; the table offers no value 1.
  EXPECT_EQ(FromFileWord<TransformClass>("affine"), TransformClass::Affine);
  for (const auto& row : EnumTable<TransformClass>()) EXPECT_NE(row.value, TransformClass::Affine1);
  ASSERT_EQ(EnumTable<ExportModel>().size(), 8u);
  for (size_t i = 0; i < EnumTable<ExportModel>().size(); ++i)
    EXPECT_EQ(static_cast<size_t>(EnumTable<ExportModel>()[i].value), i) << "rows in value order";
}

}  // namespace
