#include "tests/session/BoostSession.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

#include "instruments/Probe.h"

namespace orvelle::instruments {

void report(const std::string& name, double value, const std::string& unit) {
  std::printf("measured: %s: %.4f %s\n", name.c_str(), value, unit.c_str());
  testing::Test::RecordProperty(name, std::to_string(value) + " " + unit);
}

StandIn usbOutput() {
  return {.name = "hw_usb", .description = "USB Headphones"};
}

WaveFile stereoSine(double frequency, float left, float right, std::size_t frames) {
  WaveFile wave{48000, {{}, {}}};
  const Signal signal = sineSignal(frequency, 1.0F);
  for (std::uint64_t index = 0; index < frames; ++index) {
    const float value = signal({index, index});
    wave.channels[0].push_back(left * value);
    wave.channels[1].push_back(right * value);
  }
  return wave;
}

Samples settled(const Recording& recording, std::string_view channel) {
  const Samples samples = recording.channel(channel);
  const auto margin = static_cast<std::size_t>(recording.rate() / 10.0);
  const std::size_t begin = firstAbove(samples, 1e-4F).value_or(samples.size());
  const std::size_t end = endOfSound(samples, 1e-4F);
  if (end < begin + 6 * margin) {
    throw std::runtime_error("too little sound on channel " + std::string(channel));
  }
  return samples.subspan(begin + margin, end - begin - 2 * margin);
}

BoostSession::BoostSession(const SessionOptions& options) : session_(options) {}

std::unique_ptr<Subprocess> BoostSession::run(const std::vector<std::string>& words) {
  std::vector<std::string> command = {ORVELLE_PROGRAM};
  command.insert(command.end(), words.begin(), words.end());
  return std::make_unique<Subprocess>(command, session_.environment());
}

std::unique_ptr<Subprocess> BoostSession::boost(const std::string& gain,
                                                const std::vector<std::string>& furtherWords) {
  std::vector<std::string> words = {"boost", "--input", loopbackName, "--gain", gain};
  words.insert(words.end(), furtherWords.begin(), furtherWords.end());
  auto process = run(words);
  EXPECT_TRUE(process->waitForLine("Ctrl-C to stop.", patience).has_value())
      << process->standardOutput() << process->standardError();
  EXPECT_TRUE(panel_.waitForDefault(loopbackName, patience)) << panel_.defaultSink();
  return process;
}

void BoostSession::interrupt(Subprocess& boost) {
  boost.signal(SIGINT);
  EXPECT_EQ(boost.wait(patience), 0) << boost.standardError();
  EXPECT_TRUE(boost.standardOutput().ends_with("\n\nStopped, default output restored.\n"))
      << boost.standardOutput();
  EXPECT_EQ(boost.standardError(), "");
}

void BoostSession::play(const std::string& player, WaveFile wave) {
  // Players end without hearing their last cycles out: what is cut off must not be sound.
  for (std::vector<float>& channel : wave.channels) {
    channel.resize(channel.size() + static_cast<std::size_t>(wave.rate) / 4, 0.0F);
  }
  const auto file = session_.directory() / "played.wav";
  writeWave(file, wave, WaveFormat::float32);
  Subprocess process({player, file}, session_.environment());
  ASSERT_EQ(process.wait(milliseconds(20'000)), 0) << player << process.standardError();
}

std::multiset<std::string> BoostSession::inventory() const {
  const SessionClient& session = panel_.session();
  std::multiset<std::string> names;
  for (const SessionObject& node : session.nodes()) {
    names.insert("node " + node.property(PW_KEY_NODE_NAME));
  }
  for (const SessionObject& port : session.ports()) {
    names.insert("port " + port.property(PW_KEY_OBJECT_PATH) + port.property(PW_KEY_PORT_NAME));
  }
  for (const SessionObject& link : session.links()) {
    names.insert("link " + link.property(PW_KEY_LINK_OUTPUT_PORT) + " to " +
                 link.property(PW_KEY_LINK_INPUT_PORT));
  }
  return names;
}

bool BoostSession::returnsTo(const std::multiset<std::string>& expected) const {
  return SessionClient::waitFor([&] { return inventory() == expected; }, milliseconds(1000));
}

}  // namespace orvelle::instruments
