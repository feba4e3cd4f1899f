// Keeps the computer awake through the system's login manager.
#pragma once

#include <memory>
#include <string>

#include "orvelle/platform/HostServices.h"

class QDBusUnixFileDescriptor;
class QThreadPool;

namespace orvelle {

/// An inhibitor lock of the login manager: a file descriptor that it hands out, and that ends the
/// lock when it is closed, also with the process. It arrives when it does; this may be gone by
/// then.
///
/// It keeps the system from falling asleep because nobody uses it, and from nothing else. Whoever
/// closes the lid or asks for sleep gets it.
///
/// Main thread, which never waits for the bus: `worker` does. Where there is no bus, no login
/// manager or no permission, this has no effect.
class IdleInhibitor final : public ProcessActivity {
 public:
  IdleInhibitor(QThreadPool& worker, const std::string& reason);

 private:
  /// Written once, by the worker. Whoever lets go of it last closes it.
  std::shared_ptr<QDBusUnixFileDescriptor> lock_;
};

}  // namespace orvelle
