// Time, as a dependency, so that tests wait in virtual time.
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
  /// Seconds since some fixed moment; never runs backwards. Any thread.
  [[nodiscard]] virtual double now() const = 0;
};

/// The machine's own clock.
class SystemClock : public Clock {
 public:
  void sleep(double seconds) override;
  [[nodiscard]] double now() const override;
};

}  // namespace orvelle
