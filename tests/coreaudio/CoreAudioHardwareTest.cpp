// What the CoreAudio back end makes of a HAL that behaves as people have reported it: devices,
// callbacks and news.
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/coreaudio/CallbackSlot.h"
#include "tests/coreaudio/CoreAudioRig.h"

namespace orvelle {

// Fault: a fresh aggregate is taken for ready while it answers to nothing or has no streams yet,
// one that never becomes ready is left behind, or its loopback is looked for beyond what callbacks
// get.
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

  adversity() = {};
  DeviceDescription speakers = world.unplug(kSpeakers);
  for (const auto& [inputs, status] :
       {std::pair(31U, kAudioHardwareNoError), std::pair(40U, kAudioHardwareBadDeviceError)}) {
    speakers.inputBuffers.assign(inputs, 1);
    world.plug(speakers);
    AudioObjectID made = kAudioObjectUnknown;
    EXPECT_EQ(makeAggregate(made), status) << inputs << " inputs before the loopback";
    door->destroyAggregateDevice(made);
    world.unplug(kSpeakers);
  }
}

// Fault: the layers above see aggregates of our own come and go, which cannot even say who they
// are, and take them for new devices; or they miss a device that comes at the same time.
TEST_F(CoreAudioHardwareTest, OwnAggregatesAreNobodysNews) {
  adversity().destroyedAggregatesLingerSeconds = 0.5;
  const std::vector<std::string> before = listedUIDs();
  int news = 0;
  ListenerToken token = 0;
  const auto count = [&news] { ++news; };
  ASSERT_EQ(door->addPropertyListener(kAudioObjectSystemObject, kDevices, count, token), 0);
  adversity().duringCreation = [&] { EXPECT_EQ(listedUIDs(), before) << "while it is made"; };
  for (const double unknownSeconds : {0.1, 0.0, 0.1}) {
    adversity().freshAggregatesAreUnknownSeconds = unknownSeconds;
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

// Fault: a start that fails once, comes to nothing once, or takes its time, is the end of a tap;
// the boost's own attempts are multiplied; or a device that never runs counts as started.
TEST_F(CoreAudioHardwareTest, StartsThatFailOnceAreRepeated) {
  for (const auto& difficulty :
       {coreaudio::Adversity{.failingStarts = 1}, coreaudio::Adversity{.startsWithoutRunning = 1},
        coreaudio::Adversity{.runningLagSeconds = 0.7}}) {
    adversity() = difficulty;
    tapPlayer();
    EXPECT_TRUE(tap.isRunning());
    tap.stop();
  }
  adversity() = {};
  adversity().startsWithoutRunning = 1;
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

// Fault: the aggregate's description loses a key on its way.
TEST_F(CoreAudioHardwareTest, DescriptionsArriveWhole) {
  boost();
  tapPlayer();
  const auto texts = world.logTexts();
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

// Fault: a call of a listener that was on its way when the back end ended reaches what is gone.
TEST_F(CoreAudioHardwareTest, LateCallsFindNobody) {
  coreaudio::StandIn standIn(world, queue);
  standIn.adversity.callsLate = true;
  std::string problem;
  auto hardware = CoreAudioHardware::connect(queue, queue, problem);
  int news = 0;
  ListenerToken token = 0;
  const auto count = [&news] { ++news; };
  ASSERT_EQ(hardware->addPropertyListener(kAudioObjectSystemObject, kDevices, count, token), 0);
  hardware.reset();
  queue.advance(1.0);
  EXPECT_EQ(news, 0);
}

// Fault: a listener that is removed while it is added anew stays in the audio system.
TEST_F(CoreAudioHardwareTest, ListenerMayBeRemovedWhileItIsRenewed) {
  ListenerToken token = 0;
  ASSERT_EQ(door->addPropertyListener(
                kAudioObjectSystemObject, kDevices, [] {}, token),
            0);
  adversity().whileListening = [&](UInt32 selector) {
    if (selector == kDevices.selector) {
      door->removePropertyListener(std::exchange(token, 0));
    }
  };
  door->standIn().restartServer();
  queue.advance(0.1);
  EXPECT_EQ(token, 0U);
  EXPECT_EQ(world.listenerCount(), 0U);
}

// Fault: each start of a callback adds another one who looks after it.
TEST_F(CoreAudioHardwareTest, OneLooksAfterACallback) {
  AudioObjectID aggregate = kAudioObjectUnknown;
  ASSERT_EQ(makeAggregate(aggregate), 0);
  AudioDeviceIOProcID proc = 0;
  ASSERT_EQ(door->createIOProcID(
                aggregate, [](AudioBufferList, AudioBufferList) {}, proc),
            0);
  for (int start = 0; start < 20; ++start) {
    ASSERT_EQ(door->startDevice(aggregate, proc), 0);
    queue.advance(0.01);
    ASSERT_EQ(door->stopDevice(aggregate, proc), 0);
  }
  ASSERT_EQ(door->startDevice(aggregate, proc), 0);
  const TimerID before = queue.postAfter(0.0, [] {});
  queue.advance(1.0);
  EXPECT_LT(queue.postAfter(0.0, [] {}) - before, 50U) << "timers in a second";
  EXPECT_EQ(door->destroyAggregateDevice(aggregate), 0);
}

// Fault: a call of the audio system that comes while the process ends meets a block that has been
// destroyed.
TEST(CallbackSlotDeathTest, BlocksOutliveTheEndOfTheProcess) {
  const auto end = [] {
    coreaudio::CallbackSettings settings;
    settings.block = [last = std::shared_ptr<void>(nullptr, [](void*) { std::_Exit(1); })](
                         AudioBufferList, AudioBufferList) {};
    static_cast<void>(coreaudio::CallbackSlot::occupy(std::move(settings)).release());
    std::exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
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
