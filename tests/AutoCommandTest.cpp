// The boost that follows the best output, as the user of the console sees it.
#include <algorithm>

#include "tests/CommandsRig.h"

namespace orvelle {

namespace {

const std::string kOtherLoopback = "BlackHole2ch_UID";

class AutoCommandTest : public CommandsRig {
 protected:
  AutoCommandTest() {
    atTheEnd = [](SimulatedHardware& world) {
      EXPECT_EQ(world.defaultOutputUID(), "speakers");
      EXPECT_EQ(world.device("speakers").volumes[0].value, 0.5F);
    };
  }

  /// In a fresh world of these devices, until Ctrl-C after 5 s.
  int runWith(const std::vector<DeviceDescription>& devices,
              std::vector<std::string> options = {}) {
    console.lines.clear();
    console.errors.clear();
    prepare = [&](SimulatedHardware& world) {
      std::ranges::for_each(devices, [&](const auto& device) { world.plug(device); });
      world.inject(fault);
    };
    options.insert(options.begin(), "auto");
    return interruptedAfter(5.0, options);
  }

  Fault fault = {.count = 0};
  const DeviceDescription speakers =
      stereoOutput("speakers", kAudioDeviceTransportTypeBuiltIn, 0.5F);
  const DeviceDescription usb = stereoOutput("usb", kAudioDeviceTransportTypeUSB);
};

}  // namespace

// Would notice: another text, order, gain or first output, a switch that goes untold, meter lines
// that are missing, or a system that is not put back at Ctrl-C.
TEST_F(AutoCommandTest, FollowsDevicesUntilCtrlC) {
  queue.postAfter(1.5, [this] { hardware->plug(usb); });
  queue.postAfter(3.5, [this] {
    EXPECT_EQ(hardware->device("usb").volumes[0].value, 1.0F);
    EXPECT_EQ(hardware->device("speakers").volumes[0].value, 0.5F);
    hardware->unplug("usb");
  });
  EXPECT_EQ(runWith({headset("headset"), speakers, loopbackDevice()}, {"--gain", "abc"}), 0);
  EXPECT_EQ(std::erase(console.lines, "  in:    0 cb/s  peak 0.000 "), 4U);
  EXPECT_EQ(output(),
            "Auto-boost running at gain 3.0 (≈+9.5 dB).\n"
            "Output follows device changes. Current: speakers name [Built-in]\n"
            "Ctrl-C to stop.\n"
            "→ switched output to usb name [USB]\n"
            "→ switched output to speakers name [Built-in]\n"
            "\nStopped, default output restored.\n");
  EXPECT_EQ(console.errors, "");
}

// Would notice: a loopback that the user names, or that is installed, is passed over.
TEST_F(AutoCommandTest, LoopbackIsTheNamedElseTheOwnElseTheOther) {
  const auto loopbackUsed = [&](const std::vector<DeviceDescription>& devices,
                                const std::vector<std::string>& options = {}) {
    std::string used;
    queue.postAfter(4.0, [&] { used = hardware->defaultOutputUID(); });
    EXPECT_EQ(runWith(devices, options), 0);
    return used;
  };
  const DeviceDescription own = loopbackDevice(kLoopback);
  const DeviceDescription other = loopbackDevice(kOtherLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other, own}), kLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other}), kOtherLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other, own}, {"--input", kOtherLoopback}), kOtherLoopback);
}

// Would notice: a start that cannot work ends without a word, with another status, or with the
// default output on a loopback that nobody hears.
TEST_F(AutoCommandTest, StartThatCannotWorkSaysSoAndPutsTheSystemBack) {
  EXPECT_EQ(runWith({speakers}), 1);
  EXPECT_EQ(console.errors, "Boost failed: Audio device not found: BlackHole2ch_UID\n");
  fault = {.kind = CallKind::startDevice, .status = 35};
  EXPECT_EQ(runWith({speakers, loopbackDevice()}), 1);
  EXPECT_EQ(console.errors, "Boost failed: AudioDeviceStart failed (OSStatus 35)\n");
  EXPECT_TRUE(console.lines.empty());
  atTheEnd = [](SimulatedHardware& /*world*/) {};
  EXPECT_EQ(runWith({headset("headset"), loopbackDevice()}), 1);
  EXPECT_EQ(console.errors, "No real output device found.\n");
  EXPECT_TRUE(console.lines.empty());
}

}  // namespace orvelle
