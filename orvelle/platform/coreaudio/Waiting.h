// Waiting for what the HAL does in its own time.
#pragma once

#include "orvelle/platform/Clock.h"

namespace orvelle::coreaudio {

/// Asks until `condition` holds, at most `seconds`; says whether it held.
template <class Condition>
bool waitUntil(Clock& clock, double seconds, const Condition& condition) {
  constexpr double pollSeconds = 0.005;
  const double deadline = clock.now() + seconds;
  while (!condition()) {
    if (clock.now() >= deadline) {
      return false;
    }
    clock.sleep(pollSeconds);
  }
  return true;
}

}  // namespace orvelle::coreaudio
