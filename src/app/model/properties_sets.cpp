#include "app/model/properties_sets.h"

#include <memory>

#include "app/model/properties_hints.h"
#include "app/model/properties_typed.h"

namespace app {
namespace {

using C = CompositionAccess;
using O = OverlayAccess;
using S = SegmentAccess;

// A hint that does not depend on the value.
template <class T, std::string (*Text)(HintLanguage)>
std::string Fixed(HintLanguage language, const T&) {
  return Text(language);
}

class ExportGroup final : public PropertyGroup<C> {
 public:
  std::string HintIn(EditableObjects objects, HintLanguage language) const override {
    return objects.empty() ? std::string() : hints::Export(language);
  }
};

// One field of the segment's parameters. A write copies the whole record,
// changes the one field and hands the record back, so that the segment
// sees one "Change Parameters". While the segment is processing, every
// parameter is disabled: the tracker reads the record without a lock.
template <class T>
class VLSegmentParamsProperty : public TypedProperty<T> {
 public:
  VLSegmentParamsProperty(T VLSegmentParams::*member, HintFunction<T> hint)
      : member_(member), hint_(hint) {}

  T Read(const EditableObject& object) const override {
    return dynamic_cast<const S&>(object).GetParams().*member_;
  }
  void Write(EditableObject& object, const T& value) const override {
    auto& segment = dynamic_cast<S&>(object);
    VLSegmentParams params = segment.GetParams();
    params.*member_ = value;
    segment.SetParams(params);
  }
  bool CanHandle(const EditableObject& object) const override {
    return dynamic_cast<const S*>(&object) != nullptr;
  }
  ControlState State(EditableObjects objects) const override {
    if (objects.empty()) return ControlState::Enabled;
    return dynamic_cast<const S&>(*objects.front()).IsProcessing() ? ControlState::Disabled
                                                                   : ControlState::Enabled;
  }
  std::string HintIn(EditableObjects objects, HintLanguage language) const override {
    return objects.empty() ? std::string() : hint_(language, Read(*objects.front()));
  }

 protected:
  static MotionEstimation Method(EditableObjects objects) {
    return dynamic_cast<const S&>(*objects.front()).GetParams().MotionEstimation;
  }

 private:
  T VLSegmentParams::*member_;
  HintFunction<T> hint_;
};

// Hidden where the fastest method takes no such setting.
template <class T>
class VLSegmentNotFastestParamsProperty : public VLSegmentParamsProperty<T> {
 public:
  using VLSegmentParamsProperty<T>::VLSegmentParamsProperty;
  ControlState State(EditableObjects objects) const override {
    if (!objects.empty() && this->Method(objects) == MotionEstimation::Fastest)
      return ControlState::Hidden;
    return VLSegmentParamsProperty<T>::State(objects);
  }
};

// Hidden for the two methods that do not predict motion.
template <class T>
class VLSegmentNotFastParamsProperty : public VLSegmentParamsProperty<T> {
 public:
  using VLSegmentParamsProperty<T>::VLSegmentParamsProperty;
  ControlState State(EditableObjects objects) const override {
    if (!objects.empty()) {
      const auto method = this->Method(objects);
      if (method == MotionEstimation::Fastest || method == MotionEstimation::Fast)
        return ControlState::Hidden;
    }
    return VLSegmentParamsProperty<T>::State(objects);
  }
};

void AddSpanElements(Property& parent, const TypedProperty<My::Span>& whole) {
  AddElements<My::Span, int32_t>(parent, whole,
                                 {{"From", &My::Span::first}, {"To", &My::Span::last}});
}

std::unique_ptr<Property> BuildComposition() {
  auto root = std::make_unique<PropertyGroup<C>>();

  auto& group = root->Add("Export", std::make_unique<ExportGroup>());
  group.Add("Framerate", std::make_unique<SimpleProperty<C, uint32_t>>(
                             [](const C& c) { return c.GetFramerate(); },
                             [](C& c, const uint32_t& v) { c.SetFramerate(v); },
                             Fixed<uint32_t, hints::Framerate>));
  group.Add("Inaccuracy",
            std::make_unique<SimpleProperty<C, float>>(
                [](const C& c) { return c.GetExportInaccuracy(); },
                [](C& c, const float& v) { c.SetExportInaccuracy(v); },
                [](HintLanguage l, const float& v) { return hints::Inaccuracy(l, v); }));
  auto aspect = std::make_unique<SimpleProperty<C, PixelAspectRatio>>(
      [](const C& c) { return c.GetPixelAspect(); },
      [](C& c, const PixelAspectRatio& v) { c.SetPixelAspect(v); },
      Fixed<PixelAspectRatio, hints::PixelAspect>);
  AddElements<PixelAspectRatio, int32_t>(
      *aspect, *aspect,
      {{"Horizontal", &PixelAspectRatio::num}, {"Vertical", &PixelAspectRatio::den}});
  group.Add("Pixel aspect ratio", std::move(aspect));
  group.Add("Transfrom Model",
            std::make_unique<SimpleProperty<C, ExportModel>>(
                [](const C& c) { return c.GetExportModel(); },
                [](C& c, const ExportModel& v) { c.SetExportModel(v); },
                [](HintLanguage l, const ExportModel& v) { return hints::TransformModel(l, v); }));

  root->Add("Start frame", std::make_unique<SimpleProperty<C, int32_t>>(
                               [](const C& c) { return c.GetStartFrame(); },
                               [](C& c, const int32_t& v) { c.SetStartFrame(v); },
                               Fixed<int32_t, hints::StartFrame>));
  root->Add("Task", std::make_unique<SimpleProperty<C, TaskType>>(
                        [](const C& c) { return c.GetTask(); },
                        [](C& c, const TaskType& v) { c.SetTask(v); },
                        [](HintLanguage l, const TaskType& v) { return hints::Task(l, v); }));
  auto work_area = std::make_unique<SimpleProperty<C, My::Span>>(
      [](const C& c) { return c.GetWorkArea(); },
      [](C& c, const My::Span& v) { c.SetWorkArea(v.first, v.last); },
      Fixed<My::Span, hints::WorkArea>);
  AddSpanElements(*work_area, *work_area);
  root->Add("Work area", std::move(work_area));
  return root;
}

std::unique_ptr<Property> BuildOverlay() {
  auto root = std::make_unique<PropertyGroup<O>>();

  using AlignmentProperty = ComplexProperty<SimpleProperty<O, Alignment>, types::affine>;
  auto alignment = std::make_unique<AlignmentProperty>(
      std::make_unique<SimpleProperty<O, types::affine>>(
          [](const O& o) { return o.GetInitialTransform(); },
          [](O& o, const types::affine& v) { o.SetInitialTransform(v); }, nullptr),
      [](const O& o) { return o.GetAlignment(); },
      [](O& o, const Alignment& v) { o.SetAlignment(v); },
      Fixed<Alignment, hints::OverlayAlignment>);
  AddElements<types::affine, double>(*alignment, alignment->Composite(),
                                     {{"x", &types::affine::x},
                                      {"y", &types::affine::y},
                                      {"xx", &types::affine::xx},
                                      {"xy", &types::affine::xy},
                                      {"yx", &types::affine::yx},
                                      {"yy", &types::affine::yy}},
                                     Fixed<double, hints::InitialTransformElement>);
  root->Add("Alignment", std::move(alignment));

  root->Add("Alpha interpretation", std::make_unique<SimpleProperty<O, AlphaInterpretation>>(
                                        [](const O& o) { return o.GetAlpha(); },
                                        [](O& o, const AlphaInterpretation& v) { o.SetAlpha(v); },
                                        Fixed<AlphaInterpretation, hints::OverlayAlpha>));
  root->Add("Match frame",
            std::make_unique<SimpleProperty<O, int32_t>>(
                [](const O& o) { return o.GetMatch(); },
                [](O& o, const int32_t& v) { o.SetMatch(v); }, Fixed<int32_t, hints::MatchFrame>));
  root->Add("Source offset", std::make_unique<SimpleProperty<O, int32_t>>(
                                 [](const O& o) { return o.GetSourceOffset(); },
                                 [](O& o, const int32_t& v) { o.SetSourceOffset(v); },
                                 Fixed<int32_t, hints::SourceOffset>));
  auto trimming = std::make_unique<SimpleProperty<O, My::Span>>(
      [](const O& o) { return o.GetTrimming(); },
      [](O& o, const My::Span& v) { o.SetTrimming(v.first, v.last); },
      Fixed<My::Span, hints::Trimming>);
  AddSpanElements(*trimming, *trimming);
  root->Add("Trimming", std::move(trimming));
  // Whether the overlay is still follows from its frames; it is shown, never set.
  root->Add("Type",
            std::make_unique<SimpleReadOnlyProperty<O, Still>>(
                [](const O& o) { return Still{o.IsStill()}; }, Fixed<Still, hints::OverlayType>));
  return root;
}

std::unique_ptr<Property> BuildSegment() {
  auto root = std::make_unique<PropertyGroup<S>>();

  auto& parameters = root->Add("Parameters", std::make_unique<PropertyGroup<S>>());
  auto& method = parameters.Add(
      "Estimation method",
      std::make_unique<VLSegmentParamsProperty<MotionEstimation>>(
          &VLSegmentParams::MotionEstimation,
          [](HintLanguage l, const MotionEstimation& v) { return hints::EstimationMethod(l, v); }));
  method.SetOpen(true);
  method.Add("Matching radius",
             std::make_unique<VLSegmentNotFastestParamsProperty<uint32_t>>(
                 &VLSegmentParams::InitialSearchRadius,
                 [](HintLanguage l, const uint32_t& v) { return hints::MatchingRadius(l, v); }));
  method.Add("Max motion change",
             std::make_unique<VLSegmentNotFastParamsProperty<uint32_t>>(
                 &VLSegmentParams::MaxAcceleration,
                 [](HintLanguage l, const uint32_t& v) { return hints::MaxMotionChange(l, v); }));
  method.Add("Tracker size",
             std::make_unique<VLSegmentNotFastestParamsProperty<uint32_t>>(
                 &VLSegmentParams::ImageBlockSize,
                 [](HintLanguage l, const uint32_t& v) { return hints::TrackerSize(l, v); }));
  parameters.Add("Motion model",
                 std::make_unique<VLSegmentParamsProperty<TransformClass>>(
                     &VLSegmentParams::MotionModel, [](HintLanguage l, const TransformClass& v) {
                       return hints::MotionModel(l, v);
                     }));
  parameters.Add("Original mask in all frames",
                 std::make_unique<VLSegmentParamsProperty<bool>>(
                     &VLSegmentParams::OriginalMaskInAllFrames, [](HintLanguage l, const bool& v) {
                       return hints::OriginalMaskInAllFrames(l, v);
                     }));
  parameters.Add("Reference frame pitch",
                 std::make_unique<VLSegmentParamsProperty<uint32_t>>(
                     &VLSegmentParams::MaskGenerationPitch, [](HintLanguage l, const uint32_t& v) {
                       return hints::ReferenceFramePitch(l, v);
                     }));

  // The user sees frame numbers from the start frame; the segment stores
  // them from 0.
  auto time_range = std::make_unique<SimpleProperty<S, My::Span>>(
      [](const S& s) {
        const My::Span span = s.GetTimeSpan();
        const int32_t start = s.GetCompositionStartFrame();
        return My::Span{span.first + start, span.last + start};
      },
      [](S& s, const My::Span& v) {
        const int32_t start = s.GetCompositionStartFrame();
        s.SetTimeSpan(v.first - start, v.last - start);
      },
      Fixed<My::Span, hints::TimeRange>);
  AddSpanElements(*time_range, *time_range);
  root->Add("Time range", std::move(time_range));
  return root;
}

}  // namespace

const Property& CompositionProperties() {
  static const std::unique_ptr<Property> tree = BuildComposition();
  return *tree;
}

const Property& OverlayProperties() {
  static const std::unique_ptr<Property> tree = BuildOverlay();
  return *tree;
}

const Property& SegmentProperties() {
  static const std::unique_ptr<Property> tree = BuildSegment();
  return *tree;
}

const Property* PropertiesFor(const EditableObject* shown) {
  if (dynamic_cast<const SegmentAccess*>(shown) != nullptr) return &SegmentProperties();
  if (dynamic_cast<const OverlayAccess*>(shown) != nullptr) return &OverlayProperties();
  if (dynamic_cast<const CompositionAccess*>(shown) != nullptr) return &CompositionProperties();
  return nullptr;
}

}  // namespace app
