// What the CoreAudio back end makes of a HAL that behaves as people have reported it: what is heard
// through taps, of microphones, and after a restart of the audio server.
#include <atomic>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "tests/coreaudio/CoreAudioRig.h"

namespace orvelle {

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

// Fault: a boost that may not receive sound silences everything; the system is changed before its
// user has answered; or the user is asked again and again.
TEST_F(CoreAudioHardwareTest, BoostWaitsForThePermission) {
  const auto isUntouched = [this] {
    return world.defaultOutputUID() == kSpeakers &&
           world.device(kSpeakers).volumes.at(0).value == 0.5F && world.aggregateCount() == 0;
  };
  adversity().microphone = CapturePermission::refused;
  EXPECT_THROW(boost(), EngineError);
  EXPECT_TRUE(isUntouched());
  EXPECT_EQ(adversity().microphoneRequests, 0) << "in vain";

  adversity().microphone = CapturePermission::undecided;
  EXPECT_THROW(boost(), EngineError);
  EXPECT_TRUE(isUntouched());
  std::atomic<bool> givingUp = false;
  queue.happenAfter(1.0, [&givingUp] { givingUp = true; });
  EXPECT_THROW(engine.start(kLoopback, kSpeakers, &givingUp), EngineError);
  queue.happenAfter(5.0, [&] {
    EXPECT_TRUE(isUntouched());
    adversity().microphone = CapturePermission::granted;
  });
  const double before = queue.now();
  boost();
  EXPECT_NEAR(queue.now() - before, 5.0, 1.0);
  EXPECT_EQ(adversity().microphoneRequests, 1);
  EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F);
  engine.stop(true);
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

// Fault: after a restart of the audio server an old id names another device, whose volume is then
// changed; the boost stays silent, its output raised; listeners and taps are gone for good, or
// those listeners that the fresh server did not take at once.
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
    world.inject({.kind = CallKind::addPropertyListener,
                  .selector = kAudioHardwarePropertyDevices,
                  .count = 3});
    door->standIn().restartServer();
    EXPECT_EQ(HAL(*door).outputVolume(former), std::nullopt);
    live(2.0);
    EXPECT_GT(std::exchange(news, 0), 0);
    world.plug(world.unplug("other"));
    live(0.1);
    EXPECT_GT(std::exchange(news, 0), 0) << "of a change after the restart";
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

// Fault: what becomes of an aggregate without its master is left to the HAL, which says nothing of
// it: the application may stay muted, or silent when the output is back; or a call of the former
// one runs beside those of the next.
TEST_F(CoreAudioHardwareTest, TapReaderIsMadeAnewWhenItsOutputReturns) {
  adversity().callsLate = true;
  world.plug(stereoOutput("other", kAudioDeviceTransportTypeUSB, 1.0F));
  tapPlayer(0.5F, "other");
  live(0.2);
  for (int round = 0; round < 3; ++round) {
    EXPECT_NEAR(heard("other"), std::tanh(0.5F * kPlayed), 1e-6F);
    const DeviceDescription other = world.unplug("other");
    live(0.1);
    EXPECT_EQ(world.aggregateCount() + world.ioProcCount(), 0U);
    EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F);
    world.plug(other);
    live(0.1);
  }
  world.unplug("other");
  live(0.1);
  tap.stop();
  EXPECT_EQ(world.tapCount(), 0U);
}

// Fault: a reader whose output returned and would not start stays as it is for ever, and the
// application's volume with it.
TEST_F(CoreAudioHardwareTest, TapReaderThatWouldNotStartIsTriedAgain) {
  world.plug(stereoOutput("other", kAudioDeviceTransportTypeUSB, 1.0F));
  tapPlayer(0.5F, "other");
  live(0.2);
  const DeviceDescription other = world.unplug("other");
  live(0.1);
  adversity().failingStarts = 100;
  world.plug(other);
  live(1.0);
  EXPECT_EQ(world.aggregateCount() + world.ioProcCount(), 0U);
  EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F) << "on its normal path";
  adversity().failingStarts = 0;
  world.plug(stereoOutput("another", kAudioDeviceTransportTypeUSB));
  live(0.5);
  EXPECT_NEAR(heard("other"), std::tanh(0.5F * kPlayed), 1e-6F);
  tap.stop();
}

// Fault: a question that fails is taken for the answer that nothing governs a tap, which then plays
// at full level into the output that the boost holds at full volume; or nobody asks again, and the
// tap stays as loud as it was before the user turned it down.
TEST_F(CoreAudioHardwareTest, TapIsNotLouderForWantOfAnAnswer) {
  boost();
  tapPlayer(1.0F);
  live(0.2);
  for (std::uint64_t skip = 0; skip < 30; ++skip) {
    world.inject({.kind = CallKind::getPropertyData, .skip = skip, .count = 1});
    const float scalar = skip % 2 == 0 ? 0.4F : 0.5F;
    world.setVolume(kLoopback, scalar);
    live(0.1);
    EXPECT_LE(heard(kSpeakers), kPlayed * volumeFactor(0.5F) * 1.001F) << skip;
    live(0.1);
    EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(scalar), 1e-6F) << skip;
    world.clearFaults();
  }
  tap.stop();
  engine.stop(true);
}

// Fault: a tap that begins while nobody answers plays at full level, or mutes the application that
// it may not play yet; it stays silent once there are answers; each change meanwhile adds another
// one who asks again; or a driver that never tells its decibels is waited for.
TEST_F(CoreAudioHardwareTest, TapThatBeginsInDoubtIsNotLouder) {
  adversity().tellsNoDecibels = true;
  boost();
  const AudioObjectID loopback = HAL(world).device(kLoopback)->id;
  for (const std::uint32_t selector :
       {kAudioDevicePropertyMute, kAudioDevicePropertyVolumeScalar}) {
    world.inject({.kind = CallKind::getPropertyData, .selector = selector, .object = loopback});
    tapPlayer(0.5F);
    for (int change = 0; change < 20; ++change) {
      world.setMute(kLoopback, false);
      live(0.02);
      EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.5F), 1e-6F) << "on its normal path";
    }
    const TimerID before = queue.postAfter(0.0, [] {});
    queue.advance(1.0);
    EXPECT_LT(queue.postAfter(0.0, [] {}) - before, 50U) << "timers in a second";
    world.clearFaults();
    live(0.2);
    EXPECT_NEAR(heard(kSpeakers), std::tanh(0.5F * kPlayed) * volumeFactor(0.5F), 1e-4F);
    tap.stop();
  }
  engine.stop(true);
}

// Fault: what governs a tap is learned too late to listen to it, and a change of its volume is not
// heard of.
TEST_F(CoreAudioHardwareTest, LoopbackIsFollowedThoughItWasInDoubt) {
  world.setVolume(kSpeakers, 1.0F);
  tapPlayer();
  live(0.2);
  for (std::uint64_t skip = 0; skip < 8; ++skip) {
    world.inject({.kind = CallKind::getPropertyData, .skip = skip, .count = 1});
    world.chooseDefaultOutput(kLoopback);
    live(0.3);
    world.clearFaults();
    world.setVolume(kLoopback, 0.4F);
    live(0.05);
    EXPECT_NEAR(heard(kSpeakers), kPlayed * volumeFactor(0.4F), 1e-6F) << skip;
    world.setVolume(kLoopback, 0.5F);
    world.chooseDefaultOutput(kSpeakers);
    live(0.1);
  }
  tap.stop();
}

// Fault: an output that returns and does not become ready holds up the main thread for ever, since
// each attempt is itself a change of the devices; what has returned with other streams is waited
// for in vain; or it is never tried again.
TEST_F(CoreAudioHardwareTest, TapReaderThatCannotBeMadeAnewHoldsNobodyUp) {
  adversity().callsListenersDuringCalls = true;
  adversity().destroyedAggregatesLingerSeconds = 0.1;
  DeviceDescription other = stereoOutput("other", kAudioDeviceTransportTypeUSB, 1.0F);
  other.outputBuffers = {2, 2};
  other.inputBuffers = {1};
  world.plug(other);
  tapPlayer(0.5F, "other");
  live(0.2);
  other = world.unplug("other");
  live(0.1);
  adversity().streamsLagSeconds = 60.0;
  world.plug(other);
  const auto made = aggregatesMade();
  const double before = queue.now();
  queue.advance(0.1);
  EXPECT_LT(queue.now() - before, 3.0);
  live(30.0);
  EXPECT_EQ(aggregatesMade(), made + 1);
  EXPECT_EQ(world.aggregateCount(), 0U);
  world.plug(stereoOutput("another", kAudioDeviceTransportTypeUSB));
  live(10.0);
  EXPECT_EQ(aggregatesMade(), made + 2) << "once more when the devices have changed";

  world.unplug("other");
  live(0.1);
  adversity().streamsLagSeconds = 0.0;
  other.outputBuffers = {2};
  other.inputBuffers = {};
  world.plug(other);
  live(0.2);
  EXPECT_NEAR(heard("other"), std::tanh(0.5F * kPlayed), 1e-6F);
  tap.stop();
}

// Fault: an application's own volume fails where the tap's stream shows only once it is read.
TEST_F(CoreAudioHardwareTest, StreamsOfTapsMayComeLate) {
  adversity().tapStreamsLagSeconds = 60.0;
  world.setVolume(kSpeakers, 1.0F);
  tapPlayer(0.5F);
  live(0.2);
  EXPECT_NEAR(heard(kSpeakers), std::tanh(0.5F * kPlayed), 1e-6F);
  EXPECT_LT(queue.now(), 4.0);
  tap.stop();
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

}  // namespace orvelle
