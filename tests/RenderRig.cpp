#include "tests/RenderRig.h"

#include <bit>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <numbers>

#include "orvelle/EQPreset.h"

namespace orvelle::test {
namespace {

constexpr double sampleRateHz = 48000.0;

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

std::vector<float> anyFloats(std::size_t count) {
  Random random(7);
  std::vector<float> samples = {-0.0F, 1e-45F, std::numeric_limits<float>::max(),
                                std::numeric_limits<float>::lowest(), 1.5F};
  while (samples.size() < count) {
    samples.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(random())));
  }
  return samples;
}

std::int64_t unitsBetween(float left, float right) {
  const auto rank = [](float value) {
    const std::int64_t magnitude = std::bit_cast<std::uint32_t>(std::abs(value));
    return std::signbit(value) ? -magnitude : magnitude;
  };
  return std::abs(rank(left) - rank(right));
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

Biquad cookbook(double centreHz, double gainDb) {
  const double amplitude = std::pow(10.0, gainDb / 40.0);
  const double w0 = 2.0 * std::numbers::pi * centreHz / sampleRateHz;
  const double alpha = std::sin(w0) / 2.0;
  const double a0 = 1.0 + alpha / amplitude;
  const double middle = -2.0 * std::cos(w0) / a0;
  return {(1.0 + alpha * amplitude) / a0, middle, (1.0 - alpha * amplitude) / a0, middle,
          (1.0 - alpha / amplitude) / a0};
}

double theoryDb(std::span<const float, 10> gainsDb, double frequencyHz) {
  const std::complex<double> z =
      std::polar(1.0, -2.0 * std::numbers::pi * frequencyHz / sampleRateHz);
  std::complex<double> response = 1.0;
  for (std::size_t band = 0; band < gainsDb.size(); ++band) {
    const Biquad f = cookbook(centresHz[band], static_cast<double>(gainsDb[band]));
    response *= (f.b0 + z * (f.b1 + z * f.b2)) / (1.0 + z * (f.a1 + z * f.a2));
  }
  return 20.0 * std::log10(std::abs(response));
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
      // Forgets a click within one callback.
      {"treble alone", 1.0F, 1.0F, {0, 0, 0, 0, 0, 0, 0, 0, -6, 9}},
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
