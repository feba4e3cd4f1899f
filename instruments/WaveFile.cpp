#include "instruments/WaveFile.h"

#include <array>
#include <bit>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace orvelle::instruments {
namespace {

static_assert(std::endian::native == std::endian::little, "WAV files are little endian");

constexpr std::uint16_t formatFloat = 3;

struct FormatChunk {
  std::uint16_t format = 0;
  std::uint16_t channels = 0;
  std::uint32_t rate = 0;
  std::uint32_t bytesPerSecond = 0;
  std::uint16_t bytesPerFrame = 0;
  std::uint16_t bitsPerSample = 0;
};
static_assert(sizeof(FormatChunk) == 16);

template <typename Value>
void append(std::string& bytes, const Value& value) {
  std::array<char, sizeof(Value)> raw{};
  std::memcpy(raw.data(), &value, sizeof value);
  bytes.append(raw.data(), raw.size());
}

void appendChunk(std::string& bytes, std::string_view name, std::string_view content) {
  bytes.append(name);
  append(bytes, static_cast<std::uint32_t>(content.size()));
  bytes.append(content);
}

}  // namespace

void writeWave(const std::filesystem::path& path, const WaveFile& wave) {
  constexpr std::uint16_t bytesPerSample = sizeof(float);
  FormatChunk description;
  description.format = formatFloat;
  description.channels = static_cast<std::uint16_t>(wave.channels.size());
  description.rate = static_cast<std::uint32_t>(wave.rate);
  description.bytesPerFrame = static_cast<std::uint16_t>(description.channels * bytesPerSample);
  description.bytesPerSecond = description.rate * description.bytesPerFrame;
  description.bitsPerSample = static_cast<std::uint16_t>(bytesPerSample * 8);

  std::string samples;
  for (std::size_t frame = 0; frame < wave.channels.at(0).size(); ++frame) {
    for (const std::vector<float>& channel : wave.channels) {
      append(samples, channel.at(frame));
    }
  }

  std::string body = "WAVE";
  std::string header;
  append(header, description);
  appendChunk(body, "fmt ", header);
  appendChunk(body, "data", samples);
  std::string file;
  appendChunk(file, "RIFF", body);
  std::ofstream stream(path, std::ios::binary);
  stream.write(file.data(), static_cast<std::streamsize>(file.size()));
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

}  // namespace orvelle::instruments
