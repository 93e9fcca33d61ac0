// SPDX-License-Identifier: GPL-3.0-or-later
// The link's framing as a peer delivers it: whatever bytes arrive before the
// peer closes, the reader either takes exactly the frame they announce or
// fails with its text, and never asks for memory the bytes do not back.
// What a frame carries then goes to the message reader, as the server does.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "exchange/link/message.h"
#include "exchange/link/transport.h"
#include "fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A socket's buffer holds this much without a reader; more is no new case.
  size = std::min<size_t>(size, 64 << 10);
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) return 0;
  const ssize_t sent = size ? ::send(fds[0], data, size, MSG_NOSIGNAL) : 0;
  ::close(fds[0]);
  exchange::link::TransportOptions options;
  options.io_timeout = std::chrono::milliseconds(100);
  options.max_message = 1 << 20;
  std::string bytes;
  bool read = false;
  try {
    exchange::link::ReadMessage(fds[1], bytes, options);
    read = true;
  } catch (const std::exception& e) {
    if (std::strstr(e.what(), "as a result of ReadFile (pipe, msg_") == nullptr) __builtin_trap();
  }
  ::close(fds[1]);
  if (sent != ssize_t(size) || !read) return 0;
  uint32_t claimed = 0;
  for (int i = 3; i >= 0; --i) claimed = claimed << 8 | data[i];
  if (bytes.size() != claimed || std::memcmp(bytes.data(), data + 4, claimed) != 0)
    __builtin_trap();
  exchange::link::Message message;
  try {
    message.FromBytes(bytes);
  } catch (const std::exception&) {
  }
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto frame = [](std::string_view content, uint32_t claimed) {
    std::vector<uint8_t> f = {uint8_t(claimed), uint8_t(claimed >> 8), uint8_t(claimed >> 16),
                              uint8_t(claimed >> 24)};
    f.insert(f.end(), content.begin(), content.end());
    return f;
  };
  const std::string doc = "<Message type=\"PossibleActions\" Underlay=\"1\"/>";
  return {
      frame("", 0),
      frame(doc, uint32_t(doc.size())),
      frame(doc, uint32_t(doc.size()) + 40),
      frame(doc, 0xFFFFFFFFu),
      frame(doc + "trailing", uint32_t(doc.size())),
      {0x05, 0x00},
  };
}
