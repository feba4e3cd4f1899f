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
  Q_PROPERTY(double knobY READ knobY NOTIFY changed)
  Q_PROPERTY(QColor quiet MEMBER quiet_ NOTIFY changed)
  Q_PROPERTY(QColor accent MEMBER accent_ NOTIFY changed)

 public:
  explicit FaderFace(QQuickItem* parent = nullptr);

  /// Middle of the knob, from the top.
  [[nodiscard]] double knobY() const;

  void paint(QPainter* painter) override;

 signals:
  void changed();

 private:
  /// Where `position_` is, from the top.
  [[nodiscard]] double positionY() const { return height() * (1.0 - position_); }

  double position_ = 0.5;  ///< 0 at the bottom, 1 at the top
  QColor quiet_ = Qt::gray;
  QColor accent_ = Qt::blue;
};

}  // namespace orvelle
