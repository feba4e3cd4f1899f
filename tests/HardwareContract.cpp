#include "tests/HardwareContract.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <optional>
#include <thread>

namespace orvelle {

namespace {

constexpr AudioObjectID kNoSuchObject = 0x7FFFFFF0;
constexpr PropertyAddress kNoSuchProperty{fourCharacterCode("none")};
constexpr PropertyAddress kDeviceList{kAudioHardwarePropertyDevices};
constexpr PropertyAddress kDefaultOutput{kAudioHardwarePropertyDefaultOutputDevice};
constexpr PropertyAddress kVolume{kAudioDevicePropertyVolumeScalar,
                                  kAudioObjectPropertyScopeOutput};
constexpr PropertyAddress kMute{kAudioDevicePropertyMute, kAudioObjectPropertyScopeOutput};
constexpr PropertyAddress kRate{kAudioDevicePropertyNominalSampleRate};

bool isNear(double value, double expected) {
  return std::abs(value - expected) <= 0.02 * std::max(expected, 0.05);
}

/// What a callback saw. The callback shares it, so that one that comes too late can be told.
struct CallbackProbe {
  std::atomic<int> calls{0};
  std::atomic<int> callsTooLate{0};
  std::atomic<bool> isOver{false};
  std::atomic<std::uint32_t> inputBuffers{0};
  std::atomic<std::uint32_t> inputChannels{0};
  std::atomic<std::uint32_t> outputChannels{0};
  std::atomic<std::uint32_t> outputBytes{0};
};

/// Copies the first input to the first output.
IOBlock copyingBlock(const std::shared_ptr<CallbackProbe>& probe) {
  return [probe](AudioBufferList input, AudioBufferList output) {
    ++probe->calls;
    if (probe->isOver) {
      ++probe->callsTooLate;
    }
    probe->inputBuffers = static_cast<std::uint32_t>(input.size());
    if (input.empty() || output.empty()) {
      return;
    }
    probe->inputChannels = input[0].mNumberChannels;
    probe->outputChannels = output[0].mNumberChannels;
    probe->outputBytes = output[0].mDataByteSize;
    if (input[0].mData != nullptr && output[0].mData != nullptr) {
      std::memcpy(output[0].mData, input[0].mData,
                  std::min(input[0].mDataByteSize, output[0].mDataByteSize));
    }
  };
}

struct Running {
  Running(AudioHardware& hardware, const AggregateDescription& description) {
    EXPECT_EQ(hardware.createAggregateDevice(description, aggregate), 0);
    EXPECT_EQ(hardware.createIOProcID(aggregate, copyingBlock(probe), proc), 0);
    EXPECT_EQ(hardware.startDevice(aggregate, proc), 0);
  }

  AudioObjectID aggregate = kAudioObjectUnknown;
  AudioDeviceIOProcID proc = 0;
  std::shared_ptr<CallbackProbe> probe = std::make_shared<CallbackProbe>();
};

}  // namespace

void HardwareContract::SetUp() {
  rig = GetParam().makeRig();
  rig->plug(kFirstOutput, "Contract Speakers", kAudioDeviceTransportTypeBuiltIn);
  const AudioObjectID speakers = listed(kFirstOutput);
  ASSERT_NE(speakers, kAudioObjectUnknown);
  rig->chooseDefaultOutput(kFirstOutput);
  ASSERT_TRUE(eventually([&] { return hal().defaultOutput() == speakers; }));
}

void HardwareContract::TearDown() {
  EXPECT_TRUE(eventually([&] { return rig->leftovers().empty(); }))
      << testing::PrintToString(rig->leftovers());
}

ListenerToken HardwareContract::listen(AudioObjectID object, const PropertyAddress& address,
                                       int& changes) {
  ListenerToken token = 0;
  const auto count = [&changes, mainThread = std::this_thread::get_id()] {
    ++changes;
    EXPECT_EQ(std::this_thread::get_id(), mainThread);
  };
  EXPECT_EQ(hardware().addPropertyListener(object, address, count, token), 0);
  return token;
}

AudioObjectID HardwareContract::listed(const std::string& uid) {
  std::optional<AudioDeviceInfo> device;
  eventually([&] { return (device = hal().device(uid)).has_value(); });
  return device ? device->id : kAudioObjectUnknown;
}

AggregateDescription HardwareContract::aggregateOf(const std::vector<std::string>& uids) {
  AggregateDescription description;
  description.name = "Contract Aggregate";
  description.uid = "contract.aggregate";
  description.master = uids.front();
  for (const std::string& uid : uids) {
    description.subdevices.push_back({uid, uid != uids.front()});
  }
  return description;
}

// Catalogue

// Fault: a replugged device comes back under its old id or in its old place, so that callers take
// it for the one that they still hold things of.
TEST_P(HardwareContract, CatalogueIsInOrderOfAppearanceAndReusesNoId) {
  rig->plug("contract.a", "A", kAudioDeviceTransportTypeUSB);
  const AudioObjectID firstA = listed("contract.a");
  rig->plug("contract.b", "B", kAudioDeviceTransportTypeUSB);
  const AudioObjectID b = listed("contract.b");
  rig->unplug("contract.a");
  ASSERT_TRUE(eventually([&] { return !hal().device("contract.a"); }));
  rig->plug("contract.a", "A", kAudioDeviceTransportTypeUSB);
  const AudioObjectID secondA = listed("contract.a");

  EXPECT_NE(firstA, secondA);
  const std::vector<AudioObjectID> ids = hal().allDeviceIDs();
  const auto place = [&ids](AudioObjectID id) { return std::ranges::find(ids, id) - ids.begin(); };
  EXPECT_LT(place(b), place(secondA));
  EXPECT_TRUE(
      std::ranges::none_of(ids, [](AudioObjectID id) { return id <= kAudioObjectSystemObject; }));
  EXPECT_EQ(hal().string(firstA, kAudioDevicePropertyDeviceUID), "");
}

// Fault: a device is described by another's data, or buffers are counted in the wrong direction.
TEST_P(HardwareContract, DevicesSayWhatTheyAre) {
  rig->plug("contract.hdmi", "Contract Screen", kAudioDeviceTransportTypeHDMI);
  const AudioObjectID id = listed("contract.hdmi");
  const AudioDeviceInfo expected{
      id, "contract.hdmi", "Contract Screen", 0, 2, kAudioDeviceTransportTypeHDMI};
  // Its channels may come a moment after the device itself.
  EXPECT_TRUE(eventually([&] { return hal().describe(id) == expected; }));

  const auto loopback = hal().device(rig->loopbackUID());
  ASSERT_TRUE(loopback);
  EXPECT_EQ(loopback->inputChannels, 2);
  EXPECT_EQ(loopback->outputChannels, 2);
  EXPECT_EQ(loopback->transportType, kAudioDeviceTransportTypeVirtual);

  std::uint32_t byteSize = 0;
  ASSERT_EQ(hardware().getPropertyDataSize(kAudioObjectSystemObject, kDeviceList, byteSize), 0);
  EXPECT_EQ(byteSize, 4 * hal().allDeviceIDs().size());
}

// Fault: a call on something that is not there succeeds, crashes or writes its result anyway.
TEST_P(HardwareContract, UnknownObjectsAndPropertiesGiveAStatus) {
  const AudioObjectID speakers = listed(kFirstOutput);
  const std::vector<std::pair<AudioObjectID, PropertyAddress>> unknown = {
      {kNoSuchObject, {kAudioDevicePropertyDeviceUID}},
      {kAudioObjectUnknown, {kAudioDevicePropertyDeviceUID}},
      {kAudioObjectSystemObject, kNoSuchProperty},
      {speakers, kNoSuchProperty},
      {speakers, {kAudioDevicePropertyVolumeScalar, kAudioObjectPropertyScopeOutput, 77}},
  };
  for (const auto& [object, address] : unknown) {
    SCOPED_TRACE(testing::Message() << "object " << object << " selector " << address.selector);
    PropertyValue value = std::string("untouched");
    std::uint32_t byteSize = 12345;
    bool settable = true;
    ListenerToken token = 0;
    EXPECT_FALSE(hardware().hasProperty(object, address));
    EXPECT_NE(hardware().getPropertyData(object, address, value), 0);
    EXPECT_EQ(value, PropertyValue(std::string("untouched")));
    EXPECT_NE(hardware().getPropertyDataSize(object, address, byteSize), 0);
    EXPECT_EQ(byteSize, 12345U);
    EXPECT_TRUE(hardware().isPropertySettable(object, address, settable) != 0 || !settable);
    EXPECT_NE(hardware().setPropertyData(object, address, 0.5F), 0);
    EXPECT_NE(hardware().addPropertyListener(
                  object, address, [] {}, token),
              0);
  }
  EXPECT_NE(hardware().removePropertyListener(0x7FFFFFFFFFFF), 0);
}

// Fault: a value of the wrong type is taken for another one, or crashes.
TEST_P(HardwareContract, WrongValueTypesAreRefused) {
  const AudioObjectID speakers = listed(kFirstOutput);
  EXPECT_NE(hardware().setPropertyData(speakers, kVolume, std::uint32_t{1}), 0);
  EXPECT_NE(hardware().setPropertyData(speakers, kVolume, std::string("1.0")), 0);
  EXPECT_NE(hardware().setPropertyData(speakers, kVolume, {}), 0);
  EXPECT_NE(hardware().setPropertyData(speakers, kMute, 1.0F), 0);
  EXPECT_NE(hardware().setPropertyData(speakers, kRate, 48000.0F), 0);
  EXPECT_NE(hardware().setPropertyData(kAudioObjectSystemObject, kDefaultOutput, 1.0), 0);
  EXPECT_NE(
      hardware().setPropertyData(speakers, {kAudioDevicePropertyDeviceUID}, std::string("renamed")),
      0);
  EXPECT_EQ(hal().outputVolume(speakers), 1.0F);
  EXPECT_EQ(hal().defaultOutput(), speakers);
}

// Volume and mute

// Fault: the scalar is taken for a linear factor (0.5 must be 0.125), is clamped at 1.0, or reaches
// the value that is read but not the sound.
TEST_P(HardwareContract, VolumeIsHeardOnItsCubicScale) {
  const AudioObjectID speakers = listed(kFirstOutput);
  bool settable = false;
  ASSERT_EQ(hardware().isPropertySettable(speakers, kVolume, settable), 0);
  ASSERT_TRUE(settable);
  rig->play(0.25);
  for (const float volume : {1.0F, 0.5F, 0.8F, 1.2F, 0.0F}) {
    ASSERT_EQ(hardware().setPropertyData(speakers, kVolume, volume), 0);
    EXPECT_TRUE(eventually([&] {
      const auto read = hal().outputVolume(speakers);
      return read && std::abs(*read - volume) < 0.002F;
    })) << volume;
    const double expected = 0.25 * std::pow(static_cast<double>(volume), 3.0);
    EXPECT_TRUE(eventually([&] { return isNear(rig->heardPeak(kFirstOutput), expected); }))
        << "volume " << volume << " sounds at " << rig->heardPeak(kFirstOutput);
  }
}

// Fault: mute is read back but heard all the same, or takes the volume with it.
TEST_P(HardwareContract, MuteSilencesAndKeepsTheVolume) {
  const AudioObjectID speakers = listed(kFirstOutput);
  hal().setOutputVolume(speakers, 0.9F);
  rig->play(0.25);
  hal().setOutputMute(speakers, true);
  EXPECT_TRUE(eventually([&] { return hal().outputMute(speakers) == true; }));
  EXPECT_TRUE(eventually([&] { return rig->heardPeak(kFirstOutput) == 0.0; }));
  EXPECT_NEAR(hal().outputVolume(speakers).value_or(0.0F), 0.9F, 0.002F);
  hal().setOutputMute(speakers, false);
  EXPECT_TRUE(eventually([&] { return hal().outputMute(speakers) == false; }));
  EXPECT_TRUE(eventually([&] { return isNear(rig->heardPeak(kFirstOutput), 0.25 * 0.729); }));
}

// Fault: the nominal rate is a guess, or a rate that no device runs at is taken.
TEST_P(HardwareContract, NominalRateIsReadAndNonsenseRefused) {
  const AudioObjectID speakers = listed(kFirstOutput);
  const double rate = hal().nominalSampleRate(speakers);
  EXPECT_GE(rate, 8000.0);
  EXPECT_EQ(hal().setNominalSampleRate(speakers, rate), 0);
  EXPECT_NE(hal().setNominalSampleRate(speakers, 3.0), 0);
  EXPECT_NE(hal().setNominalSampleRate(speakers, -48000.0), 0);
  EXPECT_EQ(hal().nominalSampleRate(speakers), rate);
}

// Default output and listeners

// Fault: a set of the default output is not seen by readers, listeners or the programs that play.
TEST_P(HardwareContract, DefaultOutputMovesSoundAndTellsListeners) {
  rig->plug("contract.other", "Other", kAudioDeviceTransportTypeUSB);
  const AudioObjectID other = listed("contract.other");
  int changes = 0;
  const ListenerToken token = listen(kAudioObjectSystemObject, kDefaultOutput, changes);
  rig->play(0.25);
  ASSERT_TRUE(eventually([&] { return isNear(rig->heardPeak(kFirstOutput), 0.25); }));

  EXPECT_EQ(hal().setDefaultOutput(other), 0);
  EXPECT_TRUE(eventually([&] { return changes > 0 && hal().defaultOutput() == other; }));
  EXPECT_TRUE(eventually([&] { return isNear(rig->heardPeak("contract.other"), 0.25); }));

  const int before = changes;
  rig->chooseDefaultOutput(kFirstOutput);
  EXPECT_TRUE(eventually(
      [&] { return changes > before && hal().defaultOutput() == listed(kFirstOutput); }));
  EXPECT_NE(hal().setDefaultOutput(kNoSuchObject), 0);
  EXPECT_EQ(hal().defaultOutput(), listed(kFirstOutput));
  EXPECT_EQ(hardware().removePropertyListener(token), 0);
}

// Fault: plugging or unplugging goes unnoticed, or is told off the main thread.
TEST_P(HardwareContract, DeviceListListenerHearsPlugAndUnplug) {
  int changes = 0;
  const ListenerToken token = listen(kAudioObjectSystemObject, kDeviceList, changes);
  rig->plug("contract.usb", "USB", kAudioDeviceTransportTypeUSB);
  EXPECT_TRUE(eventually([&] { return changes > 0 && hal().device("contract.usb"); }));
  const int before = changes;
  rig->unplug("contract.usb");
  EXPECT_TRUE(eventually([&] { return changes > before && !hal().device("contract.usb"); }));
  EXPECT_EQ(hardware().removePropertyListener(token), 0);
}

// Fault: of two registrations one is lost, or removing one removes the other.
TEST_P(HardwareContract, EveryRegistrationIsCalledUntilItIsRemoved) {
  const AudioObjectID speakers = listed(kFirstOutput);
  int first = 0;
  int second = 0;
  const ListenerToken firstToken = listen(speakers, kVolume, first);
  const ListenerToken secondToken = listen(speakers, kVolume, second);
  EXPECT_NE(firstToken, secondToken);
  hal().setOutputVolume(speakers, 0.4F);
  EXPECT_TRUE(eventually([&] { return first > 0 && second > 0; }));

  settle();
  const int firstBefore = first;
  const int secondBefore = second;
  EXPECT_EQ(hardware().removePropertyListener(firstToken), 0);
  EXPECT_NE(hardware().removePropertyListener(firstToken), 0);
  hal().setOutputVolume(speakers, 0.6F);
  EXPECT_TRUE(eventually([&] { return second > secondBefore; }));
  EXPECT_EQ(first, firstBefore);
  EXPECT_EQ(hardware().removePropertyListener(secondToken), 0);
}

// Fault: news that were already on their way reach a listener after its removal, when its owner may
// be gone.
TEST_P(HardwareContract, NothingArrivesAfterRemovalOfAListener) {
  const AudioObjectID speakers = listed(kFirstOutput);
  int calls = 0;
  const ListenerToken token = listen(speakers, kVolume, calls);
  hal().setOutputVolume(speakers, 0.3F);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // on its way, the queue not served
  const int before = calls;
  EXPECT_EQ(hardware().removePropertyListener(token), 0);
  settle();
  EXPECT_EQ(calls, before);
}

// Aggregates and callbacks

// Fault: an aggregate that cannot work is made all the same: of nothing known, or of a device with
// itself, which feeds back.
TEST_P(HardwareContract, AggregatesAreMadeUnmadeAndRefused) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  const auto make = [&](const std::vector<std::string>& uids) {
    return hardware().createAggregateDevice(aggregateOf(uids), aggregate);
  };
  EXPECT_NE(make({kFirstOutput, "contract.nowhere"}), 0);
  EXPECT_NE(make({"contract.nowhere", rig->loopbackUID()}), 0);
  EXPECT_EQ(make({rig->loopbackUID(), rig->loopbackUID()}), kAudioHardwareIllegalOperationError);
  EXPECT_EQ(aggregate, kAudioObjectUnknown);

  ASSERT_EQ(make({kFirstOutput, rig->loopbackUID()}), 0);
  EXPECT_GT(aggregate, kAudioObjectSystemObject);
  EXPECT_EQ(hardware().destroyAggregateDevice(aggregate), 0);
  EXPECT_NE(hardware().destroyAggregateDevice(aggregate), 0);
  EXPECT_NE(hardware().destroyAggregateDevice(kNoSuchObject), 0);
  EXPECT_NE(hardware().destroyAggregateDevice(listed(kFirstOutput)), 0);
  EXPECT_NE(hal().string(listed(kFirstOutput), kAudioDevicePropertyDeviceUID), "");
}

// Fault: callbacks come before start or after stop, see another layout than interleaved stereo, or
// what they write is not heard.
TEST_P(HardwareContract, CallbacksCarrySoundBetweenStartAndStop) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(
      hardware().createAggregateDevice(aggregateOf({kFirstOutput, rig->loopbackUID()}), aggregate),
      0);
  const auto probe = std::make_shared<CallbackProbe>();
  AudioDeviceIOProcID proc = 0;
  ASSERT_EQ(hardware().createIOProcID(aggregate, copyingBlock(probe), proc), 0);
  hal().setDefaultOutput(listed(rig->loopbackUID()));
  rig->play(0.25);
  settle();
  EXPECT_EQ(probe->calls, 0);

  for (int round = 0; round < 3; ++round) {
    const int before = probe->calls;
    ASSERT_EQ(hardware().startDevice(aggregate, proc), 0);
    EXPECT_TRUE(eventually([&] { return probe->calls > before + 3; })) << "round " << round;
    EXPECT_TRUE(eventually([&] { return isNear(rig->heardPeak(kFirstOutput), 0.25); }))
        << "round " << round << " sounds at " << rig->heardPeak(kFirstOutput);
    ASSERT_EQ(hardware().stopDevice(aggregate, proc), 0);
    settle();
    const int stopped = probe->calls;
    settle();
    EXPECT_EQ(probe->calls, stopped) << "round " << round;
  }
  EXPECT_EQ(probe->inputBuffers, 1U);
  EXPECT_EQ(probe->inputChannels, 2U);
  EXPECT_EQ(probe->outputChannels, 2U);
  EXPECT_EQ(probe->outputBytes % (2 * sizeof(float)), 0U);
  EXPECT_EQ(hardware().destroyIOProcID(aggregate, proc), 0);
  EXPECT_NE(hardware().destroyIOProcID(aggregate, proc), 0);
  EXPECT_NE(hardware().startDevice(aggregate, proc), 0);
  EXPECT_EQ(hardware().destroyAggregateDevice(aggregate), 0);
  EXPECT_NE(hardware().startDevice(aggregate, proc), 0);
}

// Fault: a callback is in flight when destruction returns, or its block lives on and with it what
// it holds.
TEST_P(HardwareContract, DestroyedCallbacksNeverRunAgain) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(
      hardware().createAggregateDevice(aggregateOf({kFirstOutput, rig->loopbackUID()}), aggregate),
      0);
  std::vector<std::shared_ptr<CallbackProbe>> probes;
  for (int round = 0; round < 30; ++round) {
    const auto probe = probes.emplace_back(std::make_shared<CallbackProbe>());
    AudioDeviceIOProcID proc = 0;
    ASSERT_EQ(hardware().createIOProcID(aggregate, copyingBlock(probe), proc), 0);
    ASSERT_EQ(hardware().startDevice(aggregate, proc), 0);
    ASSERT_TRUE(eventually([&] { return probe->calls > round % 3; })) << "round " << round;
    if (round % 2 == 0) {
      ASSERT_EQ(hardware().stopDevice(aggregate, proc), 0);
    }
    ASSERT_EQ(hardware().destroyIOProcID(aggregate, proc), 0);
    probe->isOver = true;
    EXPECT_EQ(probe.use_count(), 2) << "the block was not released, round " << round;
  }
  settle();
  for (const auto& probe : probes) {
    EXPECT_EQ(probe->callsTooLate, 0);
  }
  EXPECT_EQ(hardware().destroyAggregateDevice(aggregate), 0);
}

// Fault: destroying the aggregate under a running callback leaves that running or holds its block.
TEST_P(HardwareContract, DestroyingAnAggregateEndsItsCallbacks) {
  const auto [aggregate, proc, probe] =
      Running(hardware(), aggregateOf({kFirstOutput, rig->loopbackUID()}));
  ASSERT_TRUE(eventually([&, called = probe] { return called->calls > 0; }));
  ASSERT_EQ(hardware().destroyAggregateDevice(aggregate), 0);
  probe->isOver = true;
  settle();
  EXPECT_EQ(probe->callsTooLate, 0);
  EXPECT_EQ(probe.use_count(), 1);
}

// Fault: a device that goes away under a running callback crashes the back end, keeps answering, or
// makes what was built on it impossible to clear up.
TEST_P(HardwareContract, DeviceMayVanishUnderARunningCallback) {
  rig->plug("contract.usb", "USB", kAudioDeviceTransportTypeUSB);
  const AudioObjectID usb = listed("contract.usb");
  const auto [aggregate, proc, probe] =
      Running(hardware(), aggregateOf({"contract.usb", rig->loopbackUID()}));
  ASSERT_TRUE(eventually([&, called = probe] { return called->calls > 0; }));

  rig->unplug("contract.usb");
  ASSERT_TRUE(eventually([&] { return !hal().device("contract.usb"); }));
  PropertyValue value;
  EXPECT_NE(hardware().getPropertyData(usb, kVolume, value), 0);
  EXPECT_NE(hardware().setPropertyData(usb, kVolume, 1.0F), 0);
  EXPECT_NE(hal().setDefaultOutput(usb), 0);
  hardware().stopDevice(aggregate, proc);
  hardware().destroyIOProcID(aggregate, proc);
  probe->isOver = true;
  hardware().destroyAggregateDevice(aggregate);
  settle();
  EXPECT_EQ(probe->callsTooLate, 0);
  EXPECT_EQ(probe.use_count(), 1);
  AudioObjectID again = kAudioObjectUnknown;
  EXPECT_NE(
      hardware().createAggregateDevice(aggregateOf({"contract.usb", rig->loopbackUID()}), again),
      0);
}

// Fault: statuses of callback calls on things that are not there are forgotten.
TEST_P(HardwareContract, CallbackAndTapCallsOnUnknownObjectsGiveAStatus) {
  AudioDeviceIOProcID proc = 0;
  EXPECT_NE(hardware().createIOProcID(
                kNoSuchObject, [](AudioBufferList, AudioBufferList) {}, proc),
            0);
  EXPECT_EQ(proc, 0U);
  EXPECT_NE(hardware().destroyIOProcID(kNoSuchObject, 1), 0);
  EXPECT_NE(hardware().startDevice(kNoSuchObject, 1), 0);
  EXPECT_NE(hardware().stopDevice(listed(kFirstOutput), 0x7FFFFFFF), 0);
  AudioObjectID tap = kAudioObjectUnknown;
  EXPECT_NE(hardware().createProcessTap({{kNoSuchObject}, "contract.tap"}, tap), 0);
  EXPECT_EQ(tap, kAudioObjectUnknown);
  EXPECT_NE(hardware().destroyProcessTap(kNoSuchObject), 0);
}

}  // namespace orvelle
