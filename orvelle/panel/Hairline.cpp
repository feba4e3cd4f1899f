#include "orvelle/panel/Hairline.h"

#include <QPainter>
#include <cmath>

namespace orvelle {

Hairline::Hairline(QQuickItem* parent) : QQuickPaintedItem(parent) {
  connect(this, &Hairline::changed, this, [this] { update(); });
}

void Hairline::paint(QPainter* painter) {
  const double scale = painter->deviceTransform().m11();
  painter->fillRect(QRectF(0.0, 0.0, width(), std::floor(scale) / scale), color_);
}

}  // namespace orvelle
