#include "demo/Music.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace orvelle::demo {

namespace {

constexpr double kSecondsPerStep = 0.25;
constexpr double kRingSeconds = 1.8;

/// Bass and three upper notes, as MIDI note numbers: C, A minor, F, G, C.
constexpr std::array<std::array<int, 4>, 4> kChords = {{
    {48, 64, 67, 72},
    {45, 64, 69, 72},
    {41, 65, 69, 72},
    {43, 62, 67, 71},
}};
/// Which note of the chord each step strikes.
constexpr std::array<std::size_t, 8> kPattern = {0, 1, 2, 3, 2, 3, 2, 1};

double frequencyOf(int midiNote) {
  return 440.0 * std::exp2((midiNote - 69) / 12.0);
}

/// A struck string: a quick attack, overtones that die sooner than the fundamental.
double pluckedString(double frequency, double seconds) {
  constexpr double attackSeconds = 0.006;
  double sample = 0.0;
  for (int overtone = 1; overtone <= 5; ++overtone) {
    const double decay = std::exp(-seconds * (1.6 + 1.4 * overtone));
    sample += decay / (overtone * overtone) *
              std::sin(2.0 * std::numbers::pi * overtone * frequency * seconds);
  }
  const double attack = std::min(seconds / attackSeconds, 1.0);
  const double ending = std::min((kRingSeconds - seconds) / 0.05, 1.0);
  return sample * attack * ending;
}

/// `position` is 0 on the left and 1 on the right.
void strike(Music& music, int midiNote, double startSeconds, double position, double loudness) {
  const double frequency = frequencyOf(midiNote);
  const auto first = static_cast<std::size_t>(startSeconds * Music::sampleRate);
  const auto frames = static_cast<std::size_t>(kRingSeconds * Music::sampleRate);
  music.left.resize(std::max(music.left.size(), first + frames));
  music.right.resize(music.left.size());
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const double sample =
        loudness * pluckedString(frequency, static_cast<double>(frame) / Music::sampleRate);
    music.left[first + frame] +=
        static_cast<float>(sample * std::cos(position * std::numbers::pi / 2));
    music.right[first + frame] +=
        static_cast<float>(sample * std::sin(position * std::numbers::pi / 2));
  }
}

float peak(const std::vector<float>& samples) {
  float largest = 0.0F;
  for (const float sample : samples) {
    largest = std::max(largest, std::abs(sample));
  }
  return largest;
}

void scaleTo(Music& music, double peakDbfs) {
  const float factor = static_cast<float>(std::pow(10.0, peakDbfs / 20.0)) /
                       std::max(peak(music.left), peak(music.right));
  for (std::vector<float>* channel : {&music.left, &music.right}) {
    std::ranges::transform(*channel, channel->begin(),
                           [factor](float sample) { return sample * factor; });
  }
}

}  // namespace

Music composeMusic(double peakDbfs) {
  Music music;
  double seconds = 0.0;
  for (const auto& chord : kChords) {
    for (const std::size_t note : kPattern) {
      strike(music, chord[note], seconds, 0.3 + 0.13 * static_cast<double>(note), 1.0);
      seconds += kSecondsPerStep;
    }
  }
  for (const int note : kChords.front()) {
    strike(music, note, seconds, 0.5, 0.4);
  }
  scaleTo(music, peakDbfs);
  return music;
}

}  // namespace orvelle::demo
