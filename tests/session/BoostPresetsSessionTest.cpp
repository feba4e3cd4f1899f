// The equaliser's presets as they sound at the output of a real session.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
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
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

constexpr double rateHz = 48000.0;
constexpr std::size_t fittedFrames = 24000;
constexpr float toneAmplitude = 0.01F;

using Curve = std::array<float, Equalizer::bands>;
using Levels = std::array<double, Equalizer::bands>;

double centreHz(std::size_t tone) {
  return static_cast<double>(Equalizer::centreFrequencies.at(tone));
}

/// All centre frequencies at once. They have whole periods in a second, which is all that is kept.
Signal centreTones() {
  std::vector<float> second(static_cast<std::size_t>(rateHz), 0.0F);
  for (std::size_t tone = 0; tone < Equalizer::bands; ++tone) {
    const Signal sine = sineSignal(centreHz(tone), toneAmplitude, rateHz);
    for (std::uint64_t index = 0; index < second.size(); ++index) {
      second[index] += sine({index, index});
    }
  }
  return [second = std::move(second)](const PlayedFrame& frame) {
    return second[frame.index % second.size()];
  };
}

void add(std::vector<float>& samples, const SineFit& fit, double frequency, double sign) {
  for (std::size_t frame = 0; frame < samples.size(); ++frame) {
    const double turns = frequency * static_cast<double>(frame) / rateHz;
    const double value =
        fit.offset + fit.amplitude * std::sin(2.0 * std::numbers::pi * turns + fit.phase);
    samples[frame] += static_cast<float>(sign * value);
  }
}

struct TonesFit {
  Levels levelsDbfs{};
  double residualPeak = 0.0;
};

/// Each tone from what the others leave over, more than once: in so short a stretch not all of them
/// have whole periods.
TonesFit fitTones(Samples samples) {
  constexpr int passes = 3;
  std::vector<float> rest(samples.begin(), samples.end());
  std::array<SineFit, Equalizer::bands> fits{};
  for (int pass = 0; pass < passes; ++pass) {
    for (std::size_t tone = 0; tone < fits.size(); ++tone) {
      add(rest, fits.at(tone), centreHz(tone), 1.0);
      fits.at(tone) = fitSine(rest, centreHz(tone), rateHz);
      add(rest, fits.at(tone), centreHz(tone), -1.0);
    }
  }
  TonesFit result{{}, fits.back().residualPeak};
  std::ranges::transform(fits, result.levelsDbfs.begin(), &SineFit::levelDbfs);
  return result;
}

/// The levels of the tones on both channels, over half a second in which the player missed no
/// cycle.
std::array<Levels, 2> levelsNow(Recorder& recorder) {
  constexpr int attempts = 6;
  constexpr double clean = 2e-4;  // a missing cycle leaves hundreds of times as much
  for (int attempt = 0; attempt < attempts; ++attempt) {
    recorder.forget();
    if (!recorder.waitFor(milliseconds(550))) {
      break;
    }
    const Recording recording = recorder.take();
    const TonesFit left = fitTones(recording.channel("FL").last(fittedFrames));
    const TonesFit right = fitTones(recording.channel("FR").last(fittedFrames));
    if (std::max(left.residualPeak, right.residualPeak) < clean) {
      return {left.levelsDbfs, right.levelsDbfs};
    }
  }
  throw std::runtime_error("no half second with nothing but the tones");
}

/// Ten analogue peaking filters with Q = 1 in series, their frequency axes bent as the bilinear
/// transform bends them.
double theoryDb(const Curve& gainsDb, double frequencyHz) {
  const auto bent = [](double hertz) { return std::tan(std::numbers::pi * hertz / rateHz); };
  double response = 0.0;
  for (std::size_t band = 0; band < gainsDb.size(); ++band) {
    const double relative = std::pow(bent(frequencyHz) / bent(centreHz(band)), 2.0);
    const double boost = std::pow(10.0, static_cast<double>(gainsDb.at(band)) / 20.0);
    const double reactance = std::pow(1.0 - relative, 2.0);
    response += 10.0 * std::log10((reactance + relative * boost) / (reactance + relative / boost));
  }
  return response;
}

// Would catch filters computed for another rate than they run at, a channel that passes them by,
// coefficients that do not reach a running callback, and a level that is off on the way there.
TEST(BoostPresets, SoundAsTheorySaysAtTheOutput) {
  BoostSession session({.standIns = {usbOutput()}});
  Recorder recorder("hw_usb");
  const Probe probe(centreTones(), {});
  const std::array<Levels, 2> direct = levelsNow(recorder);

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
    const std::array<Levels, 2> boosted = levelsNow(recorder);
    for (std::size_t tone = 0; tone < Equalizer::bands; ++tone) {
      const double expected = theoryDb(gains(preset), centreHz(tone));
      for (const std::size_t channel : {0U, 1U}) {
        const double measured = boosted.at(channel).at(tone) - direct.at(channel).at(tone);
        EXPECT_NEAR(measured, expected, 0.1) << centreHz(tone) << " Hz, channel " << channel;
        worstDb = std::max(worstDb, std::abs(measured - expected));
      }
    }
  }
  report("worst deviation of a preset at a centre", worstDb, "dB");
  engine.stop(true);
}

}  // namespace
}  // namespace orvelle::instruments
