#include "orvelle/platform/Clock.h"

#include <chrono>
#include <thread>

namespace orvelle {

void SystemClock::sleep(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

double SystemClock::now() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace orvelle
