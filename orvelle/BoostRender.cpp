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
/// lands in the middle of a buffer. The equaliser's coefficients are in the `BandPlan`.
struct Settings {
  float gain;
  float spatialWidth;
  bool equalizerEnabled;
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

/// One or two channels go through the bands in vectors, everything else sample by sample: other
/// layouts, the last half frame, coefficients and sounds beyond all measure, and blocks that are
/// over before all bands have begun.
class Chain {
 public:
  Chain(const Settings& settings, std::int64_t deviceChannels, Equalizer& equalizer,
        BandPlan& bandPlan, const vector::Kernels& kernels)
      : settings_(settings),
        deviceChannels_(deviceChannels),
        equalizer_(equalizer),
        bandPlan_(bandPlan),
        kernels_(kernels) {}

  void render(SamplePair samples, vector::Block& carried) {
    std::size_t done = 0;
    if (settings_.equalizerEnabled && bandPlan_.fitsVectors(deviceChannels_)) {
      constexpr std::size_t fewestFrames = 4;
      const auto channels = static_cast<std::size_t>(deviceChannels_);
      std::size_t frames = samples.count / channels;
      while (frames >= fewestFrames) {
        const std::size_t count = std::min(frames, vector::mostFrames);
        renderInVectors(samples.part(done, count * channels), carried);
        done += count * channels;
        frames -= count;
      }
    }
    renderPlainly(samples.part(done, samples.count - done), carried);
  }

 private:
  void renderInVectors(SamplePair samples, vector::Block& carried) {
    carried.equalizer = &bandPlan_.taskFor(deviceChannels_);
    const bool isDone = pass(samples, carried);
    carried.equalizer = nullptr;
    if (!isDone) {
      renderPlainly({samples.destination, samples.destination, samples.count}, carried);
    }
  }

  void renderPlainly(SamplePair samples, vector::Block& carried) {
    if (settings_.equalizerEnabled) {
      // Filters remember; one NaN let in here would silence them for ever.
      std::transform(samples.source, samples.source + samples.count, samples.destination,
                     finiteOrSilence);
      equalise({samples.destination, samples.count}, deviceChannels_, bandPlan_.coefficients(),
               equalizer_);
      samples.source = samples.destination;
    }
    pass(samples, carried);
  }

  bool pass(SamplePair samples, vector::Block& carried) const {
    carried.source = samples.source;
    carried.destination = samples.destination;
    carried.samples = samples.count;
    return kernels_.process(carried);
  }

  const Settings& settings_;
  std::int64_t deviceChannels_;
  Equalizer& equalizer_;
  BandPlan& bandPlan_;
  const vector::Kernels& kernels_;
};

}  // namespace

void BoostRender::render(AudioBufferList input, AudioBufferList output) noexcept {
  const Settings settings = {gain.load(std::memory_order_relaxed),
                             spatialWidth.load(std::memory_order_relaxed),
                             equalizer.isEnabled.load(std::memory_order_relaxed)};
  if (settings.equalizerEnabled) {
    bandPlan_.update();
  }

  const std::size_t pairs = std::min(input.size(), output.size());
  vector::Block carried = {.gain = settings.gain, .limReduction = limReduction};
  for (std::size_t i = 0; i < pairs; ++i) {
    const auto deviceChannels = std::max<std::int64_t>(output[i].mNumberChannels, 1);
    carried.width = deviceChannels == 2 ? settings.spatialWidth : 1.0F;
    Chain(settings, deviceChannels, equalizer, bandPlan_, kernels_)
        .render(pairOf(input[i], output[i]), carried);
  }
  limReduction = carried.limReduction;
  silence(output.subspan(pairs));

  countCallback(carried.peak);
  currentLevel.store(carried.peak, std::memory_order_relaxed);
}

}  // namespace orvelle
