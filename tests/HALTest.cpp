#include <gtest/gtest.h>

#include "orvelle/HAL.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

namespace {

class HALTest : public testing::Test {
 protected:
  AudioObjectID plug(const DeviceDescription& device) { return hardware.plug(device); }

  ManualQueue queue;
  SimulatedHardware hardware{queue};
  HAL hal{hardware};
};

/// What is left of a device that cannot be read.
AudioDeviceInfo emptyRecord(AudioObjectID id) {
  AudioDeviceInfo record;
  record.id = id;
  return record;
}

std::vector<std::string> uids(const std::vector<AudioDeviceInfo>& devices) {
  std::vector<std::string> texts;
  texts.reserve(devices.size());
  for (const AudioDeviceInfo& device : devices) {
    texts.push_back(device.uid);
  }
  return texts;
}

}  // namespace

// Fault: a loopback, a headset or our own aggregate counts as a real output, and the boost feeds
// itself or opens a microphone.
TEST_F(HALTest, RealOutputsHaveOutputsAndNoInputs) {
  plug(headset("headset"));
  plug(stereoOutput("screen", kAudioDeviceTransportTypeHDMI));
  plug(loopbackDevice("loopback"));
  DeviceDescription microphone;
  microphone.uid = "microphone";
  microphone.inputBuffers = {1};
  plug(microphone);
  plug(stereoOutput("effect", kAudioDeviceTransportTypeVirtual));
  AudioObjectID aggregate = 0;
  AggregateDescription ours;
  ours.uid = "ours";
  ours.subdevices = {{"screen"}, {"loopback"}};
  ours.master = "screen";
  ASSERT_EQ(hardware.createAggregateDevice(ours, aggregate), 0);
  EXPECT_EQ(uids(hal.realOutputs()), (std::vector<std::string>{"screen", "effect"}));
}

// Fault: the volume is looked for on the main element only, and devices with one per channel have
// none or are not raised; or a fixed element is written and its status taken for a failure.
TEST_F(HALTest, VolumeIsFoundAndWrittenWhereverTheDeviceHasIt) {
  DeviceDescription perChannel = stereoOutput("perChannel", kAudioDeviceTransportTypeUSB);
  perChannel.volumes = {{1, {0.4F}}, {2, {0.6F}}};
  const AudioObjectID id = plug(perChannel);
  EXPECT_EQ(hal.outputVolume(id), 0.4F);
  hal.setOutputVolume(id, 0.7F);
  EXPECT_EQ(hardware.device("perChannel").volumes.at(1).value, 0.7F);
  EXPECT_EQ(hardware.device("perChannel").volumes.at(2).value, 0.7F);

  DeviceDescription mixed = stereoOutput("mixed", kAudioDeviceTransportTypeUSB, 0.3F);
  mixed.volumes[1] = {0.5F, false};
  mixed.volumes[2] = {0.5F, true};
  hal.setOutputVolume(plug(mixed), 0.9F);
  EXPECT_EQ(hardware.device("mixed").volumes.at(0).value, 0.9F);
  EXPECT_EQ(hardware.device("mixed").volumes.at(1).value, 0.5F);
  EXPECT_EQ(hardware.device("mixed").volumes.at(2).value, 0.9F);

  // An element that is there and cannot be read hands on to the next.
  hardware.inject({.kind = CallKind::getPropertyData, .count = 1});
  EXPECT_EQ(hal.outputVolume(hardware.id("mixed")), 0.5F);

  DeviceDescription fixed = stereoOutput("fixed", kAudioDeviceTransportTypeHDMI);
  fixed.volumes.clear();
  fixed.mute.reset();
  EXPECT_EQ(hal.outputVolume(plug(fixed)), std::nullopt);
  EXPECT_EQ(hal.outputMute(hardware.id("fixed")), std::nullopt);
}

// Fault: a failing question throws, keeps a stale value, or hides the device from the catalogue.
TEST_F(HALTest, FailingQuestionsGiveEmptyAnswers) {
  const AudioObjectID id = plug(stereoOutput("screen", kAudioDeviceTransportTypeHDMI));
  for (const CallKind kind : {CallKind::getPropertyData, CallKind::getPropertyDataSize}) {
    hardware.inject({.kind = kind});
    EXPECT_TRUE(hal.allDeviceIDs().empty());
    EXPECT_EQ(hal.channelCount(id, kAudioObjectPropertyScopeOutput), 0);
    hardware.clearFaults();
  }
  hardware.inject({.kind = CallKind::getPropertyData});
  EXPECT_EQ(hal.describe(id), emptyRecord(id));
  EXPECT_EQ(hal.defaultOutput(), kAudioObjectUnknown);
  EXPECT_EQ(hal.outputVolume(id), std::nullopt);
  EXPECT_EQ(hal.nominalSampleRate(id), 0.0);

  hardware.clearFaults();
  hardware.inject({.kind = CallKind::getPropertyData, .object = id});
  const auto unreadable = hal.device("");
  ASSERT_TRUE(unreadable);
  EXPECT_EQ(unreadable->id, id);
  EXPECT_EQ(hal.allDevices().size(), 1U);
}

// Fault: the observer describes the device of the notification instead of the one that is the
// default when it is delivered, or a registration that failed disturbs the others.
TEST_F(HALTest, DefaultOutputObserversReadAfresh) {
  plug(stereoOutput("first", kAudioDeviceTransportTypeBuiltIn));
  plug(stereoOutput("second", kAudioDeviceTransportTypeUSB));
  plug(stereoOutput("third", kAudioDeviceTransportTypeHDMI));
  queue.runUntilIdle();
  std::vector<AudioDeviceInfo> seen;
  int alsoCalled = 0;
  hardware.inject({.kind = CallKind::addPropertyListener, .count = 1});
  hal.observeDefaultOutputChanges([](const AudioDeviceInfo&) { FAIL() << "was not registered"; });
  hal.observeDefaultOutputChanges([&](const AudioDeviceInfo& device) { seen.push_back(device); });
  hal.observeDefaultOutputChanges([&](const AudioDeviceInfo&) { ++alsoCalled; });

  hardware.chooseDefaultOutput("second");
  hardware.chooseDefaultOutput("third");
  queue.runUntilIdle();
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.front(), (AudioDeviceInfo{hardware.id("third"), "third", "third name", 0, 2,
                                           kAudioDeviceTransportTypeHDMI}));
  EXPECT_GT(alsoCalled, 0);

  hardware.inject({.kind = CallKind::getPropertyData, .object = hardware.id("first")});
  hardware.chooseDefaultOutput("first");
  queue.runUntilIdle();
  EXPECT_EQ(seen.back(), emptyRecord(hardware.id("first")));
}

// Fault: one of the two Bluetooth codes, or a code from nowhere, has no display text.
TEST_F(HALTest, EveryTransportHasADisplayText) {
  EXPECT_EQ(transportName(kAudioDeviceTransportTypeBluetooth), "Bluetooth");
  EXPECT_EQ(transportName(kAudioDeviceTransportTypeBluetoothLE), "Bluetooth");
  EXPECT_EQ(transportName(kAudioDeviceTransportTypeUSB), "USB");
  EXPECT_EQ(transportName(kAudioDeviceTransportTypeUnknown), "Other");
  EXPECT_EQ(transportName(kAudioDeviceTransportTypeVirtual), "Other");
}

}  // namespace orvelle
