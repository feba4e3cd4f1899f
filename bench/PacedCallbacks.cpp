// How long single callbacks take that come as a device sends them, with pauses in between: caches
// are cold then, and the processor has slept. Prints the median, the worst and some between them,
// by the wall clock and by the thread's own CPU time: what the first has beyond the second is other
// programs' doing.
//   orvelle-paced [callbacks] [pause in microseconds]
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/NumberText.h"

namespace orvelle {
namespace {

constexpr std::size_t framesPerCallback = 512;
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

std::int64_t nanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * nanosecondsPerSecond + now.tv_nsec;
}

void sleepUntil(std::int64_t monotonicNs) {
  const timespec due{monotonicNs / nanosecondsPerSecond, monotonicNs % nanosecondsPerSecond};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
}

/// As the audio system runs its callbacks, where that is allowed.
bool becomeRealTime() {
  mlockall(MCL_CURRENT | MCL_FUTURE);
  const sched_param parameters{.sched_priority = 20};
  return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) == 0;
}

/// Loud enough for the limiter to work now and then.
std::vector<float> noise() {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> uniform(-0.5F, 0.5F);
  std::vector<float> signal(std::size_t{2} * framesPerCallback * 64);
  std::ranges::generate(signal, [&] { return uniform(random); });
  return signal;
}

struct Durations {
  std::vector<double> wallMicroseconds;
  std::vector<double> cpuMicroseconds;
};

Durations playPaced(std::size_t callbacks, std::int64_t pauseNs) {
  BoostRender chain;
  chain.gain = 2.0F;
  chain.spatialWidth = 1.3F;
  chain.equalizer.isEnabled = true;
  chain.equalizer.setGains(std::vector<float>{3, -2, 4, 1, -3, 2, -1, 3, -4, 2});
  std::vector<float> signal = noise();
  std::vector<float> heard(2 * framesPerCallback);
  constexpr auto bytes = static_cast<std::uint32_t>(2 * framesPerCallback * sizeof(float));

  Durations durations;
  durations.wallMicroseconds.reserve(callbacks);
  durations.cpuMicroseconds.reserve(callbacks);
  std::int64_t due = nanoseconds(CLOCK_MONOTONIC);
  for (std::size_t callback = 0; callback < callbacks; ++callback) {
    due = std::max(due + pauseNs, nanoseconds(CLOCK_MONOTONIC));
    sleepUntil(due);
    const std::size_t position = (callback % 64) * 2 * framesPerCallback;
    const AudioBuffer input{2, bytes, signal.data() + position};
    const AudioBuffer output{2, bytes, heard.data()};
    const std::int64_t wall = nanoseconds(CLOCK_MONOTONIC);
    const std::int64_t cpu = nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    chain.render({&input, 1}, {&output, 1});
    durations.cpuMicroseconds.push_back(
        1e-3 * static_cast<double>(nanoseconds(CLOCK_THREAD_CPUTIME_ID) - cpu));
    durations.wallMicroseconds.push_back(1e-3 *
                                         static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - wall));
  }
  return durations;
}

void print(const char* clock, std::vector<double> microseconds) {
  std::ranges::sort(microseconds);
  const auto at = [&](double share) {
    return microseconds[static_cast<std::size_t>(share *
                                                 static_cast<double>(microseconds.size() - 1))];
  };
  std::printf("%s: median %.1f us, 99 %% %.1f us, 99.99 %% %.1f us, worst %.1f us\n", clock,
              at(0.5), at(0.99), at(0.9999), at(1.0));
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  const int callbacks = orvelle::parseInteger(argc > 1 ? argv[1] : "100000").value_or(0);
  const int pause = orvelle::parseInteger(argc > 2 ? argv[2] : "1000").value_or(0);
  if (callbacks < 1 || pause < 1) {
    std::fputs("Usage: orvelle-paced [callbacks] [pause in microseconds]\n", stderr);
    return 2;
  }
  const bool isRealTime = orvelle::becomeRealTime();
  const orvelle::Durations durations =
      orvelle::playPaced(static_cast<std::size_t>(callbacks), std::int64_t{1000} * pause);
  std::printf("%d callbacks of %zu frames, %s\n", callbacks, orvelle::framesPerCallback,
              isRealTime ? "real-time priority" : "ordinary priority");
  orvelle::print("wall clock", durations.wallMicroseconds);
  orvelle::print("CPU time", durations.cpuMicroseconds);
  return EXIT_SUCCESS;
}
