// What a private session consists of: its clock and the outputs that stand in for hardware.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace orvelle::instruments {

/// A null sink that a session takes for an output device. Its monitor carries what the device would
/// play, after the device's own volume and mute.
struct StandIn {
  std::string name;
  std::string description = name;
  std::string api = "alsa";  ///< empty: no hardware behind it
  std::string bus = "usb";   ///< empty: not told
  std::vector<std::string> positions = {"FL", "FR"};
  int rate = 48000;  ///< Hz; 0: whatever the session runs at
  int priority = 1000;
  std::string mediaClass = "Audio/Sink";
  std::map<std::string, std::string> furtherProperties{};

  /// All properties of the node, the factory's name included.
  [[nodiscard]] std::map<std::string, std::string> properties() const;
};

struct SessionOptions {
  std::vector<StandIn> standIns;
  /// They go and return with the session manager, as hardware does that it has found. Otherwise
  /// they are the server's.
  bool areManagersOwn = false;
  int clockRate = 48000;            // Hz
  std::vector<int> allowedRates{};  ///< Hz; empty: the clock rate alone
  int quantum = 1024;               // frames
  int minimumQuantum = 32;
  int maximumQuantum = 8192;
};

/// Writes the configuration of the server, of the PulseAudio server and of the session manager
/// (both of its generations) below `directory` and `data`, which stand for $XDG_CONFIG_HOME and
/// $XDG_DATA_HOME.
void writeSessionConfiguration(const std::filesystem::path& directory,
                               const std::filesystem::path& data, const SessionOptions& options);

}  // namespace orvelle::instruments
