// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/link/transport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "base/errors.h"

namespace exchange::link {

namespace {

constexpr const char* kCreate = "CreateNamedPipe";
constexpr const char* kAccept = "ConnectNamedPipe";
constexpr const char* kConnect = "WaitNamedPipe";
constexpr const char* kOpen = "CreateFile (pipe)";
constexpr const char* kReadSize = "ReadFile (pipe, msg_size)";
constexpr const char* kReadContent = "ReadFile (pipe, msg_content)";
constexpr const char* kWriteSize = "WriteFile (pipe, msg_size)";
constexpr const char* kWriteContent = "WriteFile (pipe, msg_content)";
constexpr const char* kFlush = "FlushFileBuffers (pipe)";
constexpr const char* kDisconnect = "DisconnectNamedPipe";

constexpr int kBacklog = 16;

sockaddr_un Address(const std::string& path, const char* operation) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path)
    throw SystemError(ENAMETOOLONG, operation);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

// A receive or send that timed out reports EAGAIN, which reads as nonsense
// to a user; so does a peer that simply went away.
int Reason(int error) {
  return error == EAGAIN || error == EWOULDBLOCK ? ETIMEDOUT : error;
}

void SetTimeout(int fd, int option, std::chrono::milliseconds timeout) {
  timeval tv{};
  tv.tv_sec = time_t(timeout.count() / 1000);
  tv.tv_usec = suseconds_t((timeout.count() % 1000) * 1000);
  ::setsockopt(fd, SOL_SOCKET, option, &tv, sizeof tv);
}

void SetTimeouts(int fd, const TransportOptions& options) {
  SetTimeout(fd, SO_RCVTIMEO, options.io_timeout);
  SetTimeout(fd, SO_SNDTIMEO, options.io_timeout);
}

// Reads up to `size` bytes; returns how many came and leaves the reason of a
// short read in `error` (EPIPE for the peer's end).
size_t ReadFull(int fd, char* data, size_t size, int& error) {
  size_t done = 0;
  error = 0;
  while (done < size) {
    const ssize_t n = ::recv(fd, data + done, size - done, 0);
    if (n > 0) {
      done += size_t(n);
    } else if (n == 0) {
      error = EPIPE;
      break;
    } else if (errno != EINTR) {
      error = Reason(errno);
      break;
    }
  }
  return done;
}

enum class Frame { Read, ClosedBeforeFirstByte };

Frame ReadFrame(int fd, std::string& bytes, const TransportOptions& options) {
  unsigned char head[4];
  int error = 0;
  const size_t got = ReadFull(fd, reinterpret_cast<char*>(head), sizeof head, error);
  if (got == 0 && error == EPIPE) return Frame::ClosedBeforeFirstByte;
  if (got < sizeof head) throw SystemError(error, kReadSize);
  const uint32_t size = uint32_t(head[0]) | uint32_t(head[1]) << 8 | uint32_t(head[2]) << 16 |
                        uint32_t(head[3]) << 24;
  if (size > options.max_message) throw SystemError(EMSGSIZE, kReadContent);
  bytes.clear();
  // Grown as bytes arrive, never to the claimed size at once.
  size_t step = 1 << 16;
  while (bytes.size() < size) {
    const size_t old = bytes.size();
    const size_t want = std::min<size_t>(size - old, step);
    bytes.resize(old + want);
    const size_t n = ReadFull(fd, bytes.data() + old, want, error);
    if (n < want) {
      bytes.resize(old + n);
      throw SystemError(error, kReadContent);
    }
    step = std::min<size_t>(step * 2, 1 << 24);
  }
  return Frame::Read;
}

// A connected client socket. Busy servers (a full backlog) are retried
// until connect_wait passes; a missing or dead server fails at once, as
// there is nothing to wait for.
int Connect(const std::string& path, const TransportOptions& options) {
  const sockaddr_un address = Address(path, kConnect);
  const auto deadline = std::chrono::steady_clock::now() + options.connect_wait;
  for (;;) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) throw SystemError(kOpen);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      // Blocking from here on; the timeouts bound every wait.
      const int flags = ::fcntl(fd, F_GETFL);
      ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
      SetTimeouts(fd, options);
      return fd;
    }
    const int error = errno;
    ::close(fd);
    if ((error != EAGAIN && error != EINTR) || std::chrono::steady_clock::now() >= deadline)
      throw SystemError(error, kConnect);
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  }
}

// 0 when a server took the connection; ECONNREFUSED when nobody listens on
// the file; EAGAIN when a server is there but busy.
int ConnectOnce(const sockaddr_un& address) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return errno;
  const int error =
      ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
  ::close(fd);
  return error;
}

struct Closer {
  int fd;
  ~Closer() { ::close(fd); }
};

}  // namespace

std::string SocketFolder() {
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime) return runtime;
  const std::string folder =
      (std::filesystem::temp_directory_path() / ("velomar-" + std::to_string(::getuid()))).string();
  const std::string operation = "creating " + folder;
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) throw SystemError(operation.c_str());
  // Someone may have made the name first: only a real folder of ours that
  // nobody else may enter will do.
  struct stat st {};
  if (::lstat(folder.c_str(), &st) != 0) throw SystemError(operation.c_str());
  if (!S_ISDIR(st.st_mode) || st.st_uid != ::getuid() || (st.st_mode & 077) != 0)
    throw SystemError(EACCES, operation.c_str());
  return folder;
}

std::string SocketPath(std::string_view name) {
  return (std::filesystem::path(SocketFolder()) / name).string();
}

void ReadMessage(int fd, std::string& bytes, const TransportOptions& options) {
  if (ReadFrame(fd, bytes, options) == Frame::ClosedBeforeFirstByte)
    throw SystemError(EPIPE, kReadSize);
}

void WriteMessage(int fd, std::string_view bytes) {
  if (bytes.size() > UINT32_MAX) throw SystemError(EMSGSIZE, kWriteSize);
  const auto size = uint32_t(bytes.size());
  unsigned char head[4] = {uint8_t(size), uint8_t(size >> 8), uint8_t(size >> 16),
                           uint8_t(size >> 24)};
  // Size and content in one call where the socket takes them: one system
  // call per small message.
  size_t sent = 0;
  const size_t total = sizeof head + bytes.size();
  while (sent < total) {
    iovec parts[2];
    int count = 0;
    if (sent < sizeof head) parts[count++] = {head + sent, sizeof head - sent};
    const size_t content_done = sent < sizeof head ? 0 : sent - sizeof head;
    if (content_done < bytes.size())
      parts[count++] = {const_cast<char*>(bytes.data()) + content_done,
                        bytes.size() - content_done};
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = size_t(count);
    const ssize_t n = ::sendmsg(fd, &header, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      throw SystemError(n < 0 ? Reason(errno) : EPIPE,
                        sent < sizeof head ? kWriteSize : kWriteContent);
    sent += size_t(n);
  }
}

PipeServer::PipeServer(std::string path, TransportOptions options)
    : path_(std::move(path)), options_(options) {
  const sockaddr_un address = Address(path_, kCreate);
  listen_fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listen_fd_ < 0) throw SystemError(kCreate);
  // Linux gives the socket file the mode of the socket, so the file is
  // never open to others, not even between bind and chmod.
  ::fchmod(listen_fd_, 0600);
  auto fail = [&](int error) {
    ::close(listen_fd_);
    listen_fd_ = -1;
    throw SystemError(error, kCreate);
  };
  auto bind_once = [&] {
    return ::bind(listen_fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
               ? 0
               : errno;
  };
  int error = bind_once();
  if (error == EADDRINUSE) {
    // A live server keeps its socket; a socket file nobody answers on was
    // left by a server that died, and is ours to replace.
    struct stat st {};
    if (ConnectOnce(address) != ECONNREFUSED || ::lstat(path_.c_str(), &st) != 0 ||
        !S_ISSOCK(st.st_mode))
      fail(EADDRINUSE);
    ::unlink(path_.c_str());
    error = bind_once();
  }
  if (error != 0) fail(error);
  ::chmod(path_.c_str(), 0600);
  if (::listen(listen_fd_, kBacklog) != 0) fail(errno);
  struct stat st {};
  if (::lstat(path_.c_str(), &st) == 0) {
    device_ = st.st_dev;
    inode_ = st.st_ino;
  }
}

PipeServer::~PipeServer() {
  Drop();
  if (listen_fd_ < 0) return;
  ::close(listen_fd_);
  // Only our own file: a later server may have replaced it.
  struct stat st {};
  if (::lstat(path_.c_str(), &st) == 0 && st.st_dev == device_ && st.st_ino == inode_)
    ::unlink(path_.c_str());
}

void PipeServer::Drop() {
  if (client_fd_ >= 0) ::close(client_fd_);
  client_fd_ = -1;
}

bool PipeServer::Wait(std::string& request) {
  Drop();
  for (;;) {
    if (woken_.load()) return false;
    if (options_.accept_wait.count() > 0) {
      pollfd ready{listen_fd_, POLLIN, 0};
      const int n = ::poll(&ready, 1, int(options_.accept_wait.count()));
      if (n < 0 && errno == EINTR) continue;
      if (n == 0) throw SystemError(ETIMEDOUT, kAccept);
    }
    const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (woken_.load()) return false;
      throw SystemError(kAccept);
    }
    client_fd_ = fd;
    SetTimeouts(fd, options_);
    Frame frame;
    try {
      frame = ReadFrame(fd, request, options_);
    } catch (...) {
      Drop();
      throw;
    }
    if (frame == Frame::ClosedBeforeFirstByte) {
      Drop();
      continue;
    }
    if (request.empty()) {
      Drop();
      return false;
    }
    return true;
  }
}

void PipeServer::Reply(std::string_view reply) {
  const int fd = client_fd_;
  if (fd < 0) throw SystemError(ENOTCONN, kWriteSize);
  try {
    WriteMessage(fd, reply);
  } catch (...) {
    Drop();
    throw;
  }
  // The end of our writing tells the client the reply is whole.
  if (::shutdown(fd, SHUT_WR) != 0 && errno != ENOTCONN) {
    const int error = errno;
    Drop();
    throw SystemError(error, kFlush);
  }
  client_fd_ = -1;
  if (::close(fd) != 0 && errno != EINTR) throw SystemError(kDisconnect);
}

void PipeServer::Wake() {
  woken_.store(true);
  try {
    SendStop(path_, options_);
  } catch (const std::exception&) {
    // Our own socket refused us (its file gone, the backlog full): end the
    // wait by closing the door instead.
    ::shutdown(listen_fd_, SHUT_RDWR);
  }
}

void Transact(const std::string& path,
              std::string_view request,
              std::string& reply,
              const TransportOptions& options) {
  const Closer socket{Connect(path, options)};
  WriteMessage(socket.fd, request);
  SetTimeout(socket.fd, SO_RCVTIMEO, options.reply_wait);
  ReadMessage(socket.fd, reply, options);
}

void SendStop(const std::string& path, const TransportOptions& options) {
  const Closer socket{Connect(path, options)};
  const unsigned char zero[4] = {0, 0, 0, 0};
  // The result is not looked at: the server owes no reply, and one that
  // went away has stopped anyway.
  [[maybe_unused]] const ssize_t n = ::send(socket.fd, zero, sizeof zero, MSG_NOSIGNAL);
}

bool IsListening(const std::string& path, const TransportOptions& options) {
  try {
    const Closer socket{Connect(path, options)};
    return true;
  } catch (const SystemError&) {
    return false;
  }
}

}  // namespace exchange::link
