// A simulated world that lives by itself, for looking at the program on any machine.
#pragma once

#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

/// Built-in speakers, USB headphones, a display, a headset with a microphone and the loopback, a
/// program that plays a tone, and I/O cycles in real time. Nothing of it can be heard.
class Demonstration final : public SimulatedHardware {
 public:
  /// `queue` serves the cycles. Main thread, as is the end.
  explicit Demonstration(MainQueue& queue);
  ~Demonstration() override;

 private:
  MainQueue& queue_;
  TimerID cycles_ = 0;
};

}  // namespace orvelle
