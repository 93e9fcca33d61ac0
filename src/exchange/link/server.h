// SPDX-License-Identifier: GPL-3.0-or-later
// The thread that answers the peer on our socket: waits for a request,
// hands it to OnMessage, replies, and waits again, until the stop signal.
//
// A request OnMessage throws on is answered with the Error "exception
// occured" (that spelling is what peers expect); one it does not know with
// "unknown message". A failure of the transport itself (a peer that stalls,
// lies about its size or leaves mid-frame) drops that connection, goes to
// OnError, and the loop starts again for the next peer.
#pragma once

#include <memory>
#include <string>

#include "base/thread.h"
#include "exchange/link/message.h"
#include "exchange/link/transport.h"

namespace exchange::link {

inline constexpr const char* kExceptionOccured = "exception occured";
inline constexpr const char* kUnknownMessage = "unknown message";

class Server : public sys::thread {
 public:
  // Creates the socket (SystemError "CreateNamedPipe" when another server
  // holds it). The thread starts with Start(), which a concrete class calls
  // as the last step of its constructor.
  explicit Server(std::string path, TransportOptions options = {});
  // The concrete class must call Stop() in its destructor.
  ~Server() override;

  const std::string& path() const { return pipe_.path(); }

 protected:
  void Start() { Resume(); }
  // Wakes the thread if it still runs and waits for its end. Idempotent.
  void Stop();

  // True when the request was understood; the reply is left in `message`
  // (cleared for the empty reply). Runs on the server's thread.
  virtual bool OnMessage(Message& message) = 0;

 private:
  void Run() override;

  PipeServer pipe_;
  bool stopped_ = false;
};

}  // namespace exchange::link
