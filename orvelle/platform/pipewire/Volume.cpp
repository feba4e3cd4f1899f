#include "orvelle/platform/pipewire/Volume.h"

#include <algorithm>
#include <cmath>

namespace orvelle::pipewire {

namespace {

float loudest(std::span<const float> volumes) {
  return volumes.empty() ? 0.0F : std::ranges::max(volumes);
}

}  // namespace

float scalarFromVolumes(std::span<const float> volumes) {
  return std::cbrt(loudest(volumes));
}

std::vector<float> volumesFromScalar(float scalar, std::span<const float> balance) {
  const float linear = scalar * scalar * scalar;
  const float reference = loudest(balance);
  std::vector<float> volumes(balance.size(), linear);
  if (reference > 0.0F) {
    // Dividing first keeps the loudest channel at exactly the value asked for.
    std::ranges::transform(balance, volumes.begin(),
                           [&](float share) { return share / reference * linear; });
  }
  return volumes;
}

}  // namespace orvelle::pipewire
