// A short piece of music, computed: nothing has to be shipped, and it is the same on every machine.
#pragma once

#include <vector>

namespace orvelle::demo {

/// Stereo, 48 kHz.
struct Music {
  static constexpr int sampleRate = 48000;  // Hz
  std::vector<float> left;
  std::vector<float> right;
};

/// Some nine seconds of broken chords, as loud at its loudest sample as `peakDbfs` says.
Music composeMusic(double peakDbfs);

}  // namespace orvelle::demo
