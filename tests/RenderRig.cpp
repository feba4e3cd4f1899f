#include "tests/RenderRig.h"

#include <bit>
#include <cstring>

#include "orvelle/EQPreset.h"

namespace orvelle::test {
namespace {

std::vector<float> presetGains(EQPreset preset) {
  return {gains(preset).begin(), gains(preset).end()};
}

template <typename Chain>
std::vector<float> playThrough(Chain& chain, std::vector<float> input, std::uint32_t channels) {
  const auto bytes = static_cast<std::uint32_t>(input.size() * sizeof(float));
  std::vector<float> output(input.size());
  const AudioBuffer in{channels, bytes, input.data()};
  const AudioBuffer out{channels, bytes, output.data()};
  chain.render({&in, 1}, {&out, 1});
  return output;
}

}  // namespace

float uniform(Random& random, float low, float high) {
  return std::uniform_real_distribution<float>(low, high)(random);
}

std::vector<float> noise(unsigned seed, std::size_t samples, float amplitude) {
  Random random(seed);
  std::vector<float> signal(samples);
  for (float& sample : signal) {
    sample = uniform(random, -1.0F, 1.0F) * amplitude;
  }
  return signal;
}

bool sameBits(const std::vector<float>& left, const std::vector<float>& right) {
  return left.size() == right.size() &&
         std::memcmp(left.data(), right.data(), left.size() * sizeof(float)) == 0;
}

bool sameBits(float left, float right) {
  return std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right);
}

std::vector<float> play(BoostRender& chain, const std::vector<float>& input,
                        std::uint32_t channels) {
  return playThrough(chain, input, channels);
}

std::vector<float> play(TapRender& chain, const std::vector<float>& input, std::uint32_t channels) {
  return playThrough(chain, input, channels);
}

std::vector<float> play(ScalarModel& model, const std::vector<float>& input,
                        std::uint32_t channels) {
  return playThrough(model, input, channels);
}

const std::vector<Mode>& modes() {
  static const std::vector<Mode> all = {
      {"copy"},
      {"softer", 0.25F},
      {"louder", 4.0F},
      {"loudest", 8.0F},
      {"muted", 0.0F},
      {"flat equaliser", 1.0F, 1.0F, presetGains(EQPreset::flat)},
      {"equaliser", 1.0F, 1.0F, presetGains(EQPreset::music)},
      {"equaliser and gain", 8.0F, 1.0F, presetGains(EQPreset::bass)},
      {"mono", 1.0F, 0.0F},
      {"wide", 1.0F, 1.7F},
      {"gain and width", 4.0F, 2.0F},
      {"everything", 3.0F, 0.5F, {12, -12, 6, -6, 3, -3, 9, -9, 1, -1}},
  };
  return all;
}

void apply(const Mode& mode, BoostRender& chain, ScalarModel& model) {
  chain.gain = mode.gain;
  chain.spatialWidth = mode.width;
  chain.equalizer.isEnabled = !mode.gainsDb.empty();
  chain.equalizer.setGains(mode.gainsDb);
  model.gain = mode.gain;
  model.spatialWidth = mode.width;
  model.equalizerEnabled = !mode.gainsDb.empty();
  model.setGains(mode.gainsDb);
}

}  // namespace orvelle::test
