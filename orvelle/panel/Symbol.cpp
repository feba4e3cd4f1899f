#include "orvelle/panel/Symbol.h"

#include <QPainter>
#include <QPainterPath>
#include <QPen>
#include <algorithm>

namespace orvelle {

namespace {

/// All outlines are drawn in a square of this side, y downwards.
constexpr double kSide = 20.0;

/// Lines as heavy as the stems of the text beside them.
QPen line(const QColor& color, double width = 1.7) {
  return {color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin};
}

QPainterPath polyline(std::initializer_list<QPointF> points) {
  QPainterPath path;
  path.addPolygon(QPolygonF(QList<QPointF>(points)));
  return path;
}

void paintHifiSpeaker(QPainter& painter, const QColor& color) {
  painter.setPen(line(color, 1.6));
  painter.drawRoundedRect(QRectF(0.8, 1.0, 12.0, 18.0), 2.6, 2.6);
  painter.drawEllipse(QPointF(6.8, 12.6), 3.5, 3.5);
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawEllipse(QPointF(6.8, 12.6), 1.1, 1.1);
  painter.drawEllipse(QPointF(6.8, 5.2), 1.5, 1.5);
}

void paintExclamationTriangle(QPainter& painter, const QColor& color) {
  QPainterPathStroker edge(line(color, 3.0));
  const QPainterPath core = polyline({{9.1, 3.2}, {16.7, 16.4}, {1.5, 16.4}, {9.1, 3.2}});
  QPainterPath mark;
  mark.addRoundedRect(QRectF(8.1, 6.0, 2.0, 6.6), 1.0, 1.0);
  mark.addEllipse(QPointF(9.1, 15.0), 1.25, 1.25);
  painter.fillPath(core.united(edge.createStroke(core)).subtracted(mark), color);
}

void paintMoonZzz(QPainter& painter, const QColor& color) {
  QPainterPath moon;
  moon.addEllipse(QPointF(8.0, 11.8), 7.0, 7.0);
  QPainterPath shadow;
  shadow.addEllipse(QPointF(12.2, 8.0), 6.6, 6.6);
  painter.setPen(line(color, 1.6));
  painter.drawPath(moon.subtracted(shadow));
  painter.setPen(line(color, 1.5));
  painter.drawPath(polyline({{9.4, 7.4}, {12.6, 7.4}, {9.4, 11.2}, {12.6, 11.2}}));
  painter.drawPath(polyline({{14.0, 1.2}, {18.6, 1.2}, {14.0, 6.2}, {18.6, 6.2}}));
}

void paintChevronUpDown(QPainter& painter, const QColor& color) {
  painter.setPen(line(color, 2.2));
  painter.drawPath(polyline({{6.0, 7.4}, {10.0, 3.4}, {14.0, 7.4}}));
  painter.drawPath(polyline({{6.0, 12.6}, {10.0, 16.6}, {14.0, 12.6}}));
}

}  // namespace

Symbol::Symbol(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  connect(this, &Symbol::changed, this, [this] { update(); });
}

void Symbol::paint(QPainter* painter) {
  const double side = std::min(width(), height());
  painter->translate((width() - side) / 2.0, (height() - side) / 2.0);
  painter->scale(side / kSide, side / kSide);
  painter->setBrush(Qt::NoBrush);
  switch (shape_) {
    case Shape::HifiSpeaker:
      return paintHifiSpeaker(*painter, color_);
    case Shape::ExclamationTriangleFill:
      return paintExclamationTriangle(*painter, color_);
    case Shape::MoonZzz:
      return paintMoonZzz(*painter, color_);
    case Shape::ChevronCompactDown:
      painter->setPen(line(color_, 2.4));
      return painter->drawPath(polyline({{1.6, 8.0}, {10.0, 12.0}, {18.4, 8.0}}));
    case Shape::ChevronUpDown:
      return paintChevronUpDown(*painter, color_);
    case Shape::Checkmark:
      painter->setPen(line(color_, 2.6));
      return painter->drawPath(polyline({{4.0, 10.6}, {8.2, 14.8}, {16.0, 5.6}}));
  }
}

}  // namespace orvelle
