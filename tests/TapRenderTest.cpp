// The sound of a tapped application: exact at 1.0, tanh everywhere else.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
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

// Catches another curve, one that is skipped for small volumes, and arithmetic that is left to a C
// library's float functions: the exact result, rounded once, is at most its neighbour away.
TEST(TapRenderTest, EveryOtherVolumeIsTanhWithinOneUnitInTheLastPlace) {
  std::vector<float> input = randomFloats(50000);
  const std::vector<float> music = noise(3, 50000, 1.5F);
  input.insert(input.end(), music.begin(), music.end());
  TapRender chain;
  for (const float volume : {0.25F, 0.999F, 1.0000001F, 2.0F, 3.0F, -1.0F, 1e20F}) {
    SCOPED_TRACE(volume);
    chain.volume = volume;
    const std::vector<float> output = play(chain, input, 2);
    std::int64_t worst = 0;
    for (std::size_t i = 0; i < input.size(); ++i) {
      const float amplified = volume * (std::isfinite(input[i]) ? input[i] : 0.0F);
      const auto exact = static_cast<float>(std::tanh(static_cast<long double>(amplified)));
      worst = std::max(worst, unitsBetween(output[i], exact));
    }
    EXPECT_LE(worst, 1);
  }
  chain.volume = 2.0F;
  EXPECT_NEAR(play(chain, {0.9F})[0], 0.9468F, 5e-5F);
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
