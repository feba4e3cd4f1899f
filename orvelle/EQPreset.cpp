#include "orvelle/EQPreset.h"

#include <cstddef>

namespace orvelle {
namespace {

struct NamedCurve {
  std::string_view name;
  std::array<float, 10> gainsDb;
};

// In the order of the enumeration.
// clang-format off
constexpr std::array<NamedCurve, allEQPresets.size()> curves = {{
    // Hz             32  64 125 250 500  1k  2k  4k  8k 16k
    {"Flat",       {{  0,  0,  0,  0,  0,  0,  0,  0,  0,  0}}},
    {"Music",      {{  4,  3,  1,  0, -1, -1,  0,  2,  3,  4}}},
    {"Bass Boost", {{  8,  7,  5,  3,  1,  0,  0,  0,  0,  0}}},
    {"Treble",     {{  0,  0,  0,  0,  0,  1,  3,  5,  6,  7}}},
    {"Vocal",      {{ -2, -2,  0,  2,  3,  3,  2,  0, -1, -2}}},
    {"Loudness",   {{  6,  4,  1,  0, -1,  0,  1,  2,  4,  6}}},
    {"Podcast",    {{ -4, -3, -1,  1,  2,  3,  3,  2,  1,  0}}},
    {"Classical",  {{  2,  1,  0,  0,  0,  0,  0,  1,  2,  3}}},
    {"Gaming",     {{  5,  4,  1,  0, -1,  0,  2,  3,  2,  1}}},
    {"Electronic", {{  6,  5,  2,  0, -1, -1,  0,  2,  4,  5}}},
    {"Custom",     {{  0,  0,  0,  0,  0,  0,  0,  0,  0,  0}}},
}};
// clang-format on

const NamedCurve& curve(EQPreset preset) {
  return curves.at(static_cast<std::size_t>(preset));
}

}  // namespace

const std::array<float, 10>& gains(EQPreset preset) {
  return curve(preset).gainsDb;
}

std::string_view rawValue(EQPreset preset) {
  return curve(preset).name;
}

std::optional<EQPreset> eqPresetFromRawValue(std::string_view name) {
  for (const EQPreset preset : allEQPresets) {
    if (rawValue(preset) == name) {
      return preset;
    }
  }
  return std::nullopt;
}

}  // namespace orvelle
