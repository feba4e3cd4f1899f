// Tapped applications while the whole system is boosted: how loud each of them is, at any moment.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <numbers>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "instruments/Probe.h"
#include "tests/session/AppSession.h"

namespace orvelle::instruments {
namespace {

constexpr float systemVolume = 0.4F;

double linear(float cubic) {
  return static_cast<double>(cubic * cubic * cubic);
}

/// The tone as the user has set the system's volume.
double toneDbfsAt(float volume) {
  return toDecibels(static_cast<double>(loudAmplitude) * linear(volume));
}

enum class Step : std::uint8_t { boost, endBoost, tap, endTap };

struct Course {
  const char* what;
  std::vector<Step> steps;
};

void PrintTo(const Course& course, std::ostream* stream) {
  *stream << course.what;
}

class AppBeside : public testing::TestWithParam<Course> {};

// Would catch a raised output that is heard without the volume that the user knows, for however
// short a moment: of what is boosted, or of a tap.
TEST_P(AppBeside, TheBoostIsNeverLouder) {
  AppSession session({.standIns = {usbOutput()}});
  session.panel().setVolume("hw_usb", systemVolume);
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(toneHz, loudAmplitude), {});
  const double level = toneDbfsAt(systemVolume);
  EXPECT_NEAR(levelNow(recorder, toneHz), level, levelToleranceDb);
  recorder.forget();
  std::unique_ptr<Subprocess> boost;
  std::unique_ptr<Subprocess> tap;
  for (const Step step : GetParam().steps) {
    SCOPED_TRACE(static_cast<int>(step));
    if (step == Step::boost) {
      boost = session.boost("1.0", {"--output", "hw_usb"});
    } else if (step == Step::endBoost) {
      BoostSession::interrupt(*boost);
    } else if (step == Step::tap) {
      tap = session.tapProbes("1.0");
    } else {
      AppSession::interruptTap(*tap);
    }
    EXPECT_NEAR(levelNow(recorder, toneHz), level, levelToleranceDb);
  }
  expectNeverAbove(level, recorder, GetParam().what);
  const Recording recording = recorder.take();
  report(std::string(GetParam().what) + ", longest gap",
         longestGapMs(recording.channel("FL"), recording.rate(), 1e-4F), "ms");
  session.expectVolume("hw_usb", systemVolume, false);
}

INSTANTIATE_TEST_SUITE_P(
    Courses, AppBeside,
    testing::Values(
        Course{"boost alone", {Step::boost, Step::endBoost}},
        Course{"tap within a boost", {Step::boost, Step::tap, Step::endTap, Step::endBoost}},
        Course{"boost within a tap", {Step::tap, Step::boost, Step::endBoost, Step::endTap}},
        Course{"tap outlives the boost", {Step::boost, Step::tap, Step::endBoost, Step::endTap}},
        Course{"boost outlives the tap", {Step::tap, Step::boost, Step::endTap, Step::endBoost}}));

// Would catch a tapped application that the system's volume and mute cannot reach.
TEST(AppAndBoost, ObeysTheSystemsVolume) {
  AppSession session({.standIns = {usbOutput()}});
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_usb", systemVolume);
  Recorder recorder("hw_usb");
  const Probe probe(sineSignal(toneHz, loudAmplitude), {});
  const auto boost = session.boost("2");
  const auto tap = session.tapProbes("1.0");
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(systemVolume), levelToleranceDb);
  panel.setVolume(loopbackName, 0.2F);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.2F), levelToleranceDb);
  panel.setMute(loopbackName, true);
  std::this_thread::sleep_for(milliseconds(100));
  recorder.forget();
  ASSERT_TRUE(recorder.waitFor(milliseconds(200)));
  EXPECT_EQ(peak(recorder.take().channel("FL")), 0.0F);
  panel.setMute(loopbackName, false);
  panel.setVolume(loopbackName, 0.6F);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.6F), levelToleranceDb);
  AppSession::interruptTap(*tap);
  BoostSession::interrupt(*boost);
}

// Would catch a tap that goes by the default output and not by what is raised: the output that it
// plays to becomes the boost's, and ceases to be.
TEST(AppAndBoost, TheBoostComesToTheTapsOutput) {
  AppSession session({.standIns = {usbOutput(), speaker()}});
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_usb", systemVolume);
  panel.setVolume("hw_speaker", 0.5F);
  Recorder recorder("hw_speaker");
  const Probe probe(sineSignal(toneHz, loudAmplitude), {});
  const auto tap = session.tapProbes("1.0", {"--output", "hw_speaker"});
  const auto boost = session.boost("1.0", {"--output", "hw_usb"});
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.5F), levelToleranceDb);
  const auto choose = [&](const std::string& output) {
    panel.configureSink(output);
    EXPECT_TRUE(SessionClient::waitFor(
        [&] { return std::abs(panel.volume(output).cubic() - 1.0F) < 1e-4F; }, patience));
    return levelNow(recorder, toneHz);
  };
  EXPECT_NEAR(choose("hw_speaker"), toneDbfsAt(systemVolume), levelToleranceDb);
  EXPECT_NEAR(choose("hw_usb"), toneDbfsAt(0.5F), levelToleranceDb);
  BoostSession::interrupt(*boost);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.5F), levelToleranceDb);
  AppSession::interruptTap(*tap);
  expectNeverAbove(toneDbfsAt(0.5F), recorder, "the tap's output");
}

/// Amplitude of the fundamental of tanh(volume · sine).
double fundamental(double amplitude, double volume) {
  constexpr std::size_t steps = 4800;
  double sum = 0.0;
  for (std::size_t step = 0; step < steps; ++step) {
    const double sine = std::sin(2.0 * std::numbers::pi * static_cast<double>(step) / steps);
    sum += std::tanh(volume * amplitude * sine) * sine;
  }
  return 2.0 * sum / steps;
}

// Would catch feedback, drop-outs, an application that is boosted and tapped at once, and a level
// that drifts. ORVELLE_TEST_SECONDS makes it last longer.
TEST(AppAndBoost, BoostAndTwoTapsTogether) {
  const int seconds = numberFrom("ORVELLE_TEST_SECONDS", 8);
  constexpr float volume = 0.3F;
  const auto frames = static_cast<std::size_t>(seconds + 5) * 48000;
  AppSession session({.standIns = {usbOutput()}});
  session.panel().setVolume("hw_usb", volume);
  const auto quiet = session.startPlayer("pw-play", stereoSine(440.0, 0.25F, 0.25F, frames));
  const auto loud = session.startPlayer("paplay", stereoSine(1000.0, 0.25F, 0.25F, frames));
  const Probe untapped(sineSignal(3100.0, 0.1F), {});
  const auto boost = session.boost("2");
  const auto quietTap = session.tap(quiet->pid(), "0.5");
  const auto loudTap = session.tap(loud->pid(), "2");
  std::this_thread::sleep_for(milliseconds(500));
  Recorder recorder("hw_usb", std::chrono::seconds(seconds + 5));
  recorder.forget();  // its first cycles, in which it was not linked yet
  const std::map<std::string, pid_t> programs = {
      {"boost", boost->pid()}, {"quiet tap", quietTap->pid()}, {"loud tap", loudTap->pid()}};
  std::map<std::string, double> cpuBefore;
  for (const auto& [name, pid] : programs) {
    cpuBefore[name] = usageOf(pid).cpuSeconds;
  }
  ASSERT_TRUE(recorder.waitFor(std::chrono::seconds(seconds)));
  for (const auto& [name, pid] : programs) {
    report("CPU of the " + name, 100.0 * (usageOf(pid).cpuSeconds - cpuBefore[name]) / seconds,
           "% of a core");
  }

  const Recording recording = recorder.take();
  struct Voice {
    const char* name;
    double frequency;
    double amplitude;
    double worstDb = 0.0;
  };
  std::array voices = {Voice{"tapped at 0.5", 440.0, fundamental(0.25, 0.5)},
                       Voice{"tapped at 2", 1000.0, fundamental(0.25, 2.0)},
                       Voice{"untapped, boosted", 3100.0, 0.2}};
  // Whole periods of each, so that they do not disturb each other's fit.
  constexpr std::size_t window = 9600;
  for (std::size_t begin = 0; begin + window <= recording.frames(); begin += window) {
    for (Voice& voice : voices) {
      const SineFit fit =
          fitSine(recording.channel("FL").subspan(begin, window), voice.frequency, 48000.0);
      const double miss = fit.levelDbfs() - toDecibels(voice.amplitude * linear(volume));
      voice.worstDb = std::abs(miss) > std::abs(voice.worstDb) ? miss : voice.worstDb;
    }
  }
  for (const Voice& voice : voices) {
    report(std::string(voice.name) + ", furthest from its level", voice.worstDb, "dB");
    EXPECT_NEAR(voice.worstDb, 0.0, levelToleranceDb) << voice.name;
  }
  const double together = (std::tanh(0.125) + std::tanh(0.5) + 0.2) * linear(volume);
  const double loudest = static_cast<double>(peak(recording.channel("FL")));
  report("loudest sample against the sum of all", loudest / together, "");
  EXPECT_LE(loudest, together * 1.001);
  report("cycles missed", static_cast<double>(recording.gaps().size()), "");
  EXPECT_TRUE(recording.gaps().empty());
  AppSession::interruptTap(*quietTap);
  AppSession::interruptTap(*loudTap);
  BoostSession::interrupt(*boost);
}

}  // namespace
}  // namespace orvelle::instruments
