// The real program follows the devices of a session: outputs that are plugged in and pulled.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "instruments/HotPlug.h"
#include "instruments/Probe.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {
namespace {

/// What arrives at a raised output, with the loopback at `volume`.
double toneDbfsAt(float gain, float volume) {
  return toDecibels(static_cast<double>(quietAmplitude * gain * volume * volume * volume));
}

std::vector<std::string> switchesOf(const Subprocess& boost) {
  std::vector<std::string> switches;
  for (const OutputLine& line : boost.lines()) {
    if (line.text.starts_with("→ switched output to ")) {
      switches.push_back(line.text);
    }
  }
  return switches;
}

std::size_t aggregates(const DesktopPanel& panel) {
  return static_cast<std::size_t>(
      std::ranges::count_if(panel.session().nodes(), [](const SessionObject& node) {
        return node.property(PW_KEY_NODE_NAME).starts_with("app.orvelle.");
      }));
}

/// The sound moves from one output to another after an event.
void expectMove(const std::string& name, std::int64_t eventNs, const Recorder& from,
                const Recorder& to, double levelDbfs) {
  // Evaluations follow the event until two seconds later: none of them may break the sound.
  ASSERT_TRUE(to.waitFor(milliseconds(2300)));
  const Recording left = from.take();
  const Recording joined = to.take();
  const double sound = millisecondsToSound(joined, eventNs, 1e-4F);
  const double gap = handOverMs(left, joined);
  report(name + " to sound there", sound, "ms");
  report(name + ", gap", gap, "ms");
  EXPECT_LT(sound, 300.0);
  EXPECT_LT(gap, 100.0);
  const double later = longestGapMs(joined.channel("FL"), joined.rate(), 1e-4F);
  report(name + ", longest gap afterwards", later, "ms");
  EXPECT_LT(later, 30.0);
  EXPECT_NEAR(levelNow(to, toneHz), levelDbfs, levelToleranceDb);
  expectNeverAbove(levelDbfs, from, name + ", former output");
  expectNeverAbove(levelDbfs, to, name + ", new output");
}

// Would catch an output that is not followed, followed late, twice or at another level, and a
// volume that is not put back.
TEST(AutoFollow, GoesToHeadphonesAndBack) {
  BoostSession session({.standIns = {speaker(), bluetoothHeadphones()}});
  DesktopPanel& panel = session.panel();
  panel.setVolume("hw_speaker", 0.5F);
  panel.setVolume("hw_bluetooth", 0.6F);
  HotPlug plugs;
  Recorder builtIn("hw_speaker");
  Recorder headphones("hw_bluetooth");
  plugs.unplug("hw_bluetooth");
  ASSERT_TRUE(panel.waitForDefault("hw_speaker", patience));
  const Probe probe(sineSignal(toneHz, quietAmplitude), {});
  const auto boost = session.autoBoost("2");
  EXPECT_TRUE(boost->standardOutput().starts_with(
      "Auto-boost running at gain 2.0 (≈+6.0 dB).\n"
      "Output follows device changes. Current: Speaker [Built-in]\nCtrl-C to stop.\n"))
      << boost->standardOutput();
  const double level = toneDbfsAt(2.0F, 0.5F);
  EXPECT_NEAR(levelNow(builtIn, toneHz), level, levelToleranceDb);

  builtIn.forget();
  headphones.forget();
  ASSERT_TRUE(builtIn.waitFor(milliseconds(100)));
  plugs.plug(bluetoothHeadphones());
  const std::int64_t plugged = panel.session().node("hw_bluetooth")->appearedNs;
  expectMove("plugged in", plugged, builtIn, headphones, level);
  EXPECT_EQ(switchesOf(*boost),
            (std::vector<std::string>{"→ switched output to Headphones [Bluetooth]"}));
  session.expectVolume("hw_speaker", 0.5F, false);

  builtIn.forget();
  headphones.forget();
  ASSERT_TRUE(headphones.waitFor(milliseconds(100)));
  const std::int64_t unplugged = plugs.unplug("hw_bluetooth");
  expectMove("unplugged", unplugged, headphones, builtIn, level);
  EXPECT_EQ(switchesOf(*boost).size(), 2U);
  EXPECT_EQ(switchesOf(*boost).back(), "→ switched output to Speaker [Built-in]");
  EXPECT_EQ(aggregates(panel), 1U);
  BoostSession::interrupt(*boost);
  session.expectVolume("hw_speaker", 0.5F, false);
}

// Would catch whatever a change in the middle of another one breaks: a boost that rests, a second
// aggregate, an output that stays at full volume.
TEST(AutoFollow, OutlivesRandomPlugs) {
  constexpr unsigned seed = 7;
  const int events = numberFrom("ORVELLE_PLUGS", 60);
  constexpr milliseconds interval{100};
  const std::array<StandIn, 4> worstFirst = {speaker(), display(), usbOutput(),
                                             bluetoothHeadphones()};
  constexpr std::array volumes = {0.3F, 0.4F, 0.5F, 0.6F};
  BoostSession session({.standIns = {worstFirst.begin(), worstFirst.end()}});
  DesktopPanel& panel = session.panel();
  for (std::size_t index = 0; index < worstFirst.size(); ++index) {
    panel.setVolume(worstFirst.at(index).name, volumes.at(index));
  }
  HotPlug plugs;
  const Probe probe(sineSignal(toneHz, quietAmplitude), {});
  const auto boost = session.autoBoost("1.0");

  std::mt19937 random(seed);
  std::set<std::size_t> present = {0, 1, 2, 3};
  const auto start = std::chrono::steady_clock::now();
  for (int event = 0; event < events || present.empty(); ++event) {
    std::this_thread::sleep_until(start + event * interval + milliseconds(random() % 100));
    const std::size_t index = random() % worstFirst.size();
    if (present.erase(index) > 0) {
      plugs.unplug(worstFirst.at(index).name);
    } else {
      plugs.plug(worstFirst.at(index));
      present.insert(index);
    }
  }
  const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - start;
  report("random plugs of seed " + std::to_string(seed), events, "");
  report("lasted", lasted.count(), "s");
  ASSERT_FALSE(boost->wait(milliseconds(2300)).has_value()) << boost->standardError();

  EXPECT_EQ(aggregates(panel), 1U);
  EXPECT_EQ(panel.defaultSink(), loopbackName);
  for (const std::size_t index : present) {
    const Recorder recorder(worstFirst.at(index).name);
    if (index == *present.rbegin()) {
      // The loopback has the volume of the best one, the default before the start.
      EXPECT_NEAR(levelNow(recorder, toneHz), toneDbfsAt(1.0F, volumes.back()), levelToleranceDb);
    } else {
      ASSERT_TRUE(recorder.waitFor(milliseconds(100)));
      EXPECT_EQ(peak(recorder.take().channel("FL")), 0.0F) << worstFirst.at(index).name;
    }
  }
  report("switches told", static_cast<double>(switchesOf(*boost).size()), "");
  BoostSession::interrupt(*boost);
  for (const std::size_t index : present) {
    session.expectVolume(worstFirst.at(index).name, volumes.at(index), false);
  }
  EXPECT_EQ(aggregates(panel), 0U);
}

}  // namespace
}  // namespace orvelle::instruments
