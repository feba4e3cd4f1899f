// Other virtual audio drivers that are installed beside the one in use.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

/// Drivers that are known to add to the load of the audio server, as their files are called.
inline constexpr std::array<std::string_view, 5> conflictDriverNames = {
    "ParrotAudioPlugin.driver", "BoomAudio.driver", "BlackHole2ch.driver", "BlackHole16ch.driver",
    "BlackHole64ch.driver"};

/// Where Core Audio looks for drivers.
inline constexpr std::string_view driverFolder = "/Library/Audio/Plug-Ins/HAL";

/// Those of `conflictDriverNames` that exist in `folder` as a file or folder, in that order. What
/// cannot be tested counts as absent.
std::vector<std::string> installedConflictDrivers(const std::filesystem::path& folder);

}  // namespace orvelle
