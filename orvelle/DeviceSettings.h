// What is remembered of the sound settings, and how it is written down.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

/// The settings of one output device.
struct DeviceSettings {
  double boost = 2.0;  ///< linear gain, 1.0 is unity
  bool eqEnabled = false;
  std::string eqPreset = "Flat";  ///< a built-in preset, "Custom", or a user preset's name
  bool spatialEnabled = false;
  double spatialWidth = 1.5;                       ///< used while `spatialEnabled`
  std::optional<std::vector<double>> customGains;  ///< dB per band; old records have none

  friend bool operator==(const DeviceSettings&, const DeviceSettings&) = default;
};

/// By device uid.
using DeviceStore = std::map<std::string, DeviceSettings>;
/// Band gains in dB by name.
using UserPresets = std::map<std::string, std::vector<double>>;

/// @name JSON
/// Encoding gives nothing for what JSON cannot express (a number that is not finite). Decoding
/// gives all or nothing: one bad record makes the whole map undecodable. Keys are the fields'
/// names; all but `customGains` are required, others are ignored.
/// @{
std::optional<std::string> encodeDeviceStore(const DeviceStore& store);
std::optional<DeviceStore> decodeDeviceStore(std::string_view json);
std::optional<std::string> encodeUserPresets(const UserPresets& presets);
std::optional<UserPresets> decodeUserPresets(std::string_view json);
/// @}

}  // namespace orvelle
