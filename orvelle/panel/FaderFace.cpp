#include "orvelle/panel/FaderFace.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

// Device-independent pixels.
constexpr double kTrackWidth = 3.0;
constexpr QSizeF kTick(12.0, 1.0);
constexpr double kKnob = 11.0;
constexpr double kKnobMargin = 6.0;

QColor faded(QColor color, double opacity) {
  color.setAlphaF(static_cast<float>(color.alphaF() * opacity));
  return color;
}

}  // namespace

FaderFace::FaderFace(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  connect(this, &FaderFace::changed, this, [this] { update(); });
  connect(this, &QQuickItem::heightChanged, this, &FaderFace::changed);
}

double FaderFace::knobY() const {
  return std::min(std::max(positionY(), kKnobMargin), height() - kKnobMargin);
}

void FaderFace::paint(QPainter* painter) {
  // An edge of the track on a whole pixel of the screen: the rest is in line with it.
  const double scale = painter->device()->devicePixelRatioF();
  const double left = std::floor((width() - kTrackWidth) / 2.0 * scale) / scale;
  const double middle = left + (kTrackWidth / 2.0);
  const double centre = height() / 2.0;
  const auto bar = [&](double top, double barHeight, const QColor& color) {
    painter->setBrush(color);
    painter->drawRoundedRect(QRectF(left, top, kTrackWidth, barHeight), kTrackWidth / 2.0,
                             kTrackWidth / 2.0);
  };
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setPen(Qt::NoPen);
  bar(0.0, height(), faded(quiet_, 0.25));
  painter->fillRect(QRectF(middle - (kTick.width() / 2.0), centre - (kTick.height() / 2.0),
                           kTick.width(), kTick.height()),
                    faded(quiet_, 0.35));
  bar(std::min(positionY(), centre), std::abs(centre - positionY()), faded(accent_, 0.8));
  painter->setBrush(accent_);
  painter->drawEllipse(QPointF(middle, knobY()), kKnob / 2.0, kKnob / 2.0);
}

}  // namespace orvelle
