// The controller on a real session: what is heard while it is switched on, follows a device, falls
// asleep, wakes and is switched off, and what it costs.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "instruments/HotPlug.h"
#include "instruments/Probe.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

constexpr double toneHz = 1000.0;
constexpr float toneAmplitude = 0.1F;
constexpr float volume = 0.5F;
constexpr milliseconds fallsAsleepWithin{14000};

double toneDbfs(float gain) {
  return toDecibels(static_cast<double>(toneAmplitude * gain * volume * volume * volume));
}

class ControllerSession : public BoostSession {
 public:
  ControllerSession() : BoostSession({.standIns = {speaker(), bluetoothHeadphones()}}) {
    panel().setVolume("hw_speaker", volume);
    panel().setVolume("hw_bluetooth", volume);
    plugs.unplug("hw_bluetooth");
    const auto pipe = session().directory() / "commands";
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    program = std::make_unique<Subprocess>(
        std::vector<std::string>{"sh", "-c", "exec \"$1\" \"$2\" < \"$3\"", "sh",
                                 ORVELLE_CONTROLLER_PROGRAM,
                                 session().directory() / "settings.conf", pipe},
        session().environment());
    commands.open(pipe);
    EXPECT_TRUE(program->waitForLine("ready", patience));
  }

  void tell(const std::string& command) { commands << command << std::endl; }

  /// The first line of that text that comes after now.
  bool hears(const std::string& text, milliseconds limit = patience) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      const auto lines = program->lines();
      for (; heardLines < lines.size(); ++heardLines) {
        if (lines[heardLines].text == text) {
          ++heardLines;
          return true;
        }
      }
      std::this_thread::sleep_for(milliseconds(2));
    }
    return false;
  }

  HotPlug plugs;
  std::unique_ptr<Subprocess> program;
  std::ofstream commands;
  std::size_t heardLines = 0;
};

/// Voluntary context switches of all threads so far.
long wakeUps(pid_t process) {
  long count = 0;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream status(thread.path() / "status");
    std::string word;
    while (status >> word) {
      if (word == "voluntary_ctxt_switches:") {
        long switches = 0;
        status >> switches;
        count += switches;
      }
    }
  }
  return count;
}

void reportCost(const std::string& state, pid_t process) {
  constexpr int seconds = 4;
  const double cpu = usageOf(process).cpuSeconds;
  const long before = wakeUps(process);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  report(state + ", CPU", 100.0 * (usageOf(process).cpuSeconds - cpu) / seconds, "% of a core");
  report(state + ", wake-ups", static_cast<double>(wakeUps(process) - before) / seconds,
         "a second");
}

/// What the session says of a node: "running", "idle", "suspended".
std::string stateOf(BoostSession& session, const std::string& node) {
  Subprocess dump({"sh", "-c", "pw-dump | grep -e node.name -e '\"state\"' | tac"},
                  session.session().environment());
  dump.wait(patience);
  std::istringstream lines(dump.standardOutput());
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find("\"" + node + "\"") != std::string::npos) {
      while (std::getline(lines, line) && line.find("\"state\"") == std::string::npos) {
      }
      const std::size_t begin = line.find(": \"") + 3;
      return line.substr(begin, line.find('"', begin) - begin);
    }
  }
  return "absent";
}

// Would catch a boost that comes back from its sleep too late, at another level, on another device,
// or not at all; and a day after which the system is not as it was.
TEST(ControllerOnASession, LivesThroughADay) {
  ControllerSession day;
  const auto before = day.inventory();
  auto builtIn = std::make_unique<Recorder>("hw_speaker", std::chrono::seconds(60));
  auto tone = std::make_unique<Probe>(sineSignal(toneHz, toneAmplitude), ProbeOptions{});
  day.tell("standby 1");
  day.tell("toggle");
  ASSERT_TRUE(day.hears("on"));
  ASSERT_TRUE(builtIn->waitFor(milliseconds(500)));
  EXPECT_NEAR(levelNow(*builtIn, toneHz), toneDbfs(2.0F), levelToleranceDb);
  day.tell("boost 4");
  ASSERT_TRUE(builtIn->waitFor(milliseconds(500)));
  EXPECT_NEAR(levelNow(*builtIn, toneHz), toneDbfs(4.0F), levelToleranceDb);

  day.plugs.plug(bluetoothHeadphones());
  ASSERT_TRUE(day.hears("device Headphones"));
  auto headphones = std::make_unique<Recorder>("hw_bluetooth");
  ASSERT_TRUE(headphones->waitFor(milliseconds(1000)));
  EXPECT_NEAR(levelNow(*headphones, toneHz), toneDbfs(4.0F), levelToleranceDb);
  headphones.reset();
  day.plugs.unplug("hw_bluetooth");
  ASSERT_TRUE(day.hears("device Speaker"));

  for (int sleep = 0; sleep < 2; ++sleep) {
    tone.reset();
    ASSERT_TRUE(day.hears("asleep", fallsAsleepWithin));
    EXPECT_EQ(day.panel().defaultSink(), loopbackName);
    day.expectVolume("hw_speaker", volume, false);
    std::this_thread::sleep_for(milliseconds(700 + 130 * sleep));
    builtIn->forget();
    tone = std::make_unique<Probe>(sineSignal(toneHz, toneAmplitude), ProbeOptions{});
    while (tone->frames() == 0) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    const std::int64_t firstSampleNs = monotonicNanoseconds();
    ASSERT_TRUE(day.hears("on"));
    ASSERT_TRUE(builtIn->waitFor(milliseconds(1500)));
    const double sound = millisecondsToSound(builtIn->take(), firstSampleNs, 1e-4F);
    report("wake-up to sound", sound, "ms");
    EXPECT_LT(sound, 500.0);
    EXPECT_NEAR(levelNow(*builtIn, toneHz), toneDbfs(4.0F), levelToleranceDb);
  }
  builtIn->forget();
  day.tell("toggle");
  ASSERT_TRUE(day.hears("off"));
  ASSERT_TRUE(builtIn->waitFor(milliseconds(500)));
  EXPECT_NEAR(levelNow(*builtIn, toneHz), toneDbfs(1.0F), levelToleranceDb);
  tone.reset();
  builtIn.reset();
  EXPECT_EQ(day.panel().defaultSink(), "hw_speaker");
  day.expectVolume("hw_speaker", volume, false);
  day.tell("quit");
  EXPECT_EQ(day.program->wait(patience), 0);
  EXPECT_TRUE(day.returnsTo(before));
}

// Would catch a sleep in which the device stays awake, and work that nobody needs.
TEST(ControllerOnASession, LetsTheDeviceSleep) {
  ControllerSession night;
  const pid_t process = night.program->pid();
  reportCost("off", process);
  night.tell("standby 1");
  night.tell("toggle");
  ASSERT_TRUE(night.hears("on"));
  EXPECT_EQ(stateOf(night, "hw_speaker"), "running");
  reportCost("on, panel closed", process);
  ASSERT_TRUE(night.hears("asleep", fallsAsleepWithin));
  for (int second = 0; second < 8 && stateOf(night, "hw_speaker") != "suspended"; ++second) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  EXPECT_EQ(stateOf(night, "hw_speaker"), "suspended");
  reportCost("standby", process);
  night.tell("drag");
  ASSERT_TRUE(night.program->waitForLine("step ", patience));
  const double step = std::stod(night.program->waitForLine("step ", patience)->text.substr(5));
  report("one step of the slider", step, "ms at the median");
  EXPECT_LT(step, 2.0);
  night.tell("quit");
  EXPECT_EQ(night.program->wait(patience), 0);
}

}  // namespace
}  // namespace orvelle::instruments
