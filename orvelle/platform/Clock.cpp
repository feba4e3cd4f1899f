#include "orvelle/platform/Clock.h"

#include <chrono>
#include <thread>

namespace orvelle {

void SystemClock::sleep(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace orvelle
