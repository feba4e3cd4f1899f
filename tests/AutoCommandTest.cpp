// The boost that follows the best output, as the user of the console sees it.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "orvelle/BoostCommands.h"
#include "orvelle/platform/simulated/KnownApplications.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

namespace {

const std::string kOwnLoopback = "OrvelleAudioDevice_UID";
const std::string kOtherLoopback = "BlackHole2ch_UID";

/// A world that is looked at once more when its command lets go of it.
class ObservedHardware final : public SimulatedHardware {
 public:
  ObservedHardware(ManualQueue& queue, const std::function<void(SimulatedHardware&)>& atTheEnd)
      : SimulatedHardware(queue), atTheEnd_(atTheEnd) {}
  ~ObservedHardware() override { atTheEnd_(*this); }

 private:
  const std::function<void(SimulatedHardware&)>& atTheEnd_;
};

class AutoCommandTest : public testing::Test {
 protected:
  /// In a fresh world of these devices, until Ctrl-C after 5 s.
  int run(const std::vector<DeviceDescription>& devices, std::vector<std::string> options = {}) {
    console.lines.clear();
    console.errors.clear();
    queue.postAfter(5.0, [this] { queue.raise(SIGINT); });
    options.insert(options.begin(), {"orvelle", "auto"});
    const auto openHardware = [&](std::string& /*problem*/) {
      auto opened = std::make_unique<ObservedHardware>(queue, atTheEnd);
      hardware = opened.get();
      std::ranges::for_each(devices, [&](const auto& device) { opened->plug(device); });
      opened->inject(fault);
      return opened;
    };
    return autoCommand(CommandLine(options), {queue, queue, console, applications, openHardware});
  }

  ManualQueue queue;
  RecordingConsole console;
  KnownApplications applications;
  Fault fault = {.count = 0};
  SimulatedHardware* hardware = nullptr;  ///< while the command runs
  std::string defaultAtTheEnd;
  float speakersAtTheEnd = 0.0F;  // volume
  std::size_t leftAtTheEnd = 0;
  std::function<void(SimulatedHardware&)> atTheEnd = [this](SimulatedHardware& world) {
    defaultAtTheEnd = world.defaultOutputUID();
    speakersAtTheEnd = world.device("speakers").volumes[0].value;
    leftAtTheEnd = world.aggregateCount() + world.ioProcCount();
  };
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
  EXPECT_EQ(run({headset("headset"), speakers, loopbackDevice()}, {"--gain", "abc"}), 0);
  EXPECT_EQ(std::erase(console.lines, "  in:    0 cb/s  peak 0.000 "), 4U);
  EXPECT_EQ(console.lines, (std::vector<std::string>{
                               "Auto-boost running at gain 3.0 (≈+9.5 dB).",
                               "Output follows device changes. Current: speakers name [Built-in]",
                               "Ctrl-C to stop.",
                               "→ switched output to usb name [USB]",
                               "→ switched output to speakers name [Built-in]",
                               "\nStopped, default output restored.",
                           }));
  EXPECT_EQ(console.errors, "");
  EXPECT_EQ(defaultAtTheEnd, "speakers");
  EXPECT_EQ(speakersAtTheEnd, 0.5F);
  EXPECT_EQ(leftAtTheEnd, 0U);
}

// Would notice: a loopback that the user names, or that is installed, is passed over.
TEST_F(AutoCommandTest, LoopbackIsTheNamedElseTheOwnElseTheOther) {
  std::string used;
  const auto loopbackUsed = [&](const std::vector<DeviceDescription>& devices,
                                const std::vector<std::string>& options = {}) {
    used.clear();
    queue.postAfter(4.0, [&] { used = hardware->defaultOutputUID(); });
    EXPECT_EQ(run(devices, options), 0);
    return used;
  };
  const DeviceDescription own = loopbackDevice(kOwnLoopback);
  const DeviceDescription other = loopbackDevice(kOtherLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other, own}), kOwnLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other}), kOtherLoopback);
  EXPECT_EQ(loopbackUsed({speakers, other, own}, {"--input", kOtherLoopback}), kOtherLoopback);
}

// Would notice: a start that cannot work ends without a word, with another status, or with the
// default output on a loopback that nobody hears.
TEST_F(AutoCommandTest, StartThatCannotWorkSaysSoAndPutsTheSystemBack) {
  EXPECT_EQ(run({headset("headset"), loopbackDevice()}), 1);
  EXPECT_EQ(console.errors, "No real output device found.\n");
  EXPECT_EQ(run({speakers}), 1);
  EXPECT_EQ(console.errors, "Boost failed: Audio device not found: BlackHole2ch_UID\n");
  fault = {.kind = CallKind::startDevice, .status = 35};
  EXPECT_EQ(run({speakers, loopbackDevice()}), 1);
  EXPECT_EQ(console.errors, "Boost failed: AudioDeviceStart failed (OSStatus 35)\n");
  EXPECT_EQ(defaultAtTheEnd, "speakers");
  EXPECT_EQ(speakersAtTheEnd, 0.5F);
  EXPECT_EQ(leftAtTheEnd, 0U);
  EXPECT_TRUE(console.lines.empty());
}

}  // namespace orvelle
