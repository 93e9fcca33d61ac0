// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/errors.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(SystemError, MessageNamesReasonThenOperation) {
  const SystemError given(ENOENT, "opening shot.0001.tga");
  EXPECT_STREQ(given.what(),
               "System error: No such file or directory\nas a result of opening shot.0001.tga");
  EXPECT_EQ(given.error_number(), ENOENT);
  errno = EACCES;
  const SystemError from_errno("writing the crash file");
  EXPECT_EQ(from_errno.error_number(), EACCES);
  EXPECT_EQ(std::string(from_errno.what()), std::string("System error: ") + std::strerror(EACCES) +
                                                "\nas a result of writing the crash file");
}

}  // namespace
