// The instruments themselves: what other tests believe of them is proven here.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "instruments/DesktopPanel.h"
#include "instruments/HotPlug.h"
#include "instruments/PrivateSession.h"
#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "instruments/WaveFile.h"

namespace orvelle::instruments {
namespace {

using std::chrono::seconds;

StandIn speaker() {
  return {.name = "hw_speaker", .bus = "pci", .priority = 900};
}
StandIn usb() {
  return {.name = "hw_usb", .priority = 1000};
}

/// Two seconds of 997 Hz at -20 dBFS.
WaveFile referenceSine() {
  std::vector<float> samples;
  const Signal signal = sineSignal(997.0, 0.1F);
  for (std::uint64_t index = 0; index < 96000; ++index) {
    samples.push_back(signal({index, index}));
  }
  return {48000, {samples, samples}};
}

/// The middle of what sounded.
Samples settled(Samples samples) {
  const std::size_t begin = firstAbove(samples, 1e-6F).value_or(0);
  const std::size_t end = endOfSound(samples, 1e-6F);
  if (end < begin + 20000) {
    throw std::runtime_error("nothing sounded");
  }
  return samples.subspan(begin + 9600, end - begin - 19200);
}

bool isAlive(pid_t pid) {
  return kill(pid, 0) == 0;
}

// Would catch an order that does not reach the session, one that is told although it has gone, and
// a player that only seems to wait.
TEST(Instruments, SendStreamsToOutputs) {
  const PrivateSession session({.standIns = {usb(), speaker()}});
  DesktopPanel panel;
  const Probe probe(constantSignal(0.1F), {.name = "player"});
  const auto goesTo = [&](const std::string& output) {
    return SessionClient::waitFor(
        [&] { return panel.outputsOf("player") == std::set<std::string>{output}; }, seconds(1));
  };
  const std::string serial = panel.session().node("hw_speaker")->property("object.serial");
  for (const std::string& target : {std::string("hw_speaker"), serial}) {
    panel.sendStream("player", target);
    EXPECT_TRUE(goesTo("hw_speaker")) << target;
    EXPECT_EQ(panel.streamTarget("player"), target);
    panel.sendStream("player", "");
    EXPECT_TRUE(goesTo("hw_usb")) << target;
    EXPECT_EQ(panel.streamTarget("player"), "");
  }
  const Probe waiting(constantSignal(0.1F), {.name = "waiting", .isPaused = true});
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_EQ(waiting.frames(), 0U);
}

// Would catch a process that outlives its test, output that is lost at its end, and a status that
// hides a crash.
TEST(Subprocess, TellsHowAProcessEndsAndLeavesNoneBehind) {
  const Environment environment = {{"PATH", "/usr/bin:/bin"}, {"WORD", "a b"}};
  Subprocess talker({"sh", "-c", "echo \"$WORD\"; echo two >&2; printf three; exit 7"},
                    environment);
  EXPECT_EQ(talker.wait(seconds(5)), 7);
  EXPECT_EQ(talker.standardOutput(), "a b\nthree");
  EXPECT_EQ(talker.standardError(), "two\n");
  EXPECT_TRUE(talker.waitForLine("a b", seconds(1)).has_value());
  EXPECT_FALSE(talker.waitForLine("four", seconds(1)).has_value());

  Subprocess killed({"sleep", "60"}, environment);
  EXPECT_FALSE(killed.wait(milliseconds(20)).has_value());
  EXPECT_EQ(usageOf(killed.pid()).threads, 1);
  EXPECT_GE(usageOf(killed.pid()).descriptors, 3);
  const std::int64_t begin = monotonicNanoseconds();
  killed.signal(SIGTERM);
  EXPECT_EQ(killed.wait(seconds(5)), 128 + SIGTERM);
  EXPECT_LT(killed.exitNs() - begin, 100'000'000);

  Subprocess busy({"sh", "-c", "while :; do :; done"}, environment);
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_NEAR(usageOf(busy.pid()).cpuSeconds, 0.5, 0.4);

  pid_t grandchild = 0;
  {
    Subprocess parent({"sh", "-c", "sleep 60 & echo child $!; wait"}, environment);
    const auto line = parent.waitForLine("child", seconds(5));
    ASSERT_TRUE(line.has_value());
    grandchild = std::stoi(line->text.substr(6));
    EXPECT_TRUE(isAlive(grandchild));
  }
  // Adopted by a process that may take its time to reap it.
  const auto gone = [&] {
    std::ifstream stat("/proc/" + std::to_string(grandchild) + "/stat");
    std::string fields;
    return !std::getline(stat, fields) || fields.find(") Z ") != std::string::npos;
  };
  EXPECT_TRUE(SessionClient::waitFor(gone, seconds(2)));
  EXPECT_THROW(Subprocess({"no-such-program"}, environment), std::system_error);
}

// Would catch a player or recorder that does not tell the truth about level, purity or volume.
TEST(Instruments, RecordsThePlayersExactLevel) {
  const PrivateSession session({.standIns = {usb()}});
  std::printf("measured: session ready after %.0f ms\n", session.startSeconds() * 1e3);
  EXPECT_LT(session.startSeconds(), 2.0);
  const auto file = session.directory() / "sine.wav";
  writeWave(file, referenceSine(), WaveFormat::float32);
  Recorder recorder("hw_usb");
  DesktopPanel panel;

  for (const float cubic : {1.0F, 0.4F}) {
    panel.setVolume("hw_usb", cubic);
    EXPECT_NEAR(panel.volume("hw_usb").cubic(), cubic, 1e-6);
    for (const char* player : {"pw-play", "paplay"}) {
      recorder.forget();
      Subprocess process({player, file}, session.environment());
      ASSERT_EQ(process.wait(seconds(10)), 0) << process.standardError();
      const Recording recording = recorder.take();
      EXPECT_TRUE(recording.gaps().empty());
      const double expected = -20.0 + toDecibels(std::pow(cubic, 3.0));
      for (const char* channel : {"FL", "FR"}) {
        const Samples samples = settled(recording.channel(channel));
        const double level = fitSine(samples, 997.0, recording.rate()).levelDbfs();
        const SpectralLine other = strongestOtherLine(samples, 997.0, recording.rate());
        std::printf("measured: %s at volume %.1f, %s: %.4f dBFS, else %.1f dBFS\n", player,
                    static_cast<double>(cubic), channel, level, other.levelDbfs);
        EXPECT_NEAR(level, expected, 0.001);
        EXPECT_LT(other.levelDbfs, -120.0);
      }
    }
  }

  panel.setMute("hw_usb", true);
  EXPECT_TRUE(panel.volume("hw_usb").isMuted);
  recorder.forget();
  const Probe probe(constantSignal(0.5F), {});
  ASSERT_TRUE(recorder.waitFor(milliseconds(300)));
  EXPECT_EQ(peak(recorder.take().channel("FL")), 0.0F);
}

// Would catch instruments that add a delay of their own, or one that changes with the cycle length:
// added latency is measured against this path. The monitor of the output that drives the graph is
// heard in the cycle after, whatever plays into it.
TEST(Instruments, KnowsTheDelayOfTheDirectPath) {
  const PrivateSession session({.standIns = {usb()}});
  DesktopPanel panel;
  for (const int quantum : {64, 256, 1024}) {
    panel.forceQuantum(quantum);
    Recorder recorder("hw_usb");
    const Probe probe(positionSignal(), {});
    ASSERT_TRUE(recorder.waitFor(milliseconds(400)));
    const Recording recording = recorder.take();
    const Delay delay = measureDelay(recording, "FR");
    std::printf("measured: quantum %d: delay of %llu frames in %.2f %% of the samples\n", quantum,
                static_cast<unsigned long long>(delay.frames), delay.share * 100.0);
    EXPECT_EQ(delay.frames, static_cast<std::uint64_t>(quantum));
    EXPECT_GT(delay.share, 0.9) << "more than a busy machine explains";
    EXPECT_EQ(recording.cycles.back().frames, static_cast<std::uint32_t>(quantum));
  }
}

// Would catch a gap that the recording glosses over: one second of nothing while a player is
// stopped, and cycles that the recorder itself slept through.
TEST(Instruments, NoticesAGap) {
  const PrivateSession session({.standIns = {usb()}});
  const auto file = session.directory() / "sine.wav";
  writeWave(file, referenceSine(), WaveFormat::float32);
  Recorder recorder("hw_usb");
  Subprocess player({"pw-play", "--latency=1024", file}, session.environment());
  std::this_thread::sleep_for(milliseconds(700));
  player.signal(SIGSTOP);
  std::this_thread::sleep_for(milliseconds(250));
  player.signal(SIGCONT);
  ASSERT_EQ(player.wait(seconds(10)), 0);
  const Recording recording = recorder.take();
  const double gap = longestGapMs(recording.channel("FL"), recording.rate(), 1e-4F);
  std::printf("measured: gap of %.1f ms for a player stopped for 250 ms\n", gap);
  EXPECT_GT(gap, 200.0);
  EXPECT_LT(gap, 400.0);
  EXPECT_TRUE(recording.gaps().empty()) << "the recorder itself was there all the time";
}

// Would catch an output that comes without becoming default, a stream that stays behind, and a
// recorder that does not find its output again.
TEST(Instruments, PlugsOutputsInAndOut) {
  const PrivateSession session({.standIns = {speaker()}});
  DesktopPanel panel;
  HotPlug plugs;
  ASSERT_EQ(panel.defaultSink(), "hw_speaker");
  plugs.plug(usb());
  EXPECT_TRUE(panel.waitForDefault("hw_usb", seconds(1))) << panel.defaultSink();
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(997.0, 0.1F), {});
  ASSERT_TRUE(recorder.waitFor(milliseconds(300)));

  const std::int64_t pulled = plugs.unplug("hw_usb");
  EXPECT_TRUE(panel.waitForDefault("hw_speaker", seconds(1)));
  std::this_thread::sleep_for(milliseconds(200));
  const std::int64_t back = plugs.plug(usb());
  EXPECT_TRUE(panel.waitForDefault("hw_usb", seconds(1)));
  ASSERT_TRUE(recorder.waitFor(milliseconds(500)));

  const Recording recording = recorder.take();
  const Samples samples = recording.channel("FL");
  const std::size_t before = recording.frameAt(pulled - 100'000'000);
  EXPECT_NEAR(fitSine(samples.subspan(before - 4800, 4800), 997.0, 48000.0).levelDbfs(), -20.0,
              0.001);
  EXPECT_NEAR(fitSine(samples.last(9600), 997.0, 48000.0).levelDbfs(), -20.0, 0.001);
  ASSERT_FALSE(recording.gaps().empty());
  const std::size_t sounds = recording.frameAt(back);
  ASSERT_TRUE(firstAbove(samples.subspan(sounds), 1e-3F).has_value());

  panel.configureSink("hw_speaker");
  EXPECT_TRUE(panel.waitForDefault("hw_speaker", seconds(1)));
  EXPECT_EQ(panel.configuredSink(), "hw_speaker");
  plugs.unplug("hw_usb");
  const auto gone = [&] { return !panel.session().node("hw_usb"); };
  EXPECT_TRUE(SessionClient::waitFor(gone, seconds(1)));
}

// Would catch a session that survives its test in a process, a file or this process's environment.
TEST(Instruments, LeavesNothingBehind) {
  setenv("PIPEWIRE_REMOTE", "somewhere-else", 1);
  std::filesystem::path directory;
  std::vector<pid_t> servers;
  {
    const PrivateSession session({.standIns = {usb()}});
    directory = session.directory();
    EXPECT_EQ(getenv("PIPEWIRE_REMOTE"), nullptr);
    EXPECT_EQ(std::filesystem::status(session.environment().at("XDG_RUNTIME_DIR")).permissions(),
              std::filesystem::perms::owner_all);
    const DesktopPanel panel;
    for (const SessionObject& client : panel.session().clients()) {
      const std::string pid = client.property("pipewire.sec.pid");
      if (!pid.empty() && std::stoi(pid) != getpid()) {
        servers.push_back(std::stoi(pid));
      }
    }
    EXPECT_GE(servers.size(), 2U) << "session manager and PulseAudio server";
  }
  EXPECT_STREQ(getenv("PIPEWIRE_REMOTE"), "somewhere-else");
  unsetenv("PIPEWIRE_REMOTE");
  EXPECT_FALSE(std::filesystem::exists(directory));
  for (const pid_t pid : servers) {
    EXPECT_FALSE(isAlive(pid)) << pid;
  }
}

}  // namespace
}  // namespace orvelle::instruments
