// The thinnest line that looks the same wherever it lies.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QQuickPaintedItem>

namespace orvelle {

/// A horizontal line at the top of the item: as many whole pixels of the screen as a
/// device-independent one has. Give the item a height of two. GUI thread.
class Hairline : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(QColor color MEMBER color_ NOTIFY changed)

 public:
  explicit Hairline(QQuickItem* parent = nullptr);

  void paint(QPainter* painter) override;

 signals:
  void changed();

 private:
  QColor color_ = Qt::gray;
};

}  // namespace orvelle
