#include "orvelle/platform/ListenerRegistry.h"

#include <utility>

namespace orvelle {

ListenerToken ListenerRegistry::add(AudioObjectID object, const PropertyAddress& address,
                                    PropertyListener listener) {
  const std::lock_guard lock(registrations_->mutex);
  registrations_->byToken.emplace(++lastToken_, Registration{object, address, std::move(listener)});
  return lastToken_;
}

bool ListenerRegistry::remove(ListenerToken token) {
  const std::lock_guard lock(registrations_->mutex);
  return registrations_->byToken.erase(token) != 0;
}

void ListenerRegistry::clear() {
  const std::lock_guard lock(registrations_->mutex);
  registrations_->byToken.clear();
}

void ListenerRegistry::notify(AudioObjectID object, const PropertyAddress& address) {
  const std::lock_guard lock(registrations_->mutex);
  for (auto& [token, registration] : registrations_->byToken) {
    if (registration.object != object || registration.address != address ||
        std::exchange(registration.isPosted, true)) {
      continue;
    }
    queue_.post([registrations = std::weak_ptr(registrations_), listener = token] {
      call(registrations, listener);
    });
  }
}

void ListenerRegistry::call(const std::weak_ptr<Registrations>& registrations,
                            ListenerToken token) {
  const auto alive = registrations.lock();
  if (!alive) {
    return;
  }
  PropertyListener listener;
  {
    const std::lock_guard lock(alive->mutex);
    const auto found = alive->byToken.find(token);
    if (found == alive->byToken.end()) {
      return;
    }
    found->second.isPosted = false;
    listener = found->second.listener;
  }
  listener();
}

}  // namespace orvelle
