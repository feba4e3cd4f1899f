// The equaliser's presets as they sound at the output of a real session.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "orvelle/BoostEngine.h"
#include "orvelle/EQPreset.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "tests/RenderRig.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

constexpr std::size_t second = 48000;  // frames: whole periods of every centre
constexpr float sineAmplitude = 0.01F;

double centreHz(std::size_t tone) {
  return static_cast<double>(Equalizer::centreFrequencies.at(tone));
}

/// All centre frequencies at once.
Signal centreTones() {
  std::vector<float> sum(second, 0.0F);
  for (std::size_t tone = 0; tone < Equalizer::bands; ++tone) {
    const Signal sine = sineSignal(centreHz(tone), sineAmplitude);
    for (std::uint64_t index = 0; index < second; ++index) {
      sum[index] += sine({index, index});
    }
  }
  return [sum = std::move(sum)](const PlayedFrame& frame) { return sum[frame.index % sum.size()]; };
}

using Levels = std::array<double, Equalizer::bands>;  // dBFS

/// Absent where anything but the tones sounds, as when a player has missed a cycle.
std::optional<Levels> levelsOf(Samples samples) {
  constexpr double clean = 1e-3;  // of the power; a missing cycle leaves ten times as much
  double power = 0.0;
  for (const float sample : samples) {
    power += static_cast<double>(sample * sample) / static_cast<double>(samples.size());
  }
  double rest = power;
  Levels levels{};
  for (std::size_t tone = 0; tone < levels.size(); ++tone) {
    const SineFit fit = fitSine(samples, centreHz(tone), static_cast<double>(second));
    rest -= fit.amplitude * fit.amplitude / 2.0;
    levels.at(tone) = fit.levelDbfs();
  }
  return std::abs(rest) < clean * power ? std::optional(levels) : std::nullopt;
}

/// On both channels.
std::array<Levels, 2> levelsNow(Recorder& recorder) {
  for (int attempt = 0; attempt < 6; ++attempt) {
    recorder.forget();
    if (!recorder.waitFor(milliseconds(1050))) {
      break;
    }
    const Recording recording = recorder.take();
    const auto left = levelsOf(recording.channel("FL").last(second));
    const auto right = levelsOf(recording.channel("FR").last(second));
    if (left && right) {
      return {*left, *right};
    }
  }
  throw std::runtime_error("no second with nothing but the tones");
}

// Would catch filters computed for another rate than they run at, a channel that passes them by,
// coefficients that do not reach a running callback, and a level that is off on the way there.
TEST(BoostPresets, SoundAsTheorySaysAtTheOutput) {
  BoostSession session({.standIns = {usbOutput()}});
  Recorder recorder("hw_usb");
  const Probe probe(centreTones(), {});
  ManualQueue queue;
  SystemClock clock;
  RecordingConsole console;
  std::string problem;
  const auto hardware = PipeWireHardware::connect(queue, problem);
  ASSERT_NE(hardware, nullptr) << problem;
  BoostEngine engine({*hardware, queue, clock, console});
  engine.equalizer.isEnabled = true;
  engine.start(loopbackName, "hw_usb");
  ASSERT_TRUE(session.panel().waitForDefault(loopbackName, patience));

  double worstDb = 0.0;
  for (const EQPreset preset : allEQPresets) {
    SCOPED_TRACE(rawValue(preset));
    engine.equalizer.setGains(gains(preset));
    ASSERT_TRUE(recorder.waitFor(milliseconds(200))) << "for the filters to settle";
    for (const Levels& levels : levelsNow(recorder)) {
      for (std::size_t tone = 0; tone < levels.size(); ++tone) {
        const double expected = toDecibels(static_cast<double>(sineAmplitude)) +
                                test::theoryDb(gains(preset), centreHz(tone));
        EXPECT_NEAR(levels.at(tone), expected, 0.1) << centreHz(tone) << " Hz";
        worstDb = std::max(worstDb, std::abs(levels.at(tone) - expected));
      }
    }
  }
  report("worst deviation of a preset at a centre", worstDb, "dB");
  engine.stop(true);
}

}  // namespace
}  // namespace orvelle::instruments
