// What the panel shows of loudness.
#pragma once

#include <string>

#include "orvelle/platform/HostServices.h"

namespace orvelle {

inline constexpr double kMeterIntervalSeconds = 0.125;

/// The meter's next level, linear: rises at once to `now`, falls by 15 % a tick.
float nextMeterLevel(float shown, float now);

/// "2.0×  (+6.0 dB)" for a linear factor of 2.
std::string gainLabel(double boost);

/// Whether a window is the panel, and on screen. Larger windows are none.
bool isVisiblePanel(const WindowInfo& window);

}  // namespace orvelle
