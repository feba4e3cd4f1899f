// Idle standby and level meter, to the tick.
#include <cmath>

#include "orvelle/LevelMeter.h"
#include "tests/ControllerRig.h"

namespace orvelle {
namespace {

class Standby : public ControllerRig {
 protected:
  Standby() {
    controller->setIdleStandbyEnabled(true);
    hardware.setPlaying(player, false);
  }

  void fallAsleep() {
    switchOn();
    heard();
    queue.advance(20.0);
    ASSERT_TRUE(controller->boostArmed());
  }
};

// Would catch a boost that sleeps too early or too late, one that keeps the device awake in its
// sleep, and one that lets go of the default output so that the next sound goes past it.
TEST_F(Standby, ComesAfterEightSecondsOfSilence) {
  controller->toggle();
  queue.advance(9.999);
  EXPECT_TRUE(controller->isOn())
      << "ticks at 2, 4, 6, 8; the one at 8 comes within 8 s of success";
  queue.advance(0.002);
  EXPECT_FALSE(controller->isOn());
  EXPECT_TRUE(controller->boostArmed());
  EXPECT_EQ(controller->boostStatus(), "Boost standby. Waiting for audio...");
  EXPECT_EQ(hardware.ioProcCount() + hardware.aggregateCount(), 0U);
  EXPECT_EQ(hardware.defaultOutputUID(), kLoopback);
  EXPECT_EQ(volume(kSpeakers), 0.5F);
  EXPECT_TRUE(services.activities.empty()) << "the computer may sleep too";
  controller->toggle();
  EXPECT_TRUE(controller->boostStatus().isNull());
  expectOff();
}

// Would catch a sleep from which the boost does not wake, or wakes with other levels than before;
// and a wake-up after which nobody knows where the default output belongs.
TEST_F(Standby, EndsWithTheFirstSound) {
  std::vector<std::string> told;
  QObject::connect(controller.get(), &AudioController::boostStatusChanged,
                   [&] { told.push_back(controller->boostStatus().toStdString()); });
  hardware.setVolume(kSpeakers, 0.6F);
  for (const bool isNewsLost : {false, true}) {
    fallAsleep();
    if (isNewsLost) {
      hardware.injectListenerFault({.isLost = true});
    }
    hardware.setPlaying(player, true);
    told.clear();
    queue.advance(isNewsLost ? 0.4 : 0.0);
    EXPECT_EQ(told, (std::vector<std::string>{"Audio detected. Starting boost...", ""}));
    EXPECT_TRUE(controller->isOn() && !controller->boostArmed());
    EXPECT_TRUE(controller->boostStatus().isNull());
    EXPECT_FLOAT_EQ(heard(), 2.0F * kSource * std::pow(0.6F, 3.0F));
    hardware.setPlaying(player, false);
    controller->stop();
    EXPECT_EQ(hardware.defaultOutputUID(), kSpeakers);
    EXPECT_FLOAT_EQ(volume(kSpeakers), 0.6F);
  }
  fallAsleep();
  ProcessDescription other;
  other.pid = 101;
  hardware.launch(other);
  queue.runUntilIdle();
  EXPECT_TRUE(controller->isOn()) << "a new program is noticed at once";
}

// Would catch a program nobody listens to that keeps the boost awake, one that somebody listens to
// and that does not, and a wake-up for nobody.
TEST_F(Standby, KnowsWhoPlays) {
  struct Case {
    std::int32_t pid;
    std::string bundleID;
    std::string name;
    bool isPlayer;
  };
  const Case cases[] = {{200, "org.example.music", "Music", true},
                        {201, "com.apple.Speech.synthesis", "Voice", false},
                        {202, "x", "My ACTIVITY Monitor", false},
                        {203, "app.orvelle.Orvelle", "", false},
                        {204, "systemsoundserverd", "", false},
                        {0, "org.example.nobody", "", false}};
  for (const Case& each : cases) {
    SCOPED_TRACE(each.bundleID);
    EXPECT_EQ(isRealPlayer(each.pid, each.name, each.bundleID), each.isPlayer);
    names.names[each.bundleID] = each.name;
    ProcessDescription program;
    program.pid = each.pid;
    program.bundleID = each.bundleID;
    const AudioObjectID process = hardware.launch(program);
    switchOn();
    queue.advance(30.0);
    EXPECT_EQ(controller->isOn(), each.isPlayer);
    controller->stop();
    hardware.quitProcess(process);
  }
}

// Would catch a boost that falls asleep over sound without a name, over headphones on the radio, or
// although nobody wants it to.
TEST_F(Standby, StaysAwakeWhereItMust) {
  switchOn();
  ProcessDescription nameless;
  nameless.signal = [](std::int64_t, std::uint32_t) { return 0.0005F / kHalfVolume; };
  const AudioObjectID process = hardware.launch(nameless);
  heard();
  queue.advance(30.0);
  EXPECT_TRUE(controller->isOn()) << "the level alone tells";
  hardware.quitProcess(process);
  heard();
  queue.advance(4.1);
  EXPECT_TRUE(controller->isOn());
  for (const std::uint32_t radio :
       {kAudioDeviceTransportTypeBluetooth, kAudioDeviceTransportTypeBluetoothLE}) {
    hardware.plug(stereoOutput("buds", radio));
    queue.advance(30.0);
    EXPECT_TRUE(controller->isOn());
    hardware.unplug("buds");
    queue.advance(2.1);
  }
  controller->setIdleStandbyEnabled(false);
  queue.advance(30.0);
  EXPECT_TRUE(controller->isOn());
  controller->setIdleStandbyEnabled(true);
  queue.advance(6.5);
  EXPECT_TRUE(controller->boostArmed());
  controller->setIdleStandbyEnabled(false);
  queue.advance(0.2);
  EXPECT_TRUE(controller->isOn()) << "nobody wants it to sleep any more";
}

// Would catch a wake-up that fails and leaves all sound in the loopback.
TEST_F(Standby, PutsTheSystemRightWhenItCannotWake) {
  fallAsleep();
  hardware.inject({.kind = CallKind::createIOProcID});
  hardware.setPlaying(player, true);
  queue.advance(2.0);
  hardware.clearFaults();
  EXPECT_FALSE(controller->lastError().isNull());
  EXPECT_TRUE(controller->boostStatus().isNull());
  expectOff();

  hardware.setPlaying(player, false);
  fallAsleep();
  const DeviceDescription speakers = hardware.unplug(kSpeakers);
  hardware.setPlaying(player, true);
  queue.advance(2.0);
  EXPECT_EQ(controller->lastError(), "No output device found.");
  hardware.plug(speakers);
  queue.runUntilIdle();
  expectOff();
}

// Would catch a meter that feeds a closed panel, falls at another rate than it should, or stays
// lit.
TEST_F(Standby, FeedsTheMeterOfAnOpenPanelOnly) {
  constexpr double tick = 0.125;
  constexpr float peak = kSource * kHalfVolume;  // the loopback is the volume control
  int changes = 0;
  QObject::connect(controller.get(), &AudioController::levelChanged, [&changes] { ++changes; });
  hardware.setPlaying(player, true);
  switchOn();
  heard();
  services.windows = {
      {true, true, 800.0, 600.0}, {true, false, 300.0, 600.0}, {false, true, 300.0, 600.0}};
  queue.advance(1.0);
  EXPECT_EQ(changes, 0);
  services.windows.push_back({true, true, 420.0, 700.0});
  queue.advance(tick);
  EXPECT_EQ(controller->level(), peak);
  hardware.setPlaying(player, false);
  heard();
  queue.advance(2 * tick);
  EXPECT_FLOAT_EQ(controller->level(), peak * 0.85F * 0.85F);
  hardware.setPlaying(player, true);
  heard();
  queue.advance(tick);
  EXPECT_EQ(controller->level(), peak);
  services.windows.clear();
  changes = 0;
  queue.advance(1.0);
  EXPECT_EQ(controller->level(), 0.0F);
  EXPECT_EQ(changes, 1) << "told once";
}

// Would catch a label that loses a sign, a space or a digit.
TEST(GainLabel, ShowsFactorAndDecibels) {
  EXPECT_EQ(gainLabel(2.0), "2.0×  (+6.0 dB)");
  EXPECT_EQ(gainLabel(1.0), "1.0×  (+0.0 dB)");
  EXPECT_EQ(gainLabel(0.5), "0.5×  (-6.0 dB)");
  EXPECT_EQ(gainLabel(5.0), "5.0×  (+14.0 dB)");
}

}  // namespace
}  // namespace orvelle
