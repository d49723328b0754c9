// The door every export passes, and the one a configuration reload closes.
//
// A reload frees the vendor modules and then loads them again. While it runs no call may look a
// route up, or it would find a vendor type unserved; so a reload closes the gate, waits for the
// calls in flight to leave and lets the held ones in when it is done. Passing costs a thread's
// counter and one atomic increment and decrement; only a reload takes a lock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace vorel {

class CallGate {
 public:
  void enter();
  void leave();
  // Held until open(): waits for the calls in flight (at most drainLimitMs, then the reload goes on
  // under them: each keeps its own references to what it uses) and holds new calls at the door.
  void close(unsigned drainLimitMs);
  void open();

 private:
  void wait_open();
  std::atomic<uint32_t> inFlight_{0};
  std::atomic<bool> closed_{false};
  std::mutex writer_;  // one reload at a time
  std::mutex mutex_;
  std::condition_variable changed_;
};

CallGate& call_gate();

// An export's passage, for its whole run. Only the thread's outermost export passes the gate, so
// that an export calling another (and a vendor module calling back) never waits for itself.
class GatePass {
 public:
  GatePass();
  ~GatePass();
  GatePass(const GatePass&) = delete;
  GatePass& operator=(const GatePass&) = delete;
};

// Steps out of the gate while the call waits for another call (the device lock), so that a reload
// does not wait for a waiter whose release is held at the door.
class GateStepOut {
 public:
  GateStepOut();
  ~GateStepOut();
  GateStepOut(const GateStepOut&) = delete;
  GateStepOut& operator=(const GateStepOut&) = delete;

 private:
  unsigned depth_;
};

// A reload's hold on the gate: closed from construction to destruction. A caller inside an export
// steps out first; calls the reloading thread makes meanwhile (a module's start-up code) pass.
class GateReload {
 public:
  GateReload();
  ~GateReload();
  GateReload(const GateReload&) = delete;
  GateReload& operator=(const GateReload&) = delete;

 private:
  unsigned depth_;
};

}  // namespace vorel
