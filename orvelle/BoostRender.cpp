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

void equaliseSamples(Samples samples, std::int64_t deviceChannels,
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

/// Whether the vector stages can tell what these coefficients do; also false for a NaN.
bool areOrdinary(const Equalizer::Coefficients& coefficients) {
  return std::all_of(coefficients.begin(), coefficients.end(), [](float coefficient) {
    const float magnitude = std::fabs(coefficient);
    return magnitude >= vector::leastCoefficient && magnitude <= vector::mostCoefficient;
  });
}

/// A band at 0 dB that remembers nothing puts out, bit for bit, what it gets, and goes on
/// remembering nothing.
bool passesOn(const float* c, std::span<const float> memory) {
  return c[0] == 1.0F && c[1] == c[3] && c[2] == c[4] &&
         std::all_of(memory.begin(), memory.end(), [](float z) { return z == 0.0F; });
}

vector::EqualizerTask taskFor(const Equalizer::Coefficients& coefficients, Equalizer& equalizer,
                              std::int64_t deviceChannels) {
  vector::EqualizerTask task;
  task.channels = static_cast<std::size_t>(deviceChannels);
  const auto bandStride = static_cast<std::size_t>(2 * equalizer.channels);
  for (std::size_t band = 0; band < Equalizer::bands; ++band) {
    const float* const c = &coefficients[band * Equalizer::coefficientsPerBand];
    const auto memory = std::span(equalizer.state).subspan(band * bandStride, 2 * task.channels);
    if (!passesOn(c, memory)) {
      task.band[task.bandCount++] = {c, memory.data()};
    }
  }
  return task;
}

/// One or two channels go through the bands in vectors, everything else sample by sample: other
/// layouts, the last half frame, coefficients and sounds beyond all measure, and blocks that are
/// over before all bands have begun.
void equalise(Samples samples, std::int64_t deviceChannels,
              const Equalizer::Coefficients& coefficients, Equalizer& equalizer,
              const vector::Kernels& kernels) {
  constexpr std::size_t fewestFrames = 4;
  const auto channels = static_cast<std::size_t>(deviceChannels);
  std::size_t frames = samples.size() / channels;
  if (deviceChannels <= std::min<std::int64_t>(2, equalizer.channels) &&
      areOrdinary(coefficients)) {
    for (; frames >= fewestFrames; frames = samples.size() / channels) {
      const std::size_t count = std::min(frames, vector::mostFrames);
      const Samples block = samples.first(count * channels);
      samples = samples.subspan(block.size());
      if (!kernels.equalise(taskFor(coefficients, equalizer, deviceChannels), block.data(),
                            count)) {
        equaliseSamples(block, deviceChannels, coefficients, equalizer);
      }
    }
  }
  equaliseSamples(samples, deviceChannels, coefficients, equalizer);
}

/// Runs the chain over one pair of buffers and returns the peak between equaliser and gain.
float renderBuffer(const AudioBuffer& input, const AudioBuffer& output, const Settings& settings,
                   Equalizer& equalizer, float& limReduction, const vector::Kernels& kernels) {
  // Filters remember; one NaN let in here would silence them for ever.
  const Samples samples = copyFinite(input, output, kernels);
  const std::int64_t deviceChannels = std::max<std::int64_t>(output.mNumberChannels, 1);
  if (settings.equalizerEnabled) {
    equalise(samples, deviceChannels, settings.coefficients, equalizer, kernels);
  }
  const float peak = kernels.peak(samples.data(), samples.size());
  if (settings.gain != 1.0F) {
    kernels.amplifyAndLimit(samples.data(), samples.size(), settings.gain, limReduction);
  }
  if (settings.spatialWidth != 1.0F && deviceChannels == 2) {
    kernels.widen(samples.data(), samples.size() / 2, settings.spatialWidth);
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
    peak = std::max(peak,
                    renderBuffer(input[i], output[i], settings, equalizer, limReduction, kernels_));
  }
  silence(output.subspan(pairs));

  countCallback(peak);
  currentLevel.store(peak, std::memory_order_relaxed);
}

}  // namespace orvelle
