// What a fader looks like.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QQuickPaintedItem>

namespace orvelle {

/// A track with a tick in its middle, a bar from there to the knob, and the knob, which stays
/// inside the frame. Painted as one, so that all of it is round and in line at every scale. GUI
/// thread.
class FaderFace : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(double position MEMBER position_ NOTIFY changed)
  Q_PROPERTY(double pixelRatio MEMBER pixelRatio_ NOTIFY changed)
  Q_PROPERTY(QPointF knob READ knob NOTIFY changed)
  Q_PROPERTY(QColor quiet MEMBER quiet_ NOTIFY changed)
  Q_PROPERTY(QColor accent MEMBER accent_ NOTIFY changed)

 public:
  explicit FaderFace(QQuickItem* parent = nullptr);

  /// Middle of the knob.
  [[nodiscard]] QPointF knob() const;

  void paint(QPainter* painter) override;

 signals:
  void changed();

 private:
  /// Where `position_` is, from the top.
  [[nodiscard]] double positionY() const { return height() * (1.0 - position_); }

  /// The last edge of the screen's pixels at or before a place.
  [[nodiscard]] double pixelEdge(double at) const;

  double position_ = 0.5;    ///< 0 at the bottom, 1 at the top
  double pixelRatio_ = 1.0;  ///< the screen's pixels in a device-independent one
  QColor quiet_ = Qt::gray;
  QColor accent_ = Qt::blue;
};

}  // namespace orvelle
