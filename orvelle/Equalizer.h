// Ten peaking filters in series: coefficients and filter memory. The filtering itself is one stage
// of the signal chain in BoostRender.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orvelle {

class Equalizer {
 public:
  static constexpr std::int64_t bands = 10;
  static constexpr std::int64_t coefficientsPerBand = 5;  // b0, b1, b2, a1, a2
  /// Centre frequencies in Hz; every band has Q = 1.
  static constexpr std::array<float, bands> centreFrequencies = {32,   64,   125,  250,  500,
                                                                 1000, 2000, 4000, 8000, 16000};
  /// Smaller magnitudes are flushed to 0, in samples and in filter memory.
  static constexpr float denormalFloor = 1e-20F;

  using Coefficients = std::array<float, bands * coefficientsPerBand>;

  /// All bands at 0 dB, memory clear, switched off. The sample rate must be above twice the highest
  /// centre frequency, the channel count at least 1.
  Equalizer(float sampleRateHz, std::int64_t channelCount);

  /// Recomputes the coefficients of the first bands, as many as there are gains (ten at most; the
  /// others keep theirs). Gains in dB, not clamped. Any thread but the real-time one; a callback
  /// that runs meanwhile may once see a mixture of old and new.
  /// Source: Robert Bristow-Johnson, Audio EQ Cookbook, peaking filter.
  void setGains(std::span<const float> gainsDb);

  /// Real-time thread: all coefficients as they stand, band after band.
  void loadCoefficients(Coefficients& destination) const noexcept;

  /// Real-time thread: forgets what `channel` (0 to channels - 1) has heard.
  void clearMemory(std::int64_t channel) noexcept;

  /// Switched off, the chain passes the equaliser by and its memory rests. Any thread.
  std::atomic<bool> isEnabled{false};

  const float sampleRate;       // Hz
  const std::int64_t channels;  // independent filter memories; further channels share the last

  /// b0, b1, b2, a1, a2 of band j from index 5j, divided by a0.
  std::array<std::atomic<float>, bands * coefficientsPerBand> coeffs;
  /// z1, z2 of band j and channel k from index 2 (j * channels + k). Real-time thread only.
  std::vector<float> state;

 private:
  void setBand(std::size_t band, float amplitude);

  static_assert(std::atomic<float>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
};

}  // namespace orvelle
