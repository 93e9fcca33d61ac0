// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/paths.h"

#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ThrowsMessage;

constexpr PathPolicy W = PathPolicy::Windows;
constexpr PathPolicy P = PathPolicy::Posix;

struct Case {
  PathPolicy policy;
  const char* a;
  const char* b;
  const char* expected;
};

std::string Describe(const Case& c) {
  return std::string(c.policy == W ? "windows" : "posix") + " \"" + c.a + "\" \"" + c.b + "\"";
}

TEST(Paths, RelativePath) {
  const Case cases[] = {
      {W, "C:\\A\\B\\f.bmp", "c:\\a\\", "b\\f.bmp"},
      {W, "c:\\x\\f.bmp", "c:\\a\\b", "..\\..\\x\\f.bmp"},
      {W, "d:\\x.bmp", "c:\\a\\", "d:\\x.bmp"},
      {W, "c:/a/b/F.bmp", "C:\\A", "b\\f.bmp"},
      {W, "c:\\ab\\f.bmp", "c:\\a\\", "..\\ab\\f.bmp"},  // components, not prefixes
      {W, "", "c:\\a\\", ""},
      {P, "/x/f.bmp", "/a/b", "../../x/f.bmp"},
      {P, "/A/b/f.bmp", "/a/", "../A/b/f.bmp"},  // case is kept, and it matters
      {P, "\\a\\b\\f.bmp", "/a", "b/f.bmp"},
      {P, "d:\\x.bmp", "/a/", "d:/x.bmp"},
      {P, "shots/f.bmp", "shots", "f.bmp"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(RelativePath(c.a, c.b, c.policy), c.expected) << Describe(c);
}

TEST(Paths, CombinePath) {
  const Case cases[] = {
      {W, "..\\x.bmp", "c:\\a\\b\\", "c:\\a\\x.bmp"},
      {W, ".\\X.bmp", "C:\\A", "c:\\a\\x.bmp"},
      {W, "b/f.bmp", "c:\\a", "c:\\a\\b\\f.bmp"},
      {W, "..\\..\\..\\x.bmp", "c:\\a\\", "c:\\x.bmp"},  // never above the root
      {W, "D:\\X.bmp", "c:\\a", "D:\\X.bmp"},
      {W, "", "C:\\A", "C:\\A"},
      {P, "..\\x.bmp", "/a/b", "/a/x.bmp"},
      {P, "./X.bmp", "/A", "/A/X.bmp"},
      {P, "../../x.bmp", "a/", "../x.bmp"},  // a relative base is used up
      {P, "x.bmp", "", "x.bmp"},
  };
  for (const Case& c : cases) EXPECT_EQ(CombinePath(c.a, c.b, c.policy), c.expected) << Describe(c);
}

TEST(Paths, NormalizeFoldsCaseOnlyUnderWindowsRules) {
  for (const auto& [policy, expected] :
       {std::pair{W, "c:\\dir\\shot.bmp"}, std::pair{P, "C:/Dir/Shot.BMP"}}) {
    std::string path = "C:/Dir\\Shot.BMP";
    Normalize(path, policy);
    EXPECT_EQ(path, expected);
  }
}

TEST(Paths, SplitPathAndItsUsers) {
  struct Split {
    const char* path;
    const char *drive, *dir, *name, *ext;
  };
  const Split cases[] = {
      {"c:\\dir\\sub/name.ext.bmp", "c:", "\\dir\\sub/", "name.ext", ".bmp"},
      {"/a.b/c", "", "/a.b/", "c", ""},
      {"c:f.bmp", "c:", "", "f", ".bmp"},
      {"dir/", "", "dir/", "", ""},
  };
  for (const Split& c : cases) {
    std::string drive, dir, name, ext;
    SplitPath(c.path, &drive, &dir, &name, &ext);
    EXPECT_EQ(drive, c.drive) << c.path;
    EXPECT_EQ(dir, c.dir) << c.path;
    EXPECT_EQ(name, c.name) << c.path;
    EXPECT_EQ(ext, c.ext) << c.path;
    EXPECT_EQ(drive + dir + name + ext, c.path);
    EXPECT_EQ(FileTitle(c.path), c.name);
  }
}

TEST(Paths, DirectoryOfFileAndOfFolder) {
  const std::pair<const char*, const char*> cases[] = {
      {"c:\\a\\b\\", "c:\\a\\"},
      {"c:\\a\\b.bmp", "c:\\a\\"},
      {"/a/b/", "/a/"},
      {"/a/b", "/a/"},
      {"f.bmp", ""},
      {"", ""},
  };
  for (const auto& [path, dir] : cases) EXPECT_EQ(Directory(path), dir) << path;
}

TEST(Paths, MakePathAddsMissingMarksAndRefusesLongParts) {
  EXPECT_EQ(MakePath("c", "\\a", "f", "bmp", W), "c:\\a\\f.bmp");
  EXPECT_EQ(MakePath("c:", "\\a\\", "f", ".bmp", W), "c:\\a\\f.bmp");
  EXPECT_EQ(MakePath("", "/a", "f", ".bmp", P), "/a/f.bmp");
  const std::string part257(257, 'x');
  EXPECT_THAT([] { MakePath("c:\\x", "", "f", ""); },
              ThrowsMessage<std::runtime_error>(testing::StrEq("drive too long")));
  EXPECT_THAT([&] { MakePath("", part257, "f", ""); },
              ThrowsMessage<std::runtime_error>(testing::StrEq("path too long")));
  EXPECT_THAT([&] { MakePath("", "", part257, ""); },
              ThrowsMessage<std::runtime_error>(testing::StrEq("file name too long")));
  EXPECT_THAT([&] { MakePath("", "", "f", part257); },
              ThrowsMessage<std::runtime_error>(testing::StrEq("extension too long")));
}

TEST(Paths, ChangeExtension) {
  EXPECT_EQ(ChangeExtension("c:\\a.b\\f.tga", ".bmp", W), "c:\\a.b\\f.bmp");
  EXPECT_EQ(ChangeExtension("/a.b/f", "png", P), "/a.b/f.png");
  EXPECT_EQ(ChangeExtension("/a/f.0001.bmp", "", P), "/a/f.0001");
  EXPECT_THAT([] { ChangeExtension("f.bmp", std::string(256, 'x')); },
              ThrowsMessage<std::runtime_error>(testing::StrEq("too long extension")));
}

TEST(Paths, AbsoluteAndDrive) {
  for (const char* path : {"\\a", "/a", "c:x"}) EXPECT_TRUE(IsAbsolute(path)) << path;
  for (const char* path : {"", "a\\b", "c"}) EXPECT_FALSE(IsAbsolute(path)) << path;
  EXPECT_TRUE(SameDrive("c:\\a", "c:/b"));
  EXPECT_FALSE(SameDrive("c:\\a", "C:\\a"));  // byte for byte
  EXPECT_TRUE(SameDrive("/a", "/b"));
  EXPECT_FALSE(SameDrive("c:\\a", "/a"));
}

}  // namespace
