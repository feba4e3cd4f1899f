// What the HAL's real-time thread runs of the CoreAudio back end allocates nothing, takes no lock
// and does not enter the system.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "orvelle/platform/coreaudio/CallbackSlot.h"
#include "tests/RealTimeSentinel.h"

namespace orvelle::coreaudio {

namespace {

using Violations = test::RealTimeSentinel::Violations;

constexpr float kPlayed = 0.5F;

/// A headset's microphone, the loopback, and the headset.
struct Cycle {
  std::array<float, 64> microphone{};
  std::array<float, 128> loopback{};
  std::array<float, 128> output{};
  struct {
    UInt32 count = 2;
    std::array<::AudioBuffer, 2> buffers;
  } inputs;
  ::AudioBufferList outputs{};

  Cycle() {
    microphone.fill(1.0F);
    loopback.fill(kPlayed);
    inputs.buffers = {::AudioBuffer{1, sizeof(microphone), microphone.data()},
                      ::AudioBuffer{2, sizeof(loopback), loopback.data()}};
    outputs = {1, {{2, sizeof(output), output.data()}}};
  }

  void runOn(void* clientData) {
    const ::AudioTimeStamp now{};
    const auto* list = reinterpret_cast<const ::AudioBufferList*>(&inputs);
    CallbackSlot::run(1, &now, list, &now, &outputs, &now, clientData);
  }
};

void copyFirst(AudioBufferList input, AudioBufferList output) {
  const auto* from = static_cast<const float*>(input[0].mData);
  std::copy(from, from + input[0].mDataByteSize / sizeof(float),
            static_cast<float*>(output[0].mData));
}

}  // namespace

// Fault: a call that is not real-time safe, or loud, while it waits for sound or factors, when the
// volume of a loopback is applied, or after its callback has been released; and a microphone in the
// place of the loopback.
TEST(CallbackSlotSafetyTest, CallsAreRealTimeSafe) {
  Cycle cycle;
  CallbackSlot::Handle slot = CallbackSlot::occupy({copyFirst, 0x1U, true, true});
  void* const clientData = slot->clientData();
  const auto run = [&] { cycle.runOn(clientData); };

  EXPECT_EQ(test::RealTimeSentinel::watch(run), Violations{});
  EXPECT_TRUE(slot->hasHeardSound());
  EXPECT_EQ(cycle.output.front(), 0.0F);
  slot->setPathOpen(true);
  run();
  EXPECT_EQ(cycle.output.front(), 0.0F);
  slot->setFactors(1.0F, 1.0F);
  EXPECT_EQ(test::RealTimeSentinel::watch(run), Violations{});
  EXPECT_EQ(cycle.output.front(), kPlayed);
  slot->setFactors(0.5F, 0.25F);
  EXPECT_EQ(test::RealTimeSentinel::watch(run), Violations{});
  EXPECT_EQ(cycle.output.front(), 0.5F * kPlayed);
  EXPECT_EQ(cycle.output.back(), 0.25F * kPlayed);
  EXPECT_EQ(slot->callCount(), 4U);

  slot.reset();
  cycle.output.fill(7.0F);
  EXPECT_EQ(test::RealTimeSentinel::watch(run), Violations{});
  EXPECT_EQ(cycle.output.front(), 7.0F);
}

}  // namespace orvelle::coreaudio
