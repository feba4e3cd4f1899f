// Which real output sound belongs on.
#pragma once

#include <optional>
#include <span>

#include "orvelle/HAL.h"

namespace orvelle {

/// The output of the highest rank, the earliest of the list among equals; nothing for an empty
/// list. Bluetooth ranks above USB, USB above everything else, built-in last: what a person has
/// plugged in or put on is what they want to hear.
std::optional<AudioDeviceInfo> bestOutput(std::span<const AudioDeviceInfo> outputs);

}  // namespace orvelle
