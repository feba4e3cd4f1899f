#include "orvelle/panel/SegmentBar.h"

#include <QPainter>
#include <cmath>

namespace orvelle {

namespace {

// Device-independent pixels.
constexpr double kGap = 2.0;
constexpr double kRadius = 1.0;

}  // namespace

SegmentBar::SegmentBar(QQuickItem* parent) : QQuickPaintedItem(parent) {
  connect(this, &SegmentBar::changed, this, [this] { update(); });
}

void SegmentBar::paint(QPainter* painter) {
  const double scale = painter->deviceTransform().m11();
  const auto onPixel = [scale](double x) { return std::round(x * scale) / scale; };
  const double pitch = (width() + kGap) / static_cast<double>(colors_.size());
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setPen(Qt::NoPen);
  double left = 0.0;
  for (const QColor& color : colors_) {
    const QRectF segment(QPointF(onPixel(left), 0.0),
                         QPointF(onPixel(left + pitch - kGap), onPixel(height())));
    painter->setBrush(color);
    painter->drawRoundedRect(segment, kRadius, kRadius);
    left += pitch;
  }
}

}  // namespace orvelle
