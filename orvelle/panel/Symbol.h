// Small pictures beside texts, painted from outlines.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QColor>
#include <QQuickPaintedItem>
#include <cstdint>

namespace orvelle {

/// One symbol, in one colour, as large as fits into the middle of the item. Says nothing to
/// assistive technology: the text beside it does.
class Symbol : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(Shape shape READ shape WRITE setShape NOTIFY shapeChanged)
  Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)

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

  [[nodiscard]] Shape shape() const { return shape_; }
  void setShape(Shape shape);
  [[nodiscard]] QColor color() const { return color_; }
  void setColor(const QColor& color);

  void paint(QPainter* painter) override;

 signals:
  void shapeChanged();
  void colorChanged();

 private:
  Shape shape_ = Shape::HifiSpeaker;
  QColor color_ = Qt::black;
};

}  // namespace orvelle
