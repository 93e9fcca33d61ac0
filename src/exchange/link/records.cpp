// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/link/records.h"

#include <charconv>

#include "base/frame_record.h"
#include "base/paths.h"
#include "base/xml_fields.h"

namespace exchange::link {

namespace {

struct Size {
  uint32_t width = 0;
  uint32_t height = 0;
};

void SizeFields(xml::filter& f, Size& s) {
  f.defaulted("sx", s.width, 0u);
  f.defaulted("sy", s.height, 0u);
}

void AspectFields(xml::filter& f, PixelAspectRatio& ratio) {
  f.required("num", ratio.num);
  f.required("den", ratio.den);
  // Every user of the ratio divides by one of the two.
  if (f.reading() && ratio.num <= 0) throw xml::attribute_parse_error("num");
  if (f.reading() && ratio.den <= 0) throw xml::attribute_parse_error("den");
}

void AspectChild(xml::filter& f, PixelAspectRatio& ratio) {
  f.defaulted_child("PixelAspectRatio", ratio, PixelAspectRatio{1, 1}, AspectFields);
}

void OverlayFields(xml::filter& f, OverlayRecord& o, std::string_view base, size_t underlay) {
  f.defaulted("SourceOffset", o.SourceOffset, 0);
  SequenceFields(f, o.frames, base);
  // Known only once the frames are read: the whole overlay, where a still
  // lasts as long as the underlay.
  const auto count = int32_t(o.frames.size() == 1 ? underlay : o.frames.size());
  f.defaulted_child("Trimming", o.Trimming, My::Span{0, count}, xml::SpanFields);
}

// The per-frame transforms are nearly all of a long motion's message; they
// are written here without the field layer's stream, in the very text it
// writes (printf's "%g" with six digits is the stream's default format).
void WriteNumber(xml::node element, std::string_view name, double value, double def) {
  if (value == def) return;
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  element.setAttribute(name, std::string_view(text, size_t(end.ptr - text)));
}

void WriteAffine(xml::node element, const types::affine& a) {
  WriteNumber(element, "x", a.x, 0);
  WriteNumber(element, "y", a.y, 0);
  WriteNumber(element, "xx", a.xx, 1);
  WriteNumber(element, "xy", a.xy, 0);
  WriteNumber(element, "yx", a.yx, 0);
  WriteNumber(element, "yy", a.yy, 1);
}

void ExpectType(const Message& message, MessageType type) {
  if (message.GetType() != type) message.Throw();
}

template <class Fields>
Message Build(MessageType type, Fields&& fields) {
  Message message(type);
  xml::filter f(message.Root(), false);
  fields(f);
  return message;
}

template <class Record, class Fields>
Record Read(const Message& message, Fields&& fields) {
  Record record;
  xml::filter f(message.Root(), true);
  fields(f, record);
  return record;
}

}  // namespace

void PossibleActionsFields(xml::filter& f, PossibleActions& a) {
  f.defaulted("Underlay", a.Underlay, false);
  f.defaulted("Overlay", a.Overlay, false);
  f.defaulted("StillOverlay", a.StillOverlay, false);
  f.defaulted("Transformations", a.Transformations, false);
  f.defaulted("Project", a.Project, false);
}

void ImageSequenceFields(xml::filter& f, ImageSequenceRecord& r, std::string_view base) {
  SequenceFields(f, r.frames, base);
  f.defaulted("Framerate", r.Framerate, 30u);
  AspectChild(f, r.aspect);
  f.defaulted("StartFrame", r.StartFrame, 0);
}

void TransformationsFields(xml::filter& f, Transformations& r) {
  f.defaulted("first", r.first, 0);
  f.defaulted_child("InitialTransform", r.InitialTransform, types::affine::identity(),
                    xml::AffineFields);
  if (f.reading()) {
    f.list("Transform", r.Own(), xml::AffineFields);
  } else {
    for (const types::affine& t : r.GetTransforms()) WriteAffine(f.addChild("Transform"), t);
  }
  f.defaulted("ExportInaccuracy", r.ExportInaccuracy, 0.0f);
  f.defaulted("Task", r.Task, TaskType::Tracking);
  f.defaulted("ExportModel", r.ExportModel, ::ExportModel::Auto);
}

void ProjectFields(xml::filter& f, ProjectRecord& p, std::string_view base) {
  TransformationsFields(f, p.transformations);
  Size size{p.width, p.height};
  f.child("Dim", [&](xml::filter& c) { SizeFields(c, size); });
  p.width = size.width;
  p.height = size.height;
  f.defaulted("Framerate", p.Framerate, 30u);
  AspectChild(f, p.aspect);
  f.child("Underlay", [&](xml::filter& c) { SequenceFields(c, p.underlay, base); });
  f.defaulted("Name", p.Name, FileTitle(p.path));
  f.child("Overlay", [&](xml::filter& c) { OverlayFields(c, p.overlay, base, p.underlay.size()); });
}

Message MakeSequenceMessage(MessageType kind,
                            const ImageSequenceRecord& record,
                            std::string_view base) {
  ImageSequenceRecord copy = record;
  return Build(kind, [&](xml::filter& f) { ImageSequenceFields(f, copy, base); });
}

ImageSequenceRecord ReadSequenceMessage(const Message& message, std::string_view base) {
  if (message.GetType() != MessageType::Underlay && message.GetType() != MessageType::Overlay)
    message.Throw();
  return Read<ImageSequenceRecord>(
      message, [&](xml::filter& f, ImageSequenceRecord& r) { ImageSequenceFields(f, r, base); });
}

Message MakePossibleActionsMessage(const PossibleActions& actions) {
  PossibleActions copy = actions;
  return Build(MessageType::PossibleActions,
               [&](xml::filter& f) { PossibleActionsFields(f, copy); });
}

PossibleActions ReadPossibleActionsMessage(const Message& message) {
  ExpectType(message, MessageType::PossibleActions);
  return Read<PossibleActions>(message, PossibleActionsFields);
}

Message MakeTransformationsMessage(const Transformations& record) {
  // A copy of a referring record refers to the same vector: no frame is copied.
  Transformations copy = record;
  return Build(MessageType::Transformations,
               [&](xml::filter& f) { TransformationsFields(f, copy); });
}

Transformations ReadTransformationsMessage(const Message& message) {
  ExpectType(message, MessageType::Transformations);
  return Read<Transformations>(message, TransformationsFields);
}

Message MakeProjectMessage(const ProjectRecord& record, std::string_view base) {
  ProjectRecord copy = record;
  return Build(MessageType::Project, [&](xml::filter& f) { ProjectFields(f, copy, base); });
}

ProjectRecord ReadProjectMessage(const Message& message, std::string_view base) {
  ExpectType(message, MessageType::Project);
  return Read<ProjectRecord>(message,
                             [&](xml::filter& f, ProjectRecord& p) { ProjectFields(f, p, base); });
}

}  // namespace exchange::link
