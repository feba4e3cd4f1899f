// The sound of a tapped application: exact at 1.0, tanh everywhere else.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <vector>

#include "orvelle/TapRender.h"
#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

std::vector<float> randomFloats(std::size_t count) {
  std::vector<float> samples = anyFloats(count);
  samples.insert(samples.end(), {infinity, -infinity, notANumber});
  return samples;
}

// Catches a curve, clip or flush on the path that must not touch the sound, and samples that are no
// numbers on their way out.
TEST(TapRenderTest, UnityVolumeCopiesEveryFiniteSample) {
  const std::vector<float> input = randomFloats(100000);
  std::vector<float> expected = input;
  for (float& sample : expected) {
    sample = std::isfinite(sample) ? sample : 0.0F;
  }
  TapRender chain;
  EXPECT_TRUE(sameBits(play(chain, input, 2), expected));
}

/// Distance from the truth in units of the truth's last place.
double unitsOff(float result, double truth) {
  const int exponent = truth == 0.0 ? -126 : std::max(std::ilogb(truth), -126);
  return std::abs(static_cast<double>(result) - truth) / std::ldexp(1.0, exponent - 23);
}

/// The floats, in rising order, around each place where the arithmetic of the curve changes: where
/// it begins to bend, where its halves meet, where it ends, where the next power of two takes over
/// in e^2y, and where floats become further apart.
std::vector<std::vector<float>> neighboursOfChanges() {
  std::vector<float> changes = {0x1p-13F, 0.65F, 9.010913F, 9.5F};
  for (int power = 1; power < 28; ++power) {
    changes.push_back((static_cast<float>(power) + 0.5F) * std::numbers::ln2_v<float> / 2.0F);
    changes.push_back(std::ldexp(16.0F, -power));
  }
  std::vector<std::vector<float>> stretches;
  for (const float change : changes) {
    std::vector<float>& stretch = stretches.emplace_back();
    for (int step = -1000; step < 1000; ++step) {
      stretch.push_back(std::bit_cast<float>(std::bit_cast<std::int32_t>(change) + step));
    }
  }
  return stretches;
}

// Catches another curve, one that is skipped for small volumes, and coefficients or halves of it
// that do not fit each other.
TEST(TapRenderTest, EveryOtherVolumeIsTanhWithinOneAndAHalfUnitsInTheLastPlace) {
  std::vector<float> input = randomFloats(50000);
  const std::vector<float> music = noise(3, 50000, 1.5F);
  input.insert(input.end(), music.begin(), music.end());
  for (const std::vector<float>& stretch : neighboursOfChanges()) {
    input.insert(input.end(), stretch.begin(), stretch.end());
  }
  TapRender chain;
  for (const float volume : {0.25F, 0.5F, 0.999F, 1.0000001F, 2.0F, 3.0F, -1.0F, 1e20F}) {
    SCOPED_TRACE(volume);
    chain.volume = volume;
    const std::vector<float> output = play(chain, input, 2);
    double worst = 0.0;
    for (std::size_t i = 0; i < input.size(); ++i) {
      const float amplified = volume * (std::isfinite(input[i]) ? input[i] : 0.0F);
      worst = std::max(worst, unitsOff(output[i], std::tanh(static_cast<double>(amplified))));
    }
    EXPECT_LE(worst, 1.5);
  }
  chain.volume = 2.0F;
  EXPECT_NEAR(play(chain, {0.9F})[0], 0.9468F, 5e-5F);
}

// Catches steps down in a rising sound, more than full scale, and halves of a wave that differ.
TEST(TapRenderTest, CurveRisesAndIsOdd) {
  TapRender chain;
  chain.volume = -1.0F;
  for (const std::vector<float>& rising : neighboursOfChanges()) {
    SCOPED_TRACE(rising.front());
    std::vector<float> falling;
    for (const float sample : rising) {
      falling.push_back(-sample);
    }
    const std::vector<float> upwards = play(chain, falling);
    EXPECT_TRUE(std::is_sorted(upwards.begin(), upwards.end()));
    EXPECT_LE(upwards.back(), 1.0F);
    std::vector<float> downwards = play(chain, rising);
    for (float& sample : downwards) {
      sample = -sample;
    }
    EXPECT_TRUE(sameBits(upwards, downwards));
  }
  EXPECT_TRUE(sameBits(play(chain, {0.0F, -0.0F}), {-0.0F, 0.0F}));
}

// Catches instruction sets that differ from each other or from those of other machines (a compiler
// that fuses or regroups), samples that depend on their place in the buffer, and what is written
// behind its end.
TEST(TapRenderTest, EveryInstructionSetGivesTheSameBitsAtEveryPlace) {
  const std::vector<float> input = randomFloats(60000);
  TapRender reference;
  reference.volume = 0.75F;
  const std::vector<float> expected = play(reference, input);
  std::uint64_t digest = 0xcbf29ce484222325;  // FNV-1a
  for (const float sample : expected) {
    digest = (digest ^ std::bit_cast<std::uint32_t>(sample)) * 0x100000001b3;
  }
  EXPECT_EQ(digest, 0x37d69498781c5030);
  for (const vector::Kernels* const kernels : vector::usableKernels()) {
    SCOPED_TRACE(kernels->name);
    TapRender chain(*kernels);
    chain.volume = reference.volume.load();
    EXPECT_TRUE(sameBits(play(chain, input), expected));
    for (std::size_t count = 0; count < 40; ++count) {
      SCOPED_TRACE(count);
      const auto begin = static_cast<std::ptrdiff_t>(59900 + count);
      std::vector<float> samples(input.begin() + begin, input.end());
      std::vector<float> wanted = samples;
      std::copy_n(expected.begin() + begin, count, wanted.begin());
      const AudioBuffer both{1, static_cast<std::uint32_t>(count * sizeof(float)), samples.data()};
      chain.render({&both, 1}, {&both, 1});
      EXPECT_TRUE(sameBits(samples, wanted));
    }
  }
}

// Catches a volume that is no number, or none at all, reaching the output as anything but silence.
TEST(TapRenderTest, SilentAndAbsurdVolumesGiveFiniteSound) {
  TapRender chain;
  chain.volume = 0.0F;
  EXPECT_EQ(play(chain, {0.5F, infinity}, 2), (std::vector{0.0F, 0.0F}));
  chain.volume = notANumber;
  EXPECT_EQ(play(chain, {0.5F, -0.5F}, 2), (std::vector{0.0F, 0.0F}));
  chain.volume = infinity;
  EXPECT_EQ(play(chain, {0.5F, 0.0F, -0.5F}), (std::vector{1.0F, 0.0F, -1.0F}));
}

// Catches samples written beyond the shorter side, a buffer without data that is touched or
// counted, an output that keeps old sound because nothing belongs to it, and a level taken behind
// the volume or from what is not heard.
TEST(TapRenderTest, PairsOfAnyShape) {
  TapRender chain;
  chain.volume = 0.0F;
  std::array<float, 4> loud = {0.25F, -0.5F, 0.75F, 1.0F};
  std::array<std::array<float, 4>, 5> old{};
  for (auto& buffer : old) {
    buffer.fill(9.0F);
  }
  const std::array in = {AudioBuffer{2, 11, loud.data()}, AudioBuffer{2, 16, nullptr},
                         AudioBuffer{2, 16, loud.data()}, AudioBuffer{0, 3, loud.data()}};
  const std::array out = {AudioBuffer{2, 16, old[0].data()}, AudioBuffer{2, 16, old[1].data()},
                          AudioBuffer{2, 16, nullptr}, AudioBuffer{2, 16, old[3].data()},
                          AudioBuffer{1, 12, old[4].data()}};
  chain.render(in, out);
  EXPECT_EQ(old[0], (std::array{0.0F, 0.0F, 9.0F, 9.0F}));
  EXPECT_EQ(old[1], (std::array{9.0F, 9.0F, 9.0F, 9.0F}));
  EXPECT_EQ(old[3], old[1]);
  EXPECT_EQ(old[4], (std::array{0.0F, 0.0F, 0.0F, 9.0F}));
  EXPECT_EQ(chain.inputPeak, 0.5F);
  EXPECT_EQ(chain.renderCalls, 1);
  chain.render({}, {});
  EXPECT_EQ(chain.inputPeak, 0.5F);
  EXPECT_EQ(chain.renderCalls, 2);
}

}  // namespace
}  // namespace orvelle::test
