// What the equaliser's one selection text means.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>

#include "orvelle/DeviceSettings.h"

namespace orvelle {

inline constexpr std::size_t kEQBands = 10;
/// dB per band, 32 Hz first.
using BandGains = std::array<double, kEQBands>;

/// Exactly ten finite gains: what is missing or no number is 0 dB, what is too much is dropped.
BandGains bandGains(std::span<const double> gainsDb);

/// Whether the bands are the user's own: for "Custom" and for user presets, also for one that is
/// named like a built-in preset.
bool isEditable(const std::string& selection, const UserPresets& userPresets);

/// What the equaliser plays: the user's bands, those of the built-in preset, or flat where nobody
/// knows the selection.
BandGains selectedGains(const std::string& selection, const BandGains& customGains,
                        const UserPresets& userPresets);

}  // namespace orvelle
