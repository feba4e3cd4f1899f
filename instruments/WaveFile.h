// WAV files as the tests feed them to players: 16-bit integer or 32-bit float.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace orvelle::instruments {

enum class WaveFormat : std::uint8_t { integer16, float32 };

struct WaveFile {
  int rate = 48000;                          ///< frames per second
  std::vector<std::vector<float>> channels;  ///< one row a channel, all equally long
};

/// Integer samples are rounded and clipped to full scale. Throws std::runtime_error.
void writeWave(const std::filesystem::path& path, const WaveFile& wave, WaveFormat format);

}  // namespace orvelle::instruments
