#include "instruments/Measurement.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>
#include <stdexcept>

namespace orvelle::instruments {
namespace {

using Spectrum = std::vector<std::complex<double>>;

/// In place, decimation in time. The size is a power of two.
void fourierTransform(Spectrum& values) {
  const std::size_t size = values.size();
  for (std::size_t index = 1, reversed = 0; index < size; ++index) {
    std::size_t bit = size >> 1U;
    for (; (reversed & bit) != 0; bit >>= 1U) {
      reversed ^= bit;
    }
    reversed |= bit;
    if (index < reversed) {
      std::swap(values[index], values[reversed]);
    }
  }
  for (std::size_t length = 2; length <= size; length *= 2) {
    const std::size_t half = length / 2;
    const double step = -2.0 * std::numbers::pi / static_cast<double>(length);
    for (std::size_t k = 0; k < half; ++k) {
      const std::complex<double> twiddle = std::polar(1.0, step * static_cast<double>(k));
      for (std::size_t start = k; start < size; start += length) {
        const std::complex<double> odd = twiddle * values[start + half];
        values[start + half] = values[start] - odd;
        values[start] += odd;
      }
    }
  }
}

/// Seven-term Blackman-Harris window, side lobes below -150 dB.
/// Source: H.-H. Albrecht, A family of cosine-sum windows for high-resolution measurements, 2001.
std::vector<double> windowOf(std::size_t size) {
  constexpr std::array terms = {0.27105140069342,  -0.43329793923448, 0.21812299954311,
                                -0.06592544638803, 0.01081174209837,  -0.00077658482522,
                                0.00001388721735};
  std::vector<double> window(size, 0.0);
  for (std::size_t index = 0; index < size; ++index) {
    const double angle =
        2.0 * std::numbers::pi * static_cast<double>(index) / static_cast<double>(size);
    for (std::size_t term = 0; term < terms.size(); ++term) {
      window[index] += terms[term] * std::cos(angle * static_cast<double>(term));
    }
  }
  return window;
}

/// Solves the symmetric system of three unknowns by Cramer's rule.
using Row = std::array<double, 3>;
double determinant(const Row& a, const Row& b, const Row& c) {
  return a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
         a[2] * (b[0] * c[1] - b[1] * c[0]);
}
Row solve(const std::array<Row, 3>& matrix, const Row& right) {
  const double whole = determinant(matrix[0], matrix[1], matrix[2]);
  Row solution{};
  for (std::size_t unknown = 0; unknown < 3; ++unknown) {
    std::array<Row, 3> replaced = matrix;
    for (std::size_t row = 0; row < 3; ++row) {
      replaced[row][unknown] = right[row];
    }
    solution[unknown] = determinant(replaced[0], replaced[1], replaced[2]) / whole;
  }
  return solution;
}

double phaseAt(std::size_t frame, double frequency, double rate) {
  return 2.0 * std::numbers::pi * std::fmod(frequency * static_cast<double>(frame), rate) / rate;
}

double valueOf(const SineFit& fit, std::size_t frame, double frequency, double rate) {
  return fit.offset + fit.amplitude * std::sin(phaseAt(frame, frequency, rate) + fit.phase);
}

}  // namespace

double toDecibels(double amplitude) {
  return 20.0 * std::log10(amplitude);
}

SineFit fitSine(Samples samples, double frequency, double rate) {
  if (samples.size() < 8) {
    throw std::invalid_argument("too few samples to fit a sine");
  }
  std::array<Row, 3> matrix{};
  Row right{};
  for (std::size_t frame = 0; frame < samples.size(); ++frame) {
    const double phase = phaseAt(frame, frequency, rate);
    const Row basis = {std::sin(phase), std::cos(phase), 1.0};
    for (std::size_t row = 0; row < 3; ++row) {
      for (std::size_t column = 0; column < 3; ++column) {
        matrix[row][column] += basis[row] * basis[column];
      }
      right[row] += basis[row] * static_cast<double>(samples[frame]);
    }
  }
  const Row solution = solve(matrix, right);

  SineFit fit;
  fit.amplitude = std::hypot(solution[0], solution[1]);
  fit.phase = std::atan2(solution[1], solution[0]);
  fit.offset = solution[2];
  for (std::size_t frame = 0; frame < samples.size(); ++frame) {
    const double rest = static_cast<double>(samples[frame]) - valueOf(fit, frame, frequency, rate);
    fit.residualPeak = std::max(fit.residualPeak, std::abs(rest));
  }
  return fit;
}

SpectralLine strongestOtherLine(Samples samples, double frequency, double rate) {
  const Samples part = samples.first(std::bit_floor(samples.size()));
  const SineFit fit = fitSine(part, frequency, rate);
  const std::vector<double> window = windowOf(part.size());
  double windowSum = 0.0;
  Spectrum spectrum(part.size());
  for (std::size_t frame = 0; frame < part.size(); ++frame) {
    const double rest = static_cast<double>(part[frame]) - valueOf(fit, frame, frequency, rate);
    spectrum[frame] = window[frame] * rest;
    windowSum += window[frame];
  }
  fourierTransform(spectrum);

  // The offset has gone with the sine: through the window it would seem twice as large.
  SpectralLine strongest;
  double largest = std::abs(fit.offset);
  for (std::size_t bin = 1; bin < part.size() / 2; ++bin) {
    const double amplitude = 2.0 * std::abs(spectrum[bin]) / windowSum;
    if (amplitude > largest) {
      largest = amplitude;
      strongest.frequency = rate * static_cast<double>(bin) / static_cast<double>(part.size());
    }
  }
  strongest.levelDbfs = toDecibels(largest);
  return strongest;
}

float peak(Samples samples) {
  float largest = 0.0F;
  for (const float sample : samples) {
    largest = std::max(largest, std::abs(sample));
  }
  return largest;
}

std::vector<float> peakPerMillisecond(Samples samples, double rate) {
  std::vector<float> peaks;
  const auto boundary = [rate](std::size_t millisecond) {
    return static_cast<std::size_t>(std::llround(static_cast<double>(millisecond) * rate / 1000.0));
  };
  for (std::size_t index = 0; boundary(index + 1) <= samples.size(); ++index) {
    peaks.push_back(peak(samples.subspan(boundary(index), boundary(index + 1) - boundary(index))));
  }
  return peaks;
}

std::optional<std::size_t> firstAbove(Samples samples, float threshold) {
  const auto found = std::find_if(samples.begin(), samples.end(), [threshold](float sample) {
    return std::abs(sample) > threshold;
  });
  if (found == samples.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - samples.begin());
}

std::size_t endOfSound(Samples samples, float threshold) {
  std::size_t end = samples.size();
  while (end > 0 && std::abs(samples[end - 1]) <= threshold) {
    --end;
  }
  return end;
}

double longestGapMs(Samples samples, double rate, float threshold) {
  const std::size_t end = endOfSound(samples, threshold);
  std::size_t lastSound = firstAbove(samples, threshold).value_or(end);
  std::size_t longest = 0;
  for (std::size_t frame = lastSound; frame < end; ++frame) {
    if (std::abs(samples[frame]) > threshold) {
      longest = std::max(longest, frame - lastSound);
      lastSound = frame + 1;
    }
  }
  return static_cast<double>(longest) * 1000.0 / rate;
}

Difference compare(Samples one, Samples other) {
  Difference difference;
  difference.compared = std::min(one.size(), other.size());
  for (std::size_t frame = 0; frame < difference.compared; ++frame) {
    const float distance = std::abs(one[frame] - other[frame]);
    if (distance == 0.0F) {
      continue;
    }
    ++difference.differing;
    difference.first = difference.first.value_or(frame);
    difference.largest = std::max(difference.largest, distance);
  }
  return difference;
}

}  // namespace orvelle::instruments
