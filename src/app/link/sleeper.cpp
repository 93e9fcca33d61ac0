// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/link/sleeper.h"

#include "app/messages.h"

namespace app::link {

using exchange::link::Message;
using exchange::link::MessageType;

namespace {

std::string PathOrDefault(std::string path) {
  return path.empty() ? exchange::link::SocketPath(exchange::link::kAppSocket) : path;
}

}  // namespace

Sleeper::Sleeper(SleeperPorts ports, std::string path, exchange::link::TransportOptions options)
    : Server(PathOrDefault(std::move(path)), options), ports_(std::move(ports)) {
  Start();
}

Sleeper::~Sleeper() {
  Stop();
}

bool Sleeper::OnMessage(Message& message) {
  const LinkSnapshot state = ports_.link.GetStatus().Read();
  switch (message.GetType()) {
    case MessageType::Underlay:
    case MessageType::Overlay: {
      const bool underlay = message.GetType() == MessageType::Underlay;
      const bool ready = underlay ? state.idle : state.hasUnderlay && state.mainWindowEnabled;
      if (!ready) {
        message = exchange::link::MakeError(underlay ? kBusyTrackingOrRendering : kBusyRendering);
        return true;
      }
      ports_.queue.post(std::make_unique<ImageSequenceReceipt>(
          ports_.link, message.GetType(), exchange::link::ReadSequenceMessage(message)));
      message.Clear();
      return true;
    }
    case MessageType::Transformations:
      ports_.queue.post(std::make_unique<TransformationsRequest>(ports_.link));
      message.Clear();
      return true;
    case MessageType::Project:
      ports_.queue.post(std::make_unique<ProjectRequest>(ports_.link));
      message.Clear();
      return true;
    case MessageType::PossibleActions:
      message = exchange::link::MakePossibleActionsMessage(OfferedActions(state));
      return true;
    default:
      return false;
  }
}

void Sleeper::OnError(const char* text) {
  if (ports_.on_error)
    ports_.on_error(text);
  else if (ports_.dialogs)
    ports_.queue.post(std::make_unique<AsyncMessageBox>(*ports_.dialogs, text, Icon::Warning));
}

std::unique_ptr<Sleeper> StartSleeper(SleeperPorts ports,
                                      std::string path,
                                      exchange::link::TransportOptions options) {
  path = PathOrDefault(std::move(path));
  if (exchange::link::IsListening(path, options)) return nullptr;
  return std::make_unique<Sleeper>(std::move(ports), std::move(path), options);
}

}  // namespace app::link
