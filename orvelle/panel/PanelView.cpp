#include "orvelle/panel/PanelView.h"

#include <QQmlEngine>
#include <QQuickView>
#include <QQuickWindow>
#include <QUrl>
#include <QVariant>

#include "orvelle/AudioController.h"

// Made by the build. Called, so that the linker keeps the types.
void qml_register_types_app_orvelle_panel();  // NOLINT(*-identifier-naming)

namespace orvelle {

void loadPanel(QQuickView& view, AudioController& controller, const PanelLook& look) {
  qml_register_types_app_orvelle_panel();
  // As sharp as the rest of the desktop's text.
  QQuickWindow::setTextRenderType(QQuickWindow::NativeTextRendering);
  view.engine()->addImportPath("qrc:/qt/qml");
  view.setInitialProperties({{"controller", QVariant::fromValue(&controller)},
                             {"version", ORVELLE_VERSION},
                             {"cornerRadius", look.cornerRadius}});
  view.setSource(QUrl("qrc:/qt/qml/app/orvelle/panel/ControlPanel.qml"));
}

}  // namespace orvelle
