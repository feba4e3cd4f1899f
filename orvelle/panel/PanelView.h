// The panel, put into a window.
#pragma once

class QQuickView;

namespace orvelle {

class AudioController;

/// How a desktop wants the panel.
struct PanelLook {
  double cornerRadius = 0.0;  ///< of a window without a frame of its own, device-independent pixels
};

/// Makes the panel the content of `view`, bound to `controller`, which outlives it.
/// `view->status()` and `view->errors()` tell how it went. The first call of a view's engine makes
/// it read some megabytes: call it when the panel is wanted. GUI thread.
void loadPanel(QQuickView& view, AudioController& controller, const PanelLook& look = {});

}  // namespace orvelle
