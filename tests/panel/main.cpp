// Runs the panel's tests without a display, the same on every computer: one font, one palette.
#include <gtest/gtest.h>

#include <QFontDatabase>
#include <QGuiApplication>
#include <QQuickWindow>

int main(int argumentCount, char** arguments) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("QT_FONT_DPI", "96");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  testing::InitGoogleTest(&argumentCount, arguments);
  const QGuiApplication application(argumentCount, arguments);
  for (const char* name : {"Inter-Regular.otf", "Inter-SemiBold.otf"}) {
    if (QFontDatabase::addApplicationFont(QString(ORVELLE_TEST_FONTS "/") + name) < 0) {
      qFatal("No font %s in " ORVELLE_TEST_FONTS, name);
    }
  }
  QFont font("Inter");
  font.setHintingPreference(QFont::PreferNoHinting);
  QGuiApplication::setFont(font);
  return RUN_ALL_TESTS();
}
