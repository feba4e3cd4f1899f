// Small pictures beside texts, painted from outlines.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QQuickPaintedItem>
#include <cstdint>

namespace orvelle {

/// One symbol, in one colour, as large as fits into the middle of the item; those that stand beside
/// texts begin at its left edge, so that they line up in a column. Says nothing to assistive
/// technology: the text beside it does.
class Symbol : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(Shape shape MEMBER shape_ NOTIFY changed)
  Q_PROPERTY(QColor color MEMBER color_ NOTIFY changed)

 public:
  enum class Shape : std::uint8_t {
    HifiSpeaker,
    ExclamationTriangleFill,
    MoonZzz,
    ChevronCompactDown,
    ChevronUpDown,
    Checkmark,
  };
  Q_ENUM(Shape)

  explicit Symbol(QQuickItem* parent = nullptr);

  void paint(QPainter* painter) override;

 signals:
  void changed();

 private:
  Shape shape_ = Shape::HifiSpeaker;
  QColor color_ = Qt::black;
};

}  // namespace orvelle
