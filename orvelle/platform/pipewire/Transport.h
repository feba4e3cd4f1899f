// How an output is connected, from what the session says of it.
#pragma once

#include <cstdint>

#include "orvelle/platform/pipewire/SessionObjects.h"

namespace orvelle::pipewire {

/// Whether a sound card, a Bluetooth device or a network is behind the node.
bool hasDeviceBehind(const Properties& node);

/// The HAL's transport code. `card` holds the properties of the node's sound card, empty when it
/// has none.
std::uint32_t transportOf(const Properties& node, const Properties& card);

}  // namespace orvelle::pipewire
