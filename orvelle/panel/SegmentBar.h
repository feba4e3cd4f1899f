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
  Q_PROPERTY(QList<QColor> colors MEMBER colors_ NOTIFY changed)

 public:
  explicit SegmentBar(QQuickItem* parent = nullptr);

  void paint(QPainter* painter) override;

 signals:
  void changed();

 private:
  QList<QColor> colors_;  ///< from left to right
};

}  // namespace orvelle
