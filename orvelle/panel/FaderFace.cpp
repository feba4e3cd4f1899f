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

double FaderFace::pixelEdge(double at) const {
  return std::floor(at * pixelRatio_) / pixelRatio_;
}

QPointF FaderFace::knob() const {
  // An edge of the track on a whole pixel: the rest is in line with it.
  const double left = pixelEdge((width() - kTrackWidth) / 2.0);
  return {left + (kTrackWidth / 2.0),
          std::min(std::max(positionY(), kKnobMargin), height() - kKnobMargin)};
}

void FaderFace::paint(QPainter* painter) {
  const double middle = knob().x();
  const double centre = height() / 2.0;
  const auto bar = [&](double top, double barHeight, const QColor& color) {
    painter->setBrush(color);
    painter->drawRoundedRect(QRectF(middle - (kTrackWidth / 2.0), top, kTrackWidth, barHeight),
                             kTrackWidth / 2.0, kTrackWidth / 2.0);
  };
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setPen(Qt::NoPen);
  bar(0.0, height(), faded(quiet_, 0.25));
  painter->fillRect(
      QRectF(middle - (kTick.width() / 2.0), pixelEdge(centre - (kTick.height() / 2.0)),
             kTick.width(), pixelEdge(kTick.height())),
      faded(quiet_, 0.35));
  bar(std::min(positionY(), centre), std::abs(centre - positionY()), faded(accent_, 0.8));
  painter->setBrush(accent_);
  painter->drawEllipse(knob(), kKnob / 2.0, kKnob / 2.0);
}

}  // namespace orvelle
