#include "orvelle/EQSelection.h"

#include <algorithm>
#include <cmath>

#include "orvelle/EQPreset.h"

namespace orvelle {

BandGains bandGains(std::span<const double> gainsDb) {
  BandGains gains{};
  std::ranges::transform(gainsDb.first(std::min(gainsDb.size(), kEQBands)), gains.begin(),
                         [](double gain) { return std::isfinite(gain) ? gain : 0.0; });
  return gains;
}

bool isEditable(const std::string& selection, const UserPresets& userPresets) {
  return selection == rawValue(EQPreset::custom) || userPresets.contains(selection);
}

BandGains selectedGains(const std::string& selection, const BandGains& customGains,
                        const UserPresets& userPresets) {
  if (isEditable(selection, userPresets)) {
    return customGains;
  }
  BandGains bands{};
  if (const auto preset = eqPresetFromRawValue(selection)) {
    std::ranges::copy(gains(*preset), bands.begin());
  }
  return bands;
}

}  // namespace orvelle
