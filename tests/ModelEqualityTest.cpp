// The signal chain against the plain scalar model, bit for bit, over signals, settings and shapes
// of buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <string>
#include <tuple>
#include <vector>

#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

struct BufferShape {
  std::uint32_t channels;
  std::uint32_t bytes;
  bool hasData = true;
};

/// The memory of one direction of one callback. What nobody writes keeps `untouched`.
class Buffers {
 public:
  explicit Buffers(const std::vector<BufferShape>& shapes) {
    constexpr float untouched = 123.25F;
    constexpr std::size_t guard = 4;
    for (const BufferShape& shape : shapes) {
      samples.emplace_back(shape.bytes / sizeof(float) + guard, untouched);
    }
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      float* data = shapes[i].hasData ? samples[i].data() : nullptr;
      buffers_.push_back({shapes[i].channels, shapes[i].bytes, data});
    }
  }

  AudioBufferList list() const { return buffers_; }

  std::vector<std::vector<float>> samples;

 private:
  std::vector<AudioBuffer> buffers_;
};

float sine(std::size_t frame) {
  return static_cast<float>(
      std::sin(2.0 * std::numbers::pi * 997.0 / 48000.0 * static_cast<double>(frame)));
}

struct Signal {
  const char* name;
  std::function<float(std::size_t index, Random&)> next;
};

const std::vector<Signal>& signals() {
  static const std::vector<Signal> all = {
      {"full-scale sine", [](std::size_t i, Random&) { return sine(i / 2); }},
      {"noise", [](std::size_t, Random& random) { return uniform(random, -0.3F, 0.3F); }},
      {"clipping noise", [](std::size_t, Random& random) { return uniform(random, -4.0F, 4.0F); }},
      {"clicks in silence",
       [](std::size_t i, Random& random) { return i % 1201 == 0 ? uniform(random, -1, 1) : 0.0F; }},
      {"alternating loud and quiet",
       [](std::size_t i, Random& random) {
         const bool loud = i / 3000 % 2 == 0;
         return uniform(random, -1.0F, 1.0F) * (loud ? 1.0F : 0.01F);
       }},
      {"fading into silence and back",
       [](std::size_t i, Random& random) {
         return uniform(random, -1, 1) * std::pow(10.0F, -static_cast<float>(i % 6000) / 120.0F);
       }},
      {"sweep",
       [](std::size_t i, Random&) {
         const double seconds = static_cast<double>(i / 2) / 48000.0;
         return static_cast<float>(0.7 *
                                   std::sin(2.0 * std::numbers::pi * 80000.0 * seconds * seconds));
       }},
      {"sudden silence",
       [](std::size_t i, Random& random) { return i < 900 ? uniform(random, -1, 1) : 0.0F; }},
      {"nothing", [](std::size_t, Random&) { return 0.0F; }},
      {"bursts that are no numbers",
       [](std::size_t i, Random& random) {
         return i / 100 % 9 == 4 ? std::array{notANumber, infinity, -infinity}[i % 3]
                                 : uniform(random, -1, 1);
       }},
      {"enormous, but nowhere near overflow",
       [](std::size_t i, Random& random) {
         return uniform(random, -1, 1) * std::pow(10.0F, static_cast<float>(i / 500 % 30));
       }},
      {"around the denormal floor",
       [](std::size_t, Random& random) {
         return std::copysign(std::pow(10.0F, uniform(random, -44.0F, -17.0F)),
                              uniform(random, -1.0F, 1.0F));
       }},
  };
  return all;
}

/// Hears every callback twice, once in the chain and once in the model, and compares what can be
/// told apart from outside. False at the first difference.
class Comparison {
 public:
  Comparison(const vector::Kernels& kernels, const Signal& signal, unsigned seed)
      : chain(kernels), signal_(signal), random_(seed) {}

  ::testing::AssertionResult callback(const std::vector<BufferShape>& inputShape,
                                      const std::vector<BufferShape>& outputShape) {
    Buffers input(inputShape);
    for (std::vector<float>& buffer : input.samples) {
      for (float& sample : buffer) {
        sample = signal_.next(position_++, random_);
      }
    }
    Buffers ofChain(outputShape);
    Buffers ofModel(outputShape);
    for (std::size_t b = 0; isInPlace && b < outputShape.size(); ++b) {
      std::copy_n(input.samples[b].begin(), outputShape[b].bytes / sizeof(float),
                  ofChain.samples[b].begin());
    }
    chain.render(isInPlace ? ofChain.list() : input.list(), ofChain.list());
    for (std::vector<float>& buffer : input.samples) {
      for (float& sample : buffer) {
        sample = std::isfinite(sample) ? sample : 0.0F;
      }
    }
    model.render(input.list(), ofModel.list());

    for (std::size_t b = 0; b < outputShape.size(); ++b) {
      if (!sameBits(ofChain.samples[b], ofModel.samples[b])) {
        return ::testing::AssertionFailure() << "samples of buffer " << b;
      }
    }
    if (!sameBits(chain.equalizer.state, model.state)) {
      return ::testing::AssertionFailure() << "filter memory";
    }
    if (!sameBits(chain.limReduction, model.limReduction)) {
      return ::testing::AssertionFailure() << "limiter";
    }
    if (!sameBits(chain.currentLevel, model.currentLevel) ||
        !sameBits(chain.inputPeak, model.inputPeak) || chain.renderCalls != model.renderCalls) {
      return ::testing::AssertionFailure() << "meter";
    }
    return ::testing::AssertionSuccess();
  }

  struct Chain : BoostRender {
    using BoostRender::BoostRender;
    using BoostRender::limReduction;
  } chain;
  ScalarModel model;
  bool isInPlace = false;  // the chain's input and output are the same memory

 private:
  const Signal& signal_;
  Random random_;
  std::size_t position_ = 0;
};

struct Callback {
  std::vector<BufferShape> input;
  std::vector<BufferShape> output;
};

struct Pattern {
  const char* name;
  std::vector<Callback> callbacks;  // repeated
};

constexpr std::uint32_t bytesOf(std::uint32_t channels, std::uint32_t frames) {
  return channels * frames * static_cast<std::uint32_t>(sizeof(float));
}

Callback symmetric(std::uint32_t channels, std::uint32_t frames) {
  const BufferShape shape{channels, bytesOf(channels, frames)};
  return {{shape}, {shape}};
}

/// Fewer frames than bands, than lanes, and than both together.
std::vector<Callback> smallSizes(std::uint32_t channels) {
  std::vector<Callback> callbacks;
  for (std::uint32_t frames = 1; frames <= 26; ++frames) {
    callbacks.push_back(symmetric(channels, frames));
  }
  return callbacks;
}

const std::vector<Pattern>& patterns() {
  static const std::vector<Pattern> all = {
      {"Stereo", {symmetric(2, 512)}},
      {"StereoOfManySizes",
       {symmetric(2, 1), symmetric(2, 2), symmetric(2, 3), symmetric(2, 7), symmetric(2, 64),
        symmetric(2, 255), symmetric(2, 511), symmetric(2, 1024), symmetric(2, 8192)}},
      {"StereoOfSmallSizes", smallSizes(2)},
      {"Mono", {symmetric(1, 480), symmetric(1, 1)}},
      {"MonoOfSmallSizes", smallSizes(1)},
      {"FivePointOneAndOthers", {symmetric(6, 256), symmetric(3, 1500), symmetric(5, 77)}},
      {"TenChannelsShareTheEighthMemory", {symmetric(10, 256), symmetric(8, 17)}},
      {"MonoOutputOfStereoInput", {{{{2, 2048}}, {{1, 2048}}}}},
      {"ChannelCountZero", {{{{0, 1024}}, {{0, 1024}}}}},
      {"OddByteSizes",
       {{{{2, 1023}}, {{2, 1030}}},
        {{{2, 2}}, {{2, 3}}},
        {{{2, 0}}, {{2, 0}}},
        {{{2, 4}}, {{2, 7}}}}},
      {"SidesOfDifferentLength", {{{{2, 1024}}, {{2, 640}}}, {{{2, 512}}, {{2, 4096}}}}},
      {"MoreOutputBuffers", {{{{2, 512}}, {{2, 512}, {2, 1023}, {1, 256, false}, {6, 96}}}}},
      {"MoreInputBuffers", {{{{2, 512}, {2, 512}, {2, 512}}, {{2, 512}}}, {{{2, 512}}, {}}}},
      {"NoInputBuffers", {{{}, {{2, 512}, {2, 512}}}, symmetric(2, 512)}},
      {"BuffersWithoutData",
       {{{{2, 512, false}, {2, 512}}, {{2, 512}, {2, 512}}},
        {{{2, 512}, {1, 512}}, {{2, 512, false}, {1, 512}}}}},
      {"TwoBuffersOfDifferentLayout", {{{{2, 512}, {1, 256}}, {{2, 512}, {1, 256}}}}},
  };
  return all;
}

std::uint32_t samplesIn(const Callback& callback) {
  std::uint32_t bytes = 4;
  for (const BufferShape& shape : callback.input) {
    bytes += shape.bytes;
  }
  return bytes / 4;
}

// Catches any deviation from the described arithmetic or its order: a regrouped sum, a fused
// multiply, a state that is shared or cleared wrongly, a sample written where none belongs.
class ModelEquality
    : public ::testing::TestWithParam<std::tuple<const vector::Kernels*, std::size_t>> {};

TEST_P(ModelEquality, HoldsBitForBit) {
  constexpr std::uint32_t samplesPerRun = 12000;
  const auto& [kernels, patternIndex] = GetParam();
  const Pattern& pattern = patterns()[patternIndex];
  unsigned seed = 1;
  for (const Signal& signal : signals()) {
    for (const Mode& mode : modes()) {
      SCOPED_TRACE(std::string(signal.name) + ", " + mode.name);
      Comparison comparison(*kernels, signal, seed++);
      apply(mode, comparison.chain, comparison.model);
      std::uint32_t played = 0;
      for (std::size_t i = 0; played < samplesPerRun; ++i) {
        const Callback& callback = pattern.callbacks[i % pattern.callbacks.size()];
        played += samplesIn(callback);
        ASSERT_TRUE(comparison.callback(callback.input, callback.output)) << "callback " << i;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Patterns, ModelEquality,
                         ::testing::Combine(::testing::ValuesIn(vector::usableKernels().begin(),
                                                                vector::usableKernels().end()),
                                            ::testing::Range<std::size_t>(0, patterns().size())),
                         [](const auto& tested) -> std::string {
                           const vector::Kernels* const kernels = std::get<0>(tested.param);
                           return std::string(kernels->name) + "_" +
                                  patterns()[std::get<1>(tested.param)].name;
                         });

class ModelEqualityInTime : public ::testing::TestWithParam<const vector::Kernels*> {};

// Catches state that is reset, or still moves, while its stage is passed by, settings that stick
// from an earlier callback, bands that are left out while they still remember something, and input
// that is written over before it is read.
TEST_P(ModelEqualityInTime, ChangesOfSettingsAndSizesKeepFilterAndLimiterState) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    Random random(seed);
    Comparison comparison(*GetParam(), signals()[seed % signals().size()], seed);
    for (int i = 0; i < 60; ++i) {
      apply(modes()[random() % modes().size()], comparison.chain, comparison.model);
      const auto frames = static_cast<std::uint32_t>((1U << random() % 14U) + random() % 3U);
      const std::uint32_t channels = std::array{1U, 2U, 2U, 2U, 3U, 6U, 8U}.at(random() % 7U);
      const Callback callback = symmetric(channels, channels > 2U ? frames % 2500U : frames);
      comparison.isInPlace = random() % 2U == 0;
      ASSERT_TRUE(comparison.callback(callback.input, callback.output))
          << "seed " << seed << ", callback " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, ModelEqualityInTime,
                         ::testing::ValuesIn(vector::usableKernels().begin(),
                                             vector::usableKernels().end()),
                         [](const auto& kernels) -> std::string { return kernels.param->name; });

}  // namespace
}  // namespace orvelle::test
