// What an I/O block keeps of the engine that it calls.
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// A weak reference that the real-time thread may use: entering takes no lock, frees nothing and
/// cannot keep the owner alive, so the owner's destructor can never run there. The owner closes
/// the gate in its destructor, which waits for a callback that is inside.
class OwnerGate {
 public:
  /// Real-time thread. False: the owner is gone, do nothing. After true, call `leave`.
  [[nodiscard]] bool enter() noexcept {
    inside_.fetch_add(1, std::memory_order_seq_cst);
    if (closed_.load(std::memory_order_seq_cst)) {
      leave();
      return false;
    }
    return true;
  }

  void leave() noexcept { inside_.fetch_sub(1, std::memory_order_release); }

  /// Owner's thread. After it returned, no callback is inside and none enters.
  void closeAndWait() noexcept {
    closed_.store(true, std::memory_order_seq_cst);
    while (inside_.load(std::memory_order_seq_cst) != 0) {
      std::this_thread::yield();
    }
  }

 private:
  std::atomic<bool> closed_{false};
  std::atomic<int> inside_{0};
  static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);
};

/// The I/O block of an engine: renders as long as the engine's gate is open.
template <class Engine>
auto renderWhileOpen(std::shared_ptr<OwnerGate> gate, Engine& engine) {
  return [gate = std::move(gate), &engine](AudioBufferList input, AudioBufferList output) {
    if (gate->enter()) {
      engine.render(input, output);
      gate->leave();
    }
  };
}

}  // namespace orvelle
