// WAV files of 32-bit float samples, as the tests feed them to players.
#pragma once

#include <filesystem>
#include <vector>

namespace orvelle::instruments {

struct WaveFile {
  int rate = 48000;                          ///< frames per second
  std::vector<std::vector<float>> channels;  ///< one row a channel, all equally long
};

/// Throws std::runtime_error.
void writeWave(const std::filesystem::path& path, const WaveFile& wave);

}  // namespace orvelle::instruments
