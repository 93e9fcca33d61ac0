// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/timing_xml.h"

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/xml_tablet.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

void Figures(timing::node& n, uint32_t calls, int64_t t, int64_t st, int64_t c, int64_t sc) {
  n.calls_count = calls;
  n.node_time = t;
  n.subtree_time = st;
  n.node_count = c;
  n.subtree_count = sc;
}

timing::tree Sample() {
  timing::tree t;
  // Made out of name order: the file must come out sorted anyway.
  Figures(t.root().child("profiles"), 3, 70, 100, 7000, 10000);
  Figures(t.root().child("profiles").child("sum"), 3, 30, 30, 3000, 3000);
  Figures(t.root().child("flow"), 1, 5, 5, 500, 900);
  Figures(t.root().child("Fit"), 2, 0, 0, 0, 0);
  return t;
}

std::string Write(timing::tree& t, int64_t frequency) {
  xml::tablet doc;
  doc.create("TimingTree");
  xml::filter f(doc.root(), false);
  timing::TimingTreeFields(f, t, frequency);
  std::ostringstream out;
  doc.write(out);
  return out.str();
}

void Read(const std::string& text, timing::tree& t, int64_t& frequency) {
  xml::tablet doc;
  doc.parse(text);
  xml::filter f(doc.root(), true);
  timing::TimingTreeFields(f, t, frequency);
}

TEST(TimingXml, WritesChildrenInNameOrderWithSubtreeDefaults) {
  timing::tree t = Sample();
  const std::string text = Write(t, 1000000000);
  EXPECT_EQ(text,
            "<?xml version=\"1.0\"?>\n"
            "<TimingTree frequency=\"1000000000\">\n"
            "  <node>\n"
            "    <node name=\"Fit\" calls_count=\"2\" />\n"
            "    <node name=\"flow\" calls_count=\"1\" node_time=\"5\" node_count=\"500\" "
            "subtree_count=\"900\" />\n"
            "    <node name=\"profiles\" calls_count=\"3\" node_time=\"70\" subtree_time=\"100\" "
            "node_count=\"7000\" subtree_count=\"10000\">\n"
            "      <node name=\"sum\" calls_count=\"3\" node_time=\"30\" node_count=\"3000\" />\n"
            "    </node>\n"
            "  </node>\n"
            "</TimingTree>\n");
}

TEST(TimingXml, MalformedTreesFailAndKeepTheTarget) {
  std::string deep = "<T frequency=\"1\"><node>";
  for (int i = 0; i <= timing::kMaxXmlDepth; ++i) deep += "<node name=\"n\">";
  for (int i = 0; i <= timing::kMaxXmlDepth; ++i) deep += "</node>";
  deep += "</node></T>";
  struct Case {
    std::string text;
    const char* message;
  };
  const Case cases[] = {
      {"<T><node/></T>", "attribute not found"},
      {"<T frequency=\"x\"><node/></T>", "attribute parse error"},
      {"<T frequency=\"1\"><node><node name=\"a\"/><node name=\"a\"/></node></T>",
       "Node is ambiguous (a)"},
      {"<T frequency=\"1\"><node/><node/></T>", "Node is ambiguous (node)"},
      {deep, "timing tree is too deep"},
  };
  for (const Case& c : cases) {
    timing::tree t = Sample();
    int64_t frequency = 5;
    EXPECT_THAT([&] { Read(c.text, t, frequency); }, ThrowsMessage<xml::exception>(c.message))
        << c.text.substr(0, 80);
    EXPECT_EQ(t.root().children.size(), 3u);
    EXPECT_EQ(frequency, 5);
  }
}

}  // namespace
