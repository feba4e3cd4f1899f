// The once-a-second meter line of an engine.
#pragma once

#include <atomic>
#include <cstdint>

#include "orvelle/platform/Console.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Takes an engine's callback count and peak each second, sets both to 0, and prints them. A
/// callback that runs in that moment may be lost to the count. Main thread.
class ConsoleMeter {
 public:
  /// All four outlive the meter.
  ConsoleMeter(MainQueue& queue, Console& console, std::atomic<std::int64_t>& renderCalls,
               std::atomic<float>& inputPeak);
  ConsoleMeter(const ConsoleMeter&) = delete;
  ConsoleMeter& operator=(const ConsoleMeter&) = delete;
  ~ConsoleMeter();

  /// The first line comes after a second. Starting twice begins anew.
  void start();
  void stop();

 private:
  void printLine();

  MainQueue& queue_;
  Console& console_;
  std::atomic<std::int64_t>& renderCalls_;
  std::atomic<float>& inputPeak_;
  TimerID timer_ = 0;
};

}  // namespace orvelle
