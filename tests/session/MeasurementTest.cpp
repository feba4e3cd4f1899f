// The instruments against signals whose numbers are known: an instrument that flatters would make
// every measurement of the program worthless.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "instruments/Measurement.h"
#include "instruments/Recording.h"

namespace orvelle::instruments {
namespace {

constexpr double rate = 48000.0;

std::vector<float> sine(double frequency, double levelDbfs, std::size_t frames,
                        double phase = 0.3) {
  std::vector<float> samples(frames);
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const double turns = frequency * static_cast<double>(frame) / rate;
    samples[frame] = static_cast<float>(std::pow(10.0, levelDbfs / 20.0) *
                                        std::sin(2.0 * std::numbers::pi * turns + phase));
  }
  return samples;
}

std::vector<float> sum(std::vector<float> one, const std::vector<float>& other) {
  for (std::size_t frame = 0; frame < one.size(); ++frame) {
    one[frame] += other[frame];
  }
  return one;
}

// Would catch a fit that takes part of an offset, of a neighbour or of an incomplete period for the
// sine.
TEST(Measurement, FitsLevelPhaseAndOffset) {
  for (const double frequency : {31.7, 997.0, 19997.0}) {
    std::vector<float> samples = sine(frequency, -20.0, 30011, 1.1);
    for (float& sample : samples) {
      sample += 0.125F;
    }
    const SineFit fit = fitSine(samples, frequency, rate);
    EXPECT_NEAR(fit.levelDbfs(), -20.0, 1e-5) << frequency;
    EXPECT_NEAR(fit.phase, 1.1, 1e-6) << frequency;
    EXPECT_NEAR(fit.offset, 0.125, 1e-7) << frequency;
    EXPECT_LT(fit.residualPeak, 2e-8) << frequency;
  }
}

// Would catch window side lobes, scalloping or leakage of the sine itself that hide or invent a
// component.
TEST(Measurement, FindsTheStrongestOtherLine) {
  const std::size_t frames = 70000;
  const auto clean = strongestOtherLine(sine(997.0, -14.0, frames), 997.0, rate);
  EXPECT_LT(clean.levelDbfs, -160.0);

  for (const double level : {-60.0, -90.0, -130.0}) {
    for (const double frequency : {50.0, 1003.1, 2991.0, 23000.4}) {
      const std::vector<float> samples =
          sum(sine(997.0, -14.0, frames), sine(frequency, level, frames));
      const SpectralLine line = strongestOtherLine(samples, 997.0, rate);
      EXPECT_NEAR(line.levelDbfs, level, 0.5) << frequency << " Hz";
      EXPECT_NEAR(line.frequency, frequency, 1.0) << level << " dBFS";
    }
  }
  std::vector<float> offset = sine(997.0, -14.0, frames);
  for (float& sample : offset) {
    sample += 0.001F;
  }
  EXPECT_NEAR(strongestOtherLine(offset, 997.0, rate).levelDbfs, -60.0, 0.5);
}

// Would catch a gap or peak that falls between two milliseconds, and leading or trailing silence
// counted as a gap.
TEST(Measurement, FindsGapsPeaksAndOnsets) {
  std::vector<float> samples(4800, 0.0F);
  std::fill(samples.begin() + 1000, samples.begin() + 3800, 0.25F);
  std::fill(samples.begin() + 2000, samples.begin() + 2480, 0.0F);
  std::fill(samples.begin() + 3000, samples.begin() + 3024, 0.0F);
  EXPECT_DOUBLE_EQ(longestGapMs(samples, rate, 1e-4F), 10.0);
  EXPECT_EQ(firstAbove(samples, 0.2F), 1000U);
  EXPECT_FALSE(firstAbove(samples, 0.25F).has_value());
  EXPECT_EQ(endOfSound(samples, 0.2F), 3800U);

  samples[3500] = -0.5F;
  const std::vector<float> peaks = peakPerMillisecond(samples, rate);
  ASSERT_EQ(peaks.size(), 100U);
  EXPECT_FLOAT_EQ(peaks[72], 0.5F);
  EXPECT_EQ(peakPerMillisecond(samples, 44100.0).size(), 108U);
}

// Would catch a comparison that takes a NaN for equal.
TEST(Measurement, Compares) {
  const std::vector<float> reference = sine(997.0, -6.0, 5000);
  std::vector<float> damaged = reference;
  EXPECT_EQ(compare(reference, damaged).differing, 0U);
  damaged[77] += 0.25F;
  damaged[4000] = std::nanf("");
  const Difference difference = compare(reference, damaged);
  EXPECT_EQ(difference.differing, 2U);
  EXPECT_EQ(difference.first, 77U);
  EXPECT_NEAR(difference.largest, 0.25F, 1e-6F);
}

// Would catch times that drift within a cycle, and a lost cycle that is not reported or one
// that is reported although its clock merely changed.
TEST(Measurement, KeepsTheTimeOfARecording) {
  Recording recording;
  recording.channelNames = {"FL"};
  recording.channels = {std::vector<float>(400)};
  recording.cycles = {{0, 1000, 100, 100, 1, 48000, true, 5'000'000},
                      {100, 1100, 100, 100, 1, 48000, true, 7'300'000},  // woken late, nothing lost
                      {200, 1248, 100, 100, 1, 48000, true, 10'166'667},  // 48 frames lost
                      {300, 7, 100, 100, 2, 48000, true, 17'250'000}};  // another clock, 5 ms later
  const std::vector<Gap> gaps = recording.gaps();
  ASSERT_EQ(gaps.size(), 2U);
  EXPECT_EQ(gaps[0].frame, 200U);
  EXPECT_NEAR(gaps[0].milliseconds, 1.0, 1e-9);
  EXPECT_EQ(gaps[1].frame, 300U);
  EXPECT_NEAR(gaps[1].milliseconds, 5.0, 1e-3);

  EXPECT_EQ(recording.timeAt(148), 8'300'000);
  EXPECT_THROW((void)recording.timeAt(400), std::out_of_range);
  EXPECT_EQ(recording.frameAt(8'300'000), 148U);
  EXPECT_EQ(recording.frameAt(12'500'000), 300U) << "in a gap: the first sample behind it";
  EXPECT_EQ(recording.frameAt(0), 0U);
  EXPECT_EQ(recording.frameAt(90'000'000), 400U);
  EXPECT_THROW((void)recording.channel("FR"), std::out_of_range);
}

}  // namespace
}  // namespace orvelle::instruments
