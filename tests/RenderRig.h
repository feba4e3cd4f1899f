// What the tests of the signal chain share: settings to put it into, one-buffer callbacks and exact
// comparison.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/TapRender.h"
#include "tests/ScalarModel.h"

namespace orvelle::test {

using Random = std::mt19937;

float uniform(Random& random, float low, float high);

/// White noise between -amplitude and amplitude; the same seed gives the same.
std::vector<float> noise(unsigned seed, std::size_t samples, float amplitude);

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
