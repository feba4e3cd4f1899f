// The whole of what runs on PipeWire's real-time thread: planes, interleaving and the chain.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/platform/pipewire/StereoCycle.h"
#include "tests/RealTimeSentinel.h"
#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

// Would catch any allocation, lock or system call around the chain, also in cycles that are longer
// than expected, have channels missing, or change their length from one to the next.
TEST(StereoCycleSafety, StaysInUserSpace) {
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
        RealTimeSentinel::Violations{});
    // The longest cycle takes three pieces, an empty one none.
    EXPECT_EQ(chain.renderCalls.load(), 3 * (4 + 3));
  }
}

}  // namespace
}  // namespace orvelle::test
