// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/ae5_keyframe_data.h"

namespace {

struct EffectBlock {
  const char* effect;
  int index;
  const char* header;
  int32_t columns;
};

// The plain-number parameters of "Transform" name no unit after "Frame":
// that is how the host's own format writes them.
constexpr EffectBlock kEffectBlocks[] = {
    {"Transform", 2, "\nPosition\tTransform\tEffect Parameter #2\n\tFrame\tX pixels\tY pixels\n",
     2},
    {"Transform", 3, "\nUniform Scale\tTransform\tEffect Parameter #3\n\tFrame\n", 1},
    {"Transform", 4, "\nScale Height\tTransform\tEffect Parameter #4\n\tFrame\n", 1},
    {"Transform", 5, "\nScale Width\tTransform\tEffect Parameter #5\n\tFrame\n", 1},
    {"Transform", 6, "\nSkew\tTransform\tEffect Parameter #6\n\tFrame\n", 1},
    {"Transform", 7, "\nSkew Axis\tTransform\tEffect Parameter #7\n\tFrame\tdegrees\n", 1},
    {"Transform", 8, "\nRotation\tTransform\tEffect Parameter #8\n\tFrame\tdegrees\n", 1},
    {"Corner Pin", 1,
     "\nUpper Left\tCorner Pin\tEffect Parameter #1\n\tFrame\tX pixels\tY pixels\n", 2},
    {"Corner Pin", 2,
     "\nUpper Right\tCorner Pin\tEffect Parameter #2\n\tFrame\tX pixels\tY pixels\n", 2},
    {"Corner Pin", 3,
     "\nLower Left\tCorner Pin\tEffect Parameter #3\n\tFrame\tX pixels\tY pixels\n", 2},
    {"Corner Pin", 4,
     "\nLower Right\tCorner Pin\tEffect Parameter #4\n\tFrame\tX pixels\tY pixels\n", 2},
};

}  // namespace

AE5KeyframeData::AE5KeyframeData(std::ostream& out,
                                 int32_t first,
                                 int32_t count,
                                 double units_per_second,
                                 int32_t width,
                                 int32_t height,
                                 float pixel_aspect)
    : KeyframeStorage(width, height, first, first + count), out_(out) {
  // The ratio stands twice, widened to double, so that it prints as the
  // float's six significant digits ("0.9" for 648/720).
  // The rate prints as the ratio does: "25" for a whole rate, "29.97" for
  // 30000/1001.
  const double aspect = pixel_aspect;
  out_ << "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t" << units_per_second
       << "\n\tSource Width\t" << width << "\n\tSource Height\t" << height
       << "\n\tSource Pixel Aspect Ratio\t" << aspect << "\n\tComp Pixel Aspect Ratio\t" << aspect
       << '\n';
}

AE5KeyframeData::~AE5KeyframeData() {
  // A stream that throws on failure must not throw out of a destructor; the
  // footer is then lost with the rest of the failed output.
  try {
    out_ << "\n\nEnd of Keyframe Data\n";
  } catch (...) {
  }
}

void AE5KeyframeData::SelectLayerParameter(int which) {
  effect_.clear();
  switch (which) {
    case 1:
      out_ << "\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n";
      columns_ = 3;
      break;
    case 2:
      out_ << "\nScale\n\tFrame\tX percent\tY percent\tZ percent\n";
      columns_ = 3;
      break;
    case 3:
      out_ << "\nRotation\n\tFrame\tdegrees\n";
      columns_ = 1;
      break;
    default:
      break;
  }
}

void AE5KeyframeData::SelectEffect(const char* name) {
  effect_ = name;
}

void AE5KeyframeData::SelectEffectParameter(int index) {
  for (const auto& block : kEffectBlocks) {
    if (block.index == index && effect_ == block.effect) {
      out_ << block.header;
      columns_ = block.columns;
      return;
    }
  }
}

void AE5KeyframeData::AddKeyframe(int frame, double x, double y) {
  out_ << '\t' << frame << '\t' << x << '\t' << y;
  // A pair in a one-column block gets no row end at all; applicators never
  // do that, and the text must stay as the host's format defines it.
  if (columns_ == 2) {
    out_ << '\n';
  } else if (columns_ == 3) {
    out_ << "\t0\n";
  }
}

void AE5KeyframeData::AddKeyframe(int frame, double value) {
  out_ << '\t' << frame << '\t' << value;
  if (columns_ == 1) {
    out_ << '\n';
  } else if (columns_ == 2) {
    out_ << "\t0\n";
  } else if (columns_ == 3) {
    out_ << "\t0\t0\n";
  }
}
