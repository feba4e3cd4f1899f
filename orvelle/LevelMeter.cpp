#include "orvelle/LevelMeter.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

constexpr float kDecayPerTick = 0.85F;
constexpr double kWidestPanel = 420.0;
constexpr double kHighestPanel = 700.0;

}  // namespace

float nextMeterLevel(float shown, float now) {
  return shown < now ? now : shown * kDecayPerTick;
}

std::string gainLabel(double boost) {
  std::array<char, 400> text{};  // the largest double has 309 digits
  std::snprintf(text.data(), text.size(), "%.1f×  (%+.1f dB)", boost, 20.0 * std::log10(boost));
  return text.data();
}

bool isVisiblePanel(const WindowInfo& window) {
  return window.isVisible && window.canBecomeKey && window.width <= kWidestPanel &&
         window.height <= kHighestPanel;
}

}  // namespace orvelle
