// The named gain curves of the equaliser.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace orvelle {

enum class EQPreset : std::uint8_t {
  flat,
  music,
  bass,
  treble,
  vocal,
  loudness,
  podcast,
  classical,
  gaming,
  electronic,
  custom,
};

/// Every preset, in the order in which they are offered.
inline constexpr std::array allEQPresets = {
    EQPreset::flat,   EQPreset::music,      EQPreset::bass,    EQPreset::treble,
    EQPreset::vocal,  EQPreset::loudness,   EQPreset::podcast, EQPreset::classical,
    EQPreset::gaming, EQPreset::electronic, EQPreset::custom,
};

/// Ten gains in dB, 32 Hz first. `custom` is flat: its curve is the user's own and kept elsewhere.
const std::array<float, 10>& gains(EQPreset preset);

/// The display name, which is also what settings store.
std::string_view rawValue(EQPreset preset);

/// The preset with exactly that display name.
std::optional<EQPreset> eqPresetFromRawValue(std::string_view name);

}  // namespace orvelle
