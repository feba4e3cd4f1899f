// A row of small lights.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QList>
#include <QQuickPaintedItem>

namespace orvelle {

/// Rounded segments that share the width, each in its colour. Their edges are on whole pixels of
/// the screen at every scale. GUI thread.
class SegmentBar : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(QList<QColor> colors READ colors WRITE setColors NOTIFY colorsChanged)

 public:
  using QQuickPaintedItem::QQuickPaintedItem;

  /// From left to right.
  [[nodiscard]] QList<QColor> colors() const { return colors_; }
  void setColors(const QList<QColor>& colors);

  void paint(QPainter* painter) override;

 signals:
  void colorsChanged();

 private:
  QList<QColor> colors_;
};

}  // namespace orvelle
