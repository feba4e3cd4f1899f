#include "orvelle/platform/pipewire/NominalRate.h"

#include <algorithm>
#include <cmath>

namespace orvelle::pipewire {

namespace {

constexpr int kAttempts = 30;
constexpr double kAttemptSeconds = 0.01;

bool supports(const Session::Rates& rates, std::int32_t rate) {
  if (!rates.choices.empty()) {
    return std::ranges::find(rates.choices, rate) != rates.choices.end();
  }
  return rate >= rates.lowest && rate <= rates.highest;
}

}  // namespace

double NominalRate::read(const Node& node) {
  const Session::Rates rates = session_.rates(node.id);
  return rates.current != 0 ? rates.current : rates.preferred;
}

OSStatus NominalRate::set(const Node& node, double rate) {
  const std::uint32_t id = node.id;
  const std::string name(node.name());
  const Session::Rates possible = session_.rates(id);
  const bool isWhole = std::isfinite(rate) && rate == std::floor(rate) && rate >= 1.0 &&
                       rate <= static_cast<double>(INT32_MAX);
  if (!isWhole || !supports(possible, static_cast<std::int32_t>(rate))) {
    return kAudioDeviceUnsupportedFormatError;
  }
  const auto wanted = static_cast<std::int32_t>(rate);
  const IOBlock silence = [](AudioBufferList /*input*/, AudioBufferList /*output*/) {};
  // Taken out, not erased: ending a stream lets the loop thread look at what is still in.
  requests_.extract(name);
  requests_[name] = std::make_unique<GraphStream>(
      session_, GraphStreamSettings{"app.orvelle.rate", "Orvelle Rate", "", name, wanted}, silence);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (session_.rates(id).current == wanted) {
      return kAudioHardwareNoError;
    }
    session_.waitUntil([] { return false; }, kAttemptSeconds);
  }
  requests_.extract(name);
  return kAudioDeviceUnsupportedFormatError;
}

void NominalRate::linkUp() {
  for (auto& [name, stream] : requests_) {
    stream->linkUp();
  }
}

}  // namespace orvelle::pipewire
