// SPDX-License-Identifier: GPL-3.0-or-later
// The project's enumerations, with the words they are stored under in files
// and the labels the user sees.
//
// Each enumeration has a table of {value, file word, label}; the group tables
// of the user interface list these rows unchanged, in table order. Reading a
// file word compares case-sensitively; an unknown word is a parse error (the
// stream operator sets failbit). Writing a value outside the table is a
// program fault; setters keep values in range.
#pragma once

#include <istream>
#include <optional>
#include <ostream>
#include <span>
#include <string_view>

// What the computed motion is used for.
enum class TaskType : int { Tracking = 0, Compensation = 1 };

// How the motion is handed to the compositing host.
enum class ExportModel : int {
  Auto = 0,
  Translation = 1,
  Rigid = 2,
  RigidScale = 3,
  Affine1 = 4,  // vertical skew
  Affine2 = 5,  // uniform scale
  Affine3 = 6,  // mixed transform
  CornerPin = 7,
};

// Where the overlay sits relative to the underlay at the match frame.
enum class Alignment : int {
  No = 0,
  TopLeftCorner = 1,
  TopRightCorner = 2,
  BottomLeftCorner = 3,
  BottomRightCorner = 4,
};

// How the overlay's alpha channel is read.
enum class AlphaInterpretation : int { Straight = 0, Premul = 1, InvStraight = 2, InvPremul = 3 };

// Motion models. Value 1 is a second affine that the block matching and the
// pixel refinement leave alone; it is not offered, is stored as "affine" and
// so reads back as 0.
enum class TransformClass : int {
  Affine = 0,
  Affine1 = 1,
  Translation = 2,
  Rigid = 3,
  RigidScale = 4
};

// How much work the tracker spends on a frame.
enum class MotionEstimation : int { Fastest = 0, Fast = 1, Normal = 2, Intensive = 3 };

// An overlay with exactly one frame is still; shown read-only as "Live"/"Still".
struct Still {
  bool value = false;
  friend bool operator==(const Still&, const Still&) = default;
};

template <class E>
struct EnumRow {
  E value;
  const char* word;   // file word
  const char* label;  // user label
};

// The rows of an enumeration's table, in table order.
template <class E>
std::span<const EnumRow<E>> EnumTable();

template <>
std::span<const EnumRow<TaskType>> EnumTable<TaskType>();
template <>
std::span<const EnumRow<ExportModel>> EnumTable<ExportModel>();
template <>
std::span<const EnumRow<Alignment>> EnumTable<Alignment>();
template <>
std::span<const EnumRow<AlphaInterpretation>> EnumTable<AlphaInterpretation>();
template <>
std::span<const EnumRow<TransformClass>> EnumTable<TransformClass>();
template <>
std::span<const EnumRow<MotionEstimation>> EnumTable<MotionEstimation>();
template <>
std::span<const EnumRow<Still>> EnumTable<Still>();

// Every row that maps between a value and its file word: the offered rows
// first, then values that are stored but never offered. Reading a word takes
// the first row that has it, so a hidden value never comes back from a file.
template <class E>
std::span<const EnumRow<E>> EnumWordTable() {
  return EnumTable<E>();
}
template <>
std::span<const EnumRow<TransformClass>> EnumWordTable<TransformClass>();

// The file word of a value; empty for a value outside the table.
template <class E>
std::string_view FileWord(E value) {
  for (const auto& row : EnumWordTable<E>())
    if (row.value == value) return row.word;
  return {};
}

// The user label of a value; empty for a value outside the table.
template <class E>
std::string_view Label(E value) {
  for (const auto& row : EnumWordTable<E>())
    if (row.value == value) return row.label;
  return {};
}

// The value stored under a file word (case-sensitive), or nothing.
template <class E>
std::optional<E> FromFileWord(std::string_view word) {
  for (const auto& row : EnumWordTable<E>())
    if (word == row.word) return row.value;
  return std::nullopt;
}

// The motion model's name in the tracker's log; empty for value 1, which has none.
std::string_view LogName(TransformClass value);

// Stream forms: the file word out; a whitespace-delimited word in, failbit
// when the word is not in the table (the value is then left unchanged).
std::ostream& operator<<(std::ostream& out, TaskType v);
std::ostream& operator<<(std::ostream& out, ExportModel v);
std::ostream& operator<<(std::ostream& out, Alignment v);
std::ostream& operator<<(std::ostream& out, AlphaInterpretation v);
std::ostream& operator<<(std::ostream& out, TransformClass v);
std::ostream& operator<<(std::ostream& out, MotionEstimation v);
std::istream& operator>>(std::istream& in, TaskType& v);
std::istream& operator>>(std::istream& in, ExportModel& v);
std::istream& operator>>(std::istream& in, Alignment& v);
std::istream& operator>>(std::istream& in, AlphaInterpretation& v);
std::istream& operator>>(std::istream& in, TransformClass& v);
std::istream& operator>>(std::istream& in, MotionEstimation& v);
