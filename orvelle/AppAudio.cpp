#include "orvelle/AppAudio.h"

#include <utility>

namespace orvelle {

AppAudio::AppAudio(std::int32_t pid, AudioObjectID processObjectID, std::string displayName,
                   const EngineHost& host, OutputProvider outputProvider)
    : id(pid),
      objectID(processObjectID),
      name(std::move(displayName)),
      engine(host),
      outputProvider_(std::move(outputProvider)) {}

void AppAudio::setVolume(double volume) {
  volume_ = volume;
  apply();
  if (onVolumeChanged) {
    onVolumeChanged();
  }
}

void AppAudio::reroute() {
  if (!engine.isRunning()) {
    return;
  }
  if (const std::optional<std::string> outputUID = outputProvider_()) {
    engine.stop();
    startEngine(*outputUID);
    engine.volume = static_cast<float>(volume_);
  }
}

void AppAudio::apply() {
  engine.volume = static_cast<float>(volume_);
  if (engine.isRunning() || volume_ == 1.0) {
    return;
  }
  if (const std::optional<std::string> outputUID = outputProvider_()) {
    startEngine(*outputUID);
  }
}

void AppAudio::startEngine(const std::string& outputUID) {
  try {
    engine.start(objectID, outputUID);
  } catch (const EngineError&) {
    // A list row has no place for an error: the application just stays as loud as it was.
    engine.teardown();
  }
}

}  // namespace orvelle
