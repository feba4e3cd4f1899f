// Numbers from samples: levels, distortion, gaps and delays of a recording.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace orvelle::instruments {

using Samples = std::span<const float>;

/// Amplitude 1.0 is 0 dBFS; silence gives minus infinity.
double toDecibels(double amplitude);

/// The sine of known frequency that fits best, by least squares.
struct SineFit {
  double amplitude = 0.0;
  double phase = 0.0;  ///< radians at the first sample, of a sine
  double offset = 0.0;
  double residualPeak = 0.0;  ///< largest magnitude of what is left

  [[nodiscard]] double levelDbfs() const { return toDecibels(amplitude); }
};

/// `frequency` in Hz, below half of `rate`; some periods of settled signal.
SineFit fitSine(Samples samples, double frequency, double rate);

/// What is in a signal apart from its sine. 0 Hz is a constant offset.
struct SpectralLine {
  double frequency = 0.0;  // Hz
  double levelDbfs = 0.0;
};

/// The strongest component besides the best fitting sine of `frequency`: 2^n samples (the largest
/// power that fits) through a window with side lobes below -150 dB. Reads a line's level within
/// 0.5 dB, and down to -140 dBFS.
SpectralLine strongestOtherLine(Samples samples, double frequency, double rate);

float peak(Samples samples);

/// Peak of each whole millisecond.
std::vector<float> peakPerMillisecond(Samples samples, double rate);

/// Longest run of samples of magnitude `threshold` or less, in milliseconds. Silence before the
/// first sound and after the last one does not count.
double longestGapMs(Samples samples, double rate, float threshold);

/// Index of the first sample of a magnitude above `threshold`.
std::optional<std::size_t> firstAbove(Samples samples, float threshold);
/// Index behind the last sample of a magnitude above `threshold`; 0 when there is none.
std::size_t endOfSound(Samples samples, float threshold);

/// How two signals differ, sample by sample over the shorter one.
struct Difference {
  std::size_t compared = 0;
  std::size_t differing = 0;
  std::optional<std::size_t> first;
  float largest = 0.0F;
};
Difference compare(Samples one, Samples other);

}  // namespace orvelle::instruments
