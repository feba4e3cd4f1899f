// The property listeners of a back end, and their way to the main queue.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/MainQueue.h"

namespace orvelle {

/// Registrations, by token. `notify` may come from any thread and only posts; a listener runs on
/// the main thread, and only while its registration stands. Changes that happen before a posted
/// call has run are reported by that one call.
class ListenerRegistry {
 public:
  explicit ListenerRegistry(MainQueue& queue) : queue_(queue) {}

  ListenerToken add(AudioObjectID object, const PropertyAddress& address,
                    PropertyListener listener);
  /// False for a token that is not registered.
  bool remove(ListenerToken token);
  /// Ends all registrations.
  void clear();
  void notify(AudioObjectID object, const PropertyAddress& address);

 private:
  struct Registration {
    AudioObjectID object;
    PropertyAddress address;
    PropertyListener listener;
    bool isPosted = false;
  };
  /// Shared with posted jobs, which may run when the back end is gone.
  struct Registrations {
    std::mutex mutex;
    std::map<ListenerToken, Registration> byToken;
  };

  static void call(const std::weak_ptr<Registrations>& registrations, ListenerToken token);

  MainQueue& queue_;
  std::shared_ptr<Registrations> registrations_ = std::make_shared<Registrations>();
  ListenerToken lastToken_ = 0;
};

}  // namespace orvelle
