// The signal chain written down a second time, sample by sample and as plainly as its description:
// what the program's own chain must equal bit for bit, and what its speed is measured against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle::test {

/// Shares no code with the chain. Knows nothing of samples that are not finite: tests feed it the
/// silence that those stand for.
class ScalarModel {
 public:
  float gain = 1.0F;
  float spatialWidth = 1.0F;
  bool equalizerEnabled = false;

  std::vector<float> coefficients;  // b0, b1, b2, a1, a2 of band 0, of band 1, ...
  std::vector<float> state;         // [band][channel of eight][z1, z2]
  float limReduction = 1.0F;

  float currentLevel = 0.0F;
  float inputPeak = 0.0F;
  std::int64_t renderCalls = 0;

  ScalarModel();

  /// dB, as many of the ten bands as there are gains.
  void setGains(std::span<const float> gainsDb);

  void render(AudioBufferList input, AudioBufferList output);

 private:
  float equalise(float x, std::size_t channel);
  float limit(float x);
};

}  // namespace orvelle::test
