// The instruments themselves: what other tests believe of them is proven here.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "instruments/DesktopPanel.h"
#include "instruments/PrivateSession.h"
#include "instruments/Recorder.h"
#include "instruments/WaveFile.h"

namespace orvelle::instruments {
namespace {

using std::chrono::seconds;

const SessionOptions oneOutput{.standIns = {{.name = "hw_usb"}}};

bool isAlive(pid_t pid) {
  return kill(pid, 0) == 0;
}

// Would catch a process that outlives its test, a status that hides a crash, and figures of a
// process's use that never move: whoever looks for leaks with them would find none.
TEST(Subprocess, TellsHowAProcessEndsAndLeavesNoneBehind) {
  const Environment environment = {{"PATH", "/usr/bin:/bin"}};
  EXPECT_THROW(Subprocess({"no-such-program"}, environment), std::system_error);
  Subprocess killed({"sleep", "60"}, environment);
  EXPECT_FALSE(killed.wait(milliseconds(20)).has_value());
  EXPECT_EQ(usageOf(killed.pid()).threads, 1);
  const int descriptors = usageOf(getpid()).descriptors;
  {
    const std::ifstream open("/dev/null");
    const std::jthread thread([&] { EXPECT_GE(usageOf(getpid()).threads, 2); });
    EXPECT_EQ(usageOf(getpid()).descriptors, descriptors + 1);
  }
  killed.signal(SIGTERM);
  EXPECT_EQ(killed.wait(seconds(5)), 128 + SIGTERM);

  pid_t grandchild = 0;
  {
    Subprocess busy({"sh", "-c", "sleep 60 & echo child $!; while :; do :; done"}, environment);
    const auto line = busy.waitForLine("child", seconds(5));
    ASSERT_TRUE(line.has_value());
    grandchild = std::stoi(line->text.substr(6));
    EXPECT_TRUE(isAlive(grandchild));
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_NEAR(usageOf(busy.pid()).cpuSeconds, 0.5, 0.4);
  }
  // Adopted by a process that may take its time to reap it.
  const auto gone = [&] {
    std::ifstream stat("/proc/" + std::to_string(grandchild) + "/stat");
    std::string fields;
    return !std::getline(stat, fields) || fields.find(") Z ") != std::string::npos;
  };
  EXPECT_TRUE(SessionClient::waitFor(gone, seconds(2)));
}

// Would catch a gap that the recording glosses over, and a session that takes its time.
TEST(Instruments, NoticesAGap) {
  const PrivateSession session(oneOutput);
  std::printf("measured: session ready after %.0f ms\n", session.startSeconds() * 1e3);
  EXPECT_LT(session.startSeconds(), 2.0);
  const auto file = session.directory() / "constant.wav";
  const std::vector<float> constant(96000, 0.1F);
  writeWave(file, {48000, {constant, constant}});
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

// Would catch a session that survives its test in a process, a file or this process's environment.
TEST(Instruments, LeavesNothingBehind) {
  setenv("PIPEWIRE_REMOTE", "somewhere-else", 1);
  std::filesystem::path directory;
  std::vector<pid_t> servers;
  {
    const PrivateSession session(oneOutput);
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
