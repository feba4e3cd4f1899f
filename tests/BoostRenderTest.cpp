// The signal chain against figures worked out by hand, which a misunderstanding shared with the
// scalar model would not survive, and against input and settings that make no sense.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "orvelle/BoostRender.h"
#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

bool allFinite(const std::vector<float>& samples) {
  return std::all_of(samples.begin(), samples.end(), [](float x) { return std::isfinite(x); });
}

// Catches a limiter or clip on the path that must not touch the sound, and a guard against
// non-finite samples that swallows finite ones.
TEST(BoostRenderTest, UnityGainCopiesEveryFiniteSample) {
  std::vector<float> input = anyFloats(100000);
  std::erase_if(input, [](float sample) { return !std::isfinite(sample); });
  input.resize(input.size() / 2 * 2);
  BoostRender chain;
  EXPECT_TRUE(sameBits(play(chain, input, 2), input));
  EXPECT_EQ(chain.currentLevel, std::numeric_limits<float>::max());
}

// Catches swapped or mistyped coefficients, and smoothing per callback or frame instead of per
// sample: times are measured where the reduction has covered 1 - 1/e of its way.
TEST(BoostRenderTest, LimiterTimesMatchTheory) {
  const auto samplesUntil = [](const std::vector<float>& output, float input, double reduction,
                               bool falling) {
    std::size_t i = 0;
    while (i < output.size() && (output[i] / input > reduction) == falling) {
      ++i;
    }
    return static_cast<double>(i);
  };
  BoostRender chain;
  chain.gain = 4.0F;
  const double remaining = 1.0 / std::numbers::e;

  const std::vector<float> loud = play(chain, std::vector<float>(48000, 0.5F));
  EXPECT_NEAR(samplesUntil(loud, 2.0F, 0.49 + 0.51 * remaining, true), -1.0 / std::log(0.979), 1.0);

  const std::vector<float> quiet = play(chain, std::vector<float>(48000, 0.1F));
  EXPECT_NEAR(samplesUntil(quiet, 0.4F, 1.0 - 0.51 * remaining, false), -1.0 / std::log(0.9998),
              10.0);
}

// Catches exchanged mid and side, a missing clip, and a half frame or another channel count treated
// as stereo.
TEST(BoostRenderTest, WidthByHand) {
  BoostRender chain;
  chain.spatialWidth = 0.0F;
  EXPECT_EQ(play(chain, {0.5F, -0.25F, 3.0F, 1.0F, 0.75F}, 2),
            (std::vector{0.125F, 0.125F, 1.0F, 1.0F, 0.75F}));
  chain.spatialWidth = 2.0F;
  EXPECT_EQ(play(chain, {0.5F, 0.25F, 1.0F, -1.0F}, 2), (std::vector{0.625F, 0.125F, 1.0F, -1.0F}));
  EXPECT_EQ(play(chain, {0.5F, 0.25F, 2.0F}, 3), (std::vector{0.5F, 0.25F, 2.0F}));
}

// Catches a level that is held or taken behind the gain, and a peak that forgets or is not reset by
// its reader.
TEST(BoostRenderTest, MeterFields) {
  BoostRender chain;
  chain.gain = 8.0F;
  play(chain, {0.25F, -0.5F}, 2);
  play(chain, {0.125F, 0.0F}, 2);
  EXPECT_EQ(chain.currentLevel, 0.125F);
  EXPECT_EQ(chain.inputPeak.exchange(0.0F), 0.5F);
  EXPECT_EQ(chain.renderCalls.exchange(0), 2);
  play(chain, {0.0625F, 0.0F}, 2);
  EXPECT_EQ(chain.inputPeak, 0.0625F);
  EXPECT_EQ(chain.renderCalls, 1);

  chain.gain = 1.0F;
  chain.equalizer.isEnabled = true;
  chain.equalizer.setGains(std::array{0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 12.0F});
  const std::vector<float> output = play(chain, {1.0F});
  EXPECT_GT(output[0], 1.05F);
  EXPECT_EQ(chain.currentLevel, output[0]);
}

// Catches filter tails that die away in denormals, where the callback would become slow, and a
// flush on the path that has none.
TEST(BoostRenderTest, DenormalsEndAsZeroInTheEqualiserOnly) {
  BoostRender chain;
  chain.gain = 4.0F;
  EXPECT_EQ(play(chain, {1e-30F})[0], 4.0F * 1e-30F);

  chain.gain = 1.0F;
  chain.equalizer.isEnabled = true;
  chain.equalizer.setGains(std::vector<float>(10, 12.0F));
  EXPECT_EQ(play(chain, {9e-21F})[0], 0.0F);
  play(chain, {1.0F});
  const std::vector<float> tail = play(chain, std::vector<float>(480000, 0.0F));
  EXPECT_EQ(tail.back(), 0.0F);
  EXPECT_EQ(chain.equalizer.state, std::vector<float>(160, 0.0F));
}

// Catches non-finite input that reaches the output, poisons filter or limiter, or is treated as
// anything but silence on any path: during the burst and ever after the chain sounds as if it had
// heard silence.
TEST(BoostRenderTest, NonFiniteInputIsSilence) {
  for (const Mode& mode : modes()) {
    SCOPED_TRACE(mode.name);
    Random random(11);
    std::vector<float> input = noise(11, 40000, 1.0F);
    std::vector<float> silenced = input;
    for (std::size_t i = 1000; i < 3000; ++i) {
      input[i] = std::array{notANumber, infinity, -infinity}[random() % 3U];
      silenced[i] = 0.0F;
    }
    BoostRender chain;
    ScalarModel model;
    apply(mode, chain, model);
    const std::vector<float> output = play(chain, input, 2);

    const std::vector<float> expected = play(model, silenced, 2);
    EXPECT_TRUE(sameBits(output, expected));
    EXPECT_TRUE(sameBits(chain.currentLevel, model.currentLevel));
  }
}

class BoostRenderKernels : public ::testing::TestWithParam<const vector::Kernels*> {};

// Catches a filter that stays dead after an overflow, and one that takes its neighbour with it.
TEST_P(BoostRenderKernels, OverflowInTheEqualiserRestartsThatChannelOnly) {
  const std::vector<float> music = noise(12, 8000, 0.5F);
  BoostRender overflowing(*GetParam());
  BoostRender undisturbed(*GetParam());
  for (BoostRender* chain : {&overflowing, &undisturbed}) {
    chain->equalizer.isEnabled = true;
    chain->equalizer.setGains(std::vector<float>(10, 12.0F));
  }
  std::vector<float> burst = {std::numeric_limits<float>::max(), 0.25F};
  EXPECT_EQ(play(overflowing, burst, 2)[0], 0.0F);
  burst[0] = 0.0F;
  play(undisturbed, burst, 2);
  EXPECT_TRUE(sameBits(play(overflowing, music, 2), play(undisturbed, music, 2)));
}

// Catches infinities made by our own arithmetic on their way to the output or into the limiter:
// once the absurd setting is gone, the chain works again.
TEST_P(BoostRenderKernels, AbsurdSettingsGiveFiniteOutputAndLeaveNoTrace) {
  constexpr float most = std::numeric_limits<float>::max();
  const std::vector<Mode> absurd = {
      {"infinite gain", infinity},
      {"gain that is no number", notANumber},
      {"overflowing gain", most},
      {"infinite width", 2.0F, infinity},
      {"width that is no number", 1.0F, notANumber},
      {"overflowing bands", 2.0F, 1.0F, std::vector<float>(10, 400.0F)},
      {"infinite bands", 1.0F, 1.0F, std::vector<float>(10, infinity)},
      {"bands that are no numbers", 1.0F, 1.5F, std::vector<float>(10, notANumber)},
  };
  for (const Mode& mode : absurd) {
    SCOPED_TRACE(mode.name);
    BoostRender chain(*GetParam());
    ScalarModel unused;
    apply(mode, chain, unused);
    for (unsigned callback = 0; callback < 20; ++callback) {
      const float amplitude = callback % 2 == 0 ? 1.0F : most;
      EXPECT_TRUE(allFinite(play(chain, noise(callback, 1024, amplitude), 2)));
      EXPECT_TRUE(std::isfinite(chain.currentLevel));
    }
    apply({"flat and louder", 4.0F, 1.0F, std::vector<float>(10, 0.0F)}, chain, unused);
    EXPECT_NEAR(play(chain, std::vector<float>(96000, 0.5F), 2).back(), 0.98F, 0.001F);
  }
}

INSTANTIATE_TEST_SUITE_P(All, BoostRenderKernels,
                         ::testing::ValuesIn(vector::usableKernels().begin(),
                                             vector::usableKernels().end()),
                         [](const auto& kernels) -> std::string { return kernels.param->name; });

}  // namespace
}  // namespace orvelle::test
