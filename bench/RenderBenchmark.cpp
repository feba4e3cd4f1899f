// Time per stereo frame of every path through the signal chains, with each set of instructions that
// this processor has, beside the plain scalar model or the C library in the same run:
// `orvelle_bench --benchmark_filter=music`.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/EQPreset.h"
#include "orvelle/TapRender.h"
#include "tests/ScalarModel.h"

namespace orvelle {
namespace {

struct Path {
  const char* name;
  float gain = 1.0F;
  float spatialWidth = 1.0F;
  std::vector<float> gainsDb = {};  // none: equaliser off
  float amplitude = 0.1F;           // of the noise that is played
};

std::vector<Path> paths() {
  const auto& curve = gains(EQPreset::music);
  const std::vector<float> music(curve.begin(), curve.end());
  const std::vector<float> tenBands = {3, -2, 4, 1, -3, 2, -1, 3, -4, 2};
  constexpr float idle = 2.0F;       // 0.2 at most, with the equaliser some 0.4
  constexpr float working = 100.0F;  // nearly every sample far above the threshold
  constexpr float wide = 1.3F;
  constexpr float tiny = 1e-30F;
  return {
      {"copy"},
      {"gain/idle", idle},
      {"gain/working", working},
      {"width", 1.0F, wide},
      {"equaliser/music", 1.0F, 1.0F, music},
      {"equaliser/ten", 1.0F, 1.0F, tenBands},
      {"both/music/idle", idle, 1.0F, music},
      {"both/music/working", working, 1.0F, music},
      {"both/ten/idle", idle, 1.0F, tenBands},
      {"both/ten/working", working, 1.0F, tenBands},
      {"all/music/idle", idle, wide, music},
      {"all/music/working", working, wide, music},
      {"all/ten/idle", idle, wide, tenBands},
      {"all/ten/working", working, wide, tenBands},
      {"all/ten/clipped", 2.0F, wide, tenBands, 1.0F},
      {"all/ten/tiny", idle, wide, tenBands, tiny},
  };
}

/// Of a tapped application, whose volume the gain stands for.
std::vector<Path> tapPaths() {
  constexpr float fullScale = 1.0F;
  return {
      {"tap/muted", 0.0F, 1.0F, {}, fullScale},
      {"tap/clip", 2.0F, 1.0F, {}, fullScale},
  };
}

void configure(BoostRender& chain, const Path& path) {
  chain.gain = path.gain;
  chain.spatialWidth = path.spatialWidth;
  chain.equalizer.isEnabled = !path.gainsDb.empty();
  chain.equalizer.setGains(path.gainsDb);
}

void configure(test::ScalarModel& model, const Path& path) {
  model.gain = path.gain;
  model.spatialWidth = path.spatialWidth;
  model.equalizerEnabled = !path.gainsDb.empty();
  model.setGains(path.gainsDb);
}

/// The soft clip of a tapped application as the C library would have it.
struct LibraryTap {
  float volume = 1.0F;

  void render(AudioBufferList input, AudioBufferList output) const {
    const auto* const from = static_cast<const float*>(input[0].mData);
    auto* const to = static_cast<float*>(output[0].mData);
    for (std::size_t i = 0; i < input[0].mDataByteSize / sizeof(float); ++i) {
      to[i] = std::tanh(volume * from[i]);
    }
  }
};

void configure(TapRender& tap, const Path& path) {
  tap.volume = path.gain;
}

void configure(LibraryTap& tap, const Path& path) {
  tap.volume = path.gain;
}

/// Long enough that branch prediction cannot learn it by heart.
std::vector<float> noise(float amplitude) {
  constexpr std::size_t samples = 65536;
  std::mt19937 random(1);
  std::uniform_real_distribution<float> uniform(-amplitude, amplitude);
  std::vector<float> signal(samples);
  for (float& sample : signal) {
    sample = uniform(random);
  }
  return signal;
}

template <typename Chain>
void playNoise(benchmark::State& state, Chain&& chain, const Path& path) {
  const auto frames = static_cast<std::size_t>(state.range(0));
  const std::size_t samples = 2 * frames;
  const auto bytes = static_cast<std::uint32_t>(samples * sizeof(float));
  std::vector<float> signal = noise(path.amplitude);
  std::vector<float> heard(samples);
  configure(chain, path);

  std::size_t position = 0;
  for (auto _ : state) {
    const AudioBuffer input{2, bytes, signal.data() + position};
    const AudioBuffer output{2, bytes, heard.data()};
    chain.render({&input, 1}, {&output, 1});
    benchmark::DoNotOptimize(heard.data());
    benchmark::ClobberMemory();
    position = position + 2 * samples <= signal.size() ? position + samples : 0;
  }
  state.counters["time/frame"] = benchmark::Counter(
      static_cast<double>(frames),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// One path through a chain, beside what it is compared with.
template <typename Chain, typename Yardstick>
void add(const Path& path, const char* yardstick) {
  const auto add = [&path](const char* who, const auto& run) {
    const std::string name = std::string(path.name) + "/" + who;
    benchmark::RegisterBenchmark(name.c_str(), run)->Arg(256)->Arg(512)->Arg(1024);
  };
  add(yardstick, [path](benchmark::State& state) { playNoise(state, Yardstick(), path); });
  for (const vector::Kernels* const kernels : vector::usableKernels()) {
    add(kernels->name,
        [path, kernels](benchmark::State& state) { playNoise(state, Chain(*kernels), path); });
  }
}

[[maybe_unused]] const bool registered = [] {
  for (const Path& path : paths()) {
    add<BoostRender, test::ScalarModel>(path, "model");
  }
  for (const Path& path : tapPaths()) {
    add<TapRender, LibraryTap>(path, "library");
  }
  return true;
}();

}  // namespace
}  // namespace orvelle
