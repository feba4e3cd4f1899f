// The once-a-second meter line of an engine.
#pragma once

#include "orvelle/MeterFeed.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Takes an engine's callback count and peak each second, sets both to 0, and prints them. A
/// callback that runs in that moment may be lost to the count. Main thread.
class ConsoleMeter {
 public:
  /// All three outlive the meter.
  ConsoleMeter(MainQueue& queue, Console& console, MeterFeed& feed);
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
  MeterFeed& feed_;
  TimerID timer_ = 0;
};

}  // namespace orvelle
