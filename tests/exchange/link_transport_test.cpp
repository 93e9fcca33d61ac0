// SPDX-License-Identifier: GPL-3.0-or-later
// The link's transport: framing, one transaction per connection, the stop
// signal, peers that misbehave, and who owns the socket file.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/errors.h"
#include "exchange/link/records.h"
#include "exchange/link/server.h"
#include "exchange/link/transport.h"
#include "testing/files.h"

namespace {

namespace xl = exchange::link;
using ::testing::HasSubstr;
using testing_support::TempDir;
using namespace std::chrono_literals;

xl::TransportOptions Quick() {
  xl::TransportOptions o;
  o.io_timeout = 150ms;
  o.reply_wait = 2000ms;
  return o;
}

TEST(LinkFraming, SizeIsLittleEndianAndContentFollows) {
  for (const size_t size : {size_t(0), size_t(1), size_t(3'000'000)}) {
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    std::string sent(size, '\0');
    for (size_t i = 0; i < size; ++i) sent[i] = char(i * 7 + i / 251);
    std::thread writer([&] { xl::WriteMessage(fds[0], sent); });
    unsigned char head[4];
    ASSERT_EQ(::recv(fds[1], head, 4, MSG_WAITALL), 4);
    EXPECT_EQ(head[0] | head[1] << 8 | head[2] << 16 | uint32_t(head[3]) << 24, size);
    std::string content(size, '\0');
    if (size) {
      ASSERT_EQ(::recv(fds[1], content.data(), size, MSG_WAITALL), ssize_t(size));
    }
    EXPECT_TRUE(content == sent) << "size " << size;
    writer.join();
    // And the reader takes what the writer framed.
    std::thread again([&] { xl::WriteMessage(fds[0], sent); });
    std::string read = "stale";
    xl::ReadMessage(fds[1], read);
    EXPECT_TRUE(read == sent) << "size " << size;
    again.join();
    ::close(fds[0]);
    ::close(fds[1]);
  }
}

// A server that answers "PossibleActions" with Project set, and records
// what went wrong with its peers.
class TestServer : public xl::Server {
 public:
  TestServer(const std::string& path, xl::TransportOptions options) : Server(path, options) {
    Start();
  }
  ~TestServer() override { Stop(); }
  std::vector<std::string> errors() {
    std::lock_guard lock(mutex_);
    return errors_;
  }
  bool ended() { return HasEnded(); }

 protected:
  bool OnMessage(xl::Message& m) override {
    if (m.GetType() == xl::MessageType::Transformations) throw std::runtime_error("boom");
    if (m.GetType() != xl::MessageType::PossibleActions) return false;
    xl::PossibleActions a;
    a.Project = true;
    m = xl::MakePossibleActionsMessage(a);
    return true;
  }
  void OnError(const char* text) override {
    std::lock_guard lock(mutex_);
    errors_.push_back(text);
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> errors_;
};

xl::Message Ask(const std::string& path, const xl::Message& request) {
  std::string reply;
  xl::Transact(path, request.ToBytes(), reply, Quick());
  xl::Message m;
  m.FromBytes(reply);
  return m;
}

void ExpectServes(const std::string& path) {
  const xl::Message reply = Ask(path, xl::Message(xl::MessageType::PossibleActions));
  EXPECT_TRUE(xl::ReadPossibleActionsMessage(reply).Project);
}

// A raw client: connects, sends `bytes`, then closes or stays silent.
std::string RawPeer(const std::string& path, const std::string& bytes, bool hang) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  if (!bytes.empty()) {
    EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
  }
  std::string reply;
  if (hang) {
    // Silent longer than the server's patience: it must give up on us.
    std::this_thread::sleep_for(400ms);
  } else {
    ::shutdown(fd, SHUT_WR);
    char buffer[4096];
    ssize_t n;
    timeval tv{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0) reply.append(buffer, size_t(n));
  }
  ::close(fd);
  return reply;
}

std::string Frame(const std::string& content, uint32_t claimed) {
  std::string f(4, '\0');
  for (int i = 0; i < 4; ++i) f[i] = char(claimed >> (8 * i));
  return f + content;
}

struct BadPeer {
  const char* name;
  std::string bytes;
  bool hang;
  std::string reply;  // the error text of the reply, empty: no reply
  std::string error;  // what the server reports, empty: nothing
};

void PrintTo(const BadPeer& p, std::ostream* out) {
  *out << p.name;
}

class LinkBadPeer : public ::testing::TestWithParam<BadPeer> {};

TEST_P(LinkBadPeer, IsAnsweredOrDroppedAndTheNextPeerIsServed) {
  const BadPeer& c = GetParam();
  TempDir dir;
  TestServer server(dir / "VLApp", Quick());
  const std::string raw = RawPeer(server.path(), c.bytes, c.hang);
  if (c.reply.empty()) {
    EXPECT_EQ(raw, "");
  } else {
    ASSERT_GE(raw.size(), 4u);
    xl::Message m;
    m.FromBytes(std::string_view(raw).substr(4));
    EXPECT_THAT([&] { m.Throw(); }, ::testing::ThrowsMessage<xl::BadMessage>(c.reply));
  }
  ExpectServes(server.path());
  const auto errors = server.errors();
  if (c.error.empty()) {
    EXPECT_THAT(errors, ::testing::IsEmpty());
  } else {
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_THAT(errors[0], HasSubstr(c.error));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Peers,
    LinkBadPeer,
    ::testing::Values(BadPeer{"ClosesAtOnce", "", false, "", ""},
                      BadPeer{"SendsNothing", "", true, "",
                              "timed out\nas a result of ReadFile (pipe, msg_size)"},
                      BadPeer{"HalfASize", std::string("\x05\x00", 2), false, "",
                              "Broken pipe\nas a result of ReadFile (pipe, msg_size)"},
                      BadPeer{"ClaimsMoreAndLeaves", Frame("<Mess", 100), false, "",
                              "Broken pipe\nas a result of ReadFile (pipe, msg_content)"},
                      BadPeer{"ClaimsMoreAndHangs", Frame("<Mess", 100), true, "",
                              "timed out\nas a result of ReadFile (pipe, msg_content)"},
                      BadPeer{"ClaimsFourGigabytes", Frame("<M", 0xFFFFFFFF), false, "",
                              "as a result of ReadFile (pipe, msg_content)"},
                      BadPeer{"GarbageXml", Frame("<<<>", 4), false, "exception occured", ""},
                      BadPeer{"EmptyTypeDocument", Frame("<Message type='Empty'/>", 23), false,
                              "unknown message", ""},
                      BadPeer{"ErrorAsRequest", Frame("<Message type='Error'/>", 23), false,
                              "unknown message", ""},
                      BadPeer{"HandlerThrows", Frame("<Message type='Transformations'/>", 33),
                              false, "exception occured", ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LinkServer, StopSignalEndsTheServerWithoutReply) {
  TempDir dir;
  TestServer server(dir / "VLApp", Quick());
  EXPECT_EQ(RawPeer(server.path(), Frame("", 0), false), "");
  for (int i = 0; i < 200 && !server.ended(); ++i) std::this_thread::sleep_for(5ms);
  EXPECT_TRUE(server.ended());
}

TEST(LinkServer, SocketFileIsPrivateAndGoesWithTheServer) {
  TempDir dir;
  const std::string path = dir / "VLApp";
  {
    TestServer server(path, Quick());
    struct stat st {};
    ASSERT_EQ(::lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_TRUE(xl::IsListening(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(xl::IsListening(path));
  std::string reply;
  EXPECT_THAT([&] { xl::Transact(path, "x", reply, Quick()); },
              ::testing::ThrowsMessage<SystemError>(
                  "System error: No such file or directory\nas a result of WaitNamedPipe"));
}

TEST(LinkServer, StaleSocketOfADeadServerIsReplaced) {
  TempDir dir;
  const std::string path = dir / "VLApp";
  // A server that died leaves its socket file with nobody behind it.
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(fd);
  ASSERT_TRUE(std::filesystem::exists(path));
  EXPECT_FALSE(xl::IsListening(path));

  TestServer server(path, Quick());
  ExpectServes(path);
}

TEST(LinkServer, SecondServerLeavesALiveSocketAlone) {
  TempDir dir;
  const std::string path = dir / "VLApp";
  TestServer first(path, Quick());
  EXPECT_THAT([&] { TestServer second(path, Quick()); },
              ::testing::ThrowsMessage<SystemError>(
                  HasSubstr("Address already in use\nas a result of CreateNamedPipe")));
  ExpectServes(path);
  // Nor does a plain file of that name get removed.
  const std::string file = dir / "not-a-socket";
  testing_support::WriteFile(file, "keep");
  EXPECT_THROW(TestServer(file, Quick()), SystemError);
  EXPECT_TRUE(std::filesystem::exists(file));
}

TEST(LinkServer, ClientsQueueWhileOneIsServed) {
  TempDir dir;
  TestServer server(dir / "VLApp", Quick());
  std::vector<std::thread> clients;
  std::atomic<int> served{0};
  for (int i = 0; i < 8; ++i)
    clients.emplace_back([&] {
      for (int k = 0; k < 10; ++k) {
        const xl::Message reply = Ask(server.path(), xl::Message(xl::MessageType::PossibleActions));
        if (xl::ReadPossibleActionsMessage(reply).Project) ++served;
      }
    });
  for (auto& c : clients) c.join();
  EXPECT_EQ(served.load(), 80);
  EXPECT_THAT(server.errors(), ::testing::IsEmpty());
}

}  // namespace
