#include "orvelle/BoostRender.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "orvelle/Samples.h"

namespace orvelle {
namespace {

// The order of single-precision operations below is part of the sound: results are compared bit for
// bit across back ends, processors and versions. Do not regroup.

/// What the chain takes as read once per callback, so that a change from another thread never
/// lands in the middle of a buffer.
struct Settings {
  float gain;
  float spatialWidth;
  bool equalizerEnabled;
  Equalizer::Coefficients coefficients;  // only where the equaliser is enabled
};

/// Decaying filters would otherwise end in denormal numbers, which cost a hundred times the time.
float flushed(float value) {
  return std::fabs(value) < Equalizer::denormalFloor ? 0.0F : value;
}

/// `memory` begins with z1, z2 of the first band, those of the next lie `bandStride` further on.
/// Transposed direct form II, which keeps rounding noise low for bands far below the sample rate.
float filterSample(float x, const Equalizer::Coefficients& coefficients, std::span<float> memory,
                   std::size_t bandStride) {
  x = flushed(x);
  for (std::size_t band = 0; band < Equalizer::bands; ++band) {
    const float* const c = &coefficients[band * Equalizer::coefficientsPerBand];
    const float b0 = c[0];
    const float b1 = c[1];
    const float b2 = c[2];
    const float a1 = c[3];
    const float a2 = c[4];
    float& z1 = memory[band * bandStride];
    float& z2 = memory[band * bandStride + 1];

    const float y = b0 * x + z1;
    z1 = flushed(b1 * x - a1 * y + z2);
    z2 = flushed(b2 * x - a2 * y);
    x = flushed(y);
  }
  return x;
}

void equalise(Samples samples, std::int64_t deviceChannels,
              const Equalizer::Coefficients& coefficients, Equalizer& equalizer) {
  const auto bandStride = static_cast<std::size_t>(2 * equalizer.channels);
  std::int64_t deviceChannel = 0;
  for (float& sample : samples) {
    const std::int64_t channel = std::min(deviceChannel, equalizer.channels - 1);
    const auto memory = std::span(equalizer.state).subspan(static_cast<std::size_t>(2 * channel));
    sample = filterSample(sample, coefficients, memory, bandStride);
    // An overflow anywhere in the cascade shows here, at the latest two samples later: what a band
    // remembers comes out of it, and what comes out goes through all bands after it.
    if (!std::isfinite(sample)) {
      equalizer.clearMemory(channel);
      sample = 0.0F;
    }
    deviceChannel = deviceChannel + 1 == deviceChannels ? 0 : deviceChannel + 1;
  }
}

/// Gain, then a peak limiter without look-ahead: the gain reduction follows its target sample by
/// sample, fast down and slowly up. The target of an infinite sample is 0, so that `limReduction`
/// stays between 0 and 1 whatever the gain makes of the sound.
void amplifyAndLimit(Samples samples, float gain, float& limReduction) {
  constexpr float threshold = BoostRender::limThreshold;
  constexpr float attack = BoostRender::limAttack;
  constexpr float release = BoostRender::limRelease;
  constexpr float attackShare = 1.0F - attack;
  constexpr float releaseShare = 1.0F - release;

  float reduction = limReduction;
  for (float& sample : samples) {
    const float amplified = gain * sample;
    const float magnitude = std::fabs(amplified);
    const float target = magnitude > threshold ? threshold / magnitude : 1.0F;
    reduction = target < reduction ? reduction * attack + target * attackShare
                                   : reduction * release + target * releaseShare;
    sample = finiteOrSilence(amplified * reduction);
  }
  limReduction = reduction;
}

/// std::clamp would do the same for numbers, but leaves open what becomes of a NaN.
float hardClipped(float value) {
  if (value > 1.0F) {
    return 1.0F;
  }
  return value < -1.0F ? -1.0F : value;
}

/// Scales the side signal against the mid signal. A trailing half frame is left alone.
void widen(Samples samples, float width) {
  for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
    const float left = samples[i];
    const float right = samples[i + 1];
    const float mid = (left + right) * 0.5F;
    const float side = (left - right) * 0.5F * width;
    samples[i] = finiteOrSilence(hardClipped(mid + side));
    samples[i + 1] = finiteOrSilence(hardClipped(mid - side));
  }
}

/// Runs the chain over one pair of buffers and returns the peak between equaliser and gain.
float renderBuffer(const AudioBuffer& input, const AudioBuffer& output, const Settings& settings,
                   Equalizer& equalizer, float& limReduction) {
  // Filters remember; one NaN let in here would silence them for ever.
  const Samples samples = copyFinite(input, output);
  const std::int64_t deviceChannels = std::max<std::int64_t>(output.mNumberChannels, 1);
  if (settings.equalizerEnabled) {
    equalise(samples, deviceChannels, settings.coefficients, equalizer);
  }
  const float peak = peakOf(samples);
  if (settings.gain != 1.0F) {
    amplifyAndLimit(samples, settings.gain, limReduction);
  }
  if (settings.spatialWidth != 1.0F && deviceChannels == 2) {
    widen(samples, settings.spatialWidth);
  }
  return peak;
}

}  // namespace

void BoostRender::render(AudioBufferList input, AudioBufferList output) noexcept {
  Settings settings = {gain.load(std::memory_order_relaxed),
                       spatialWidth.load(std::memory_order_relaxed),
                       equalizer.isEnabled.load(std::memory_order_relaxed),
                       {}};
  if (settings.equalizerEnabled) {
    equalizer.loadCoefficients(settings.coefficients);
  }

  const std::size_t pairs = std::min(input.size(), output.size());
  float peak = 0.0F;
  for (std::size_t i = 0; i < pairs; ++i) {
    peak = std::max(peak, renderBuffer(input[i], output[i], settings, equalizer, limReduction));
  }
  silence(output.subspan(pairs));

  countCallback(peak);
  currentLevel.store(peak, std::memory_order_relaxed);
}

}  // namespace orvelle
