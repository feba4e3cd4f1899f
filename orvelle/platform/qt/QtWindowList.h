// The windows that Qt has open.
#pragma once

#include <functional>

#include "orvelle/platform/WindowList.h"

namespace orvelle {

/// Needs a QGuiApplication. Without one there is no window.
class QtWindowList final : public WindowList {
 public:
  [[nodiscard]] bool anyWindow(
      const std::function<bool(const WindowInfo&)>& condition) const override;
};

}  // namespace orvelle
