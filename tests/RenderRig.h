// What the tests of the signal chain share: settings to put it into, one-buffer callbacks and exact
// comparison.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/TapRender.h"
#include "tests/ScalarModel.h"

namespace orvelle::test {

using Random = std::mt19937;

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

float uniform(Random& random, float low, float high);

/// White noise between -amplitude and amplitude; the same seed gives the same.
std::vector<float> noise(unsigned seed, std::size_t samples, float amplitude);

/// Floats of every size; some of them are no numbers.
std::vector<float> anyFloats(std::size_t count);

/// Steps between neighbouring floats from one to the other.
std::int64_t unitsBetween(float left, float right);

/// Compares samples as bits, so that -0.0 differs from 0.0 and a NaN equals itself.
bool sameBits(const std::vector<float>& left, const std::vector<float>& right);
bool sameBits(float left, float right);

/// One callback with one buffer; returns what it wrote.
std::vector<float> play(BoostRender& chain, const std::vector<float>& input,
                        std::uint32_t channels = 1);
std::vector<float> play(TapRender& chain, const std::vector<float>& input,
                        std::uint32_t channels = 1);
std::vector<float> play(ScalarModel& model, const std::vector<float>& input,
                        std::uint32_t channels = 1);

inline constexpr std::array<double, 10> centresHz = {32,   64,   125,  250,  500,
                                                     1000, 2000, 4000, 8000, 16000};

struct Biquad {
  double b0, b1, b2, a1, a2;
};

/// Audio EQ Cookbook: peaking filter with Q = 1 at 48 kHz.
Biquad cookbook(double centreHz, double gainDb);

/// What all ten bands together do to a frequency at 48 kHz, in dB.
double theoryDb(std::span<const float, 10> gainsDb, double frequencyHz);

struct Mode {
  const char* name;
  float gain = 1.0F;
  float width = 1.0F;
  std::vector<float> gainsDb = {};  // none: equaliser off
};

/// Every path through the chain with sane settings.
const std::vector<Mode>& modes();

void apply(const Mode& mode, BoostRender& chain, ScalarModel& model);

}  // namespace orvelle::test
