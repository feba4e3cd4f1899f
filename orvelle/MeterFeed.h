// What a signal chain tells the once-a-second meter.
#pragma once

#include <atomic>
#include <cstdint>

namespace orvelle {

/// Written by callbacks on the real-time thread; taken and reset by the meter on the main thread.
struct MeterFeed {
  /// Callbacks since the meter last took them.
  std::atomic<std::int64_t> renderCalls{0};
  /// Peak since the meter last took it.
  std::atomic<float> inputPeak{0.0F};

  /// Counts one callback and its peak. Real-time thread.
  void countCallback(float peak) noexcept {
    renderCalls.fetch_add(1, std::memory_order_relaxed);
    if (inputPeak.load(std::memory_order_relaxed) < peak) {
      inputPeak.store(peak, std::memory_order_relaxed);
    }
  }

  static_assert(std::atomic<float>::is_always_lock_free &&
                std::atomic<std::int64_t>::is_always_lock_free);
};

}  // namespace orvelle
