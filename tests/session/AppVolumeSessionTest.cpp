// The sound of tapped applications: real clients, recorded at the outputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <set>
#include <thread>

#include "instruments/Probe.h"
#include "tests/RenderRig.h"
#include "tests/session/AppSession.h"

namespace orvelle::instruments {
namespace {

/// The default output, and one to send a tapped application to.
const SessionOptions twoOutputs{.standIns = {usbOutput(), speaker()}};

/// What a cycle that had begun, and the one behind it, may still bring.
constexpr std::int64_t lastCyclesNs = 100'000'000;

/// How far a recorded sine is from tanh(volume · sine) at the phase where it fits best.
std::int64_t ulpsFromModel(Samples recorded, Samples onePeriod, float volume) {
  std::vector<float> model;
  for (const float sample : onePeriod) {
    model.push_back(static_cast<float>(std::tanh(static_cast<double>(volume * sample))));
  }
  const auto worst = [&](std::size_t phase, std::size_t frames) {
    std::int64_t ulps = 0;
    for (std::size_t frame = 0; frame < frames; ++frame) {
      ulps = std::max(ulps,
                      test::unitsBetween(recorded[frame], model[(phase + frame) % model.size()]));
    }
    return ulps;
  };
  std::size_t best = 0;
  for (std::size_t phase = 1; phase < model.size(); ++phase) {
    if (worst(phase, model.size()) < worst(best, model.size())) {
      best = phase;
    }
  }
  return worst(best, recorded.size());
}

// Would catch a tap that leaks into the normal path, takes another application along, or touches
// its samples when it starts or stops; and a curve or volume that is off.
TEST(AppVolume, ChangesOneOfTwoPlayers) {
  // The right channel is the second player's alone: whatever happens, it is to be untouched.
  constexpr std::size_t period = 1200;  // of 440 Hz in whole frames
  const WaveFile first = stereoSine(440.0, 0.5F, 0.0F, 6 * 48000);
  WaveFile second = stereoSine(1000.0, 0.25F, 0.25F, 5 * 48000);
  for (std::vector<float>& channel : second.channels) {
    channel.erase(channel.begin());  // begins with a sound, for the alignment
  }
  AppSession session(twoOutputs);
  session.panel().forceQuantum(1024);  // the players would like cycles of 100 ms
  Recorder normalPath("hw_usb");
  Recorder tapped("hw_speaker");
  const auto other = session.startPlayer("pw-play", second);
  const auto player = session.startPlayer("pw-play", first);
  ASSERT_TRUE(normalPath.waitFor(milliseconds(500)));
  const auto tap = session.tap(player->pid(), "0.25", toSpeaker);
  const std::int64_t saysSo = monotonicNanoseconds();
  std::this_thread::sleep_for(milliseconds(1500));
  const std::int64_t pressed = monotonicNanoseconds();
  AppSession::interruptTap(*tap);
  ASSERT_EQ(other->wait(milliseconds(10'000)), 0);

  const Recording normal = normalPath.take();
  const Samples right = fromOnset(normal.channel("FR"), second.channels[1].size());
  const Difference difference = compare(right, second.channels[1]);
  report("other player, differing samples", static_cast<double>(difference.differing), "");
  EXPECT_EQ(difference.compared, second.channels[1].size());
  EXPECT_EQ(difference.differing, 0U)
      << "from " << difference.first.value_or(0) << " by " << difference.largest;

  const auto whileTapped = [&](const Recording& recording, std::string_view channel) {
    const std::size_t begin = recording.frameAt(saysSo + lastCyclesNs);
    return recording.channel(channel).subspan(begin, recording.frameAt(pressed) - begin);
  };
  const Difference leak = compare(whileTapped(normal, "FL"), whileTapped(normal, "FR"));
  report("tapped player on its normal path", static_cast<double>(leak.differing), "samples");
  EXPECT_GT(leak.compared, 48000U);
  EXPECT_EQ(leak.differing, 0U);

  const Recording changed = tapped.take();
  const std::int64_t ulps =
      ulpsFromModel(whileTapped(changed, "FL"), Samples(first.channels[0]).first(period), 0.25F);
  report("tanh(0.25 x) missed by", static_cast<double>(ulps), "ulp");
  EXPECT_LE(ulps, 2);
  EXPECT_EQ(peak(changed.channel("FR")), 0.0F) << "the other player is heard there";
  report("tap started to sound there", millisecondsToSound(changed, tap->startNs(), 1e-4F), "ms");
}

// Would catch any change of a sample at volume 1: a curve, a conversion, a lost frame.
TEST(AppVolume, NeutralVolumeIsTransparent) {
  const WaveFile noise = stereoNoise();
  WaveFile delayed = noise;
  for (std::vector<float>& channel : delayed.channels) {
    channel.insert(channel.begin(), 2 * 48000, 0.0F);  // time for the tap to begin
  }
  AppSession session(twoOutputs);
  Recorder tapped("hw_speaker");
  for (const std::string player : {"pw-play", "paplay"}) {
    SCOPED_TRACE(player);
    tapped.forget();
    const auto process = session.startPlayer(player, delayed);
    const auto tap = session.tap(process->pid(), "1.0", toSpeaker);
    ASSERT_EQ(process->wait(milliseconds(20'000)), 0);
    const Recording recording = tapped.take();
    for (const std::size_t channel : {0U, 1U}) {
      const Samples played = noise.channels[channel];
      const Difference difference =
          compare(played, fromOnset(recording.channel(channel == 0 ? "FL" : "FR"), played.size()));
      report(player + " at volume 1, differing samples", static_cast<double>(difference.differing),
             "of 48000");
      EXPECT_EQ(difference.compared, played.size());
      EXPECT_EQ(difference.differing, 0U)
          << "from " << difference.first.value_or(0) << " by " << difference.largest;
    }
    AppSession::interruptTap(*tap);
  }
}

// Would catch a buffer of ours, or of the session's because of us, in the path.
TEST(AppVolume, AddsNoLatency) {
  AppSession session(twoOutputs);
  for (const int quantum : {64, 256, 1024}) {
    session.panel().forceQuantum(quantum);
    for (const std::string output : {"hw_usb", "hw_speaker"}) {
      const Probe probe(positionSignal(), {.target = output});
      Recorder recorder(output);
      ASSERT_TRUE(recorder.waitFor(milliseconds(300)));
      const Delay direct = measureDelay(recorder.take(), "FL");
      const auto tap = session.tapProbes("1.0", {"--output", output});
      std::this_thread::sleep_for(milliseconds(100));
      recorder.forget();
      ASSERT_TRUE(recorder.waitFor(milliseconds(300)));
      const Delay tapped = measureDelay(recorder.take(), "FL");
      const auto added = static_cast<double>(tapped.frames) - static_cast<double>(direct.frames);
      report(output + ", added latency at quantum " + std::to_string(quantum), added, "frames");
      EXPECT_EQ(added, 0.0);
      EXPECT_GT(tapped.share, 0.9);
      AppSession::interruptTap(*tap);
    }
  }
}

// Would catch a stream that is heard at full volume before the tap has it: each song, each page of
// a browser, opens a new one. Beside programs that take all there is, how much is heard is told,
// and not promised.
TEST(AppVolume, CatchesNewStreamsBeforeTheySound) {
  AppSession session(twoOutputs);
  std::vector<std::unique_ptr<Subprocess>> busyLoops;
  for (const bool isBusy : {false, true}) {
    for (int loop = 0; isBusy && loop < 2; ++loop) {
      busyLoops.push_back(
          std::make_unique<Subprocess>(std::vector<std::string>{"sh", "-c", "while :; do :; done"},
                                       session.session().environment()));
    }
    const std::size_t count = isBusy ? 100 : 200;
    Recorder normalPath("hw_usb", std::chrono::seconds(60));
    Recorder tapped("hw_speaker", std::chrono::seconds(60));
    const Probe silent(constantSignal(0.0F), {.name = "silent"});
    const auto tap = session.tapProbes("0.5", toSpeaker);
    for (std::size_t stream = 1; stream <= count; ++stream) {
      // Each has a level of its own, by which it is recognised.
      const Probe probe(constantSignal(static_cast<float>(stream) / 1024.0F), {.name = "stream"});
      std::this_thread::sleep_for(milliseconds(25));
    }
    AppSession::interruptTap(*tap);
    const Recording normal = normalPath.take();
    const Samples leaked = normal.channel("FL");
    const auto leaks =
        static_cast<std::ptrdiff_t>(leaked.size()) - std::ranges::count(leaked, 0.0F);
    const Recording changed = tapped.take();
    const Samples sound = changed.channel("FL");
    const std::size_t heard = std::set(sound.begin(), sound.end()).size() - 1;  // without silence
    const std::string name =
        std::to_string(count) + " new streams" + (isBusy ? " beside two busy loops" : "");
    report(name + ", frames on the normal path", static_cast<double>(leaks), "");
    report(name + ", heard at the tap's output", static_cast<double>(heard), "");
    EXPECT_GT(heard, count * 9 / 10);
    EXPECT_TRUE(isBusy || (leaks == 0 && heard == count));
  }
}

}  // namespace
}  // namespace orvelle::instruments
