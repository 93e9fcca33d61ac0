# SPDX-License-Identifier: GPL-3.0-or-later
# Applies the sanitizer set chosen by VELOMAR_SANITIZE to everything built
# after this point. Address and thread sanitizers cannot be combined.
if(VELOMAR_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(VELOMAR_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VELOMAR_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VELOMAR_SANITIZE must be empty, 'address' or 'thread'")
endif()

if(VELOMAR_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "VELOMAR_FUZZ needs clang (libFuzzer)")
  endif()
  if(NOT VELOMAR_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VELOMAR_FUZZ brings its own sanitizers; leave VELOMAR_SANITIZE empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
