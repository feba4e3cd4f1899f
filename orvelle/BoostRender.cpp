#include "orvelle/BoostRender.h"

#include <algorithm>
#include <array>
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

/// The samples of some of a device's channels, from `firstChannel` on.
void equalise(Samples samples, std::int64_t firstChannel, std::int64_t channels,
              const Equalizer::Coefficients& coefficients, Equalizer& equalizer) {
  const auto bandStride = static_cast<std::size_t>(2 * equalizer.channels);
  std::int64_t deviceChannel = firstChannel;
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
    deviceChannel = deviceChannel + 1 == firstChannel + channels ? firstChannel : deviceChannel + 1;
  }
}

/// One or two neighbouring channels of frames that have so many samples each.
void copyChannels(const float* from, std::size_t fromSamples, float* to, std::size_t toSamples,
                  std::size_t channels, std::size_t frames) {
  for (std::size_t frame = 0; frame < frames; ++frame) {
    for (std::size_t channel = 0; channel < channels; ++channel) {
      to[frame * toSamples + channel] = from[frame * fromSamples + channel];
    }
  }
}

/// Channels go through the bands in vectors, two at a time. Sample by sample goes what vectors
/// cannot tell: more channels than the equaliser remembers, an incomplete last frame, coefficients
/// and sounds beyond all measure, and blocks that are over before all bands have begun.
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
        renderFrames(samples.part(done, count * channels), carried);
        done += count * channels;
        frames -= count;
      }
    }
    renderPlainly(samples.part(done, samples.count - done), carried);
  }

 private:
  void renderFrames(SamplePair samples, vector::Block& carried) {
    if (deviceChannels_ <= 2) {
      renderInVectors(samples, carried);
    } else {
      renderInPairs(samples, carried);
    }
  }

  void renderInVectors(SamplePair samples, vector::Block& carried) {
    carried.equalizer = &bandPlan_.taskFor(0, static_cast<std::size_t>(deviceChannels_));
    const bool isDone = pass(samples, carried);
    carried.equalizer = nullptr;
    if (!isDone) {
      renderPlainly({samples.destination, samples.destination, samples.count}, carried);
    }
  }

  /// Through the bands each pair goes on its own, through all that follows they go together.
  void renderInPairs(SamplePair samples, vector::Block& carried) {
    const auto channels = static_cast<std::size_t>(deviceChannels_);
    const std::size_t frames = samples.count / channels;
    alignas(64) std::array<float, 2 * vector::mostFrames> pair;  // NOLINT: filled below
    for (std::size_t first = 0; first < channels; first += 2) {
      const std::size_t width = std::min<std::size_t>(2, channels - first);
      copyChannels(samples.source + first, channels, pair.data(), width, width, frames);
      equaliseInVectors({pair.data(), width * frames}, first, width);
      copyChannels(pair.data(), width, samples.destination + first, channels, width, frames);
    }
    pass({samples.destination, samples.destination, samples.count}, carried);
  }

  void equaliseInVectors(Samples samples, std::size_t firstChannel, std::size_t channels) {
    vector::Block bands = {.source = samples.data(),
                           .destination = samples.data(),
                           .samples = samples.size(),
                           .equalizer = &bandPlan_.taskFor(firstChannel, channels)};
    if (!kernels_.process(bands)) {
      equalise(samples, static_cast<std::int64_t>(firstChannel),
               static_cast<std::int64_t>(channels), bandPlan_.coefficients(), equalizer_);
    }
  }

  void renderPlainly(SamplePair samples, vector::Block& carried) {
    if (settings_.equalizerEnabled) {
      // Filters remember; one NaN let in here would silence them for ever.
      std::transform(samples.source, samples.source + samples.count, samples.destination,
                     finiteOrSilence);
      equalise({samples.destination, samples.count}, 0, deviceChannels_, bandPlan_.coefficients(),
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
