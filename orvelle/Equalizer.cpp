#include "orvelle/Equalizer.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

Equalizer::Equalizer(float sampleRateHz, std::int64_t channelCount)
    : sampleRate(sampleRateHz),
      channels(channelCount),
      state(static_cast<std::size_t>(channelCount * bands * 2), 0.0F) {
  constexpr float unity = 1.0F;
  for (std::size_t band = 0; band < bands; ++band) {
    setBand(band, unity);
  }
}

void Equalizer::setGains(std::span<const float> gainsDb) {
  const std::size_t count = std::min<std::size_t>(gainsDb.size(), bands);
  for (std::size_t band = 0; band < count; ++band) {
    setBand(band, std::pow(10.0F, gainsDb[band] / 40.0F));
  }
}

/// `amplitude` is the square root of the band's linear gain, the cookbook's A.
void Equalizer::setBand(std::size_t band, float amplitude) {
  constexpr float twoPi = 6.2831855F;
  const float w0 = twoPi * centreFrequencies[band] / sampleRate;
  const float alpha = std::sin(w0) * 0.5F;  // sin(w0) / (2 Q), Q = 1
  const float a0 = 1.0F + alpha / amplitude;
  const float b1 = (-2.0F * std::cos(w0)) / a0;

  const std::array<float, coefficientsPerBand> normalised = {
      (1.0F + alpha * amplitude) / a0,  // b0
      b1,
      (1.0F - alpha * amplitude) / a0,  // b2
      b1,                               // a1: a peaking filter's middle terms are the same
      (1.0F - alpha / amplitude) / a0,  // a2
  };
  for (std::size_t i = 0; i < normalised.size(); ++i) {
    coeffs[band * coefficientsPerBand + i].store(normalised[i], std::memory_order_relaxed);
  }
}

void Equalizer::loadCoefficients(Coefficients& destination) const noexcept {
  for (std::size_t i = 0; i < coeffs.size(); ++i) {
    destination[i] = coeffs[i].load(std::memory_order_relaxed);
  }
}

void Equalizer::clearMemory(std::int64_t channel) noexcept {
  for (std::int64_t band = 0; band < bands; ++band) {
    const auto z1 = static_cast<std::size_t>(2 * (band * channels + channel));
    state[z1] = 0.0F;
    state[z1 + 1] = 0.0F;
  }
}

}  // namespace orvelle
