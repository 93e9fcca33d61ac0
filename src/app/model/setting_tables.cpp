// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/setting_tables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/model/properties_hints.h"

namespace app {

void AspectFields(xml::filter& f, PixelAspectRatio& ratio) {
  f.required("num", ratio.num);
  f.required("den", ratio.den);
  if (f.reading() && ratio.num <= 0) throw xml::attribute_parse_error("num");
  if (f.reading() && ratio.den <= 0) throw xml::attribute_parse_error("den");
}

namespace {

template <class T>
using CompRow = TypedSetting<VLComp, VLCompSettings, T>;
template <class T>
using OverlayRow = TypedSetting<VLOverlay, VLOverlay::Stored, T>;

// The composition's setters change a copy of the settings; VLComp compares
// and tells whom the change concerns.
template <class T>
void Store(VLComp& comp, T VLCompSettings::*member, const T& value) {
  VLCompSettings settings = comp.GetSettings();
  settings.*member = value;
  comp.ApplySettings(settings);
}

// Fractional: the NTSC rates 23.976, 29.97 and 59.94 are what most footage
// runs at. The file writes the default stream form, so a whole rate is
// written as before ("25") and older files read as they always did.
const CompRow<double> kFramerate({.key = "framerate",
                                  .undo = "Change Framerate",
                                  .label = "Framerate",
                                  .group = "Export",
                                  .fileWord = "Framerate",
                                  .place = FilePlace::Body,
                                  .form = "frames per second (25, 29.97, ...)"},
                                 {.get = [](const VLComp& c) { return c.GetFramerate(); },
                                  .set =
                                      [](VLComp& c, const double& v) {
                                        Store(c, &VLCompSettings::framerate, ClampedFramerate(v));
                                      },
                                  .member = &VLCompSettings::framerate,
                                  // Files without the attribute were written with 30 in mind,
                                  // not the 50 of a new composition.
                                  .fileDefault = 30.0,
                                  .hint = FixedHint<double, hints::Framerate>,
                                  // As when the field took whole numbers only.
                                  .accepts = [](const double& v) { return v >= 0.0; }});

const CompRow<PixelAspectRatio> kPixelAspect(
    {.key = "pixel_aspect",
     .undo = "Change Pixel Aspect Ratio",
     .label = "Pixel aspect ratio",
     .group = "Export",
     .fileWord = "PixelAspectRatio",
     .place = FilePlace::Body,
     .form = "NUM/DEN or NUM:DEN of positive whole numbers"},
    {.get = [](const VLComp& c) { return c.GetPixelAspect(); },
     // Every use divides by one of the two: such a ratio is no change.
     .set =
         [](VLComp& c, const PixelAspectRatio& v) {
           if (v.num > 0 && v.den > 0) Store(c, &VLCompSettings::pixelAspect, v);
         },
     .member = &VLCompSettings::pixelAspect,
     .fileDefault = PixelAspectRatio{1, 1},
     .hint = FixedHint<PixelAspectRatio, hints::PixelAspect>});

const CompRow<int32_t> kStartFrame(
    {.key = "start_frame",
     .undo = "Change Start Frame",
     .label = "Start frame",
     .fileWord = "StartFrame",
     .place = FilePlace::Body,
     .form = "a whole number"},
    {.get = [](const VLComp& c) { return c.GetStartFrame(); },
     .set = [](VLComp& c, const int32_t& v) { Store(c, &VLCompSettings::startFrame, v); },
     .member = &VLCompSettings::startFrame,
     .fileDefault = 0,
     .hint = FixedHint<int32_t, hints::StartFrame>});

const CompRow<float> kExportInaccuracy(
    {.key = "export_inaccuracy",
     .undo = "Change Export Inaccuracy",
     .label = "Inaccuracy",
     .group = "Export",
     .fileWord = "ExportInaccuracy",
     .place = FilePlace::Body,
     .form = "a number of pixels"},
    {.get = [](const VLComp& c) { return c.GetExportInaccuracy(); },
     // Pixels; a NaN is none.
     .set =
         [](VLComp& c, const float& v) {
           Store(c, &VLCompSettings::exportInaccuracy, v >= 0.0f ? v : 0.0f);
         },
     .member = &VLCompSettings::exportInaccuracy,
     .fileDefault = 0.0f,
     .hint = [](HintLanguage l, const float& v) { return hints::Inaccuracy(l, v); }});

const CompRow<TaskType> kTask(
    {.key = "task",
     .undo = "Change Task",
     .label = "Task",
     .fileWord = "Task",
     .place = FilePlace::Body},
    {.get = [](const VLComp& c) { return c.GetTask(); },
     .set = [](VLComp& c, const TaskType& v) { Store(c, &VLCompSettings::task, v); },
     .member = &VLCompSettings::task,
     .fileDefault = TaskType::Tracking,
     .hint = [](HintLanguage l, const TaskType& v) { return hints::Task(l, v); }});

const CompRow<ExportModel> kExportModel(
    {.key = "export_model",
     .undo = "Change Export Model",
     .label = "Transfrom Model",
     .group = "Export",
     .fileWord = "ExportModel",
     .place = FilePlace::Body},
    {.get = [](const VLComp& c) { return c.GetExportModel(); },
     .set = [](VLComp& c, const ExportModel& v) { Store(c, &VLCompSettings::exportModel, v); },
     .member = &VLCompSettings::exportModel,
     .fileDefault = ExportModel::Auto,
     .hint = [](HintLanguage l, const ExportModel& v) { return hints::TransformModel(l, v); }});

const CompRow<My::Span> kWorkArea(
    {.key = "work_area",
     .undo = "Change Work Area",
     .label = "Work area",
     .fileWord = "WorkArea",
     .place = FilePlace::Lead,
     .frames = true},
    {.get = [](const VLComp& c) { return c.GetWorkArea(); },
     // Inside the frames, first <= last.
     .set =
         [](VLComp& c, const My::Span& v) {
           const int32_t length = c.GetLength();
           const int32_t first = std::clamp(v.first, 0, length);
           Store(c, &VLCompSettings::workArea, My::Span{first, std::clamp(v.last, first, length)});
         },
     .member = &VLCompSettings::workArea,
     .hint = FixedHint<My::Span, hints::WorkArea>});

const CompSetting* const kCompSettings[] = {&kFramerate,        &kPixelAspect, &kStartFrame,
                                            &kExportInaccuracy, &kTask,        &kExportModel,
                                            &kWorkArea};

// --- the overlay -------------------------------------------------------------

const OverlayRow<int32_t> kFrames({.key = "frames"}, {.get = [](const VLOverlay& o) {
                                    return o.IsEmpty() ? 0 : o.GetFrameCount();
                                  }});

// Whether the overlay is still follows from its frames; it is shown, never set.
const OverlayRow<Still> kStill({.key = "still", .label = "Type"},
                               {.get = [](const VLOverlay& o) { return Still{o.IsStill()}; },
                                .hint = FixedHint<Still, hints::OverlayType>});

const OverlayRow<int32_t> kSourceOffset(
    {.key = "source_offset",
     .undo = "Change Offset",
     .label = "Source offset",
     .fileWord = "SourceOffset",
     .place = FilePlace::Lead,
     .form = "a whole number"},
    {.get = [](const VLOverlay& o) { return o.GetSourceOffset(); },
     .set = [](VLOverlay& o, const int32_t& v) { o.SetSourceOffsetDirect(v); },
     .member = &VLOverlay::Stored::sourceOffset,
     .fileDefault = 0,
     .hint = FixedHint<int32_t, hints::SourceOffset>});

const OverlayRow<My::Span> kTrimming(
    {.key = "trimming",
     .undo = "Trim Overlay",
     .label = "Trimming",
     .fileWord = "Trimming",
     .place = FilePlace::Body},
    {.get = [](const VLOverlay& o) { return o.GetTrimming(); },
     .set = [](VLOverlay& o, const My::Span& v) { o.SetTrimmingDirect(v.first, v.last); },
     .member = &VLOverlay::Stored::trimming,
     // A still image lasts as long as the composition; the default trimming
     // depends on the frames just read.
     .file =
         [](xml::filter& f, VLOverlay::Stored& o, int32_t length) {
           const int32_t frames = o.paths.size() == 1 ? length : int32_t(o.paths.size());
           f.defaulted_child("Trimming", o.trimming, My::Span{0, frames}, xml::SpanFields);
         },
     .hint = FixedHint<My::Span, hints::Trimming>});

const OverlayRow<int32_t> kMatch({.key = "match",
                                  .undo = "Change Match Frame",
                                  .label = "Match frame",
                                  .fileWord = "Match",
                                  .place = FilePlace::Body,
                                  .form = "a frame number",
                                  .frames = true},
                                 {.get = [](const VLOverlay& o) { return o.GetMatch(); },
                                  .set = [](VLOverlay& o,
                                            const int32_t& v) { o.SetMatchDirect(v); },
                                  .member = &VLOverlay::Stored::match,
                                  .fileDefault = 0,
                                  .hint = FixedHint<int32_t, hints::MatchFrame>});

const OverlayRow<My::Span> kTransformSpan({.key = "transform_span", .frames = true},
                                          {.get = [](const VLOverlay& o) {
                                            return o.GetTransformSpan();
                                          }});

const OverlayRow<Alignment> kAlignment({.key = "alignment",
                                        .undo = "Change Alignment",
                                        .label = "Alignment",
                                        .fileWord = "Alignment",
                                        .place = FilePlace::Body,
                                        .order = 1},
                                       {.get = [](const VLOverlay& o) { return o.GetAlignment(); },
                                        .set = [](VLOverlay& o,
                                                  const Alignment& v) { o.SetAlignmentDirect(v); },
                                        .member = &VLOverlay::Stored::alignment,
                                        .fileDefault = Alignment::No,
                                        .hint = FixedHint<Alignment, hints::OverlayAlignment>});

const OverlayRow<AlphaInterpretation> kAlpha(
    {.key = "alpha",
     .undo = "Change Alpha",
     .label = "Alpha interpretation",
     .fileWord = "AlphaInterpretation",
     .place = FilePlace::Body},
    {.get = [](const VLOverlay& o) { return o.GetAlpha(); },
     .set = [](VLOverlay& o, const AlphaInterpretation& v) { o.SetAlphaDirect(v); },
     .member = &VLOverlay::Stored::alpha,
     // Not the model's default: files without the attribute mean Premul.
     .fileDefault = AlphaInterpretation::Premul,
     .hint = FixedHint<AlphaInterpretation, hints::OverlayAlpha>});

// Shown as the six elements under the alignment, which it clears.
const OverlayRow<types::affine> kInitialTransform(
    {.key = "initial_transform",
     .undo = "Change Transformation",
     .elementsUnder = "Alignment",
     .fileWord = "InitialTransform",
     .place = FilePlace::Root,
     .form = "six numbers xx,xy,yx,yy,x,y"},
    {.get = [](const VLOverlay& o) { return o.GetInitialTransform(); },
     .set = [](VLOverlay& o, const types::affine& v) { o.SetInitialTransformDirect(v); },
     .member = &VLOverlay::Stored::initialTransform,
     .elementHint = FixedHint<double, hints::InitialTransformElement>});

const OverlaySetting* const kOverlaySettings[] = {&kFrames,    &kStill, &kSourceOffset,
                                                  &kTrimming,  &kMatch, &kTransformSpan,
                                                  &kAlignment, &kAlpha, &kInitialTransform};

template <class Row>
const Row& Find(std::span<const Row* const> rows, std::string_view key) {
  for (const Row* row : rows)
    if (key == row->names().key) return *row;
  throw std::out_of_range("no setting " + std::string(key));
}

template <class Row, class Record>
void PlaceFields(std::span<const Row* const> rows,
                 xml::filter& f,
                 Record& record,
                 int32_t length,
                 FilePlace place) {
  std::vector<const Row*> placed;
  for (const Row* row : rows)
    if (row->names().place == place) placed.push_back(row);
  std::stable_sort(placed.begin(), placed.end(),
                   [](const Row* a, const Row* b) { return a->names().order < b->names().order; });
  for (const Row* row : placed) row->File(f, record, length);
}

}  // namespace

std::span<const CompSetting* const> CompSettings() {
  return kCompSettings;
}
std::span<const OverlaySetting* const> OverlaySettings() {
  return kOverlaySettings;
}

const CompSetting& CompSettingOf(std::string_view key) {
  return Find(CompSettings(), key);
}
const OverlaySetting& OverlaySettingOf(std::string_view key) {
  return Find(OverlaySettings(), key);
}

double ClampedFramerate(double rate) {
  // A rate divides; NaN fails the comparison and becomes 1 as well.
  return rate >= 1.0 ? std::min(rate, kMaxFramerate) : 1.0;
}

RateFraction FramerateFraction(double rate) {
  rate = ClampedFramerate(rate);
  const double whole = std::round(rate);
  if (std::abs(rate - whole) < 1e-9) return {uint32_t(whole), 1};
  const double ntsc = std::round(rate * 1.001);
  if (std::abs(rate - ntsc * 1000.0 / 1001.0) < 0.005) return {uint32_t(ntsc) * 1000, 1001};
  const uint32_t thousandths = uint32_t(std::lround(rate * 1000.0));
  const uint32_t common = std::gcd(thousandths, 1000u);
  return {thousandths / common, 1000 / common};
}

SettingValue ShiftFrames(const SettingValue& value, int32_t by) {
  // Saturating: a start frame near the end of the range must not wrap.
  const auto shift = [by](int32_t v) {
    return int32_t(std::clamp<int64_t>(int64_t(v) + by, INT32_MIN, INT32_MAX));
  };
  if (const auto* frame = std::get_if<int32_t>(&value)) return shift(*frame);
  if (const auto* span = std::get_if<My::Span>(&value))
    return My::Span{shift(span->first), shift(span->last)};
  return value;
}

void AssignSetting(VLComp& comp, std::string_view key, const SettingValue& value) {
  CompSettingOf(key).Set(comp, value);
}
void AssignSetting(VLOverlay& overlay, std::string_view key, const SettingValue& value) {
  OverlaySettingOf(key).Set(overlay, value);
}

void ChangeSetting(VLComp& comp, std::string_view key, const SettingValue& value) {
  comp.GetActionQueue().Push(
      std::make_unique<SettingAction<VLComp, VLCompSettings>>(comp, CompSettingOf(key), value));
}
void ChangeSetting(VLOverlay& overlay,
                   VLActionQueue& queue,
                   std::string_view key,
                   const SettingValue& value) {
  queue.Push(std::make_unique<SettingAction<VLOverlay, VLOverlay::Stored>>(
      overlay, OverlaySettingOf(key), value));
}

void CompSettingFields(xml::filter& f, VLCompSettings& settings, int32_t length, FilePlace place) {
  PlaceFields(CompSettings(), f, settings, length, place);
}
void OverlaySettingFields(xml::filter& f,
                          VLOverlay::Stored& overlay,
                          int32_t length,
                          FilePlace place) {
  PlaceFields(OverlaySettings(), f, overlay, length, place);
}

}  // namespace app
