#include "orvelle/panel/OrvelleIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <QPixmap>
#include <array>
#include <cmath>
#include <numbers>

namespace orvelle {

namespace {

QPainterPath wave() {
  QPainterPath path;
  // Two periods around the middle line. The last point is at 20.8.
  for (double x = 0.8; x <= 21.2; x += 0.5) {  // NOLINT(*-float-loop-counter)
    const QPointF point(x, 8.0 + (1.45 * std::sin(x / kIconWidth * std::numbers::pi * 4.0)));
    if (path.elementCount() == 0) {
      path.moveTo(point);
    } else {
      path.lineTo(point);
    }
  }
  return path;
}

QPainterPath bolt() {
  QPolygonF outline({{12.6, 15.4}, {7.6, 8.4}, {10.6, 8.4}, {9.2, 0.6}, {14.8, 9.0}, {11.8, 9.0}});
  QPainterPath path;
  path.setFillRule(Qt::WindingFill);
  path.addPolygon(outline);
  path.closeSubpath();
  return path;
}

QColor withAlpha(QColor colour, double alpha) {
  colour.setAlphaF(static_cast<float>(alpha));
  return colour;
}

QImage transparentImage(QSize size) {
  QImage image(size, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  return image;
}

QImage squareIcon(int side, bool active, const QColor& colour) {
  QImage image = transparentImage({side, side});
  QPainter painter(&image);
  const double scale = side / static_cast<double>(kIconWidth);
  // On whole pixels, as far as the size allows: the middle line stays as sharp as it can.
  const double bottom = std::round((side + (kIconHeight * scale)) / 2.0);
  painter.translate(0.0, bottom);
  painter.scale(scale, -scale);
  drawOrvelleIcon(painter, active, colour);
  return image;
}

}  // namespace

bool drawOrvelleIcon(QPainter& painter, bool active, const QColor& colour) {
  if (!painter.isActive()) {
    return false;
  }
  const double alpha = active ? 1.0 : 0.4;
  painter.setRenderHint(QPainter::Antialiasing);
  painter.strokePath(wave(), QPen(withAlpha(colour, alpha * 0.85), 1.3, Qt::SolidLine, Qt::RoundCap,
                                  Qt::MiterJoin));
  painter.fillPath(bolt(), withAlpha(colour, alpha));
  return true;
}

QImage OrvelleIcon(bool active, double devicePixelRatio, const QColor& colour) {
  QImage image = transparentImage((QSizeF(kIconWidth, kIconHeight) * devicePixelRatio).toSize());
  image.setDevicePixelRatio(devicePixelRatio);
  QPainter painter(&image);
  painter.translate(0.0, kIconHeight);
  painter.scale(1.0, -1.0);
  drawOrvelleIcon(painter, active, colour);
  return image;
}

QIcon trayIcon(bool active, const QColor& colour) {
  QIcon icon;
  for (const int side : std::array{16, 22, 24, 32, 44, 48, 64, 128}) {
    icon.addPixmap(QPixmap::fromImage(squareIcon(side, active, colour)));
  }
  icon.setIsMask(true);
  return icon;
}

QIcon wideIcon(bool active, const QColor& colour) {
  QIcon icon;
  for (const double scale : {1.0, 2.0, 3.0}) {
    QImage image = OrvelleIcon(active, scale, colour);
    image.setDevicePixelRatio(1.0);  // a tray chooses by the number of pixels
    icon.addPixmap(QPixmap::fromImage(image));
  }
  icon.setIsMask(true);
  return icon;
}

}  // namespace orvelle
