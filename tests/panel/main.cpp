// Runs the panel's tests without a display, the same on every computer: with fonts and a palette of
// their own.
#include <gtest/gtest.h>

#include <QFontDatabase>
#include <QGuiApplication>
#include <QQuickWindow>

/// Fontconfig keeps a few bytes of each configuration that it reads, for good. Called by the
/// address sanitizer, where there is one.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig";
}

int main(int argumentCount, char** arguments) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("QT_FONT_DPI", "96");
  qputenv("FONTCONFIG_FILE", ORVELLE_TEST_FONTS "/fonts.conf");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  testing::InitGoogleTest(&argumentCount, arguments);
  const QGuiApplication application(argumentCount, arguments);
  for (const char* family : {"Inter", "DejaVu Sans Mono"}) {
    if (!QFontDatabase::hasFamily(family)) {
      qFatal("No font %s in " ORVELLE_TEST_FONTS, family);
    }
  }
  QFont font("Inter");
  font.setHintingPreference(QFont::PreferNoHinting);
  QGuiApplication::setFont(font);
  return RUN_ALL_TESTS();
}
