// Loudness is safety: what the real program does to mutes and volumes, and what is heard of it,
// when others meddle.
#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

Signal tone() {
  return sineSignal(toneHz, loudAmplitude);
}

/// What an output at this volume (as mixers show it) makes of the tone.
double toneDbfsAt(float volume) {
  return toDecibels(static_cast<double>(loudAmplitude * volume * volume * volume));
}

const SessionOptions twoOutputs{.standIns = {usbOutput(), speaker()}};

/// Boosts into a muted output.
void expectMuteTravels(const std::string& output, float volume,
                       const std::vector<std::string>& words) {
  BoostSession session(twoOutputs);
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_usb", 0.4F);
  panel.setVolume("hw_speaker", 0.6F);
  panel.setMute(output, true);
  Recorder recorder(output);
  const Probe probe(tone(), {});
  const auto boost = session.boost("1.0", words);
  ASSERT_TRUE(recorder.waitFor(milliseconds(500)));
  EXPECT_EQ(peak(recorder.take().channel("FL")), 0.0F) << "heard although muted";
  session.expectVolume(loopbackName, 0.4F, true);
  session.expectVolume(output, 1.0F, false);

  panel.setMute(loopbackName, false);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);
  BoostSession::interrupt(*boost);
  EXPECT_TRUE(panel.waitForDefault("hw_usb", patience));
  session.expectVolume(output, volume, true);
  expectNeverAbove(toneDbfsAt(0.4F), recorder, output);
  recorder.forget();
  ASSERT_TRUE(recorder.waitFor(milliseconds(200)));
  EXPECT_EQ(peak(recorder.take().channel("FL")), 0.0F) << "heard after the end";
}

// Would catch a boost that unmutes what the user has silenced, a mute that the system's control
// cannot reach, and one that is lost at the end.
TEST(BoostSafety, MuteOfTheDefaultTravels) {
  expectMuteTravels("hw_usb", 0.4F, {});
}

// Would catch a muted output that is unmuted because the default is not muted.
TEST(BoostSafety, MuteOfAnotherOutputTravels) {
  expectMuteTravels("hw_speaker", 0.6F, {"--output", "hw_speaker"});
}

struct MeterLine {
  int callbacks = 0;
  double peak = 0.0;
};

std::vector<MeterLine> meterLines(const Subprocess& boost) {
  std::vector<MeterLine> meter;
  for (const OutputLine& line : boost.lines()) {
    std::istringstream words(line.text);
    std::string in;
    std::string unit;
    std::string label;
    MeterLine figures;
    if (words >> in >> figures.callbacks >> unit >> label >> figures.peak && unit == "cb/s") {
      meter.push_back(figures);
    }
  }
  return meter;
}

// Would catch a graph that falls asleep in silence, which leaves the meter at the last loud peak.
TEST(BoostSafety, TheMeterFallsInSilence) {
  BoostSession session(twoOutputs);  // no recorder: it would keep the output awake
  const auto boost = session.boost("1.0");
  const auto waitForLines = [&](std::size_t count) {
    return SessionClient::waitFor([&] { return meterLines(*boost).size() >= count; }, patience);
  };
  {
    const Probe probe(tone(), {});
    ASSERT_TRUE(waitForLines(1));
  }
  const std::size_t sounding = meterLines(*boost).size();
  ASSERT_TRUE(waitForLines(sounding + 3));
  const std::vector<MeterLine> meter = meterLines(*boost);
  EXPECT_NEAR(meter.front().peak, static_cast<double>(loudAmplitude), 0.001);
  // The line after the sound holds its end.
  for (std::size_t line = sounding + 1; line < sounding + 3; ++line) {
    EXPECT_GT(meter[line].callbacks, 40) << line;
    EXPECT_EQ(meter[line].peak, 0.0) << line;
  }
  report("callbacks in silence", meter.back().callbacks, "a second");
  BoostSession::interrupt(*boost);
}

/// Removes a node as a session tool does at the user's command.
void destroyNode(const SessionClient& session, const std::string& name) {
  const auto node = session.node(name);
  ASSERT_TRUE(node.has_value()) << name;
  const SessionClient::Lock lock(session);
  pw_registry_destroy(session.registry(), node->id);
}

// Would catch an output that stays raised while applications play straight into it, and a boost
// that does not find its way back or comes back at another level.
TEST(BoostSafety, OutlivesItsLoopback) {
  BoostSession session(twoOutputs);
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_usb", 0.4F);
  Recorder recorder("hw_usb");
  const Probe probe(tone(), {});
  const auto boost = session.boost("1.0");
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);

  recorder.forget();
  const std::size_t changes = panel.defaultChanges().size();
  destroyNode(panel.session(), loopbackName);
  EXPECT_TRUE(SessionClient::waitFor(
      [&] {
        return panel.defaultChanges().size() > changes && panel.defaultSink() == loopbackName;
      },
      patience))
      << panel.defaultSink();
  ASSERT_TRUE(recorder.waitFor(milliseconds(500)));
  ASSERT_FALSE(boost->wait(milliseconds(0)).has_value()) << boost->standardError();
  session.expectVolume("hw_usb", 1.0F, false);
  session.expectVolume(loopbackName, 0.4F, false);
  const double after = levelNow(recorder, toneHz);
  const Recording recording = recorder.take();
  const Excess excess = excessOver(toneDbfsAt(0.4F), recording);
  report("level after", after, "dBFS");
  report("louder than before by", excess.decibels, "dB");
  report("louder than before for", excess.milliseconds, "ms");
  report("longest gap", longestGapMs(recording.channel("FL"), recording.rate(), 1e-4F), "ms");
  EXPECT_NEAR(after, toneDbfsAt(0.4F), levelToleranceDb);
  EXPECT_LE(excess.milliseconds, 50.0) << "by " << excess.decibels << " dB";

  recorder.forget();
  BoostSession::interrupt(*boost);
  EXPECT_TRUE(panel.waitForDefault("hw_usb", patience));
  session.expectVolume("hw_usb", 0.4F, false);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);
  expectNeverAbove(toneDbfsAt(0.4F), recorder, "the end");
}

// Would catch two boosts that add up, one that feeds back, and a refusal that takes the default
// away from the one that runs: applications would play straight into its raised output.
TEST(BoostSafety, ASecondBoostIsRefused) {
  BoostSession session(twoOutputs);
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_usb", 0.4F);
  panel.setVolume("hw_speaker", 0.5F);
  Recorder recorder("hw_usb");
  const Probe probe(tone(), {});
  const auto first = session.boost("1.0");
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);
  const std::vector<std::string> words = {"boost", "--input", loopbackName, "--gain", "1.0"};
  for (const std::string output : {"hw_usb", "hw_speaker", ""}) {
    SCOPED_TRACE(output.empty() ? "the default" : output);
    std::vector<std::string> furtherWords = words;
    if (!output.empty()) {
      furtherWords.insert(furtherWords.end(), {"--output", output});
    }
    const auto other = session.run(furtherWords);
    EXPECT_EQ(other->wait(patience), 1) << other->standardOutput();
    EXPECT_EQ(other->standardError(), "Orvelle is boosting already (process " +
                                          std::to_string(first->pid()) +
                                          "). Stop that one first.\n");
    ASSERT_TRUE(recorder.waitFor(milliseconds(300)));
    EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);
    EXPECT_EQ(panel.defaultSink(), loopbackName);
    session.expectVolume("hw_usb", 1.0F, false);
    session.expectVolume("hw_speaker", 0.5F, false);
    session.expectVolume(loopbackName, 0.4F, false);
  }
  BoostSession::interrupt(*first);
  EXPECT_TRUE(panel.waitForDefault("hw_usb", patience));
  session.expectVolume("hw_usb", 0.4F, false);
  EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(0.4F), levelToleranceDb);
  expectNeverAbove(toneDbfsAt(0.4F), recorder, "hw_usb");
}

}  // namespace
}  // namespace orvelle::instruments
