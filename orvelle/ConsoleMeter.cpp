#include "orvelle/ConsoleMeter.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace orvelle {

namespace {

constexpr double kIntervalSeconds = 1.0;
constexpr float kFullBars = 20.0F;

std::string bars(float peak) {
  // The bound comes before the conversion: a peak may be far above full scale.
  const int count = static_cast<int>(std::min(peak * kFullBars, kFullBars));
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += "▮";
  }
  return text;
}

}  // namespace

ConsoleMeter::ConsoleMeter(MainQueue& queue, Console& console, MeterFeed& feed)
    : queue_(queue), console_(console), feed_(feed) {}

ConsoleMeter::~ConsoleMeter() {
  stop();
}

void ConsoleMeter::start() {
  stop();
  timer_ = queue_.repeat(kIntervalSeconds, kIntervalSeconds, [this] { printLine(); });
}

void ConsoleMeter::stop() {
  if (timer_ != 0) {
    queue_.cancel(timer_);
    timer_ = 0;
  }
}

void ConsoleMeter::printLine() {
  const std::int64_t calls = feed_.renderCalls.exchange(0, std::memory_order_relaxed);
  const float peak = feed_.inputPeak.exchange(0.0F, std::memory_order_relaxed);
  std::array<char, 96> figures{};
  std::snprintf(figures.data(), figures.size(), "  in: %4lld cb/s  peak %.3f ",
                static_cast<long long>(calls), static_cast<double>(peak));
  console_.print(figures.data() + bars(peak));
}

}  // namespace orvelle
