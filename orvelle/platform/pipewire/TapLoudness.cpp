#include "orvelle/platform/pipewire/TapLoudness.h"

namespace orvelle::pipewire {

/// Whether it is, or may be at any moment from now on.
bool TapLoudness::isRaised(std::string_view output) const {
  bool isAnotherFed = false;
  for (const Node* boost : session_.nodes()) {
    if (!boost->name().starts_with(kBoostPrefix)) {
      continue;
    }
    for (const Link& link : session_.linksFrom(boost->id)) {
      const Node* fed = session_.node(link.inputNode);
      if (fed != nullptr && fed->name() == output) {
        return true;
      }
      isAnotherFed = isAnotherFed || fed != nullptr;
    }
  }
  return !isAnotherFed && defaultOutput_.effective() == kLoopbackName;
}

std::optional<StereoFactors> TapLoudness::factorsAt(std::string_view output) const {
  if (!isRaised(output)) {
    return StereoFactors{};
  }
  const Node* loopback = loopback_.node();
  if (loopback == nullptr || loopback->level->volumes.empty()) {
    return std::nullopt;
  }
  if (loopback->level->mute) {
    return StereoFactors{0.0F, 0.0F};
  }
  return StereoFactors{loopback->level->volumes.front(), loopback->level->volumes.back()};
}

}  // namespace orvelle::pipewire
