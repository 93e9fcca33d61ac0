#include "exchange/ae5_keyframe_data.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

const char kHeader[] =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t720\n"
    "\tSource Height\t576\n\tSource Pixel Aspect Ratio\t1\n\tComp Pixel Aspect Ratio\t1\n";
const char kFooter[] = "\n\nEnd of Keyframe Data\n";

// The text between header and footer that `calls` produce.
template <class Calls>
std::string Body(Calls calls) {
  std::ostringstream out;
  {
    AE5KeyframeData data(out, 0, 10, 25, 720, 576, 1.0f);
    calls(data);
  }
  const std::string text = out.str();
  EXPECT_EQ(text.substr(0, sizeof kHeader - 1), kHeader);
  EXPECT_EQ(text.substr(text.size() - (sizeof kFooter - 1)), kFooter);
  return text.substr(sizeof kHeader - 1, text.size() - (sizeof kHeader - 1) - (sizeof kFooter - 1));
}

TEST(AE5KeyframeData, HeaderCarriesTheFloatAspectTwiceAndFooterEndsTheText) {
  std::ostringstream out;
  { AE5KeyframeData data(out, 3, 1, 30, 720, 480, 648.0f / 720.0f); }
  EXPECT_EQ(out.str(),
            "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t30\n"
            "\tSource Width\t720\n\tSource Height\t480\n\tSource Pixel Aspect Ratio\t0.9\n"
            "\tComp Pixel Aspect Ratio\t0.9\n\n\nEnd of Keyframe Data\n");
}

TEST(AE5KeyframeData, StorageKnowsItsFrameSpanAndSize) {
  std::ostringstream out;
  AE5KeyframeData data(out, 7, 5, 25, 640, 360, 1.0f);
  EXPECT_EQ(data.GetFirstFrame(), 7);
  EXPECT_EQ(data.GetEndFrame(), 12);
  EXPECT_EQ(data.GetSourceWidth(), 640);
  EXPECT_EQ(data.GetSourceHeight(), 360);
}

struct BlockCase {
  const char* name;
  const char* effect;  // null: a layer parameter
  int index;
  const char* header;
  const char* pair_row;   // AddKeyframe(5, 1.5, -2)
  const char* value_row;  // AddKeyframe(6, 0.25)
};

class AE5Block : public ::testing::TestWithParam<BlockCase> {};

TEST_P(AE5Block, WritesHeaderAndRowEndsOfItsColumnCount) {
  const BlockCase& c = GetParam();
  const std::string body = Body([&](AE5KeyframeData& d) {
    if (c.effect) {
      d.SelectEffect(c.effect);
      d.SelectEffectParameter(c.index);
    } else {
      d.SelectLayerParameter(c.index);
    }
    d.AddKeyframe(5, 1.5, -2);
    d.AddKeyframe(6, 0.25);
  });
  EXPECT_EQ(body, std::string(c.header) + c.pair_row + c.value_row);
}

constexpr const char* kPair1 = "\t5\t1.5\t-2";  // no row end in a one-column block
constexpr const char* kPair2 = "\t5\t1.5\t-2\n";
constexpr const char* kPair3 = "\t5\t1.5\t-2\t0\n";
constexpr const char* kValue1 = "\t6\t0.25\n";
constexpr const char* kValue2 = "\t6\t0.25\t0\n";
constexpr const char* kValue3 = "\t6\t0.25\t0\t0\n";

INSTANTIATE_TEST_SUITE_P(
    Blocks,
    AE5Block,
    ::testing::Values(
        BlockCase{"LayerPosition", nullptr, 1,
                  "\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n", kPair3, kValue3},
        BlockCase{"LayerScale", nullptr, 2, "\nScale\n\tFrame\tX percent\tY percent\tZ percent\n",
                  kPair3, kValue3},
        BlockCase{"LayerRotation", nullptr, 3, "\nRotation\n\tFrame\tdegrees\n", kPair1, kValue1},
        BlockCase{"TransformPosition", "Transform", 2,
                  "\nPosition\tTransform\tEffect Parameter #2\n\tFrame\tX pixels\tY pixels\n",
                  kPair2, kValue2},
        BlockCase{"UniformScale", "Transform", 3,
                  "\nUniform Scale\tTransform\tEffect Parameter #3\n\tFrame\n", kPair1, kValue1},
        BlockCase{"ScaleHeight", "Transform", 4,
                  "\nScale Height\tTransform\tEffect Parameter #4\n\tFrame\n", kPair1, kValue1},
        BlockCase{"ScaleWidth", "Transform", 5,
                  "\nScale Width\tTransform\tEffect Parameter #5\n\tFrame\n", kPair1, kValue1},
        BlockCase{"Skew", "Transform", 6, "\nSkew\tTransform\tEffect Parameter #6\n\tFrame\n",
                  kPair1, kValue1},
        BlockCase{"SkewAxis", "Transform", 7,
                  "\nSkew Axis\tTransform\tEffect Parameter #7\n\tFrame\tdegrees\n", kPair1,
                  kValue1},
        BlockCase{"TransformRotation", "Transform", 8,
                  "\nRotation\tTransform\tEffect Parameter #8\n\tFrame\tdegrees\n", kPair1,
                  kValue1},
        BlockCase{"UpperLeft", "Corner Pin", 1,
                  "\nUpper Left\tCorner Pin\tEffect Parameter #1\n\tFrame\tX pixels\tY pixels\n",
                  kPair2, kValue2},
        BlockCase{"UpperRight", "Corner Pin", 2,
                  "\nUpper Right\tCorner Pin\tEffect Parameter #2\n\tFrame\tX pixels\tY pixels\n",
                  kPair2, kValue2},
        BlockCase{"LowerLeft", "Corner Pin", 3,
                  "\nLower Left\tCorner Pin\tEffect Parameter #3\n\tFrame\tX pixels\tY pixels\n",
                  kPair2, kValue2},
        BlockCase{"LowerRight", "Corner Pin", 4,
                  "\nLower Right\tCorner Pin\tEffect Parameter #4\n\tFrame\tX pixels\tY pixels\n",
                  kPair2, kValue2}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AE5KeyframeData, UnknownBlocksWriteNothingAndKeepTheColumnCount) {
  const std::string body = Body([](AE5KeyframeData& d) {
    d.SelectLayerParameter(2);  // three columns
    d.SelectLayerParameter(4);
    d.SelectLayerParameter(0);
    d.SelectEffect("Transform");
    d.SelectEffectParameter(1);
    d.SelectEffectParameter(9);
    d.SelectEffect("transform");  // names compare case-sensitively
    d.SelectEffectParameter(2);
    d.SelectEffect("Corner Pin");
    d.SelectEffectParameter(5);
    d.AddKeyframe(1, 2.0);
  });
  EXPECT_EQ(body, "\nScale\n\tFrame\tX percent\tY percent\tZ percent\n\t1\t2\t0\t0\n");
}

TEST(AE5KeyframeData, LayerParameterClearsTheSelectedEffect) {
  const std::string body = Body([](AE5KeyframeData& d) {
    d.SelectEffect("Transform");
    d.SelectLayerParameter(3);
    d.SelectEffectParameter(6);  // no effect selected any more: nothing
    d.AddKeyframe(0, 1.0);
  });
  EXPECT_EQ(body, "\nRotation\n\tFrame\tdegrees\n\t0\t1\n");
}

TEST(AE5KeyframeData, NumbersUseSixSignificantDigits) {
  const std::string body = Body([](AE5KeyframeData& d) {
    d.SelectLayerParameter(1);
    d.AddKeyframe(-3, 1234.5678, 0.000012345678);
    d.AddKeyframe(4, 1234567.0, -1e-300);
    d.AddKeyframe(5, 100.0, 0.1 + 0.2);
  });
  EXPECT_EQ(body,
            "\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n"
            "\t-3\t1234.57\t1.23457e-05\t0\n"
            "\t4\t1.23457e+06\t-1e-300\t0\n"
            "\t5\t100\t0.3\t0\n");
}

}  // namespace
