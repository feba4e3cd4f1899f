// The part of the hardware contract that is about programs: who plays, and taps on single ones.
#include <algorithm>
#include <cmath>
#include <optional>
#include <variant>

#include "tests/HardwareContract.h"
#include "tests/TapPlayer.h"

namespace orvelle {

namespace {

constexpr double kFirstLevel = 0.2;
constexpr double kSecondLevel = 0.3;
const std::string kOther = "contract.other";
constexpr PropertyAddress kProcesses{kAudioHardwarePropertyProcessObjectList};

template <class Value>
std::optional<Value> read(AudioHardware& hardware, AudioObjectID id, std::uint32_t selector) {
  PropertyValue value;
  const bool isRead = hardware.getPropertyData(id, {selector}, value) == kAudioHardwareNoError;
  return isRead && std::holds_alternative<Value>(value) ? std::optional(std::get<Value>(value))
                                                        : std::nullopt;
}

}  // namespace

AudioObjectID TapContract::playing(std::int32_t pid) {
  AudioObjectID found = kAudioObjectUnknown;
  eventually([&] {
    for (const AudioObjectID id : processes()) {
      const bool isIt =
          read<std::int32_t>(hardware(), id, kAudioProcessPropertyPID) == pid &&
          read<std::uint32_t>(hardware(), id, kAudioProcessPropertyIsRunningOutput) == 1U;
      found = isIt ? id : found;
    }
    return found != kAudioObjectUnknown;
  });
  return found;
}

std::vector<AudioObjectID> TapContract::processes() {
  return read<std::vector<AudioObjectID>>(hardware(), kAudioObjectSystemObject,
                                          kAudioHardwarePropertyProcessObjectList)
      .value_or(std::vector<AudioObjectID>{});
}

void TapContract::expectHeard(double onSpeakers, double onOther) {
  const auto isNear = [](double value, double expected) {
    return std::abs(value - expected) <= 0.02 * expected;
  };
  EXPECT_TRUE(eventually([&] {
    return isNear(rig->heardPeak(kFirstOutput), onSpeakers) &&
           isNear(rig->heardPeak(kOther), onOther);
  })) << "speakers at "
      << rig->heardPeak(kFirstOutput) << " instead of " << onSpeakers << ", the other output at "
      << rig->heardPeak(kOther) << " instead of " << onOther;
}

void TapContract::plugOther() {
  rig->plug(kOther, "Other", kAudioDeviceTransportTypeUSB);
  ASSERT_NE(listed(kOther), kAudioObjectUnknown);
}

// Fault: programs that are not listed, listed twice or under another's name or number, that stay
// listed when they have ended, or whose coming and going nobody is told of.
TEST_P(TapContract, ProcessesSayWhoTheyAre) {
  int changes = 0;
  const ListenerToken token = listen(kAudioObjectSystemObject, kProcesses, changes);
  const std::int32_t firstPID = rig->launchPlayer(kFirstLevel);
  const std::int32_t secondPID = rig->launchPlayer(kSecondLevel);
  const AudioObjectID first = playing(firstPID);
  const AudioObjectID second = playing(secondPID);
  ASSERT_NE(first, kAudioObjectUnknown);
  ASSERT_NE(second, kAudioObjectUnknown);
  EXPECT_NE(first, second);
  const std::vector<AudioObjectID> ids = processes();
  EXPECT_EQ(std::ranges::count(ids, first), 1);
  EXPECT_EQ(std::ranges::count(ids, second), 1);
  EXPECT_NE(read<std::string>(hardware(), first, kAudioProcessPropertyBundleID).value_or(""), "");
  std::uint32_t byteSize = 0;
  ASSERT_EQ(hardware().getPropertyDataSize(kAudioObjectSystemObject, kProcesses, byteSize), 0);
  EXPECT_EQ(byteSize, 4 * ids.size());
  EXPECT_FALSE(hardware().hasProperty(first, {kAudioDevicePropertyDeviceUID}));
  EXPECT_GT(changes, 0);

  const int before = changes;
  rig->quitPlayer(firstPID);
  EXPECT_TRUE(
      eventually([&] { return changes > before && std::ranges::count(processes(), first) == 0; }));
  EXPECT_EQ(read<std::int32_t>(hardware(), first, kAudioProcessPropertyPID), std::nullopt);
  EXPECT_EQ(read<std::int32_t>(hardware(), second, kAudioProcessPropertyPID), secondPID);
  EXPECT_EQ(hardware().removePropertyListener(token), 0);
}

// Fault: a tap mutes before anybody reads it, takes another program too, leaves the tapped one on
// its normal path as well, or does not give it back.
TEST_P(TapContract, TapTakesOneProcessAndGivesItBack) {
  plugOther();
  const AudioObjectID process = playing(rig->launchPlayer(kFirstLevel));
  ASSERT_NE(playing(rig->launchPlayer(kSecondLevel)), kAudioObjectUnknown);
  {
    TapPlayer tapped(hardware(), process, kOther, 0.5F);
    const auto format = read<StreamFormat>(hardware(), tapped.tap(), kAudioTapPropertyFormat)
                            .value_or(StreamFormat{});
    EXPECT_EQ(format.channelsPerFrame, 2U);
    EXPECT_EQ(format.bitsPerChannel, 32U);
    settle();
    expectHeard(kFirstLevel + kSecondLevel, 0.0);
    for (int round = 0; round < 2; ++round) {
      tapped.start();
      expectHeard(kSecondLevel, 0.5 * kFirstLevel);
      tapped.stop();
      expectHeard(kFirstLevel + kSecondLevel, 0.0);
    }
    EXPECT_EQ(tapped.inputBuffers, 1U);
    tapped.start();
    expectHeard(kSecondLevel, 0.5 * kFirstLevel);
    tapped.destroyTap();
    expectHeard(kFirstLevel + kSecondLevel, 0.0);
  }
  TapPlayer again(hardware(), process, kOther, 0.5F);
  again.start();
  expectHeard(kSecondLevel, 0.5 * kFirstLevel);
}

// Fault: of two aggregates with one uid the second is refused or replaces the first, one tap's end
// takes the other's sound, or an aggregate passes for a real output.
TEST_P(TapContract, TwoTapsShareAnAggregateUID) {
  plugOther();
  const AudioObjectID firstProcess = playing(rig->launchPlayer(kFirstLevel));
  const AudioObjectID secondProcess = playing(rig->launchPlayer(kSecondLevel));
  TapPlayer second(hardware(), secondProcess, kOther, 2.0F);
  second.start();
  {
    TapPlayer first(hardware(), firstProcess, kOther, 0.5F);
    first.start();
    expectHeard(0.0, 0.5 * kFirstLevel + 2.0 * kSecondLevel);
    for (const AudioDeviceInfo& output : hal().realOutputs()) {
      EXPECT_NE(output.uid, "contract.aggregate");
    }
  }
  expectHeard(kFirstLevel, 2.0 * kSecondLevel);
}

// Fault: a tapped program that ends takes the callback or the back end with it.
TEST_P(TapContract, TappedProcessMayEnd) {
  plugOther();
  const std::int32_t pid = rig->launchPlayer(kFirstLevel);
  ASSERT_NE(playing(rig->launchPlayer(kSecondLevel)), kAudioObjectUnknown);
  TapPlayer tapped(hardware(), playing(pid), kOther, 0.5F);
  tapped.start();
  expectHeard(kSecondLevel, 0.5 * kFirstLevel);
  rig->quitPlayer(pid);
  expectHeard(kSecondLevel, 0.0);
  settle();
  tapped.stop();
}

// Fault: a program stays silent when the output of its tap vanishes, or is not taken again when
// that returns.
TEST_P(TapContract, TapIsNotReadWhileItsOutputIsAway) {
  plugOther();
  TapPlayer tapped(hardware(), playing(rig->launchPlayer(kFirstLevel)), kOther, 0.5F);
  tapped.start();
  expectHeard(0.0, 0.5 * kFirstLevel);
  rig->unplug(kOther);
  EXPECT_TRUE(eventually([&] { return rig->heardPeak(kFirstOutput) > 0.98 * kFirstLevel; }));
  plugOther();
  expectHeard(0.0, 0.5 * kFirstLevel);
}

// Fault: while a loopback is the system's volume control, a tapped program plays past it, and comes
// out at whatever its output is held at; or it stays quiet when an output governs itself again.
TEST_P(TapContract, TapFollowsTheLoopbackThatIsTheDefault) {
  plugOther();
  TapPlayer tapped(hardware(), playing(rig->launchPlayer(kFirstLevel)), kFirstOutput, 0.5F);
  tapped.start();
  expectHeard(0.5 * kFirstLevel, 0.0);
  const AudioObjectID loopback = listed(rig->loopbackUID());
  hal().setDefaultOutput(loopback);
  hal().setOutputVolume(loopback, 0.5F);
  expectHeard(0.125 * 0.5 * kFirstLevel, 0.0);
  hal().setOutputMute(loopback, true);
  expectHeard(0.0, 0.0);
  hal().setOutputMute(loopback, false);
  hal().setOutputVolume(loopback, 0.8F);
  expectHeard(0.512 * 0.5 * kFirstLevel, 0.0);
  hal().setDefaultOutput(listed(kOther));
  expectHeard(0.5 * kFirstLevel, 0.0);
}

}  // namespace orvelle
