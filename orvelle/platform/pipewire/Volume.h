// Between the session's linear channel volumes and the one scalar of a device's volume control.
#pragma once

#include <span>
#include <vector>

namespace orvelle::pipewire {

/// The scalar that mixers show: the cube root of the loudest channel's linear volume.
float scalarFromVolumes(std::span<const float> volumes);

/// Linear volumes whose loudest is `scalar` cubed, in the proportions of `balance`. Silence has no
/// proportions: all channels are then equal.
std::vector<float> volumesFromScalar(float scalar, std::span<const float> balance);

}  // namespace orvelle::pipewire
