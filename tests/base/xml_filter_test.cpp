// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/xml_filter.h"

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/enums.h"
#include "base/errors.h"
#include "base/xml_fields.h"
#include "base/xml_tablet.h"
#include "testing/files.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

struct Ratio {
  int num = 1, den = 1;
  bool operator==(const Ratio&) const = default;
};

// One record with a field of every kind and type the project file uses.
struct Record {
  int32_t count = 0;
  uint32_t calls = 0;
  int64_t ticks = 0;
  double scale = 0;
  float inaccuracy = 0;
  bool active = false;
  std::string name;
  TaskType task = TaskType::Tracking;
  ExportModel model = ExportModel::Auto;
  My::Span area;
  Ratio aspect;
  types::basic_affine<double> initial;
  std::vector<types::basic_affine<double>> transforms;
  bool operator==(const Record&) const = default;
};

void RecordFields(xml::filter& f, Record& r) {
  f.required("count", r.count);
  f.required("calls", r.calls);
  f.required("ticks", r.ticks);
  f.defaulted("scale", r.scale, 0.0);
  f.defaulted("inaccuracy", r.inaccuracy, 0.0f);
  f.required("active", r.active);
  f.defaulted("name", r.name, "");
  f.defaulted("task", r.task, TaskType::Tracking);
  f.defaulted("model", r.model, ExportModel::Auto);
  f.child("Area", [&](xml::filter& c) { xml::SpanFields(c, r.area); });
  f.defaulted_child(
      "Aspect", r.aspect, Ratio{},
      [](const Ratio& a, const Ratio& b) { return a.num * b.den == b.num * a.den; },
      [](xml::filter& c, Ratio& v) {
        c.required("num", v.num);
        c.required("den", v.den);
      });
  f.defaulted_child("Initial", r.initial, types::basic_affine<double>{}, xml::AffineFields);
  f.list("Transform", r.transforms, xml::AffineFields);
}

std::string Write(Record r, xml::Numbers numbers = xml::Numbers::SixDigits) {
  xml::tablet doc;
  doc.create("Root");
  xml::filter f(doc.root(), false, numbers);
  RecordFields(f, r);
  std::ostringstream out;
  doc.write(out);
  return out.str();
}

// Reads `text` into `r`, as a loader does.
void Read(const std::string& text, Record& r) {
  xml::tablet doc;
  doc.parse(text);
  xml::filter f(doc.root(), true);
  RecordFields(f, r);
}

Record Sample() {
  Record r;
  r.count = -7;
  r.calls = 4000000000u;
  r.ticks = -1234567890123;
  r.scale = 0.5;
  r.inaccuracy = 0.25f;
  r.active = true;
  r.name = "a \"b\" <c> & d\ne\tf";
  r.task = TaskType::Compensation;
  r.model = ExportModel::CornerPin;
  r.area = {3, 90};
  r.aspect = {768, 720};
  r.initial = {10, -2.5, 1, 0.125, 0, 2};
  r.transforms = {{}, {1, 2, 1, 0, 0, 1}, {0, 0, 0.5, 0.25, -0.25, 0.5}};
  return r;
}

TEST(XmlFilter, EveryFieldKindReadsBackWhatWasWritten) {
  const Record written = Sample();
  Record read;
  Read(Write(written), read);
  EXPECT_EQ(read, written);
}

TEST(XmlFilter, DefaultsAreLeftOutAndReadBack) {
  Record r;
  r.aspect = {2, 2};  // equal to 1/1 by cross product
  r.transforms.resize(2);
  const std::string text = Write(r);
  EXPECT_THAT(text, HasSubstr("<Root count=\"0\" calls=\"0\" ticks=\"0\" active=\"0\">"));
  EXPECT_THAT(text, HasSubstr("<Area />"));
  EXPECT_THAT(text, Not(HasSubstr("Aspect")));
  EXPECT_THAT(text, Not(HasSubstr("Initial")));
  // The identity is an element without attributes; the list keeps its length.
  EXPECT_THAT(text, HasSubstr("<Transform />\n  <Transform />\n</Root>"));

  Record read = Sample();
  Read(text, read);
  r.aspect = {};  // a left-out child reads as the default itself
  EXPECT_EQ(read, r);
}

TEST(XmlFilter, NumbersAreSixDigitsOrTheShortestThatReadsBackExactly) {
  struct Case {
    double value;
    const char* six;
    const char* exact;
  };
  const Case cases[] = {
      {1.23456789, "1.23457", "1.23456789"},
      {1e-7, "1e-07", "1e-07"},
      {1234567.0, "1.23457e+06", "1234567"},
      {123456.0, "123456", "123456"},
      {-0.1, "-0.1", "-0.1"},
      {100.0, "100", "100"},
      {0.1 + 0.2, "0.3", "0.30000000000000004"},
      {1.0 / 3, "0.333333", "0.3333333333333333"},
      {-2.5e-310, "-2.5e-310", "-2.5e-310"},  // subnormal
  };
  for (const Case& c : cases) {
    Record r;
    r.scale = c.value;
    EXPECT_THAT(Write(r), HasSubstr(std::string("scale=\"") + c.six + "\"")) << c.value;
    const std::string exact = Write(r, xml::Numbers::RoundTrip);
    EXPECT_THAT(exact, HasSubstr(std::string("scale=\"") + c.exact + "\"")) << c.value;
    Record back;
    Read(exact, back);
    EXPECT_EQ(std::memcmp(&back.scale, &c.value, sizeof(double)), 0) << c.exact;
  }
}

std::string WithRoot(const std::string& attributes) {
  return "<Root " + attributes + "><Area/></Root>";
}

TEST(XmlFilter, RequiredAttributeFailuresNameTheAttribute) {
  struct Case {
    const char* attributes;
    const char* text;
    const char* tag;
  };
  const Case cases[] = {
      {"calls=\"2\" ticks=\"3\" active=\"1\"", "attribute not found", "count"},
      {"count=\"1\" calls=\"2\" ticks=\"3\"", "attribute not found", "active"},
      {"count=\"1x\" calls=\"2\" ticks=\"3\" active=\"1\"", "attribute parse error", "count"},
      {"count=\"\" calls=\"2\" ticks=\"3\" active=\"1\"", "attribute parse error", "count"},
      {"count=\"99999999999\" calls=\"2\" ticks=\"3\" active=\"1\"", "attribute parse error",
       "count"},
      {"count=\"1\" calls=\"-1\" ticks=\"3\" active=\"1\"", "attribute parse error", "calls"},
      {"count=\"1\" calls=\"2\" ticks=\"3\" active=\"2\"", "attribute parse error", "active"},
      {"count=\"1\" calls=\"2\" ticks=\"3\" active=\"true\"", "attribute parse error", "active"},
  };
  for (const Case& c : cases) {
    const Record before = Sample();
    Record r = before;
    try {
      Read(WithRoot(c.attributes), r);
      ADD_FAILURE() << "no failure for " << c.attributes;
    } catch (const xml::exception& e) {
      EXPECT_STREQ(e.what(), c.text) << c.attributes;
      EXPECT_EQ(e.detail(), std::string("tag = ") + c.tag) << c.attributes;
    }
    if (std::string(c.tag) == "count") {
      EXPECT_EQ(r.count, before.count) << "a failed parse must not write the value";
    }
  }
}

TEST(XmlFilter, TwoChildrenWhereOneIsMeantAreAmbiguous) {
  Record r = Sample();
  const Record before = r;
  const std::string text =
      "<Root count=\"1\" calls=\"2\" ticks=\"3\" active=\"1\"><Area/>"
      "<Initial x=\"1\"/><Initial x=\"2\"/></Root>";
  try {
    Read(text, r);
    ADD_FAILURE() << "two Initial children were accepted";
  } catch (const xml::exception& e) {
    EXPECT_STREQ(e.what(), "Node is ambiguous (Initial)");
    EXPECT_EQ(e.detail(), "tag = Initial");
  }
  EXPECT_EQ(r.initial, before.initial);
}

TEST(XmlFilter, ListReadsEveryChildInOrderOrNothing) {
  xml::tablet doc;
  doc.parse("<R><T x=\"1\"/><Other/><T x=\"2\"/><T x=\"3\"/></R>");
  xml::filter f(doc.root(), true);
  std::vector<int> items = {9, 9, 9, 9, 9};
  f.list("T", items, [](xml::filter& c, int& v) { c.required("x", v); });
  EXPECT_EQ(items, (std::vector<int>{1, 2, 3}));

  doc.parse("<R><T x=\"1\"/><T/></R>");
  xml::filter g(doc.root(), true);
  EXPECT_THROW(g.list("T", items, [](xml::filter& c, int& v) { c.required("x", v); }),
               xml::attribute_not_found);
  EXPECT_EQ(items, (std::vector<int>{1, 2, 3}));
}

TEST(XmlTablet, MalformedTextFailsWithPositionAndKeepsTheOldDocument) {
  xml::tablet doc;
  doc.parse("<Velomar a=\"1\"/>");
  const char* bad[] = {"", "<a>", "<a></b>", "<a x=1/>", "<a/><b/>", "text"};
  for (const char* text : bad) {
    EXPECT_THROW(doc.parse(text), xml::parse_error) << text;
    EXPECT_EQ(doc.root().name(), "Velomar") << text;
  }
  EXPECT_THAT([&] { doc.parse("<a>\n  <b>\n</a>"); },
              ThrowsMessage<xml::parse_error>(HasSubstr("at line 3, column 3")));
}

TEST(XmlTablet, FileWriteReplacesWholeAndReadsBack) {
  testing_support::TempDir dir;
  const std::string file = dir / "p.vlp";
  testing_support::WriteFile(file, std::string_view("old"));
  xml::tablet doc;
  doc.create("Velomar");
  xml::filter f(doc.root(), false);
  std::string name = "x & y";
  f.required("Name", name);
  doc.write(file);

  xml::tablet back;
  back.read(file);
  std::string read;
  EXPECT_TRUE(back.root().getAttribute("Name", read));
  EXPECT_EQ(read, name);
  size_t entries = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir.path())) (void)e, ++entries;
  EXPECT_EQ(entries, 1u) << "a temporary file stayed behind";

  EXPECT_THROW(doc.write(dir / "missing/p.vlp"), SystemError);
  EXPECT_THROW(back.read(dir / "none.vlp"), SystemError);
  EXPECT_EQ(back.root().name(), "Velomar");
}

}  // namespace
