// Which output sound belongs on, and the boost's way there as devices come and go.
#include <gtest/gtest.h>

#include "orvelle/DeviceRouter.h"
#include "tests/BoostRig.h"

namespace orvelle {

namespace {

constexpr std::uint32_t kBuiltIn = kAudioDeviceTransportTypeBuiltIn;
constexpr std::uint32_t kUSB = kAudioDeviceTransportTypeUSB;
constexpr std::uint32_t kHDMI = kAudioDeviceTransportTypeHDMI;
constexpr std::uint32_t kBluetooth = kAudioDeviceTransportTypeBluetooth;
constexpr std::uint32_t kBluetoothLE = kAudioDeviceTransportTypeBluetoothLE;

const std::string kToHeadphones = "→ switched output to headphones name [USB]";
const std::string kToSpeakers = "→ switched output to speakers name [Built-in]";

class DeviceRouterTest : public testing::Test {
 protected:
  DeviceRouterTest() {
    rig.engine->showMeter = false;
    router->onSwitch = [this](const AudioDeviceInfo& output) {
      told.push_back(output.uid);
      toldAt.push_back(rig.queue.now());
    };
  }

  /// The boost runs on the speakers, and every instant from now on is listened to.
  void startFollowing() {
    rig.start();
    router->start();
    rig.queue.advance(3.0);
    hardware.afterChange = [this] {
      hardware.runCycle(8);
      for (const std::string& uid : {kSpeakers, kHeadphones}) {
        EXPECT_LE(hardware.heardPeak(uid), boosted * 1.001F) << uid;
      }
      EXPECT_LE(hardware.aggregateCount(), 1U);
    };
  }

  AudioObjectID plugHeadphones() { return hardware.plug(headphones); }

  void expectFed(const std::string& uid, const std::string& other) {
    EXPECT_EQ(rig.engine->currentOutputUID(), uid);
    EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
    EXPECT_FLOAT_EQ(rig.heard(uid), boosted);
    EXPECT_EQ(rig.heard(other), 0.0F);
    EXPECT_EQ(hardware.aggregateCount(), 1U);
    EXPECT_EQ(hardware.ioProcCount(), 1U);
  }

  BoostRig rig;
  SimulatedHardware& hardware = rig.hardware;
  std::unique_ptr<DeviceRouter> router = std::make_unique<DeviceRouter>(rig.host, *rig.engine);
  const DeviceDescription headphones = stereoOutput(kHeadphones, kUSB, 0.4F);
  std::vector<std::string> told;
  std::vector<double> toldAt;  // s
  const float boosted = kSource * volumeFactor(0.5F);
};

}  // namespace

// Fault: a rank that is missing or swapped, the later of two equals chosen, or a device taken whose
// microphone would be switched on, that feeds back, or that cannot be asked for yet.
TEST_F(DeviceRouterTest, PreferredOutputIsTheFirstOfTheHighestRank) {
  struct Case {
    std::vector<std::pair<std::string, std::uint32_t>> outputs;
    std::string preferred;
  };
  const std::uint32_t odd = fourCharacterCode("????");
  const std::vector<Case> cases = {
      {{}, ""},
      {{{"inside", kBuiltIn}}, "inside"},
      {{{"inside", kBuiltIn}, {"screen", kHDMI}}, "screen"},
      {{{"odd", odd}, {"screen", kHDMI}, {"inside", kBuiltIn}}, "odd"},
      {{{"screen", kAudioDeviceTransportTypeDisplayPort}, {"usb", kUSB}}, "usb"},
      {{{"first", kUSB}, {"second", kUSB}}, "first"},
      {{{"inside", kBuiltIn}, {"usb", kUSB}, {"blue", kBluetooth}}, "blue"},
      {{{"le", kBluetoothLE}, {"classic", kBluetooth}}, "le"},
      {{{"classic", kBluetooth}, {"le", kBluetoothLE}}, "classic"},
      {{{"inside", kBuiltIn}, {"", kUSB}}, "inside"},
  };
  for (const Case& each : cases) {
    ManualQueue queue;
    SimulatedHardware world(queue);
    world.plug(headset("headset"));
    world.plug(loopbackDevice());
    for (const auto& [uid, transport] : each.outputs) {
      world.plug(stereoOutput(uid, transport));
    }
    const auto preferred = DeviceRouter::preferredOutput(HAL(world));
    EXPECT_EQ(preferred ? preferred->uid : "", each.preferred);
  }
}

// Fault: evaluations at other times, a burst that swallows some of them, or an idle engine that is
// started.
TEST_F(DeviceRouterTest, EveryChangeIsEvaluatedThreeTimes) {
  router->start();
  rig.queue.advance(1.0);
  EXPECT_TRUE(told.empty());
  plugHeadphones();
  rig.queue.advance(0.5);
  hardware.plug(headset("headset"));
  rig.queue.advance(10.0);
  ASSERT_EQ(toldAt.size(), 6U);
  const std::vector<double> expected = {1.0, 1.5, 1.8, 2.3, 3.0, 3.5};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_NEAR(toldAt[i], expected[i], 1e-6);
  }
  EXPECT_EQ(told, std::vector<std::string>(6, kHeadphones));
  EXPECT_EQ(rig.console.lines, std::vector<std::string>(6, kToHeadphones));
  EXPECT_FALSE(rig.engine->isRunning());
  EXPECT_EQ(hardware.aggregateCount(), 0U);
}

// Fault: more than one switch a change, a wrong level or a burst on the way, an output that keeps
// full volume, or a default output that is left elsewhere.
TEST_F(DeviceRouterTest, BoostFollowsToTheBetterOutputAndBack) {
  startFollowing();
  plugHeadphones();
  rig.queue.runUntilIdle();
  expectFed(kHeadphones, kSpeakers);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
  rig.queue.advance(3.0);
  EXPECT_EQ(rig.console.lines, std::vector<std::string>{kToHeadphones});

  const DeviceDescription asItWas = hardware.unplug(kHeadphones);
  rig.queue.runUntilIdle();
  expectFed(kSpeakers, kHeadphones);
  hardware.plug(asItWas);
  rig.queue.runUntilIdle();
  expectFed(kHeadphones, kSpeakers);
  rig.queue.advance(3.0);
  EXPECT_EQ(rig.console.lines,
            (std::vector<std::string>{kToHeadphones, kToSpeakers, kToHeadphones}));
  EXPECT_EQ(told, (std::vector<std::string>{kHeadphones, kSpeakers, kHeadphones}));
  rig.engine->stop(true);
  EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
  EXPECT_EQ(rig.volume(kSpeakers), 0.5F);
}

// Fault: router and engine both take the output that returns, or one undoes the other's work: two
// aggregates, a switch line where nothing was switched, a loud or silent output.
TEST_F(DeviceRouterTest, OnlyOutputThatReturnsIsTakenOnce) {
  startFollowing();
  for (const double secondsAway : {0.0, 0.3, 5.0}) {
    const DeviceDescription asItWas = hardware.unplug(kSpeakers);
    rig.queue.advance(secondsAway);
    hardware.plug(asItWas);
    rig.queue.advance(3.0);
    expectFed(kSpeakers, kHeadphones);
  }
  hardware.afterChange = nullptr;  // nobody can help the instant without a loopback
  hardware.plug(hardware.unplug(kLoopback));
  rig.queue.advance(3.0);
  expectFed(kSpeakers, kHeadphones);
  EXPECT_TRUE(rig.console.lines.empty());
  EXPECT_EQ(rig.console.errors, "");
}

// Fault: a failed switch says that it worked, leaves something half built or loud, is not tried
// again, or without end, or by the engine's own guard, which tells nobody.
TEST_F(DeviceRouterTest, FailedSwitchIsToldAndTriedAgain) {
  struct Case {
    Fault fault;
    std::string problem;
    std::size_t evaluations;
  };
  const std::vector<Case> cases = {
      {{.kind = CallKind::createAggregateDevice, .count = 1, .status = -50},
       "switch failed: CreateAggregateDevice failed (OSStatus -50)\n",
       1},
      {{.kind = CallKind::startDevice, .status = -50},
       "switch failed: AudioDeviceStart failed (OSStatus -50)\n",
       3}};
  startFollowing();
  for (const Case& each : cases) {
    SCOPED_TRACE(each.problem);
    rig.console.lines.clear();
    rig.console.errors.clear();
    told.clear();
    hardware.inject(each.fault);
    plugHeadphones();
    rig.queue.runUntilIdle();
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);
    EXPECT_EQ(rig.volume(kHeadphones), 0.4F);
    EXPECT_TRUE(told.empty());
    EXPECT_TRUE(rig.engine->isRunning());

    rig.queue.advance(10.0);
    EXPECT_EQ(rig.console.errors.size(), each.problem.size() * each.evaluations);
    EXPECT_TRUE(rig.console.errors.starts_with(each.problem));
    EXPECT_EQ(told.empty(), each.evaluations == 3);
    hardware.clearFaults();
    hardware.plug(headset("microphone"));
    rig.queue.runUntilIdle();
    hardware.unplug("microphone");
    expectFed(kHeadphones, kSpeakers);
    EXPECT_EQ(rig.console.lines, std::vector<std::string>{kToHeadphones});
    EXPECT_EQ(told, std::vector<std::string>{kHeadphones});
    hardware.unplug(kHeadphones);
    rig.queue.advance(3.0);
  }
}

// Fault: a device that tells its channels late is never found, or one that does not tell its uid
// yet costs the sound of the output that plays.
TEST_F(DeviceRouterTest, DeviceMayBecomeReadableLate) {
  startFollowing();
  for (const std::uint32_t selector :
       {kAudioDevicePropertyStreamConfiguration, kAudioDevicePropertyDeviceUID}) {
    told.clear();
    toldAt.clear();
    const double plugged = rig.queue.now();
    hardware.inject({.selector = selector, .object = plugHeadphones()});
    rig.queue.advance(0.5);
    expectFed(kSpeakers, kHeadphones);
    hardware.clearFaults();
    rig.queue.advance(3.0);
    expectFed(kHeadphones, kSpeakers);
    ASSERT_EQ(told, std::vector<std::string>{kHeadphones});
    // A back end may wait for the fresh aggregate, too.
    EXPECT_NEAR(toldAt.front() - plugged, 0.8, 0.09);
    hardware.unplug(kHeadphones);
    rig.queue.advance(3.0);
  }
}

// Fault: what was plugged in while the engine started is not found before the next change.
TEST_F(DeviceRouterTest, DeviceThatCameDuringTheStartIsFound) {
  rig.queue.happenAfter(0.05, [this] { plugHeadphones(); });
  rig.start();
  router->start();
  rig.queue.runUntilIdle();
  expectFed(kHeadphones, kSpeakers);
}

// Fault: a router that is gone is called by its observer or by a run that was still to come.
TEST_F(DeviceRouterTest, DroppingTheRouterEndsIt) {
  startFollowing();
  hardware.inject({.kind = CallKind::createAggregateDevice, .count = 1});
  plugHeadphones();
  rig.queue.runUntilIdle();
  router.reset();
  hardware.unplug(kHeadphones);
  plugHeadphones();
  rig.queue.advance(5.0);
  EXPECT_EQ(rig.engine->currentOutputUID(), "");
  EXPECT_TRUE(told.empty());
}

}  // namespace orvelle
