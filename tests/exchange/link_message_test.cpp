// SPDX-License-Identifier: GPL-3.0-or-later
// The link's messages: every kind built, written to bytes, read back and
// compared; the failures of malformed documents with their texts.
#include <functional>
#include <limits>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/xml_fields.h"
#include "base/xml_node.h"
#include "base/xml_tablet.h"
#include "exchange/link/records.h"
#include "testing/files.h"

namespace {

namespace xl = exchange::link;
using ::testing::HasSubstr;
using testing_support::TempDir;
using xl::Message;
using xl::MessageType;

Message Reread(const Message& m) {
  Message back;
  back.FromBytes(m.ToBytes());
  return back;
}

std::vector<std::string> Frames(const TempDir& dir, int n, const char* stem = "f") {
  std::vector<std::string> frames;
  for (int i = 0; i < n; ++i) {
    frames.push_back(dir / (stem + std::to_string(i) + ".bmp"));
    testing_support::WriteFile(frames.back(), "x");
  }
  return frames;
}

Transformations SampleMotion() {
  Transformations t;
  // Values of at most six significant digits survive the wire exactly.
  t.Own() = {types::affine::identity(),
             {1.5, -2.25, 1.01, 0.02, -0.03, 0.99},
             {1234.5, 0.125, 1, 0, 0, 1}};
  t.InitialTransform = types::affine::translation(3, -4);
  t.ExportInaccuracy = 1.5f;
  t.Task = TaskType::Compensation;
  t.ExportModel = ExportModel::CornerPin;
  t.first = 4;
  return t;
}

void ExpectSameMotion(const Transformations& a, const Transformations& b) {
  EXPECT_EQ(a.GetTransforms(), b.GetTransforms());
  EXPECT_EQ(a.InitialTransform, b.InitialTransform);
  EXPECT_EQ(a.ExportInaccuracy, b.ExportInaccuracy);
  EXPECT_EQ(a.Task, b.Task);
  EXPECT_EQ(a.ExportModel, b.ExportModel);
  EXPECT_EQ(a.first, b.first);
}

TEST(LinkMessage, EmptyMessageIsZeroBytesBothWays) {
  EXPECT_EQ(Message().ToBytes(), "");
  Message m(MessageType::Project);
  m.FromBytes("");
  EXPECT_EQ(m.GetType(), MessageType::Empty);
  EXPECT_TRUE(m.Root().isNull());
}

TEST(LinkMessage, EveryKindReadsBackAsWritten) {
  TempDir dir;
  // Footage: frames in one folder, written relative to it.
  for (MessageType kind : {MessageType::Underlay, MessageType::Overlay}) {
    xl::ImageSequenceRecord footage;
    footage.frames = Frames(dir, 3);
    footage.Framerate = 25;
    footage.aspect = {10, 11};
    footage.StartFrame = -7;
    const Message back = Reread(xl::MakeSequenceMessage(kind, footage));
    ASSERT_EQ(back.GetType(), kind);
    const auto read = xl::ReadSequenceMessage(back);
    EXPECT_EQ(read.frames, footage.frames);
    EXPECT_EQ(read.Framerate, 25u);
    EXPECT_EQ(read.aspect.num, 10);
    EXPECT_EQ(read.aspect.den, 11);
    EXPECT_EQ(read.StartFrame, -7);
  }

  xl::PossibleActions actions;
  actions.Overlay = actions.Project = true;
  EXPECT_EQ(xl::ReadPossibleActionsMessage(Reread(xl::MakePossibleActionsMessage(actions))),
            actions);

  const Transformations motion = SampleMotion();
  const Transformations read =
      xl::ReadTransformationsMessage(Reread(xl::MakeTransformationsMessage(motion)));
  EXPECT_TRUE(read.IsOwning());
  ExpectSameMotion(read, motion);

  xl::ProjectRecord project;
  project.transformations = SampleMotion();
  project.Name = "shot";
  project.width = 720;
  project.height = 576;
  project.Framerate = 24;
  project.aspect = {768, 720};
  project.underlay = Frames(dir, 4, "u");
  project.overlay.frames = Frames(dir, 2, "o");
  project.overlay.SourceOffset = -1;
  project.overlay.Trimming = {1, 2};
  const auto p = xl::ReadProjectMessage(Reread(xl::MakeProjectMessage(project)));
  ExpectSameMotion(p.transformations, project.transformations);
  EXPECT_EQ(p.Name, "shot");
  EXPECT_EQ(p.width, 720u);
  EXPECT_EQ(p.height, 576u);
  EXPECT_EQ(p.Framerate, 24u);
  EXPECT_EQ(p.aspect, (PixelAspectRatio{768, 720}));
  EXPECT_EQ(p.underlay, project.underlay);
  EXPECT_EQ(p.overlay.frames, project.overlay.frames);
  EXPECT_EQ(p.overlay.SourceOffset, -1);
  EXPECT_EQ(p.overlay.Trimming, (My::Span{1, 2}));

  const Message error = Reread(xl::MakeError("no layer selected"));
  EXPECT_EQ(error.GetType(), MessageType::Error);
  EXPECT_THAT([&] { error.Throw(); },
              ::testing::ThrowsMessage<xl::BadMessage>("no layer selected"));
}

TEST(LinkMessage, DefaultsStayOffTheWire) {
  TempDir dir;
  Transformations identity;
  identity.Own().assign(2, types::affine::identity());
  const std::string text = xl::MakeTransformationsMessage(identity).ToBytes();
  EXPECT_THAT(text, HasSubstr("<Message type=\"Transformations\">"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '='), 2) << text;  // version and type
  EXPECT_THAT(text, HasSubstr("<Transform />\n  <Transform />"));

  // A still overlay's whole trimming is the underlay's length.
  xl::ProjectRecord project;
  project.underlay = Frames(dir, 5, "u");
  project.overlay.frames = Frames(dir, 1, "o");
  project.overlay.Trimming = {0, 5};
  EXPECT_THAT(xl::MakeProjectMessage(project).ToBytes(), ::testing::Not(HasSubstr("Trimming")));
  project.overlay.Trimming = {0, 1};
  EXPECT_THAT(xl::MakeProjectMessage(project).ToBytes(), HasSubstr("<Trimming last=\"1\""));
  // The question forms carry the type only.
  EXPECT_THAT(Message(MessageType::Underlay).ToBytes(), HasSubstr("<Message type=\"Underlay\" />"));
}

TEST(LinkMessage, MotionIsWrittenInTheFieldLayersVeryText) {
  // The motion's own fast writer against the field layer's stream.
  const double values[] = {0,
                           -0.0,
                           1,
                           0.1,
                           1.0 / 3,
                           -2.5e-7,
                           123456.5,
                           1234567,
                           1e21,
                           -1e-300,
                           5e-324,
                           0.000123456789,
                           std::numeric_limits<double>::max(),
                           std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  Transformations t;
  for (double v : values) t.Own().push_back({v, -v, 1 + v, v / 7, v * 3, v});
  xl::Message fast = xl::MakeTransformationsMessage(t);
  xml::tablet slow;
  slow.create("Message");
  xml::filter f(slow.root(), false);
  std::string type = "Transformations";
  f.required("type", type);
  for (types::affine a : t.GetTransforms()) {
    xml::filter inner = f.Sub("Transform");
    xml::AffineFields(inner, a);
  }
  std::ostringstream text;
  slow.write(text);
  EXPECT_EQ(fast.ToBytes(), text.str());
}

struct Malformed {
  const char* name;
  std::string bytes;
  // Reads the message as its kind asks; throws what the reader throws.
  std::function<void(const Message&)> read;
  std::string text;
};

void PrintTo(const Malformed& m, std::ostream* out) {
  *out << m.name;
}

class LinkMalformed : public ::testing::TestWithParam<Malformed> {};

TEST_P(LinkMalformed, FailsWithItsText) {
  const Malformed& c = GetParam();
  try {
    Message m;
    m.FromBytes(c.bytes);
    c.read(m);
    ADD_FAILURE() << "no failure";
  } catch (const std::exception& e) {
    EXPECT_EQ(std::string(e.what()), c.text);
  }
}

void ReadFootage(const Message& m) {
  xl::ReadSequenceMessage(m);
}
void ReadMotion(const Message& m) {
  xl::ReadTransformationsMessage(m);
}

INSTANTIATE_TEST_SUITE_P(
    Documents,
    LinkMalformed,
    ::testing::Values(
        Malformed{"NotXml", "<a><b></a>", ReadFootage,
                  "Start-end tags mismatch at line 1, column 9"},
        Malformed{"NoType", "<Message/>", ReadFootage, "attribute not found"},
        Malformed{"UnknownType", "<Message type='Footage'/>", ReadFootage, "attribute parse error"},
        Malformed{"LowerCaseType", "<Message type='underlay'/>", ReadFootage,
                  "attribute parse error"},
        Malformed{"MissingFolder", "<Message type='Underlay' path='/no/such/dir' abs='1'/>",
                  ReadFootage, "path does not exist - /no/such/dir"},
        Malformed{"RelativeWithoutBase", "<Message type='Overlay' path='shots'/>", ReadFootage,
                  "absolute path expected"},
        Malformed{"MissingFrame",
                  "<Message type='Underlay' path='/' abs='1'><Frame path='no-such.bmp'/></Message>",
                  ReadFootage,
                  "path does not exist - /no-such.bmp\n(base path is /, relative path is "
                  "no-such.bmp)"},
        Malformed{"AspectWithoutDen",
                  "<Message type='Underlay'><PixelAspectRatio num='4'/></Message>", ReadFootage,
                  "attribute not found"},
        Malformed{"AspectZero",
                  "<Message type='Overlay'><PixelAspectRatio num='0' den='1'/></Message>",
                  ReadFootage, "attribute parse error"},
        Malformed{"TwoInitialTransforms",
                  "<Message type='Transformations'><InitialTransform/><InitialTransform/>"
                  "</Message>",
                  ReadMotion, "Node is ambiguous (InitialTransform)"},
        Malformed{"ErrorReply", "<Message type='Error' what='no active layer'/>", ReadMotion,
                  "no active layer"},
        Malformed{"OtherReply", "<Message type='Project'/>", ReadMotion, "BadMessage"},
        Malformed{"EmptyReply", "", ReadMotion, "BadMessage"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
