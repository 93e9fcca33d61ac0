// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/multi_io.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using Log = std::vector<std::string>;

// A format object that logs what it was asked and answers from a script.
struct FakeReader : img::image_reader {
  FakeReader(std::string tag, bool sniffs, bool accepts, Log* log, std::vector<std::string> exts)
      : tag(tag), sniffing(sniffs), accepts(accepts), log(log), exts(exts) {}
  std::string tag;
  bool sniffing, accepts, info_throws = false;
  Log* log;
  std::vector<std::string> exts;

  void extensions(std::vector<std::string>& out) const override { out = exts; }
  std::string filter() const override { return img::make_filter(exts); }
  bool info(const std::string& name, const std::string&, img::file_info* i) override {
    return info(name, i);
  }
  bool info(const std::string&, img::file_info* i) override {
    log->push_back(tag + ".info");
    if (info_throws) throw img::io_error("cannot open");
    if (accepts && i) i->format = tag;
    return accepts;
  }
  bool sniffs() const override { return sniffing; }
  void read(const std::string& name, const std::string&, img::image& out) override {
    read(name, out);
  }
  void read(const std::string&, img::image& out) override {
    log->push_back(tag + ".read");
    out.resize(1, 1, 4);
  }
};

// A sniffing "native" member for BMP and TGA before a "library" one for BMP and PNG.
struct Readers {
  Log log;
  FakeReader* first;
  FakeReader* second;
  std::unique_ptr<img::multi_reader> multi;

  Readers(bool first_sniffs, bool first_accepts, bool second_accepts = true) {
    std::vector<std::unique_ptr<img::image_reader>> members;
    members.push_back(std::make_unique<FakeReader>("native", first_sniffs, first_accepts, &log,
                                                   std::vector<std::string>{"BMP", "TGA"}));
    members.push_back(std::make_unique<FakeReader>("library", false, second_accepts, &log,
                                                   std::vector<std::string>{"BMP", "PNG"}));
    first = static_cast<FakeReader*>(members[0].get());
    second = static_cast<FakeReader*>(members[1].get());
    multi = std::make_unique<img::multi_reader>(std::move(members));
  }
};

// A sniffing member reads only what its info accepts, and one that cannot
// even open the file passes it on; a member that does not sniff takes all.
TEST(MultiReader, ReadGoesToTheFirstMemberThatTakesTheFile) {
  img::image out;
  Readers accepted(true, true), refused(true, false), failing(true, true), plain(false, false);
  failing.first->info_throws = true;
  for (Readers* r : {&accepted, &refused, &failing, &plain}) r->multi->read("x.bmp", out);
  EXPECT_THAT(accepted.log, ElementsAre("native.info", "native.read"));
  EXPECT_THAT(refused.log, ElementsAre("native.info", "library.read"));
  EXPECT_THAT(failing.log, ElementsAre("native.info", "library.read"));
  EXPECT_THAT(plain.log, ElementsAre("native.read"));
}

TEST(MultiReader, InfoAsksMembersInTurnAndLastFailureReachesCaller) {
  img::file_info info;
  Readers second_only(true, false, true), nobody(true, false, false), last_throws(true, false);
  EXPECT_TRUE(second_only.multi->info("x", &info));
  EXPECT_EQ(info.format, "library");
  EXPECT_FALSE(nobody.multi->info("x", &info));
  last_throws.second->info_throws = true;
  EXPECT_THROW(last_throws.multi->info("x", &info), img::io_error);
}

TEST(MultiReader, ExtensionsAreUnionInFirstAppearanceOrder) {
  Readers r(true, true);
  std::vector<std::string> exts{"stale"};
  r.multi->extensions(exts);
  EXPECT_THAT(exts, ElementsAre("BMP", "TGA", "PNG"));
  EXPECT_EQ(r.multi->filter(), "*.BMP;*.TGA;*.BMP;*.PNG");
}

struct FakeWriter : img::image_writer {
  FakeWriter(std::string tag, std::vector<std::string> formats, Log* log)
      : tag(tag), formats(formats), log(log) {}
  std::string tag;
  std::vector<std::string> formats;
  Log* log;
  void extensions(std::vector<std::string>& out) const override { out = formats; }
  std::string filter() const override { return img::make_filter(formats); }
  uint64_t write(const std::string&, const std::string& format, const img::image&, bool) override {
    log->push_back(tag + "." + format);
    if (std::find(formats.begin(), formats.end(), format) == formats.end())
      throw img::io_error("file format is not supported");
    return tag.size();
  }
};

TEST(MultiWriter, FirstMemberThatTakesTheFormatWritesAndLastFailureReachesCaller) {
  Log log;
  std::vector<std::unique_ptr<img::image_writer>> members;
  members.push_back(std::make_unique<FakeWriter>("native", std::vector<std::string>{"TGA"}, &log));
  members.push_back(std::make_unique<FakeWriter>("library", std::vector<std::string>{"PNG"}, &log));
  img::multi_writer writer(std::move(members));
  const img::image picture(2, 2);
  EXPECT_EQ(writer.write("f", "TGA", picture, true), 6u);  // what the member wrote
  EXPECT_EQ(writer.write("f", "PNG", picture, true), 7u);
  EXPECT_THROW(writer.write("f", "XYZ", picture, true), img::io_error);
  EXPECT_THAT(log,
              ElementsAre("native.TGA", "native.PNG", "library.PNG", "native.XYZ", "library.XYZ"));
}

}  // namespace
