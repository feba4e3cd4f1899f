// How the time per frame of the whole chain grows with the length of a callback and with the
// channels of a device: `orvelle_bench --benchmark_filter=growth`.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/TapRender.h"

namespace orvelle {
namespace {

constexpr std::size_t mostSamples = 65536;

/// Quiet enough for the limiter to stay idle.
std::vector<float> quietNoise() {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> uniform(-0.1F, 0.1F);
  std::vector<float> signal(mostSamples);
  for (float& sample : signal) {
    sample = uniform(random);
  }
  return signal;
}

template <typename Chain>
void play(benchmark::State& state, Chain& chain) {
  const auto frames = static_cast<std::size_t>(state.range(0));
  const auto channels = static_cast<std::uint32_t>(state.range(1));
  const std::size_t samples = frames * channels;
  const auto bytes = static_cast<std::uint32_t>(samples * sizeof(float));
  std::vector<float> signal = quietNoise();
  std::vector<float> heard(samples);
  std::size_t position = 0;
  for (auto _ : state) {
    const AudioBuffer input{channels, bytes, signal.data() + position};
    const AudioBuffer output{channels, bytes, heard.data()};
    chain.render({&input, 1}, {&output, 1});
    benchmark::DoNotOptimize(heard.data());
    benchmark::ClobberMemory();
    position = position + 2 * samples <= signal.size() ? position + samples : 0;
  }
}

void growthOfTheBoost(benchmark::State& state) {
  BoostRender chain;
  chain.gain = 2.0F;
  chain.spatialWidth = 1.3F;
  chain.equalizer.isEnabled = true;
  chain.equalizer.setGains(std::vector<float>{3, -2, 4, 1, -3, 2, -1, 3, -4, 2});
  play(state, chain);
}

void growthOfATap(benchmark::State& state) {
  TapRender chain;
  chain.volume = 0.5F;
  play(state, chain);
}

const std::vector<std::vector<std::int64_t>> sizes = {{16, 32, 64, 128, 256, 512, 1024, 2048, 4096},
                                                      {1, 2, 4, 8}};

BENCHMARK(growthOfTheBoost)->Name("growth/boost")->ArgsProduct(sizes);
BENCHMARK(growthOfATap)->Name("growth/tap")->ArgsProduct(sizes);

}  // namespace
}  // namespace orvelle
