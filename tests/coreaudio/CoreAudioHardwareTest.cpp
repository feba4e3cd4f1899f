// What the CoreAudio back end makes of a HAL that behaves as people have reported it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "orvelle/BoostEngine.h"
#include "orvelle/ProcessTapEngine.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "tests/HardwareDoor.h"
#include "tests/coreaudio/StandInDoor.h"

namespace orvelle {

namespace {

const std::string kSpeakers = "speakers";
const std::string kHeadset = "headset";
const std::string kLoopback = "OrvelleAudioDevice_UID";
constexpr float kPlayed = 0.25F;
constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};

class CoreAudioHardwareTest : public testing::Test {
 protected:
  CoreAudioHardwareTest() {
    world.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
    world.plug(loopbackDevice(kLoopback));
    ProcessDescription program;
    program.pid = 7;
    program.signal = [](std::int64_t, std::uint32_t) { return kPlayed; };
    player = world.launch(program);
  }

  [[nodiscard]] coreaudio::Adversity& adversity() const { return door->standIn().adversity; }

  /// What the output's listener gets of one cycle.
  float heard(const std::string& uid) {
    world.runCycle(8);
    return world.heardPeak(uid);
  }

  void boost(const std::string& outputUID = kSpeakers) { engine.start(kLoopback, outputUID); }

  void tapPlayer(float volume = 1.0F) {
    tap.volume = volume;
    tap.start(behindDoor(player, world, *door), kSpeakers);
  }

  /// Cycles and the main queue, as they go on in life.
  void live(double seconds) {
    const double end = queue.now() + seconds;
    while (queue.now() < end) {
      world.runCycle(8);
      queue.advance(0.01);
    }
  }

  OSStatus makeAggregate(AudioObjectID& aggregate) const {
    AggregateDescription description;
    description.name = "Aggregate";
    description.uid = "aggregate";
    description.subdevices = {{kSpeakers, false}, {kLoopback, true}};
    description.master = kSpeakers;
    return door->createAggregateDevice(description, aggregate);
  }

  [[nodiscard]] std::vector<std::string> listedUIDs() const {
    std::vector<std::string> uids;
    for (const AudioDeviceInfo& device : HAL(*door).allDevices()) {
      uids.push_back(device.uid);
    }
    return uids;
  }

  [[nodiscard]] std::ptrdiff_t timesAsked(const std::string& text) const {
    return std::ranges::count(world.logTexts(), text);
  }

  ManualQueue queue;
  SimulatedHardware world{queue};
  std::unique_ptr<StandInDoor> door = openStandInDoor(world, queue, {});
  RecordingConsole console;
  EngineHost host{*door, queue, queue, console};
  BoostEngine engine{host};
  ProcessTapEngine tap{host};
  AudioObjectID player = kAudioObjectUnknown;
};

}  // namespace

// Fault: a fresh aggregate is taken for ready while it answers to nothing or has no streams yet, or
// one that never becomes ready is left behind.
TEST_F(CoreAudioHardwareTest, FreshAggregateIsWaitedFor) {
  adversity().freshAggregatesAreUnknownSeconds = 0.3;
  adversity().streamsLagSeconds = 0.5;
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(makeAggregate(aggregate), kAudioHardwareNoError);
  EXPECT_EQ(HAL(*door).channelCount(aggregate, kAudioObjectPropertyScopeInput), 2);
  EXPECT_EQ(HAL(*door).channelCount(aggregate, kAudioObjectPropertyScopeOutput), 4);
  EXPECT_EQ(door->destroyAggregateDevice(aggregate), kAudioHardwareNoError);

  adversity().streamsLagSeconds = 60.0;
  AudioObjectID never = kAudioObjectUnknown;
  EXPECT_EQ(makeAggregate(never), kAudioHardwareNotReadyError);
  EXPECT_EQ(never, kAudioObjectUnknown);
  EXPECT_EQ(world.aggregateCount(), 0U);
  EXPECT_LT(queue.now(), 5.0);
}

// Fault: the layers above see aggregates of our own come and go, which cannot even say who they
// are, and take them for new devices; or they miss a device that comes at the same time.
TEST_F(CoreAudioHardwareTest, OwnAggregatesAreNobodysNews) {
  adversity().freshAggregatesAreUnknownSeconds = 0.1;
  adversity().destroyedAggregatesLingerSeconds = 0.5;
  const std::vector<std::string> before = listedUIDs();
  int news = 0;
  ListenerToken token = 0;
  const auto count = [&news] { ++news; };
  ASSERT_EQ(door->addPropertyListener(kAudioObjectSystemObject, kDevices, count, token), 0);
  for (int round = 0; round < 3; ++round) {
    AudioObjectID aggregate = kAudioObjectUnknown;
    ASSERT_EQ(makeAggregate(aggregate), 0);
    EXPECT_EQ(listedUIDs(), before);
    queue.advance(0.2);
    ASSERT_EQ(door->destroyAggregateDevice(aggregate), 0);
    EXPECT_EQ(listedUIDs(), before);
    queue.advance(0.2);
  }
  EXPECT_EQ(news, 0);
  world.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB));
  queue.advance(0.1);
  EXPECT_EQ(news, 1);
  queue.advance(1.0);
  EXPECT_EQ(listedUIDs().size(), before.size() + 1);
  EXPECT_EQ(door->removePropertyListener(token), 0);
}

// Fault: what happened while nobody listened is compared with, so that a change back goes
// unnoticed.
TEST_F(CoreAudioHardwareTest, ChangesAreThoseSinceTheListenerCame) {
  constexpr PropertyAddress defaultOutput{kAudioHardwarePropertyDefaultOutputDevice};
  int news = 0;
  ListenerToken token = 0;
  for (const std::string& uid : {kLoopback, kSpeakers}) {
    world.chooseDefaultOutput(kSpeakers);
    queue.advance(0.1);
    ASSERT_EQ(door->addPropertyListener(
                  kAudioObjectSystemObject, defaultOutput, [&news] { ++news; }, token),
              0);
    world.chooseDefaultOutput(kLoopback);
    queue.advance(0.1);
    EXPECT_EQ(std::exchange(news, 0), 1);
    EXPECT_EQ(door->removePropertyListener(token), 0);
    world.chooseDefaultOutput(uid);
    queue.advance(0.1);
  }
  ASSERT_EQ(door->addPropertyListener(
                kAudioObjectSystemObject, defaultOutput, [&news] { ++news; }, token),
            0);
  world.chooseDefaultOutput(kLoopback);
  queue.advance(0.1);
  EXPECT_EQ(news, 1);
  EXPECT_EQ(door->removePropertyListener(token), 0);
}

// Fault: a start that fails once, or comes to nothing once, is the end of a tap; the boost's own
// attempts are multiplied; or a device that never runs counts as started.
TEST_F(CoreAudioHardwareTest, StartsThatFailOnceAreRepeated) {
  adversity().failingStarts = 1;
  tapPlayer();
  EXPECT_TRUE(tap.isRunning());
  tap.stop();
  adversity() = {};
  adversity().startsWithoutRunning = 1;
  tapPlayer();
  EXPECT_TRUE(tap.isRunning());
  tap.stop();
  boost();
  EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F);
  engine.stop(true);
  adversity().startsWithoutRunning = 100;
  const double before = queue.now();
  EXPECT_THROW(boost(), EngineError);
  EXPECT_LT(queue.now() - before, 4.0);
  engine.teardownAggregate();
  engine.stop(true);
}

// Fault: silence for ever when the device says that it runs and calls nobody, or starts without
// end.
TEST_F(CoreAudioHardwareTest, DeviceThatCallsNobodyIsStartedAgain) {
  adversity().startsWithoutCalls = 2;
  boost();
  live(1.5);
  EXPECT_EQ(heard(kSpeakers), 0.0F);
  live(1.0);
  EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F);
  const auto starts = timesAsked("start");
  live(5.0);
  EXPECT_EQ(timesAsked("start"), starts);
  engine.stop(true);
  adversity().startsWithoutCalls = 1000;
  boost();
  live(20.0);
  EXPECT_LE(timesAsked("start"), starts + 4);
  engine.stop(true);
}

// Fault: without the permission to record, a tapped application falls silent; or while it is not
// known yet whether sound comes, it is heard twice.
TEST_F(CoreAudioHardwareTest, NobodyIsMutedBeforeSoundHasComeThroughTheTap) {
  world.setVolume(kSpeakers, 1.0F);
  world.afterChange = [this] { EXPECT_LE(heard(kSpeakers), kPlayed * 1.001F); };
  adversity().refusesRecording = true;
  tapPlayer();
  live(3.0);
  EXPECT_EQ(heard(kSpeakers), kPlayed) << "at its own level, on its normal path";
  tap.stop();

  adversity().refusesRecording = false;
  world.setPlaying(player, false);
  tapPlayer(0.5F);
  live(3.0);
  world.setPlaying(player, true);
  for (int cycle = 0; cycle < 50; ++cycle) {
    EXPECT_LE(heard(kSpeakers), kPlayed);
    queue.advance(0.01);
  }
  EXPECT_NEAR(heard(kSpeakers), std::tanh(0.5F * kPlayed), 1e-6F);
  world.setPlaying(player, false);
  EXPECT_EQ(heard(kSpeakers), 0.0F);
  world.setPlaying(player, true);
  EXPECT_NEAR(heard(kSpeakers), std::tanh(0.5F * kPlayed), 1e-6F) << "known to be allowed";
  tap.stop();
  EXPECT_EQ(heard(kSpeakers), kPlayed);
  world.afterChange = nullptr;
}

// Fault: a headset's microphone is opened, and heard instead of the music.
TEST_F(CoreAudioHardwareTest, MicrophoneOfTheOutputStaysOut) {
  world.plug(headset(kHeadset, 0.5F));
  boost(kHeadset);
  EXPECT_NEAR(heard(kHeadset), kPlayed * volumeFactor(0.5F), 1e-6F);
  engine.stop(true);
  tap.start(behindDoor(player, world, *door), kHeadset);
  live(0.2);
  EXPECT_NEAR(heard(kHeadset), kPlayed * volumeFactor(0.5F), 1e-6F);
  tap.stop();
}

// Fault: sets that are done a moment later are taken for refused ones, so that the output is not
// raised, or not put back.
TEST_F(CoreAudioHardwareTest, SetsMayTakeTheirTime) {
  world.inject(
      {.kind = CallKind::setPropertyData, .effect = FaultEffect::delay, .delaySeconds = 0.03});
  boost();
  EXPECT_EQ(world.device(kSpeakers).volumes.at(0).value, 1.0F);
  EXPECT_EQ(world.device(kLoopback).volumes.at(0).value, 0.5F);
  EXPECT_EQ(timesAsked("volume 0 of speakers = 1.00"), 1);
  engine.stop(true);
  queue.advance(0.5);
  EXPECT_EQ(world.device(kSpeakers).volumes.at(0).value, 0.5F);
  EXPECT_EQ(world.defaultOutputUID(), kSpeakers);
}

// Fault: after a restart of the audio server an old id names another device, whose volume is then
// changed; the boost stays silent, its output raised; listeners and taps are gone for good.
TEST_F(CoreAudioHardwareTest, RestartOfTheServerIsAnUnplugging) {
  world.plug(stereoOutput("other", kAudioDeviceTransportTypeUSB, 0.3F));
  tapPlayer(0.5F);
  live(0.2);
  tap.stop();
  const AudioObjectID former = HAL(*door).device(kSpeakers)->id;
  int news = 0;
  ListenerToken token = 0;
  const auto count = [&news] { ++news; };
  ASSERT_EQ(door->addPropertyListener(kAudioObjectSystemObject, kDevices, count, token), 0);
  for (int restart = 0; restart < 3; ++restart) {
    boost();
    tapPlayer(0.5F);
    live(0.3);
    door->standIn().restartServer();
    EXPECT_EQ(HAL(*door).outputVolume(former), std::nullopt);
    live(2.0);
    EXPECT_GT(std::exchange(news, 0), 0);
    EXPECT_TRUE(engine.isRunning());
    EXPECT_EQ(world.aggregateCount(), 2U);
    EXPECT_EQ(world.device("other").volumes.at(0).value, 0.3F);
    EXPECT_NEAR(heard(kSpeakers), std::tanh(0.5F * kPlayed) * volumeFactor(0.5F), 1e-4F);
    tap.stop();
    EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-4F);
    engine.stop(false);
    EXPECT_EQ(world.device(kSpeakers).volumes.at(0).value, 0.5F);
    EXPECT_EQ(world.aggregateCount() + world.ioProcCount() + world.tapCount(), 0U);
  }
  EXPECT_EQ(door->removePropertyListener(token), 0);
  engine.stop(true);
}

// Fault: of a loopback with a control for each channel one governs both, or the boost's start lets
// a tapped application be heard at full volume for a moment.
TEST_F(CoreAudioHardwareTest, TapFollowsEachChannelAndIsNeverLouder) {
  world.unplug(kLoopback);
  DeviceDescription loopback = loopbackDevice(kLoopback);
  loopback.volumes = {{1, {0.5F}}, {2, {0.25F}}};
  world.plug(loopback);
  tapPlayer();
  live(0.2);
  world.afterChange = [this] {
    EXPECT_LE(heard(kSpeakers), kPlayed * volumeFactor(0.5F) * 1.001F);
  };
  boost();
  live(0.2);
  world.afterChange = nullptr;
  const HAL hal(*door);
  const auto governed = hal.device(kLoopback)->id;
  for (const auto& [element, scalar] : {std::pair(1U, 0.8F), std::pair(2U, 0.6F)}) {
    door->setPropertyData(
        governed, {kAudioDevicePropertyVolumeScalar, kAudioObjectPropertyScopeOutput, element},
        scalar);
  }
  live(0.1);
  const std::vector<float> samples = world.heard(kSpeakers);
  EXPECT_NEAR(samples.at(0), kPlayed * volumeFactor(0.8F), 1e-5F);
  EXPECT_NEAR(samples.at(1), kPlayed * volumeFactor(0.6F), 1e-5F);
  tap.stop();
  engine.stop(true);
}

// Fault: the aggregate's description loses a key on its way.
TEST_F(CoreAudioHardwareTest, DescriptionsArriveWhole) {
  boost();
  tapPlayer();
  const auto texts = world.logTexts();
  const auto isCreation = [](const std::string& text) {
    return text.starts_with("create private");
  };
  std::vector<std::string> creations;
  std::ranges::copy_if(texts, std::back_inserter(creations), isCreation);
  ASSERT_EQ(creations.size(), 2U);
  EXPECT_NE(creations[0].find("(Orvelle Engine), master speakers, of speakers, "
                              "OrvelleAudioDevice_UID with drift"),
            std::string::npos)
      << creations[0];
  EXPECT_NE(creations[1].find("(Orvelle AppVol), master speakers, of speakers, tap "),
            std::string::npos)
      << creations[1];
  EXPECT_TRUE(creations[1].ends_with(" with drift")) << creations[1];
  tap.stop();
  engine.stop(true);
}

// Fault: more callbacks than there are places crash, or a place is never free again.
TEST_F(CoreAudioHardwareTest, CallbackPlacesAreGivenBack) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(makeAggregate(aggregate), 0);
  const IOBlock silent = [](AudioBufferList, AudioBufferList) {};
  std::vector<AudioDeviceIOProcID> procs;
  AudioDeviceIOProcID proc = 0;
  while (procs.size() < 1000 && door->createIOProcID(aggregate, silent, proc) == 0) {
    procs.push_back(proc);
  }
  EXPECT_GE(procs.size(), 64U);
  EXPECT_LT(procs.size(), 1000U);
  for (const AudioDeviceIOProcID made : procs) {
    EXPECT_EQ(door->destroyIOProcID(aggregate, made), 0);
  }
  EXPECT_EQ(door->createIOProcID(aggregate, silent, proc), 0);
  EXPECT_EQ(door->destroyIOProcID(aggregate, proc), 0);
  EXPECT_EQ(door->destroyAggregateDevice(aggregate), 0);
}

// Fault: what engines leave behind stays in the audio system when the program ends in order.
TEST_F(CoreAudioHardwareTest, EndOfTheBackEndLeavesNothing) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(makeAggregate(aggregate), 0);
  AudioDeviceIOProcID proc = 0;
  ASSERT_EQ(door->createIOProcID(
                aggregate, [](AudioBufferList, AudioBufferList) {}, proc),
            0);
  ASSERT_EQ(door->startDevice(aggregate, proc), 0);
  AudioObjectID tapped = kAudioObjectUnknown;
  ASSERT_EQ(door->createProcessTap({{behindDoor(player, world, *door)}, "a tap"}, tapped), 0);
  ListenerToken token = 0;
  ASSERT_EQ(door->addPropertyListener(
                kAudioObjectSystemObject, kDevices, [] {}, token),
            0);
  door.reset();
  EXPECT_EQ(world.aggregateCount() + world.ioProcCount() + world.tapCount(), 0U);
  EXPECT_EQ(world.listenerCount(), 0U);
  queue.advance(1.0);
}

}  // namespace orvelle
