// News of programs that begin to play, where the platform tells.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "orvelle/ProcessAudio.h"

namespace orvelle {

/// Lives as long as its owner wants to hear. Main thread.
class PlayerWatch {
 public:
  /// `onNews` is called when an audio process has come or gone, begun or ceased to play. It may end
  /// the watch.
  PlayerWatch(AudioHardware& hardware, std::function<void()> onNews);
  PlayerWatch(const PlayerWatch&) = delete;
  PlayerWatch& operator=(const PlayerWatch&) = delete;
  ~PlayerWatch();

 private:
  void watchProcesses();
  void listen(AudioObjectID object, std::uint32_t selector);

  AudioHardware& hardware_;
  const std::function<void()> onNews_;
  /// By object; the system object stands for the list of processes.
  std::map<AudioObjectID, ListenerToken> listeners_;
  /// A listener may outlive its removal.
  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
