#include "orvelle/BandPlan.h"

#include <algorithm>
#include <cmath>

namespace orvelle {
namespace {

/// Also false for a NaN.
bool isOrdinary(float coefficient) {
  const float magnitude = std::fabs(coefficient);
  return magnitude >= vector::leastCoefficient && magnitude <= vector::mostCoefficient;
}

/// A band at 0 dB puts out, bit for bit, what it gets, as soon as it remembers nothing.
bool isFlat(const float* c) {
  return c[0] == 1.0F && c[1] == c[3] && c[2] == c[4];
}

}  // namespace

void BandPlan::update() noexcept {
  Equalizer::Coefficients current;
  equalizer_.loadCoefficients(current);
  if (current == coefficients_) {
    return;
  }
  coefficients_ = current;
  areOrdinary_ = std::all_of(current.begin(), current.end(), isOrdinary);
  flatBands_ = 0;
  for (std::size_t band = 0; band < Equalizer::bands; ++band) {
    const bool flat = isFlat(&coefficients_[band * Equalizer::coefficientsPerBand]);
    flatBands_ |= static_cast<BandSet>(flat) << band;
  }
  task_.layout = {};
}

bool BandPlan::fitsVectors(std::int64_t deviceChannels) const {
  return deviceChannels <= equalizer_.channels && areOrdinary_;
}

vector::EqualizerTask& BandPlan::taskFor(std::size_t firstChannel, std::size_t channels) noexcept {
  task_.channels = channels;
  const BandSet needed = bandsNeeded(firstChannel, channels);
  if (needed == plannedBands_ && firstChannel == plannedChannel_) {
    return task_;
  }
  if (needed != plannedBands_) {
    task_.layout = {};
  }
  plannedBands_ = needed;
  plannedChannel_ = firstChannel;
  task_.bandCount = 0;
  for (std::size_t band = 0; band < Equalizer::bands; ++band) {
    if ((needed >> band & 1U) != 0) {
      task_.band[task_.bandCount++] = {&coefficients_[band * Equalizer::coefficientsPerBand],
                                       memoryOf(band, firstChannel, channels).data()};
    }
  }
  return task_;
}

BandPlan::BandSet BandPlan::bandsNeeded(std::size_t firstChannel, std::size_t channels) const {
  constexpr BandSet all = (1U << Equalizer::bands) - 1U;
  BandSet needed = all & ~flatBands_;
  for (std::size_t band = 0; band < Equalizer::bands; ++band) {
    if ((flatBands_ >> band & 1U) != 0) {
      const auto memory = memoryOf(band, firstChannel, channels);
      const bool remembers =
          std::any_of(memory.begin(), memory.end(), [](float z) { return z != 0.0F; });
      needed |= static_cast<BandSet>(remembers) << band;
    }
  }
  return needed;
}

std::span<float> BandPlan::memoryOf(std::size_t band, std::size_t firstChannel,
                                    std::size_t channels) const {
  const auto bandStride = static_cast<std::size_t>(2 * equalizer_.channels);
  return std::span(equalizer_.state).subspan(band * bandStride + 2 * firstChannel, 2 * channels);
}

}  // namespace orvelle
