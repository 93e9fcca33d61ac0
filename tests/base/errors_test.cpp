#include "base/errors.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(SystemError, MessageNamesReasonThenOperation) {
  const SystemError error(ENOENT, "opening shot.0001.tga");
  EXPECT_STREQ(error.what(),
               "System error: No such file or directory\nas a result of opening shot.0001.tga");
  EXPECT_EQ(error.error_number(), ENOENT);
}

TEST(SystemError, OneArgumentFormReadsErrno) {
  errno = EACCES;
  const SystemError error("writing the crash file");
  EXPECT_EQ(error.error_number(), EACCES);
  EXPECT_EQ(std::string(error.what()), std::string("System error: ") + std::strerror(EACCES) +
                                           "\nas a result of writing the crash file");
}

TEST(SystemError, CaughtAsTheProgramsExceptionTypes) {
  try {
    throw SystemError(EINVAL, "setting up");
  } catch (const xtd::exception& e) {
    EXPECT_NE(std::string(e.what()).find("as a result of setting up"), std::string::npos);
  }
  const xtd::exception plain("no images in sequence");
  const std::exception& base = plain;
  EXPECT_STREQ(base.what(), "no images in sequence");
}

}  // namespace
