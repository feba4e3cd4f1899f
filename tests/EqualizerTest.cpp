// The equaliser against theory: coefficients against the cookbook in double precision, and its
// sound as settled sines measured behind the whole chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <iostream>
#include <numbers>
#include <string_view>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/EQPreset.h"
#include "orvelle/Equalizer.h"
#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

constexpr double sampleRateHz = 48000.0;
using Curve = std::array<float, 10>;

/// Plays a sine until the filters have settled, then correlates one second of output with it.
double measuredDb(const Curve& gainsDb, double frequencyHz) {
  constexpr std::size_t settling = 24000;
  constexpr std::size_t measuring = 48000;  // whole periods of every centre
  constexpr std::size_t frames = 500;
  constexpr double amplitude = 0.25;
  BoostRender chain;
  chain.equalizer.isEnabled = true;
  chain.equalizer.setGains(gainsDb);

  std::complex<double> sum = 0.0;
  std::array<float, frames> samples{};
  const AudioBuffer buffer{1, sizeof(samples), samples.data()};
  for (std::size_t start = 0; start < settling + measuring; start += frames) {
    const auto phase = [&](std::size_t i) {
      return 2.0 * std::numbers::pi * frequencyHz / sampleRateHz * static_cast<double>(start + i);
    };
    for (std::size_t i = 0; i < frames; ++i) {
      samples[i] = static_cast<float>(amplitude * std::sin(phase(i)));
    }
    chain.render({&buffer, 1}, {&buffer, 1});
    for (std::size_t i = 0; start >= settling && i < frames; ++i) {
      sum += static_cast<double>(samples[i]) * std::polar(1.0, -phase(i));
    }
  }
  return 20.0 * std::log10(2.0 * std::abs(sum) / (amplitude * static_cast<double>(measuring)));
}

/// Largest distance between measurement and theory at the ten centres, in dB.
double worstDeviationDb(const Curve& gainsDb) {
  double worst = 0.0;
  for (const double centre : centresHz) {
    worst = std::max(worst, std::abs(measuredDb(gainsDb, centre) - theoryDb(gainsDb, centre)));
  }
  return worst;
}

Equalizer::Coefficients coefficientsOf(const Equalizer& equalizer) {
  Equalizer::Coefficients coefficients;
  equalizer.loadCoefficients(coefficients);
  return coefficients;
}

// Catches a mistyped term of the cookbook formula, a wrong Q and coefficients stored out of order.
TEST(EqualizerTest, CoefficientsFollowTheCookbook) {
  Equalizer equalizer(48000.0F, 8);
  const Curve gainsDb = {-12, 12, -3, 3, 6, 6, -6, 1, 12, -12};
  equalizer.setGains(gainsDb);
  const Equalizer::Coefficients actual = coefficientsOf(equalizer);
  for (std::size_t band = 0; band < 10; ++band) {
    const Biquad expected = cookbook(centresHz[band], gainsDb[band]);
    EXPECT_NEAR(actual[5 * band + 0], expected.b0, 1e-6) << band;
    EXPECT_NEAR(actual[5 * band + 1], expected.b1, 1e-6) << band;
    EXPECT_NEAR(actual[5 * band + 2], expected.b2, 1e-6) << band;
    EXPECT_NEAR(actual[5 * band + 3], expected.a1, 1e-6) << band;
    EXPECT_NEAR(actual[5 * band + 4], expected.a2, 1e-6) << band;
  }
  // +6 dB at 1 kHz by hand: A = 1.41254, alpha = 0.065263.
  const double a0 = 1.0 + 0.065263 / 1.41254;
  EXPECT_NEAR(actual[25], (1.0 + 0.065263 * 1.41254) / a0, 1e-5);
  EXPECT_NEAR(actual[29], (1.0 - 0.065263 / 1.41254) / a0, 1e-5);
}

// Catches an equaliser that colours the sound at 0 dB, fresh or set.
TEST(EqualizerTest, ZeroDecibelsIsExactlyTransparent) {
  Equalizer equalizer(48000.0F, 8);
  const Equalizer::Coefficients fresh = coefficientsOf(equalizer);
  equalizer.setGains(std::vector<float>(10, 0.0F));
  EXPECT_EQ(coefficientsOf(equalizer), fresh);
  for (std::size_t band = 0; band < 10; ++band) {
    EXPECT_EQ(fresh[5 * band], 1.0F);
    EXPECT_EQ(fresh[5 * band + 1], fresh[5 * band + 3]);
    EXPECT_EQ(fresh[5 * band + 2], fresh[5 * band + 4]);
  }
}

// Catches a short list that resets the other bands, a long one that writes past the tenth, and
// gains that touch the switch or the memory.
TEST(EqualizerTest, GainsOfAnyCountTouchTheirBandsOnly) {
  Equalizer equalizer(48000.0F, 8);
  equalizer.setGains(std::vector<float>(10, 3.0F));
  equalizer.state[5] = 0.5F;
  const Equalizer::Coefficients before = coefficientsOf(equalizer);
  equalizer.setGains({});
  EXPECT_EQ(coefficientsOf(equalizer), before);

  equalizer.setGains(std::vector<float>(4, -6.0F));
  const Equalizer::Coefficients after = coefficientsOf(equalizer);
  EXPECT_NE(after[15], before[15]);
  EXPECT_TRUE(std::equal(after.begin() + 20, after.end(), before.begin() + 20));

  equalizer.setGains(std::vector<float>(12, 3.0F));
  EXPECT_EQ(coefficientsOf(equalizer), before);
  EXPECT_FALSE(equalizer.isEnabled);
  EXPECT_EQ(equalizer.state[5], 0.5F);
}

// Catches bands at the wrong frequency or with the wrong width: the neighbours' centres lie on the
// skirts.
TEST(EqualizerTest, EachBandSoundsAsTheorySays) {
  double worst = 0.0;
  for (std::size_t band = 0; band < 10; ++band) {
    Curve gainsDb{};
    gainsDb[band] = band % 2 == 0 ? 12.0F : -12.0F;
    const double deviation = worstDeviationDb(gainsDb);
    EXPECT_LT(deviation, 0.1) << "band " << band;
    worst = std::max(worst, deviation);
  }
  std::cout << "worst deviation of a single band: " << worst << " dB\n";
}

// Catches a curve with a wrong figure, a preset under another's name, and bands that disturb each
// other in the cascade. The figures are typed a second time here on purpose.
TEST(EqualizerTest, EachPresetSoundsAsTheorySays) {
  struct Expected {
    std::string_view name;
    Curve gainsDb;
  };
  const std::array<Expected, 11> presets = {{
      {"Flat", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"Music", {4, 3, 1, 0, -1, -1, 0, 2, 3, 4}},
      {"Bass Boost", {8, 7, 5, 3, 1, 0, 0, 0, 0, 0}},
      {"Treble", {0, 0, 0, 0, 0, 1, 3, 5, 6, 7}},
      {"Vocal", {-2, -2, 0, 2, 3, 3, 2, 0, -1, -2}},
      {"Loudness", {6, 4, 1, 0, -1, 0, 1, 2, 4, 6}},
      {"Podcast", {-4, -3, -1, 1, 2, 3, 3, 2, 1, 0}},
      {"Classical", {2, 1, 0, 0, 0, 0, 0, 1, 2, 3}},
      {"Gaming", {5, 4, 1, 0, -1, 0, 2, 3, 2, 1}},
      {"Electronic", {6, 5, 2, 0, -1, -1, 0, 2, 4, 5}},
      {"Custom", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
  }};
  double worst = 0.0;
  for (std::size_t i = 0; i < presets.size(); ++i) {
    SCOPED_TRACE(presets[i].name);
    ASSERT_EQ(eqPresetFromRawValue(presets[i].name), allEQPresets[i]);
    EXPECT_EQ(rawValue(allEQPresets[i]), presets[i].name);
    EXPECT_EQ(gains(allEQPresets[i]), presets[i].gainsDb);
    const double deviation = worstDeviationDb(gains(allEQPresets[i]));
    EXPECT_LT(deviation, 0.1);
    worst = std::max(worst, deviation);
  }
  std::cout << "worst deviation of a preset: " << worst << " dB\n";
}

// Catches lenient name matching, with which a user's own preset could hide a built-in one.
TEST(EQPresetTest, NamesMatchExactlyOrNotAtAll) {
  for (const std::string_view name : {"bass", "Bass", "Bass Boost ", "music", ""}) {
    EXPECT_EQ(eqPresetFromRawValue(name), std::nullopt) << name;
  }
}

}  // namespace
}  // namespace orvelle::test
