// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/link/server.h"

namespace exchange::link {

Server::Server(std::string path, TransportOptions options) : pipe_(std::move(path), options) {
  SetRestart(true);
}

Server::~Server() {
  Stop();
}

void Server::Stop() {
  if (stopped_) return;
  stopped_ = true;
  if (!IsStarted()) return;
  if (!HasEnded()) pipe_.Wake();
  Wait();
}

void Server::Run() {
  for (;;) {
    std::string request;
    if (!pipe_.Wait(request)) return;
    Message message;
    bool understood = false;
    try {
      message.FromBytes(request);
      understood = OnMessage(message);
    } catch (const std::exception&) {
      pipe_.Reply(MakeError(kExceptionOccured).ToBytes());
      continue;
    }
    pipe_.Reply(understood ? message.ToBytes() : MakeError(kUnknownMessage).ToBytes());
  }
}

}  // namespace exchange::link
