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

void AppAudio::apply() {
  engine.volume = static_cast<float>(volume_);
  if (engine.isRunning() || volume_ == 1.0) {
    return;
  }
  const std::optional<std::string> outputUID = outputProvider_();
  if (!outputUID) {
    return;
  }
  try {
    engine.start(objectID, *outputUID);
  } catch (const EngineError&) {
    // A list row has no place for an error: the application just stays as loud as it was.
    engine.teardown();
  }
}

}  // namespace orvelle
