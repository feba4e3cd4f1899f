// The windows of this program, as the library that draws them knows them.
#pragma once

#include <functional>

#include "orvelle/platform/HostServices.h"

namespace orvelle {

/// Keeps the services of a desktop apart from the library that draws: a program without windows
/// does not load it. Main thread.
class WindowList {
 public:
  WindowList() = default;
  WindowList(const WindowList&) = delete;
  WindowList& operator=(const WindowList&) = delete;
  virtual ~WindowList() = default;

  /// Whether some window satisfies `condition`. Allocates nothing.
  [[nodiscard]] virtual bool anyWindow(
      const std::function<bool(const WindowInfo&)>& condition) const = 0;
};

}  // namespace orvelle
