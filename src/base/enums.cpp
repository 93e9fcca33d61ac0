// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/enums.h"

#include <iterator>
#include <string>

namespace {

constexpr EnumRow<TaskType> kTaskTypes[] = {
    {TaskType::Tracking, "Tracking", "Motion Tracking"},
    {TaskType::Compensation, "Compensation", "Motion Compensation"},
};

// "Rigid && Scale": the doubled ampersand is stored so that a menu shows one.
constexpr EnumRow<ExportModel> kExportModels[] = {
    {ExportModel::Auto, "Auto", "Auto"},
    {ExportModel::Translation, "Translation", "Translation"},
    {ExportModel::Rigid, "Rigid", "Rigid"},
    {ExportModel::RigidScale, "RigidScale", "Rigid && Scale"},
    {ExportModel::Affine1, "Affine1", "Affine (Vertical Skew)"},
    {ExportModel::Affine2, "Affine2", "Affine (Uniform Scale)"},
    {ExportModel::Affine3, "Affine3", "Affine (Mixed Transform)"},
    {ExportModel::CornerPin, "CornerPin", "Affine Corner Pin"},
};

constexpr EnumRow<Alignment> kAlignments[] = {
    {Alignment::No, "No", "None"},
    {Alignment::TopLeftCorner, "TopLeftCorner", "Top-Left"},
    {Alignment::TopRightCorner, "TopRightCorner", "Top-Right"},
    {Alignment::BottomLeftCorner, "BottomLeftCorner", "Bottom-Left"},
    {Alignment::BottomRightCorner, "BottomRightCorner", "Bottom-Right"},
};

constexpr EnumRow<AlphaInterpretation> kAlphaInterpretations[] = {
    {AlphaInterpretation::Straight, "Straight", "Straight"},
    {AlphaInterpretation::Premul, "Premul", "Premultiplied"},
    {AlphaInterpretation::InvStraight, "InvStraight", "Inverted Straight"},
    {AlphaInterpretation::InvPremul, "InvPremul", "Inverted Premultiplied"},
};

// The offered motion models, simplest first as the property panel lists
// them. "rigid+zoom" is the project file's word; the log says "rigid+scale".
// The last row is value 1: never offered, written as "affine" like 0, and
// placed after 0 so that reading "affine" gives 0.
constexpr EnumRow<TransformClass> kTransformClassWords[] = {
    {TransformClass::Translation, "translation", "Translation"},
    {TransformClass::Rigid, "rigid", "Rigid"},
    {TransformClass::RigidScale, "rigid+zoom", "Rigid && Scale"},
    {TransformClass::Affine, "affine", "Affine"},
    {TransformClass::Affine1, "affine", "Affine"},
};
constexpr size_t kOfferedTransformClasses = std::size(kTransformClassWords) - 1;

constexpr EnumRow<MotionEstimation> kMotionEstimations[] = {
    {MotionEstimation::Fastest, "fastest", "Fastest"},
    {MotionEstimation::Fast, "fast", "Fast"},
    {MotionEstimation::Normal, "normal", "Normal"},
    {MotionEstimation::Intensive, "intensive", "Intensive"},
};

constexpr EnumRow<Still> kStills[] = {
    {Still{false}, "Live", "Live"},
    {Still{true}, "Still", "Still"},
};

template <class E>
std::istream& ReadWord(std::istream& in, E& v) {
  std::string word;
  if (!(in >> word)) return in;
  if (auto value = FromFileWord<E>(word)) {
    v = *value;
  } else {
    in.setstate(std::ios::failbit);
  }
  return in;
}

}  // namespace

template <>
std::span<const EnumRow<TaskType>> EnumTable<TaskType>() {
  return kTaskTypes;
}
template <>
std::span<const EnumRow<ExportModel>> EnumTable<ExportModel>() {
  return kExportModels;
}
template <>
std::span<const EnumRow<Alignment>> EnumTable<Alignment>() {
  return kAlignments;
}
template <>
std::span<const EnumRow<AlphaInterpretation>> EnumTable<AlphaInterpretation>() {
  return kAlphaInterpretations;
}
template <>
std::span<const EnumRow<TransformClass>> EnumTable<TransformClass>() {
  return std::span(kTransformClassWords, kOfferedTransformClasses);
}
template <>
std::span<const EnumRow<TransformClass>> EnumWordTable<TransformClass>() {
  return kTransformClassWords;
}
template <>
std::span<const EnumRow<MotionEstimation>> EnumTable<MotionEstimation>() {
  return kMotionEstimations;
}
template <>
std::span<const EnumRow<Still>> EnumTable<Still>() {
  return kStills;
}

std::string_view LogName(TransformClass value) {
  switch (value) {
    case TransformClass::Affine:
      return "affine";
    case TransformClass::Translation:
      return "translation";
    case TransformClass::Rigid:
      return "rigid";
    case TransformClass::RigidScale:
      return "rigid+scale";
    default:
      return {};
  }
}

std::ostream& operator<<(std::ostream& out, TaskType v) {
  return out << FileWord(v);
}
std::ostream& operator<<(std::ostream& out, ExportModel v) {
  return out << FileWord(v);
}
std::ostream& operator<<(std::ostream& out, Alignment v) {
  return out << FileWord(v);
}
std::ostream& operator<<(std::ostream& out, AlphaInterpretation v) {
  return out << FileWord(v);
}
std::ostream& operator<<(std::ostream& out, TransformClass v) {
  return out << FileWord(v);
}
std::ostream& operator<<(std::ostream& out, MotionEstimation v) {
  return out << FileWord(v);
}
std::istream& operator>>(std::istream& in, TaskType& v) {
  return ReadWord(in, v);
}
std::istream& operator>>(std::istream& in, ExportModel& v) {
  return ReadWord(in, v);
}
std::istream& operator>>(std::istream& in, Alignment& v) {
  return ReadWord(in, v);
}
std::istream& operator>>(std::istream& in, AlphaInterpretation& v) {
  return ReadWord(in, v);
}
std::istream& operator>>(std::istream& in, TransformClass& v) {
  return ReadWord(in, v);
}
std::istream& operator>>(std::istream& in, MotionEstimation& v) {
  return ReadWord(in, v);
}
