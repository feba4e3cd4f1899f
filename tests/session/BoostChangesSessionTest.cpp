// What the real program does while the session changes around it: starts and stops in a playing
// stream, outputs that are chosen, vanish and return.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <thread>

#include "instruments/HotPlug.h"
#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "orvelle/BoostEngine.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

const SessionOptions oneOutput{.standIns = {usbOutput()}};

// Would catch a start that keeps the listener waiting.
TEST(BoostChanges, StartsQuicklyInAPlayingStream) {
  BoostSession session(oneOutput);
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(997.0, 0.1F), {});
  std::this_thread::sleep_for(milliseconds(300));
  recorder.forget();
  const auto boost = session.boost("2");
  std::this_thread::sleep_for(milliseconds(500));
  const Recording recording = recorder.take();
  const double start = millisecondsToSound(recording, boost->startNs(), 0.12F);
  const double gap = longestGapMs(recording.channel("FL"), recording.rate(), 1e-4F);
  report("program started to first boosted sample", start, "ms");
  report("gap in the stream", gap, "ms");
  EXPECT_LT(start, 300.0);
  EXPECT_LT(gap, 200.0);
}

// Would catch an output that is not followed, a default that stays there, and a moment in which the
// new output is raised while applications play straight into it.
TEST(BoostChanges, FollowsTheUserToAnotherOutput) {
  BoostSession session({.standIns = {usbOutput(), speaker()}});
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_speaker", 0.4F);
  Recorder recorder("hw_speaker");
  const Probe probe(sineSignal(997.0, 0.4F), {});
  // Quieter than the raised output would be without it: a direct sound at full volume stands out.
  const auto boost = session.boost("0.25");
  std::this_thread::sleep_for(milliseconds(200));

  const std::int64_t chosen = panel.configureSink("hw_speaker");
  std::this_thread::sleep_for(milliseconds(800));
  const Recording recording = recorder.take();
  const double sound = millisecondsToSound(recording, chosen, 0.09F);
  report("chosen to boosted sound at the new output", sound, "ms");
  EXPECT_LT(sound, 300.0);
  EXPECT_EQ(panel.defaultSink(), loopbackName);
  const std::vector<DefaultChange> changes = panel.defaultChanges();
  report("chosen to default back on the loopback",
         millisecondsBetween(chosen, changes.back().timeNs), "ms");
  const double loudest = static_cast<double>(peak(recording.channel("FL")));
  report("loudest sample at the new output", loudest, "");
  EXPECT_LT(loudest, 0.4 * 0.25 * 1.012);
  EXPECT_NEAR(fitSine(recording.channel("FL").last(9600), 997.0, 48000.0).amplitude, 0.1, 0.001);

  BoostSession::interrupt(*boost);
  EXPECT_NEAR(panel.volume("hw_speaker").cubic(), 0.4F, 1e-4F);
  EXPECT_NEAR(panel.volume("hw_usb").cubic(), 1.0F, 1e-4F);
}

// Would catch a headset with a microphone that is followed, or that keeps the default.
TEST(BoostChanges, SnapsBackFromAHeadset) {
  StandIn headset{.name = "hw_headset", .priority = 500, .mediaClass = "Audio/Duplex"};
  BoostSession session({.standIns = {usbOutput(), headset}});
  const auto boost = session.boost("1.0");
  const std::size_t before = session.panel().defaultChanges().size();
  const std::int64_t chosen = session.panel().configureSink("hw_headset");
  ASSERT_TRUE(SessionClient::waitFor(
      [&] {
        return session.panel().defaultChanges().size() > before &&
               session.panel().defaultSink() == loopbackName;
      },
      patience));
  const double back = millisecondsBetween(chosen, session.panel().defaultChanges().back().timeNs);
  report("default back on the loopback after", back, "ms");
  EXPECT_LT(back, 100.0);
  BoostSession::interrupt(*boost);
}

// Would catch a crash, feedback of the loopback into itself, and an output that stays silent or
// comes back at another level.
TEST(BoostChanges, OutlivesItsOutput) {
  BoostSession session(oneOutput);
  HotPlug plugs;
  session.panel().setVolume("hw_usb", 0.7F);
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(997.0, 0.1F), {});
  const auto boost = session.boost("2");
  std::this_thread::sleep_for(milliseconds(400));
  const double level =
      fitSine(recorder.take().channel("FL").last(9600), 997.0, 48000.0).levelDbfs();

  plugs.unplug("hw_usb");
  std::this_thread::sleep_for(milliseconds(500));
  const std::int64_t back = plugs.plug(usbOutput());
  std::this_thread::sleep_for(milliseconds(1000));
  ASSERT_FALSE(boost->wait(milliseconds(0)).has_value()) << boost->standardError();
  const Recording recording = recorder.take();
  const double sound = millisecondsToSound(recording, back, 0.01F);
  const double levelAfter = fitSine(recording.channel("FL").last(9600), 997.0, 48000.0).levelDbfs();
  const double loudest = toDecibels(static_cast<double>(peak(recording.channel("FL"))));
  report("output back to sound", sound, "ms");
  report("level before", level, "dBFS");
  report("level after", levelAfter, "dBFS");
  report("loudest sample above the level", loudest - level, "dB");
  EXPECT_LT(sound, 500.0);
  EXPECT_NEAR(level, toDecibels(0.2 * 0.343), 0.05);
  EXPECT_NEAR(levelAfter, level, 0.05);
  EXPECT_LT(loudest - level, 0.1);
  BoostSession::interrupt(*boost);
  EXPECT_NEAR(session.panel().volume("hw_usb").cubic(), 0.7F, 1e-4F);
}

// Would catch a system that is not as it was: default, volume, a configured default that was not
// there, a node or link that stays.
TEST(BoostChanges, PutsEverythingBackAtCtrlC) {
  BoostSession session({.standIns = {speaker(), usbOutput()}});
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_speaker", 0.4F);
  panel.setVolume("hw_usb", 0.6F);
  const auto before = session.inventory();
  {
    const auto boost = session.boost("2");
    EXPECT_FALSE(session.inventory() == before);
    BoostSession::interrupt(*boost);
    EXPECT_TRUE(session.returnsTo(before));
    EXPECT_EQ(panel.configuredSink(), "") << "none was configured before";
  }
  panel.configureSink("hw_speaker");
  ASSERT_TRUE(panel.waitForDefault("hw_speaker", patience));
  const auto boost = session.boost("2");
  EXPECT_NEAR(panel.volume("hw_speaker").cubic(), 1.0F, 1e-4F);
  const std::int64_t pressed = monotonicNanoseconds();
  BoostSession::interrupt(*boost);
  const double exit = millisecondsBetween(pressed, boost->exitNs());
  report("Ctrl-C to the end of the process", exit, "ms");
  EXPECT_LT(exit, 200.0);
  EXPECT_TRUE(panel.waitForDefault("hw_usb", milliseconds(100))) << "the best-ranked real output";
  EXPECT_NEAR(panel.volume("hw_speaker").cubic(), 0.4F, 1e-4F);
  EXPECT_NEAR(panel.volume("hw_usb").cubic(), 0.6F, 1e-4F);
  EXPECT_TRUE(session.returnsTo(before));
}

// Would catch an output that plays at full volume from the stop on: some servers report 1 for an
// output that has not run since the login, whatever volume it has been given.
TEST(BoostChanges, KnowsTheVolumeOfAnOutputThatHasNeverRun) {
  BoostSession session(oneOutput);
  DesktopPanel& panel = session.panel();
  const auto before = session.inventory();
  const auto output = panel.session().node("hw_usb");
  ASSERT_TRUE(output.has_value());
  Subprocess mixer({"pw-cli", "set-param", std::to_string(output->id), "Props",
                    "{ channelVolumes: [ 0.064, 0.064 ] }"},
                   session.session().environment());
  ASSERT_EQ(mixer.wait(patience), 0) << mixer.standardError();
  const auto boost = session.boost("2");
  EXPECT_TRUE(SessionClient::waitFor(
      [&] { return std::abs(panel.volume(loopbackName).cubic() - 0.4F) < 1e-4F; },
      milliseconds(1000)))
      << panel.volume(loopbackName).cubic();
  EXPECT_NEAR(panel.volume("hw_usb").cubic(), 1.0F, 1e-4F);
  BoostSession::interrupt(*boost);
  EXPECT_NEAR(panel.volume("hw_usb").cubic(), 0.4F, 1e-4F);
  EXPECT_TRUE(session.returnsTo(before));
}

// Would catch a killed program whose loopback stays the default output.
TEST(BoostChanges, LeavesAPlayableSessionWhenKilled) {
  BoostSession session(oneOutput);
  const auto before = session.inventory();
  const auto boost = session.boost("2");
  boost->signal(SIGKILL);
  EXPECT_EQ(boost->wait(patience), 128 + SIGKILL);
  EXPECT_TRUE(session.panel().waitForDefault("hw_usb", milliseconds(1000)));
  EXPECT_TRUE(session.returnsTo(before));
}

/// Waits a tenth of what is asked: two hundred starts wait a hundred milliseconds each.
class HastyClock final : public SystemClock {
 public:
  void sleep(double seconds) override { SystemClock::sleep(seconds / 10.0); }
};

// Would catch whatever a start leaves behind: a node, a link, a thread, a descriptor.
TEST(BoostChanges, TwoHundredStartsLeaveNothing) {
  BoostSession session(oneOutput);
  ManualQueue queue;
  HastyClock clock;
  RecordingConsole console;
  std::string problem;
  const auto hardware = PipeWireHardware::connect(queue, problem);
  ASSERT_NE(hardware, nullptr) << problem;
  const auto cycle = [&] {
    BoostEngine engine({*hardware, queue, clock, console});
    engine.start(loopbackName, "hw_usb");
    engine.stop(true);
  };
  cycle();
  ASSERT_TRUE(session.panel().waitForDefault("hw_usb", patience));
  std::this_thread::sleep_for(milliseconds(500));  // until the first round's timer has fired, too
  const auto before = session.inventory();
  const ProcessUsage usageBefore = usageOf(getpid());
  for (int round = 0; round < 200; ++round) {
    ASSERT_NO_THROW(cycle()) << "round " << round;
  }
  EXPECT_TRUE(session.returnsTo(before));
  // A timer of the last round may still be running.
  ProcessUsage usageAfter = usageOf(getpid());
  for (int wait = 0; wait < 20 && usageAfter.descriptors != usageBefore.descriptors; ++wait) {
    std::this_thread::sleep_for(milliseconds(50));
    usageAfter = usageOf(getpid());
  }
  report("threads left over", usageAfter.threads - usageBefore.threads, "");
  report("descriptors left over", usageAfter.descriptors - usageBefore.descriptors, "");
  report("memory grown by", static_cast<double>(usageAfter.residentKiB - usageBefore.residentKiB),
         "KiB");
  EXPECT_EQ(usageAfter.threads, usageBefore.threads);
  EXPECT_EQ(usageAfter.descriptors, usageBefore.descriptors);
}

}  // namespace
}  // namespace orvelle::instruments
