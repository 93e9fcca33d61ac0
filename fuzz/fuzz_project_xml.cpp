// SPDX-License-Identifier: GPL-3.0-or-later
// Project files as outside input: the XML parser, the field layer, the
// timing tree (read, written and read again, which must give the same
// tree), a frame sequence and a segment's mask.
//
// Sequences resolve against the root folder: a fuzzed file may name any
// path, and only its existence is asked. Masks are capped well under the
// fuzzer's memory limit.
#include <sstream>
#include <string>

#include "app/file/mask_codec.h"
#include "base/frame_record.h"
#include "base/timing_xml.h"
#include "base/xml_tablet.h"
#include "fuzz_target.h"

namespace {

bool SameTree(const timing::node& a, const timing::node& b) {
  if (a.name != b.name || a.calls_count != b.calls_count || a.node_time != b.node_time ||
      a.subtree_time != b.subtree_time || a.node_count != b.node_count ||
      a.subtree_count != b.subtree_count || a.children.size() != b.children.size())
    return false;
  for (auto ia = a.children.begin(), ib = b.children.begin(); ia != a.children.end(); ++ia, ++ib)
    if (ia->first != ib->first || !SameTree(ia->second, ib->second)) return false;
  return true;
}

void TimingRoundTrip(const xml::node& element) {
  timing::tree tree;
  int64_t frequency = 0;
  xml::filter in(element, true);
  timing::TimingTreeFields(in, tree, frequency);
  if (element.isNull()) return;

  xml::tablet doc;
  doc.create("TimingTree");
  xml::filter out(doc.root(), false);
  timing::TimingTreeFields(out, tree, frequency);
  std::ostringstream text;
  doc.write(text);

  xml::tablet again;
  again.parse(text.str());
  timing::tree back;
  int64_t back_frequency = 0;
  xml::filter reread(again.root(), true);
  timing::TimingTreeFields(reread, back, back_frequency);
  if (back_frequency != frequency || !SameTree(tree.root(), back.root())) __builtin_trap();
}

template <class Step>
void Guarded(Step&& step) {
  try {
    step();
  } catch (const std::exception&) {
    // Every failure of malformed input is an exception with a text.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  xml::tablet doc;
  try {
    doc.parse(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const xml::parse_error&) {
    return 0;
  }
  const xml::node root = doc.root();
  Guarded([&] {
    for (const xml::node& segment : root.children("Segment")) {
      Guarded([&] { TimingRoundTrip(segment.Child("TimingTree")); });
      Guarded([&] {
        img::bitmap<img::bit1> mask;
        xml::filter f(segment.Child("Mask"), true);
        MaskFields(f, mask, 1 << 20);
      });
    }
  });
  Guarded([&] {
    std::vector<std::string> frames;
    xml::filter f(root.Child("Underlay"), true);
    SequenceFields(f, frames, "/");
  });
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto bytes = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  img::bitmap<img::bit1> mask(12, 5);
  for (uint32_t y = 0; y < mask.height; ++y)
    for (uint32_t x = 0; x < mask.stride; ++x) mask.rows[y][x] = uint8_t(0x5A ^ (x * 31 + y));
  const std::string encoded = EncodeMask(mask);
  return {
      bytes("<?xml version=\"1.0\"?>\n<Velomar CurrentTime=\"0\">\n"
            "  <Underlay path=\"/tmp/\" abs=\"1\">\n"
            "    <Frame path=\"a.png\" />\n    <Frame path=\"../b.png\" abs=\"0\" />\n"
            "  </Underlay>\n"
            "  <Segment Origin=\"3\">\n    <Mask encoded=\"" +
            encoded +
            "\" />\n"
            "    <TimingTree frequency=\"1000000000\">\n"
            "      <node>\n        <node name=\"flow\" calls_count=\"2\" node_time=\"5\" "
            "subtree_time=\"9\">\n          <node name=\"fit\" node_count=\"4\" />\n"
            "        </node>\n      </node>\n    </TimingTree>\n  </Segment>\n</Velomar>\n"),
      bytes("<Velomar><Underlay path=\"\"/><Segment><TimingTree frequency=\"x\"/></Segment>"
            "<Segment><Mask encoded=\"89504e47 0d0a1a0a\"/></Segment></Velomar>"),
      bytes("<Velomar><Segment><TimingTree frequency=\"1\"><node><node name=\"a\"/>"
            "<node name=\"a\"/></node></TimingTree></Segment></Velomar>"),
      bytes("<a><b></a>"),
  };
}
