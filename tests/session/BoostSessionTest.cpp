// The sound of the real program on a real session: played by real clients, recorded at the output.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <thread>
#include <utility>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/RenderRig.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

const SessionOptions oneOutput{.standIns = {usbOutput()}};

/// What the plain model of the signal chain makes of a file.
WaveFile modelOf(const WaveFile& wave, float gain) {
  std::vector<float> interleaved;
  for (std::size_t frame = 0; frame < wave.channels[0].size(); ++frame) {
    interleaved.push_back(wave.channels[0][frame]);
    interleaved.push_back(wave.channels[1][frame]);
  }
  test::ScalarModel model;
  model.gain = gain;
  const std::vector<float> output = test::play(model, interleaved, 2);
  WaveFile result{wave.rate, {{}, {}}};
  for (std::size_t sample = 0; sample < output.size(); ++sample) {
    result.channels[sample % 2].push_back(output[sample]);
  }
  return result;
}

/// Both channels, from the first sample that sounds on.
void expectSamples(const Recording& recording, const WaveFile& expected, const std::string& name) {
  for (const std::size_t channel : {0U, 1U}) {
    const Samples wanted = expected.channels[channel];
    const Difference difference =
        compare(wanted, fromOnset(recording.channel(channel == 0 ? "FL" : "FR"), wanted.size()));
    report(name + ", differing samples", static_cast<double>(difference.differing),
           "of " + std::to_string(wanted.size()));
    EXPECT_EQ(difference.compared, wanted.size());
    EXPECT_EQ(difference.differing, 0U)
        << "from " << difference.first.value_or(0) << " by " << difference.largest;
  }
}

// Would catch a gain that is off, applied twice or to one channel, and anything that distorts on
// the way through the session.
TEST(BoostSound, RaisesTheLevelOfRealClients) {
  BoostSession session(oneOutput);
  Recorder recorder("hw_usb");
  for (const std::string player : {"pw-play", "paplay"}) {
    recorder.forget();
    session.play(player, stereoSine(997.0, 0.1F, 0.1F, 72000));
    const Recording direct = recorder.take();
    const auto boost = session.boost("2");
    recorder.forget();
    session.play(player, stereoSine(997.0, 0.1F, 0.1F, 72000));
    const Recording boosted = recorder.take();
    for (const std::string channel : {"FL", "FR"}) {
      const Samples before = settled(direct, channel);
      const Samples after = settled(boosted, channel);
      const double rise = fitSine(after, 997.0, boosted.rate()).levelDbfs() -
                          fitSine(before, 997.0, direct.rate()).levelDbfs();
      const double other = strongestOtherLine(after, 997.0, boosted.rate()).levelDbfs;
      report(player + " " + channel + " raised by", rise, "dB");
      report(player + " " + channel + " strongest other line", other, "dBFS");
      EXPECT_NEAR(rise, 6.0206, 0.05);
      EXPECT_LT(other, -90.0);
    }
    BoostSession::interrupt(*boost);
  }
}

// Would catch any change of a sample at neutral gain: a conversion, a volume, a lost frame.
TEST(BoostSound, NeutralGainIsTransparent) {
  BoostSession session(oneOutput);
  Recorder recorder("hw_usb");
  const WaveFile noise = stereoNoise();
  for (const bool isBoosted : {false, true}) {
    const auto boost = isBoosted ? session.boost("1.0") : nullptr;
    recorder.forget();
    session.play("pw-play", noise);
    expectSamples(recorder.take(), noise, isBoosted ? "boosted" : "direct");
  }
}

// Would catch a limiter that runs at another rate or order in the session than in the model.
TEST(BoostSound, LimitsAsTheModelDoes) {
  BoostSession session(oneOutput);
  Recorder recorder("hw_usb");
  {
    const auto boost = session.boost("4");
    recorder.forget();
    const Probe probe(constantSignal(0.5F), {});
    ASSERT_TRUE(recorder.waitFor(milliseconds(700)));
    const Recording recording = recorder.take();
    const float settledAt = recording.channel("FL").back();
    report("constant 0.5 at gain 4 settles at", static_cast<double>(settledAt), "");
    EXPECT_NEAR(settledAt, 0.98F, 0.001F);
  }
  WaveFile sine = stereoSine(997.0, 1.0F, -1.0F, 48000);
  for (std::vector<float>& channel : sine.channels) {
    channel.erase(channel.begin());  // begins with a sound, for the alignment
  }
  const WaveFile expected = modelOf(sine, 8.0F);
  const auto boost = session.boost("8");
  recorder.forget();
  session.play("pw-play", sine);
  expectSamples(recorder.take(), expected, "full scale at gain 8");
}

// Would catch a buffer of ours, or of the session's because of us, in the path, and instruments
// that could not tell.
TEST(BoostSound, AddsNoLatency) {
  BoostSession session(oneOutput);
  for (const int quantum : {64, 256, 1024}) {
    session.panel().forceQuantum(quantum);
    Recorder recorder("hw_usb");
    const Probe probe(positionSignal(), {});
    ASSERT_TRUE(recorder.waitFor(milliseconds(400)));
    const Delay direct = measureDelay(recorder.take(), "FL");
    // The monitor of the output that drives the graph is heard in the cycle after.
    EXPECT_EQ(direct.frames, static_cast<std::uint64_t>(quantum)) << "of the instruments";
    EXPECT_GT(direct.share, 0.9) << "more than a busy machine explains";
    const auto boost = session.boost("2");
    std::this_thread::sleep_for(milliseconds(100));
    recorder.forget();
    ASSERT_TRUE(recorder.waitFor(milliseconds(400)));
    const Delay boosted = measureDelay(recorder.take(), "FL", 2.0F);
    const auto added = static_cast<double>(boosted.frames) - static_cast<double>(direct.frames);
    report("added latency at quantum " + std::to_string(quantum), added, "frames");
    EXPECT_EQ(added, 0.0);
    EXPECT_GT(boosted.share, 0.9);
    BoostSession::interrupt(*boost);
    ASSERT_TRUE(session.panel().waitForDefault("hw_usb", patience));
  }
}

struct Layout {
  int rate;
  std::vector<std::string> positions;
};

void PrintTo(const Layout& layout, std::ostream* stream) {
  *stream << layout.positions.size() << " channels at " << layout.rate << " Hz";
}

class BoostLayout : public testing::TestWithParam<Layout> {};

// Would catch upmixing, swapped or silent channels, and a wrong level on outputs or in sessions
// that are not stereo at 48 kHz.
TEST_P(BoostLayout, FeedsTheFrontPairAtTheRightLevel) {
  const auto& [rate, positions] = GetParam();
  StandIn output = usbOutput();
  output.positions = positions;
  output.rate = rate;
  BoostSession session({.standIns = {output}, .clockRate = rate});
  Recorder recorder("hw_usb");
  const auto boost = session.boost("2");
  recorder.forget();
  session.play("pw-play", stereoSine(997.0, 0.1F, 0.05F));
  const Recording recording = recorder.take();
  EXPECT_EQ(recording.rate(), rate);
  EXPECT_TRUE(recording.gaps().empty());
  const std::map<std::string, double> expected = {{"FL", 0.2}, {"FR", 0.1}, {"MONO", 0.15}};
  for (const std::string& channel : positions) {
    const auto level = expected.find(channel);
    if (level == expected.end()) {
      EXPECT_EQ(peak(recording.channel(channel)), 0.0F) << channel;
      continue;
    }
    const double measured =
        fitSine(settled(recording, channel), 997.0, recording.rate()).levelDbfs();
    report(channel + " at", measured, "dBFS");
    EXPECT_NEAR(measured, toDecibels(level->second), 0.1) << channel;
  }
}

const std::vector<std::string> mono = {"MONO"};
const std::vector<std::string> stereo = {"FL", "FR"};
const std::vector<std::string> surround = {"FL", "FR", "FC", "LFE", "SL", "SR"};

INSTANTIATE_TEST_SUITE_P(Outputs, BoostLayout,
                         testing::Values(Layout{44100, stereo}, Layout{48000, mono},
                                         Layout{48000, surround}, Layout{96000, stereo},
                                         Layout{44100, surround}, Layout{96000, mono}));

/// The recording in pieces of one cycle length each. Newer servers start every node anew where a
/// cycle length is forced, and sound is back in the second or third cycle then, boosted or not: the
/// pieces begin behind that.
std::vector<std::pair<std::uint32_t, Samples>> piecesOfOneCycleLength(const Recording& recording,
                                                                      Samples samples) {
  constexpr std::size_t cyclesOfARestart = 2;
  const std::vector<Cycle>& cycles = recording.cycles;
  std::vector<std::pair<std::uint32_t, Samples>> pieces;
  std::size_t begin = 0;
  for (std::size_t end = 1; end <= cycles.size(); ++end) {
    if (end < cycles.size() && cycles[end].duration == cycles[begin].duration) {
      continue;
    }
    const bool isRestart = begin > 0 && cycles[begin].position !=
                                            cycles[begin - 1].position + cycles[begin - 1].duration;
    const std::size_t first = begin + (isRestart ? cyclesOfARestart : 0);
    if (first < end) {
      const std::size_t frame = cycles[first].firstFrame;
      pieces.emplace_back(
          cycles[begin].duration,
          samples.subspan(frame, cycles[end - 1].firstFrame + cycles[end - 1].frames - frame));
    }
    begin = end;
  }
  return pieces;
}

// Would catch a callback that depends on its first cycle length.
TEST(BoostSound, SurvivesChangesOfTheQuantum) {
  BoostSession session(oneOutput);
  Recorder recorder("hw_usb");
  const auto boost = session.boost("2");
  const Probe probe(sineSignal(997.0, 0.1F), {});
  std::this_thread::sleep_for(milliseconds(300));
  recorder.forget();
  ASSERT_TRUE(recorder.waitFor(milliseconds(100)));
  for (const int quantum : {256, 2048, 128, 8192, 1024}) {
    session.panel().forceQuantum(quantum);
    std::this_thread::sleep_for(milliseconds(600));
  }
  const Recording recording = recorder.take();
  std::set<std::uint32_t> seen;
  for (const auto& [quantum, samples] :
       piecesOfOneCycleLength(recording, recording.channel("FL"))) {
    const double gap = longestGapMs(samples, recording.rate(), 1e-4F);
    const double level = fitSine(samples, 997.0, recording.rate()).levelDbfs();
    report("longest gap at " + std::to_string(quantum), gap, "ms");
    report("level at " + std::to_string(quantum), level, "dBFS");
    EXPECT_LT(gap, 1.0) << quantum;
    EXPECT_NEAR(level, toDecibels(0.2), 0.1) << quantum;
    seen.insert(quantum);
  }
  EXPECT_EQ(seen, (std::set<std::uint32_t>{128, 256, 1024, 2048, 8192}));
}

}  // namespace
}  // namespace orvelle::instruments
