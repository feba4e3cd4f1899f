// Reading and writing the session's parameter objects.
#pragma once

#include <spa/pod/builder.h>
#include <spa/pod/pod.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "orvelle/platform/pipewire/SessionObjects.h"

namespace orvelle::pipewire {

/// From a `Props` object. Nothing when it names no channel volumes.
std::optional<ChannelLevel> levelFromProps(const spa_pod* props);

/// From a `Route` object. Nothing when it lacks its numbers.
std::optional<Route> routeFromParam(const spa_pod* param);

/// The rate that a `Format` or `EnumFormat` object names: first the default, then, of a choice, its
/// alternatives (of a range, lowest and highest).
struct RateChoice {
  std::vector<std::int32_t> values;
  bool isRange = false;
};
RateChoice rateFromFormat(const spa_pod* format);

/// Room for the objects that are built here.
using PodBuffer = std::vector<std::byte>;

/// A `Props` object with volume, and mute.
spa_pod* buildProps(PodBuffer& buffer, const ChannelLevel& level);
/// A `Route` object with volume and mute that is not to be saved.
spa_pod* buildRoute(PodBuffer& buffer, const Route& route, const ChannelLevel& level);

}  // namespace orvelle::pipewire
