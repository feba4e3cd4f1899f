#include "orvelle/panel/Hairline.h"

#include <QPainter>
#include <cmath>

namespace orvelle {

void Hairline::setColor(const QColor& color) {
  if (color_ == color) {
    return;
  }
  color_ = color;
  update();
  emit colorChanged();
}

void Hairline::paint(QPainter* painter) {
  const double scale = painter->device()->devicePixelRatioF();
  painter->fillRect(QRectF(0.0, 0.0, width(), std::floor(scale) / scale), color_);
}

}  // namespace orvelle
