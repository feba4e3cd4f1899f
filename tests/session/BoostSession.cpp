#include "tests/session/BoostSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>

#include "instruments/Probe.h"

namespace orvelle::instruments {

void report(const std::string& name, double value, const std::string& unit) {
  std::printf("measured: %s: %.4f %s\n", name.c_str(), value, unit.c_str());
  testing::Test::RecordProperty(name, std::to_string(value) + " " + unit);
}

int numberFrom(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::atoi(text);
}

StandIn usbOutput() {
  return {.name = "hw_usb", .description = "USB Headphones"};
}

StandIn speaker() {
  return {.name = "hw_speaker", .description = "Speaker", .bus = "pci", .priority = 900};
}

StandIn bluetoothHeadphones() {
  return {.name = "hw_bluetooth",
          .description = "Headphones",
          .api = "bluez5",
          .bus = "bluetooth",
          .priority = 1010};
}

StandIn display() {
  return {.name = "hw_display",
          .description = "Display",
          .bus = "pci",
          .priority = 600,
          .furtherProperties = {{"device.profile.name", "hdmi-stereo"}}};
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

WaveFile stereoNoise() {
  std::mt19937 generator(20);
  std::uniform_real_distribution<float> distribution(-0.9F, 0.9F);
  WaveFile wave{48000, {std::vector<float>(48000), std::vector<float>(48000)}};
  for (std::vector<float>& channel : wave.channels) {
    std::generate(channel.begin(), channel.end(), [&] { return distribution(generator); });
  }
  return wave;
}

Samples fromOnset(Samples recorded, std::size_t frames) {
  const std::size_t begin = firstAbove(recorded, 0.0F).value_or(recorded.size());
  return recorded.subspan(begin, std::min(frames, recorded.size() - begin));
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

double millisecondsBetween(std::int64_t fromNs, std::int64_t toNs) {
  return static_cast<double>(toNs - fromNs) * 1e-6;
}

double millisecondsToSound(const Recording& recording, std::int64_t eventNs, float threshold) {
  const Samples samples = recording.channel("FL");
  const std::size_t begin = recording.frameAt(eventNs);
  const auto onset = firstAbove(samples.subspan(begin), threshold);
  return onset ? millisecondsBetween(eventNs, recording.timeAt(begin + *onset))
               : std::numeric_limits<double>::infinity();
}

double handOverMs(const Recording& from, const Recording& to) {
  constexpr float threshold = 1e-4F;
  const std::size_t end = endOfSound(from.channel("FL"), threshold);
  const auto begin = firstAbove(to.channel("FL"), threshold);
  if (end == 0 || !begin) {
    throw std::runtime_error("no sound at one of the outputs");
  }
  return millisecondsBetween(from.timeAt(end - 1), to.timeAt(*begin));
}

double levelNow(const Recorder& recorder, double frequency) {
  constexpr int attempts = 20;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (!recorder.waitFor(milliseconds(150))) {
      break;
    }
    const Recording recording = recorder.take();
    const SineFit fit = fitSine(recording.channel("FL").last(4800), frequency, recording.rate());
    if (fit.residualPeak < 1e-3 * fit.amplitude) {
      return fit.levelDbfs();
    }
  }
  throw std::runtime_error("no tenth of a second with nothing but the tone");
}

Excess excessOver(double levelDbfs, const Recording& recording) {
  const std::vector<float> peaks = peakPerMillisecond(recording.channel("FL"), recording.rate());
  const auto above = [&](float peak) { return toDecibels(static_cast<double>(peak)) - levelDbfs; };
  const auto louder =
      std::ranges::count_if(peaks, [&](float peak) { return above(peak) > levelToleranceDb; });
  return {above(*std::ranges::max_element(peaks)), static_cast<double>(louder)};
}

void expectNeverAbove(double levelDbfs, const Recorder& recorder, const std::string& name) {
  const Excess excess = excessOver(levelDbfs, recorder.take());
  report(name + " louder by", excess.decibels, "dB");
  report(name + " louder for", excess.milliseconds, "ms");
  EXPECT_LT(excess.decibels, levelToleranceDb) << name << " for " << excess.milliseconds << " ms";
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
  return runBoost(words);
}

std::unique_ptr<Subprocess> BoostSession::autoBoost(const std::string& gain) {
  return runBoost({"auto", "--gain", gain});
}

std::unique_ptr<Subprocess> BoostSession::runBoost(const std::vector<std::string>& words) {
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

void BoostSession::expectVolume(const std::string& node, float volume, bool isMuted) {
  const NodeVolume level = panel_.volume(node);
  EXPECT_NEAR(level.cubic(), volume, 1e-4F) << node;
  EXPECT_EQ(level.isMuted, isMuted) << node;
}

std::size_t BoostSession::playbackStreams() const {
  const auto nodes = panel_.session().nodes();
  return static_cast<std::size_t>(std::ranges::count(
      nodes, "Stream/Output/Audio",
      [](const SessionObject& node) { return node.property(PW_KEY_MEDIA_CLASS); }));
}

std::unique_ptr<Subprocess> BoostSession::startPlayer(const std::string& player, WaveFile wave) {
  for (std::vector<float>& channel : wave.channels) {
    channel.resize(channel.size() + static_cast<std::size_t>(wave.rate) / 4, 0.0F);
  }
  const auto file = session_.directory() / ("played" + std::to_string(++playedFiles_) + ".wav");
  writeWave(file, wave);
  const std::size_t before = playbackStreams();
  auto process =
      std::make_unique<Subprocess>(std::vector<std::string>{player, file}, session_.environment());
  EXPECT_TRUE(SessionClient::waitFor([&] { return playbackStreams() > before; }, patience))
      << player << process->standardError();
  return process;
}

void BoostSession::play(const std::string& player, const WaveFile& wave) {
  const auto process = startPlayer(player, wave);
  ASSERT_EQ(process->wait(milliseconds(20'000)), 0) << player << process->standardError();
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
