// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/properties_sets.h"

#include <memory>

#include "app/model/properties_hints.h"
#include "app/model/properties_typed.h"
#include "app/model/setting_tables.h"

namespace app {
namespace {

using S = SegmentAccess;

class ExportGroup final : public PropertyGroup<SettingsObject<VLComp>> {
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

// The rows of a settings table; a group row comes with its first member.
template <class Owner, class Record>
std::unique_ptr<Property> BuildSettings(std::span<const Setting<Owner, Record>* const> settings) {
  // Rows without a place in the tree (the whole value behind element rows).
  static std::vector<std::unique_ptr<Property>> keep;
  auto root = std::make_unique<PropertyGroup<SettingsObject<Owner>>>();
  for (const auto* setting : settings) {
    Property* parent = root.get();
    if (const char* group = setting->names().group) {
      parent = root->Child(group);
      if (parent == nullptr) {
        if (std::string_view(group) == "Export")
          parent = &root->Add(group, std::make_unique<ExportGroup>());
        else
          parent = &root->Add(group, std::make_unique<PropertyGroup<SettingsObject<Owner>>>());
      }
    }
    setting->AddRows(*parent, keep);
  }
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
      FixedHint<My::Span, hints::TimeRange>);
  AddSpanElements(*time_range, *time_range);
  root->Add("Time range", std::move(time_range));
  return root;
}

}  // namespace

const Property& CompositionProperties() {
  static const std::unique_ptr<Property> tree = BuildSettings(CompSettings());
  return *tree;
}

const Property& OverlayProperties() {
  static const std::unique_ptr<Property> tree = BuildSettings(OverlaySettings());
  return *tree;
}

const Property& SegmentProperties() {
  static const std::unique_ptr<Property> tree = BuildSegment();
  return *tree;
}

const Property* PropertiesFor(const EditableObject* shown) {
  if (dynamic_cast<const SegmentAccess*>(shown) != nullptr) return &SegmentProperties();
  if (dynamic_cast<const SettingsObject<VLOverlay>*>(shown) != nullptr) return &OverlayProperties();
  if (dynamic_cast<const SettingsObject<VLComp>*>(shown) != nullptr)
    return &CompositionProperties();
  return nullptr;
}

std::string PanelTitle(const EditableObject* shown) {
  if (dynamic_cast<const SegmentAccess*>(shown) != nullptr) return "Segment Properties";
  if (dynamic_cast<const SettingsObject<VLOverlay>*>(shown) != nullptr) return "Overlay Properties";
  if (dynamic_cast<const SettingsObject<VLComp>*>(shown) != nullptr)
    return "Composition Properties";
  return "Property Editor";
}

}  // namespace app
