// The meter's lights and the icon in the tray, by the pixel.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <memory>

#include "orvelle/panel/OrvelleIcon.h"
#include "tests/panel/PanelRig.h"

namespace orvelle {
namespace {

class LevelMeter : public PanelRig {
 protected:
  /// A letter for each light: green, yellow, red, or a dot where it is dark.
  QString lights(float level, bool isActive, int segments = 24) {
    QQmlComponent component(view.engine(),
                            QUrl("qrc:/qt/qml/app/orvelle/panel/LevelMeterView.qml"));
    const std::unique_ptr<QObject> meter(component.createWithInitialProperties(
        {{"level", level}, {"isActive", isActive}, {"segments", segments}}));
    QString text;
    for (const QColor& color : meter->property("colors").value<QList<QColor>>()) {
      const int hue = color.hue();
      text += color.alpha() < 255 ? '.' : hue > 80 ? 'g' : hue > 30 && hue < 80 ? 'y' : 'r';
    }
    return text;
  }
};

// Would catch thresholds that are off by a segment, comparisons that are not strict, and lights on
// a boost that does not run.
TEST_F(LevelMeter, LightsBelowTheLevel) {
  open();
  const auto lit = [](int count) {
    return QString("ggggggggggggggggyyyyyrrr").left(count).leftJustified(24, '.');
  };
  EXPECT_EQ(lights(0.0F, true), lit(0));
  EXPECT_EQ(lights(1e-6F, true), lit(1));
  for (int segment = 0; segment < 24; ++segment) {
    const float exactly = static_cast<float>(segment) / 24.0F;
    EXPECT_EQ(lights(exactly, true), lit(segment));
    EXPECT_EQ(lights(std::nextafter(exactly, 2.0F), true), lit(segment + 1));
  }
  EXPECT_EQ(lights(1.0F, true), lit(24));
  EXPECT_EQ(lights(7.0F, true), lit(24));
  EXPECT_EQ(lights(1.0F, false), lit(0));
  // 13 and 17 of 20 are the thresholds themselves.
  EXPECT_EQ(lights(1.0F, true, 20), "ggggggggggggggyyyyrr");
  EXPECT_EQ(lights(1.0F, true, 0), "");
}

// Would catch an icon upside down, without its bolt or wave, or as strong when off.
TEST(OrvelleIconTest, IsAsItWasDrawn) {
  for (const double scale : {1.0, 1.5, 2.0, 8.0}) {
    const QImage icon = OrvelleIcon(true, scale);
    EXPECT_EQ(icon.size(), QSize(static_cast<int>(22 * scale), static_cast<int>(16 * scale)));
    EXPECT_EQ(icon.deviceIndependentSize(), QSizeF(22.0, 16.0));
  }
  const auto alpha = [](const QImage& image, double x, double y) {
    // The drawing counts y from the bottom.
    return image.pixelColor(static_cast<int>(x * 8), static_cast<int>((16.0 - y) * 8)).alphaF();
  };
  const QImage on = OrvelleIcon(true, 8.0);
  const QImage off = OrvelleIcon(false, 8.0);
  struct Point {
    double x;
    double y;
    float on;
    float off;
  };
  const std::vector<Point> points = {
      {11.0, 11.0, 1.0F, 0.4F},     // the bolt's upper half
      {10.8, 4.0, 1.0F, 0.4F},      // and its lower one
      {2.75, 9.45, 0.85F, 0.34F},   // the wave's first crest
      {19.25, 6.55, 0.85F, 0.34F},  // and its last trough
      {2.75, 6.0, 0.0F, 0.0F},     {19.0, 14.0, 0.0F, 0.0F}, {7.0, 14.0, 0.0F, 0.0F},
  };
  for (const Point& point : points) {
    EXPECT_NEAR(alpha(on, point.x, point.y), point.on, 0.01) << point.x << ", " << point.y;
    EXPECT_NEAR(alpha(off, point.x, point.y), point.off, 0.01) << point.x << ", " << point.y;
  }
  QPainter nowhere;
  EXPECT_FALSE(drawOrvelleIcon(nowhere, true, Qt::black));
  EXPECT_TRUE(trayIcon(true, Qt::white).availableSizes().contains(QSize(22, 22)));
  const QIcon wide = wideIcon(true, Qt::black);
  EXPECT_EQ(wide.availableSizes(), QList({QSize(22, 16), QSize(44, 32), QSize(66, 48)}));
  EXPECT_TRUE(wide.isMask());
}

}  // namespace
}  // namespace orvelle
