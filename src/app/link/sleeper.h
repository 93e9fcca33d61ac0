// SPDX-License-Identifier: GPL-3.0-or-later
// The server thread that answers the host's plug-in on our socket (VLApp).
// It never touches the project: it reads the published LinkStatus, answers
// at once, and posts the work (footage to take, motion or a project to send
// back as a transaction of our own) to the owning thread.
//
//   auto sleeper = app::link::StartSleeper({.queue = queue, .link = link,
//                                          .on_error = report});
//   // null: another instance serves the socket; this one has no listener.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/link/host_link.h"
#include "app/ports.h"
#include "exchange/link/server.h"

namespace app::link {

struct SleeperPorts {
  GuiQueue& queue;
  // Builds the posted messages and holds the status the answers read.
  HostLink& link;
  // A transport failure (a peer that stalled or broke off), on the server
  // thread; the server goes on. Empty: the failure is posted as a warning
  // box to `dialogs`, if given.
  std::function<void(const std::string&)> on_error = {};
  UserDialogs* dialogs = nullptr;
};

class Sleeper : public exchange::link::Server {
 public:
  // Creates the socket at `path` (empty: VLApp in the socket folder) and
  // starts serving. SystemError "CreateNamedPipe" when it cannot.
  explicit Sleeper(SleeperPorts ports,
                   std::string path = {},
                   exchange::link::TransportOptions options = {});
  // Wakes the thread if it still serves, waits for it, removes the socket.
  ~Sleeper() override;

 protected:
  bool OnMessage(exchange::link::Message& message) override;
  void OnError(const char* text) override;

 private:
  SleeperPorts ports_;
};

// The Sleeper, unless another instance already serves the socket: then
// null, and this instance has no listener.
std::unique_ptr<Sleeper> StartSleeper(SleeperPorts ports,
                                      std::string path = {},
                                      exchange::link::TransportOptions options = {});

}  // namespace app::link
