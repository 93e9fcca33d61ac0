// SPDX-License-Identifier: GPL-3.0-or-later
// The link's byte transport: local stream sockets, one transaction (one
// request, one reply) per connection, each message framed as a 32-bit
// little-endian size and that many bytes of content. A size of 0 is the
// empty message; sent to a server as a request it is the stop signal, and
// the server ends without a reply.
//
// The program listens on "VLApp", the host's plug-in on "VLPlugin", both in
// the user's runtime folder (SocketFolder()). Each side is server on its own
// socket and client on the other's, so either may start a transaction while
// it answers one.
//
// Every failure is a SystemError whose operation names the step:
// "CreateNamedPipe", "ConnectNamedPipe", "WaitNamedPipe", "CreateFile
// (pipe)", "ReadFile (pipe, msg_size)", "ReadFile (pipe, msg_content)",
// "WriteFile (pipe, msg_size)", "WriteFile (pipe, msg_content)",
// "FlushFileBuffers (pipe)", "DisconnectNamedPipe". A peer that closes early
// reads as "Broken pipe", one that stalls as "Connection timed out".
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace exchange::link {

inline constexpr const char* kAppSocket = "VLApp";
inline constexpr const char* kPluginSocket = "VLPlugin";

struct TransportOptions {
  // How long a client keeps trying to connect while the server is busy with
  // another client or not there yet.
  std::chrono::milliseconds connect_wait{50};
  // Longest silence inside one message, on either side; a peer that stalls
  // longer loses its connection. Zero: wait without limit.
  std::chrono::milliseconds io_timeout{5000};
  // How long a client waits for the reply once its request is sent: the
  // peer may do real work before it answers. Zero: without limit.
  std::chrono::milliseconds reply_wait{60000};
  // How long a server's Wait() waits for a client before it fails with
  // "ConnectNamedPipe" and "Connection timed out". Zero: without limit.
  std::chrono::milliseconds accept_wait{0};
  // Largest content a reader accepts. The buffer grows with the bytes that
  // actually arrive, so a peer claiming more than it sends costs nothing.
  uint32_t max_message = 256u << 20;
};

// The folder of the sockets: $XDG_RUNTIME_DIR when set, else a folder
// "velomar-<uid>" in the temporary folder, made with mode 0700 if missing
// and refused (SystemError naming it) unless it is a real folder of ours
// that nobody else may enter.
std::string SocketFolder();
// SocketFolder() joined with `name`.
std::string SocketPath(std::string_view name);

// One framed message on a connected socket. Reading fails when the peer
// ends or stalls before the whole frame; writing when any byte cannot go.
void ReadMessage(int fd, std::string& bytes, const TransportOptions& options = {});
void WriteMessage(int fd, std::string_view bytes);

// The server's socket. Only one instance serves a path: a socket file whose
// server still answers is left alone ("CreateNamedPipe" with "Address
// already in use"); one left behind by a server that died is replaced. The
// socket file is the owner's only, and is removed when the server goes.
class PipeServer {
 public:
  explicit PipeServer(std::string path, TransportOptions options = {});
  ~PipeServer();
  PipeServer(const PipeServer&) = delete;
  PipeServer& operator=(const PipeServer&) = delete;

  const std::string& path() const { return path_; }

  // Waits for a client and reads its request. False for the stop signal
  // (or after Wake()): no reply is owed then. A connection closed before
  // its first byte is no request (a client asking whether we listen) and
  // is skipped. Any other failure drops the connection and throws.
  bool Wait(std::string& request);
  // Answers the request Wait() returned and ends that connection, also
  // when the write fails.
  void Reply(std::string_view reply);
  // From another thread: makes a Wait() in progress or to come return
  // false, by the stop signal on our own socket.
  void Wake();

 private:
  void Drop();

  std::string path_;
  TransportOptions options_;
  int listen_fd_ = -1;
  int client_fd_ = -1;
  // The socket file as we made it, so that we never remove another's.
  uint64_t device_ = 0;
  uint64_t inode_ = 0;
  std::atomic<bool> woken_{false};
};

// The client's whole transaction: connect (retrying for connect_wait),
// send the request, read the reply, close.
void Transact(const std::string& path,
              std::string_view request,
              std::string& reply,
              const TransportOptions& options = {});

// Sends the stop signal to the server at `path` and waits for no reply.
void SendStop(const std::string& path, const TransportOptions& options = {});

// Whether a server accepts connections at `path` within connect_wait.
bool IsListening(const std::string& path, const TransportOptions& options = {});

}  // namespace exchange::link
