#include "orvelle/panel/Desktop.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QScreen>

namespace orvelle {

QString Desktop::monospacedFamily() {
  return QFontDatabase::systemFont(QFontDatabase::FixedFont).family();
}

QFont Desktop::fontOfSize(double pixels) {
  constexpr double kPointsPerInch = 72.0;
  QFont font = QGuiApplication::font();
  // Sizes in pixels are whole numbers to Qt, sizes in points are not.
  font.setPointSizeF(pixels * kPointsPerInch /
                     QGuiApplication::primaryScreen()->logicalDotsPerInchY());
  return font;
}

}  // namespace orvelle
