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

}  // namespace
