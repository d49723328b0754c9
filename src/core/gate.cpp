#include "core/gate.h"

#include <chrono>

#include "core/log.h"
#include "vorel/vorel_ptr.h"

namespace vorel {

namespace {
thread_local unsigned t_depth = 0;  // exports of this thread inside the gate
constexpr unsigned kDrainLimitMs = 5000;
}  // namespace

// The increment and the test of closed_ (and, in close(), the reverse) are sequentially
// consistent: either the call sees the gate closed, or the reload sees the call in flight.
void CallGate::enter() {
  inFlight_.fetch_add(1);
  if (closed_.load()) wait_open();
}

void CallGate::wait_open() {
  do {
    leave();
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait(guard, [this] { return !closed_.load(); });
    inFlight_.fetch_add(1);
  } while (closed_.load());
}

void CallGate::leave() {
  if (inFlight_.fetch_sub(1) == 1 && closed_.load()) {
    std::lock_guard<std::mutex> guard(mutex_);
    changed_.notify_all();
  }
}

void CallGate::close(unsigned drainLimitMs) {
  writer_.lock();
  closed_.store(true);
  std::unique_lock<std::mutex> guard(mutex_);
  if (!changed_.wait_for(guard, std::chrono::milliseconds(drainLimitMs), [this] { return inFlight_.load() == 0; }))
    VLOG_WARN("CallGate", "%u calls still running after %u ms; the reload goes on under them",
              static_cast<unsigned>(inFlight_.load()), drainLimitMs);
}

void CallGate::open() {
  {
    std::lock_guard<std::mutex> guard(mutex_);
    closed_.store(false);
  }
  changed_.notify_all();
  writer_.unlock();
}

CallGate& call_gate() {
  // Never destroyed: a call may still pass while the process tears static objects down.
  return resident<CallGate>();
}

GatePass::GatePass() {
  if (t_depth++ == 0) call_gate().enter();
}

GatePass::~GatePass() {
  if (--t_depth == 0) call_gate().leave();
}

GateStepOut::GateStepOut() : depth_(t_depth) {
  if (depth_ == 0) return;
  t_depth = 0;
  call_gate().leave();
}

GateStepOut::~GateStepOut() {
  if (depth_ == 0) return;
  call_gate().enter();
  t_depth = depth_;
}

GateReload::GateReload() : depth_(t_depth) {
  if (depth_) call_gate().leave();
  call_gate().close(kDrainLimitMs);
  t_depth = 1;
}

GateReload::~GateReload() {
  call_gate().open();
  t_depth = 0;
  if (depth_) call_gate().enter();
  t_depth = depth_;
}

}  // namespace vorel
