// The real-time callback allocates nothing, takes no lock and does not enter the system.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <vector>

#include "orvelle/OwnerGate.h"
#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/pipewire/StereoCycle.h"
#include "tests/RealTimeSentinel.h"
#include "tests/RenderRig.h"

namespace orvelle::test {

namespace {

using Violations = RealTimeSentinel::Violations;

// Catches a sentinel that cries without cause, or that is blind to one way of asking for memory or
// giving it back: then the tests below would prove nothing.
TEST(RealTimeSentinelTest, AllocationsAreNoticedAndNothingElse) {
  int sum = 0;
  EXPECT_EQ(RealTimeSentinel::watch([&] { ++sum; }), Violations{});
  EXPECT_EQ(sum, 1);
  void* volatile kept = nullptr;  // keeps the compiler from leaving the pair out
  const std::vector<std::function<void()>> pairs = {
      [&] {
        kept = std::malloc(64);
        std::free(kept);
      },
      [&] {
        kept = ::operator new (64, std::align_val_t{64});
        ::operator delete (kept, std::align_val_t{64});
      },
      [&] {
        kept = std::calloc(4, 16);
        kept = std::realloc(kept, 128);
      }};
  for (const auto& pair : pairs) {
    EXPECT_EQ(RealTimeSentinel::watch(pair).allocations, 2);
  }
  std::free(kept);
  auto owner = std::make_shared<std::string>(100, 'x');
  EXPECT_GT(RealTimeSentinel::watch([&] { owner.reset(); }).allocations, 0);
}

// Catches a sentinel that is blind to locks nobody contends for, which never enter the kernel.
TEST(RealTimeSentinelTest, LocksAreNoticed) {
  std::mutex mutex;
  std::shared_mutex shared;
  std::condition_variable condition;
  const std::vector<std::function<void()>> locks = {
      [&] { const std::scoped_lock lock(mutex); },
      [&] { const std::unique_lock lock(mutex, std::try_to_lock); },
      [&] { const std::shared_lock lock(shared); }, [&] { const std::unique_lock lock(shared); },
      [&] { condition.notify_all(); }};
  for (const auto& lock : locks) {
    EXPECT_EQ(RealTimeSentinel::watch(lock), (Violations{0, 1, 0}));
  }
}

// Catches a sentinel that is blind to system calls, or makes them fail.
TEST(RealTimeSentinelTest, SystemCallsAreNoticedAndStillWork) {
  std::array<int, 2> pipeEnds{};
  ASSERT_EQ(pipe(pipeEnds.data()), 0);
  char received = 0;
  EXPECT_EQ(RealTimeSentinel::watch([&] {
              if (write(pipeEnds[1], "x", 1) == 1 && read(pipeEnds[0], &received, 1) == 1) {
                usleep(1);
              }
            }),
            (Violations{0, 0, 3}));
  EXPECT_EQ(received, 'x');
  close(pipeEnds[0]);
  close(pipeEnds[1]);

  long bogus = 0;
  EXPECT_EQ(RealTimeSentinel::watch([&] { bogus = syscall(SYS_close, -1); }).systemCalls, 1);
  EXPECT_EQ(bogus, -1);
}

class RenderSafety : public ::testing::TestWithParam<const vector::Kernels*> {};

// Catches any allocation, lock or system call on any path of the chain: limiter idle and working,
// sound that is tiny, absurd or not finite, buffers without data, partner or channels, and the
// first callback after every change.
TEST_P(RenderSafety, RenderStaysInUserSpace) {
  constexpr std::size_t samples = 1024;
  constexpr std::uint32_t bytes = samples * sizeof(float);
  constexpr float infinity = std::numeric_limits<float>::infinity();
  std::vector<Mode> settings = modes();
  settings.push_back({"overflow", infinity, infinity, std::vector<float>(10, 400.0F)});

  for (const Mode& mode : settings) {
    SCOPED_TRACE(mode.name);
    BoostRender chain(*GetParam());
    ScalarModel unused;
    apply(mode, chain, unused);
    for (const float amplitude : {0.01F, 1.0F, 4.0F, 1e-25F, infinity}) {
      SCOPED_TRACE(amplitude);
      std::vector<float> input = noise(1, samples, amplitude);
      std::vector<float> output(samples * 3);
      const std::vector<AudioBuffer> in = {
          {2, bytes, input.data()}, {0, bytes - 3, input.data()}, {2, bytes, nullptr}};
      const std::vector<AudioBuffer> out = {{2, bytes, output.data()},
                                            {0, bytes, output.data() + samples},
                                            {2, bytes, nullptr},
                                            {10, bytes - 1, output.data() + samples * 2}};
      EXPECT_EQ(RealTimeSentinel::watch([&] {
                  for (int callback = 0; callback < 10; ++callback) {
                    chain.render(in, out);
                  }
                }),
                Violations{});
      EXPECT_EQ(chain.renderCalls.exchange(0), 10);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, RenderSafety,
                         ::testing::ValuesIn(vector::usableKernels().begin(),
                                             vector::usableKernels().end()),
                         [](const auto& kernels) -> std::string { return kernels.param->name; });

// Catches the same in a tap's callback, from its very first call on: what is set up at first use
// would show. Also in what stands around every engine's callback, and when the engine is gone.
TEST(CallbackSafetyTest, TapAndItsGateStayInUserSpace) {
  constexpr std::size_t samples = 1024;
  constexpr std::uint32_t bytes = samples * sizeof(float);
  constexpr float infinity = std::numeric_limits<float>::infinity();
  for (const float amplitude : {1.0F, 1e-42F, infinity}) {
    std::vector<float> input = noise(1, samples, amplitude);
    std::vector<float> output(samples * 2);
    const std::vector<AudioBuffer> in = {{2, bytes, input.data()}, {2, bytes, nullptr}};
    const std::vector<AudioBuffer> out = {
        {2, bytes, output.data()}, {2, bytes, output.data()}, {2, bytes, output.data() + samples}};
    TapRender chain;
    const auto gate = std::make_shared<OwnerGate>();
    const IOBlock block = renderWhileOpen(gate, chain);
    const auto run = [&] {
      return RealTimeSentinel::watch([&] {
        for (const float volume : {0.5F, 1.0F, 3.0F, infinity}) {
          chain.volume = volume;
          block(in, out);
        }
      });
    };
    EXPECT_EQ(run(), Violations{});
    EXPECT_EQ(chain.renderCalls.exchange(0), 4);
    gate->closeAndWait();
    EXPECT_EQ(run(), Violations{});
    EXPECT_EQ(chain.renderCalls.load(), 0);
  }
}

// Catches the same in all that runs on PipeWire's real-time thread around the chain, also in cycles
// that are longer than expected, have channels missing, or change their length from one to the
// next.
TEST(CallbackSafetyTest, StereoCycleStaysInUserSpace) {
  constexpr std::uint32_t longest = 20'000;
  for (const Mode& mode : modes()) {
    SCOPED_TRACE(mode.name);
    BoostRender chain;
    ScalarModel unused;
    apply(mode, chain, unused);
    pipewire::StereoCycle cycle(
        [&chain](AudioBufferList input, AudioBufferList output) { chain.render(input, output); });
    const std::vector<float> left = noise(1, longest, 1.0F);
    const std::vector<float> right = noise(2, longest, std::numeric_limits<float>::infinity());
    std::vector<float> outputLeft(longest);
    std::vector<float> outputRight(longest);
    std::vector<float> outputMono(longest);
    EXPECT_EQ(
        RealTimeSentinel::watch([&] {
          for (const std::uint32_t frames : {64U, 1024U, 0U, longest, 8192U, 1U}) {
            cycle.run({left.data(), right.data(), outputLeft.data(), outputRight.data()}, frames);
            cycle.run({.inputLeft = left.data(), .outputMono = outputMono.data()}, frames);
            cycle.setOutputFactors(0.5F, 0.25F);
            cycle.run({}, frames);
          }
        }),
        Violations{});
    // The longest cycle takes three pieces, an empty one none.
    EXPECT_EQ(chain.renderCalls.load(), 3 * (4 + 3));
  }
}

}  // namespace

}  // namespace orvelle::test
