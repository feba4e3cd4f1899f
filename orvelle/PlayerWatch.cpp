#include "orvelle/PlayerWatch.h"

#include <utility>

namespace orvelle {

PlayerWatch::PlayerWatch(AudioHardware& hardware, std::function<void()> onNews)
    : hardware_(hardware), onNews_(std::move(onNews)) {
  listen(kAudioObjectSystemObject, kAudioHardwarePropertyProcessObjectList);
  watchProcesses();
}

PlayerWatch::~PlayerWatch() {
  for (const auto& [object, token] : listeners_) {
    hardware_.removePropertyListener(token);
  }
}

/// Those that are gone keep their listener, which nobody calls any more.
void PlayerWatch::watchProcesses() {
  for (const AudioObjectID process : ProcessAudio(hardware_).processObjectIDs()) {
    if (!listeners_.contains(process)) {
      listen(process, kAudioProcessPropertyIsRunningOutput);
    }
  }
}

void PlayerWatch::listen(AudioObjectID object, std::uint32_t selector) {
  ListenerToken token = 0;
  const auto tell = [this, life = std::weak_ptr<const bool>(life_)] {
    if (!life.expired()) {
      watchProcesses();
      const auto onNews = onNews_;  // outlives a watch that it ends
      onNews();
    }
  };
  if (hardware_.addPropertyListener(object, {selector}, tell, token) == kAudioHardwareNoError) {
    listeners_[object] = token;
  }
}

}  // namespace orvelle
