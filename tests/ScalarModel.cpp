#include "tests/ScalarModel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace orvelle::test {
namespace {

constexpr std::size_t bandCount = 10;
constexpr std::size_t modelChannels = 8;
constexpr float modelRateHz = 48000.0F;

bool isTiny(float value) {
  return std::abs(value) < 1e-20F;
}

}  // namespace

ScalarModel::ScalarModel() : coefficients(bandCount * 5), state(bandCount * modelChannels * 2) {
  const std::vector<float> flat(bandCount, 0.0F);
  setGains(flat);
}

void ScalarModel::setGains(std::span<const float> gainsDb) {
  const std::array<float, bandCount> frequenciesHz = {32,   64,   125,  250,  500,
                                                      1000, 2000, 4000, 8000, 16000};
  for (std::size_t j = 0; j < gainsDb.size() && j < bandCount; ++j) {
    const float amplitude = std::pow(10.0F, gainsDb[j] / 40.0F);
    const float w0 = 6.2831855F * frequenciesHz[j] / modelRateHz;
    const float alpha = std::sin(w0) * 0.5F;
    const float a0 = 1.0F + alpha / amplitude;
    coefficients[5 * j + 0] = (1.0F + alpha * amplitude) / a0;
    coefficients[5 * j + 1] = (-2.0F * std::cos(w0)) / a0;
    coefficients[5 * j + 2] = (1.0F - alpha * amplitude) / a0;
    coefficients[5 * j + 3] = (-2.0F * std::cos(w0)) / a0;
    coefficients[5 * j + 4] = (1.0F - alpha / amplitude) / a0;
  }
}

float ScalarModel::equalise(float x, std::size_t channel) {
  if (isTiny(x)) {
    x = 0.0F;
  }
  for (std::size_t j = 0; j < bandCount; ++j) {
    const float* block = coefficients.data() + 5 * j;
    float* z = state.data() + 2 * (j * modelChannels + channel);
    float y = block[0] * x + z[0];
    z[0] = block[1] * x - block[3] * y + z[1];
    z[1] = block[2] * x - block[4] * y;
    for (float* value : {&z[0], &z[1], &y}) {
      if (isTiny(*value)) {
        *value = 0.0F;
      }
    }
    x = y;
  }
  return x;
}

float ScalarModel::limit(float x) {
  float target = 1.0F;
  if (std::abs(x) > 0.98F) {
    target = 0.98F / std::abs(x);
  }
  if (target < limReduction) {
    limReduction = limReduction * 0.979F + target * (1.0F - 0.979F);
  } else {
    limReduction = limReduction * 0.9998F + target * (1.0F - 0.9998F);
  }
  return x * limReduction;
}

void ScalarModel::render(AudioBufferList input, AudioBufferList output) {
  float peak = 0.0F;
  for (std::size_t b = 0; b < output.size(); ++b) {
    if (b >= input.size()) {
      if (output[b].mData != nullptr) {
        std::memset(output[b].mData, 0, output[b].mDataByteSize);
      }
      continue;
    }
    if (input[b].mData == nullptr || output[b].mData == nullptr) {
      continue;
    }
    const auto* in = static_cast<const float*>(input[b].mData);
    auto* out = static_cast<float*>(output[b].mData);
    const std::uint32_t samples = std::min(input[b].mDataByteSize, output[b].mDataByteSize) / 4;
    const std::uint32_t channels = output[b].mNumberChannels == 0 ? 1 : output[b].mNumberChannels;
    for (std::uint32_t i = 0; i < samples; ++i) {
      float x = in[i];
      if (equalizerEnabled) {
        x = equalise(x, std::min<std::size_t>(i % channels, modelChannels - 1));
      }
      peak = std::max(peak, std::abs(x));
      if (gain != 1.0F) {
        x = limit(gain * x);
      }
      out[i] = x;
    }
    if (spatialWidth != 1.0F && channels == 2) {
      for (std::uint32_t left = 0; left + 1 < samples; left += 2) {
        const float mid = (out[left] + out[left + 1]) * 0.5F;
        const float side = (out[left] - out[left + 1]) * 0.5F * spatialWidth;
        out[left] = std::clamp(mid + side, -1.0F, 1.0F);
        out[left + 1] = std::clamp(mid - side, -1.0F, 1.0F);
      }
    }
  }
  ++renderCalls;
  inputPeak = std::max(inputPeak, peak);
  currentLevel = peak;
}

}  // namespace orvelle::test
