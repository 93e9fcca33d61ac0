// SPDX-License-Identifier: GPL-3.0-or-later
// A thread object with a guarded body, and the lock that workers share with
// their producers.
//
// sys::thread is created suspended: the system thread starts at Resume().
// Its body is Run(); a std::exception leaving Run() never leaves the thread:
// it sets the result flag to false and goes to OnError(what()). With the
// restart flag set, a body that failed is run again, so a worker survives a
// bad item. Exceptions of other types are not caught: they end the process
// through std::terminate, whose SIGABRT the crash report catches.
//
// Lifetime rule: Run() and OnError() are virtual functions of the derived
// object, so the derived class must have ended the thread (its stop
// protocol, then Wait()) before its own destructor returns. The base
// destructor then only joins a thread that has already finished. A thread
// that was never resumed needs nothing.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "base/events.h"

namespace sys {

class thread {
 public:
  thread() = default;
  thread(const thread&) = delete;
  thread& operator=(const thread&) = delete;
  virtual ~thread();

  // Starts the thread. A concrete constructor calls it as its last step, so
  // Run() never sees a half-built object. Later calls do nothing.
  void Resume();
  // Waits without limit for the thread to end and returns the result flag:
  // false once any run of the body failed. Never returns for a thread that
  // was not resumed.
  bool Wait();
  // Whether the thread has ended (false before Resume()).
  bool HasEnded();
  bool IsStarted() const { return started_; }

  // Lowers the thread's scheduling priority below normal by raising its nice
  // value. Before Resume() it is remembered and applied as the thread starts;
  // later it applies to the running thread at once. A second call changes
  // nothing. Raising one's own nice value needs no privilege.
  void SetBelowNormalPriority();

  // How far below normal is: the nice value rises by this much.
  static constexpr int kBelowNormalNiceStep = 4;

 protected:
  // The thread body.
  virtual void Run() = 0;
  // Reports a failed run of the body, on the thread itself.
  virtual void OnError(const char* text) = 0;

  // Set by a concrete constructor before Resume(): a body that failed runs again.
  void SetRestart(bool restart) { restart_.store(restart); }

 private:
  void Entry();
  void LowerPriorityOf(pid_t tid);

  std::thread thread_;
  bool started_ = false;
  ManualResetEvent ended_;
  bool result_ = true;  // written by the thread only; read after `ended_` is set
  std::atomic<bool> restart_{false};

  std::mutex priority_mutex_;  // guards the two fields below
  bool below_normal_ = false;
  pid_t tid_ = 0;  // the running thread's id: 0 before it starts and after it ends
};

// A lock for a resource shared between threads. The worker base takes it for
// its queue and flags; producers take it to add items.
class CThreadSafeResource {
 public:
  using scoped_lock = std::unique_lock<std::mutex>;

  // Locks the resource until the returned object goes out of scope.
  [[nodiscard]] scoped_lock Lock() const { return scoped_lock(mutex_); }

 private:
  mutable std::mutex mutex_;
};

}  // namespace sys
