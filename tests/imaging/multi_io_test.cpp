#include "imaging/multi_io.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;

// A format object that records what it was asked and answers from a script.
struct FakeReader : img::image_reader {
  FakeReader(std::string tag, bool sniffs, bool accepts, std::vector<std::string> exts)
      : tag(std::move(tag)), sniffing(sniffs), accepts(accepts), exts(std::move(exts)) {}
  std::string tag;
  bool sniffing, accepts;
  bool info_throws = false;
  std::vector<std::string> exts;
  std::vector<std::string>* log = nullptr;

  void extensions(std::vector<std::string>& out) const override { out = exts; }
  std::string filter() const override { return img::make_filter(exts); }
  bool info(const std::string& name, const std::string&, img::file_info* i) override {
    return info(name, i);
  }
  bool info(const std::string&, img::file_info* i) override {
    if (log) log->push_back(tag + ".info");
    if (info_throws) throw img::io_error("cannot open");
    if (accepts && i) i->format = tag;
    return accepts;
  }
  bool sniffs() const override { return sniffing; }
  void read(const std::string& name, const std::string&, img::image& out) override {
    read(name, out);
  }
  void read(const std::string&, img::image& out) override {
    if (log) log->push_back(tag + ".read");
    out.resize(1, 1, 4);
    out.rows[0][0] = uint8_t(tag[0]);
  }
};

struct Readers {
  std::vector<std::string> log;
  FakeReader* first;
  FakeReader* second;
  std::unique_ptr<img::multi_reader> multi;

  Readers(bool first_sniffs, bool first_accepts, bool second_accepts = true) {
    auto a = std::make_unique<FakeReader>("native", first_sniffs, first_accepts,
                                          std::vector<std::string>{"BMP", "TGA"});
    auto b = std::make_unique<FakeReader>("library", false, second_accepts,
                                          std::vector<std::string>{"BMP", "PNG"});
    a->log = b->log = &log;
    first = a.get();
    second = b.get();
    std::vector<std::unique_ptr<img::image_reader>> members;
    members.push_back(std::move(a));
    members.push_back(std::move(b));
    multi = std::make_unique<img::multi_reader>(std::move(members));
  }
};

TEST(MultiReader, SniffingMemberReadsOnlyWhatItsInfoAccepts) {
  img::image out;
  Readers accepted(true, true);
  accepted.multi->read("x.bmp", out);
  EXPECT_THAT(accepted.log, ElementsAre("native.info", "native.read"));

  Readers refused(true, false);
  refused.multi->read("x.png", out);
  EXPECT_THAT(refused.log, ElementsAre("native.info", "library.read"));
  EXPECT_EQ(out.rows[0][0], 'l');

  // A member that cannot even open the file passes it on.
  Readers failing(true, true);
  failing.first->info_throws = true;
  failing.multi->read("x.bmp", out);
  EXPECT_THAT(failing.log, ElementsAre("native.info", "library.read"));
}

TEST(MultiReader, NonSniffingMemberTakesEverything) {
  img::image out;
  Readers r(false, false);
  r.multi->read("x.bmp", out);
  EXPECT_THAT(r.log, ElementsAre("native.read"));
}

TEST(MultiReader, InfoAsksMembersInTurnAndLastFailureReachesCaller) {
  img::file_info info;
  Readers second_only(true, false, true);
  EXPECT_TRUE(second_only.multi->info("x", &info));
  EXPECT_EQ(info.format, "library");

  Readers nobody(true, false, false);
  EXPECT_FALSE(nobody.multi->info("x", &info));

  Readers last_throws(true, false);
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
  FakeWriter(std::string tag, std::vector<std::string> formats)
      : tag(std::move(tag)), formats(std::move(formats)) {}
  std::string tag;
  std::vector<std::string> formats;
  std::vector<std::string>* log = nullptr;
  void extensions(std::vector<std::string>& out) const override { out = formats; }
  std::string filter() const override { return img::make_filter(formats); }
  uint64_t write(const std::string&, const std::string& format, const img::image&, bool) override {
    log->push_back(tag + "." + format);
    for (const auto& f : formats)
      if (f == format) return 100;
    throw img::io_error("file format is not supported");
  }
};

TEST(MultiWriter, FirstMemberThatTakesTheFormatWritesAndLastFailureReachesCaller) {
  std::vector<std::string> log;
  auto a = std::make_unique<FakeWriter>("native", std::vector<std::string>{"BMP", "TGA"});
  auto b = std::make_unique<FakeWriter>("library", std::vector<std::string>{"PNG"});
  a->log = b->log = &log;
  std::vector<std::unique_ptr<img::image_writer>> members;
  members.push_back(std::move(a));
  members.push_back(std::move(b));
  img::multi_writer writer(std::move(members));
  img::image picture(2, 2);

  EXPECT_EQ(writer.write("f", "TGA", picture, true), 100u);
  EXPECT_EQ(writer.write("f", "PNG", picture, true), 100u);
  EXPECT_THROW(writer.write("f", "XYZ", picture, true), img::io_error);
  EXPECT_THAT(log,
              ElementsAre("native.TGA", "native.PNG", "library.PNG", "native.XYZ", "library.XYZ"));
}

}  // namespace
