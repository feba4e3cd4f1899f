// Waiting, as a dependency, so that tests wait in virtual time.
#pragma once

namespace orvelle {

class Clock {
 public:
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  virtual ~Clock() = default;

  /// Blocks the calling thread.
  virtual void sleep(double seconds) = 0;
};

/// The machine's own clock.
class SystemClock final : public Clock {
 public:
  void sleep(double seconds) override;
};

}  // namespace orvelle
