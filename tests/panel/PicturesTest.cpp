// What the panel looks like, in every state and in both faces.
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <cstdlib>
#include <string>

#include "tests/panel/PanelRig.h"

namespace orvelle {
namespace {

struct State {
  const char* name;
  bool dark;
};

void PrintTo(const State& state, std::ostream* stream) {
  *stream << state.name << (state.dark ? ", dark" : ", light");
}

class Pictures : public PanelRig, public testing::WithParamInterface<State> {
 protected:
  /// What the controller does.
  void prepare(const std::string& state);
  /// What the user does in the open panel.
  void show(const std::string& state);
  void nameSpeakers(const std::string& name);
};

void Pictures::nameSpeakers(const std::string& name) {
  DeviceDescription speakers = hardware.unplug(kSpeakers);
  speakers.name = name;
  hardware.plug(speakers);
  hardware.chooseDefaultOutput(kSpeakers);
  queue.runUntilIdle();
}

void Pictures::prepare(const std::string& state) {
  nameSpeakers("Built-in Audio Analog Stereo");
  if (state == "on") {
    playMusic();
  } else if (state == "standby") {
    fallAsleep();
  } else if (state == "error") {
    hardware.inject({.kind = CallKind::createAggregateDevice});
    controller->toggle();
    queue.advance(15.0);
  } else if (state == "error-and-standby" || state == "scrolled") {
    fallAsleep();
    hangNextStartFor(12.0);
    hardware.setPlaying(player, true);
    queue.advance(9.0);
    if (state == "scrolled") {
      editBands();
    }
  } else if (state == "keyboard") {
    editBands();
  } else if (state == "bands") {
    playMusic();
    editBands();
    controller->setCustomGains({6.0, 4.5, 2.0, 0.0, -1.5, -3.0, -1.0, 1.5, 4.0, 12.0});
  } else if (state == "user-preset") {
    editBands();
    controller->setCustomGains({3.0, 5.0, 4.0, 1.0, 0.0, 0.0, 1.0, 2.0, 3.0, -12.0});
    controller->saveUserPreset("Late evening");
    controller->setSpatialEnabled(true);
  } else if (state == "menu") {
    controller->saveUserPreset("Late evening");
    controller->setEqEnabled(true);
    controller->setEqSelection("Music");
  } else if (state == "drivers") {
    installDrivers();
  } else if (state == "long-name") {
    nameSpeakers("Family Room Soundbar with Wireless Subwoofer (HDMI 2, Digital Surround 5.1)");
  } else if (state == "no-name") {
    nameSpeakers("");
  }
}

void Pictures::show(const std::string& state) {
  if (state == "menu") {
    click(control("Preset", QAccessible::ComboBox));
  } else if (state == "keyboard") {
    slider("64 Hz")->forceActiveFocus(Qt::TabFocusReason);
  } else if (state == "scrolled") {
    button("Quit Orvelle")->forceActiveFocus(Qt::TabFocusReason);
  }
}

QString fileName(const State& state, double scale) {
  return QString("%1-%2-%3x.png").arg(state.name, state.dark ? "dark" : "light").arg(scale);
}

/// Where the two differ, red on a faint copy of the first; null where they do not.
QImage difference(const QImage& wanted, const QImage& actual) {
  QImage marked = wanted.convertToFormat(QImage::Format_RGB32);
  bool differs = wanted.size() != actual.size();
  for (int y = 0; y < std::min(marked.height(), actual.height()); ++y) {
    for (int x = 0; x < std::min(marked.width(), actual.width()); ++x) {
      const bool same = wanted.pixel(x, y) == actual.pixel(x, y);
      differs = differs || !same;
      const int grey = 160 + (qGray(wanted.pixel(x, y)) / 3);
      marked.setPixel(x, y, same ? qRgb(grey, grey, grey) : qRgb(220, 0, 0));
    }
  }
  return differs ? marked : QImage();
}

// Would catch a change of the looks that nobody wanted: a row that moved, a text that is cut off, a
// colour that the other face has not. With ORVELLE_PICTURES the pictures go to that folder instead.
TEST_P(Pictures, AreAsTheyWere) {
  wearFace(GetParam().dark);
  prepare(GetParam().name);
  open();
  show(GetParam().name);
  const QImage actual = picture();
  const QString name = fileName(GetParam(), view.devicePixelRatio());
  if (const char* folder = std::getenv("ORVELLE_PICTURES")) {
    ASSERT_TRUE(actual.save(QDir(folder).filePath(name)));
    return;
  }
  const QImage wanted(QString(ORVELLE_TEST_PICTURES "/") + name);
  ASSERT_FALSE(wanted.isNull()) << "no " << name.toStdString();
  const QImage marked = difference(wanted, actual);
  if (!marked.isNull()) {
    const QDir folder(QDir::current().filePath("differences"));
    folder.mkpath(".");
    actual.save(folder.filePath(name));
    marked.save(folder.filePath("marked-" + name));
    FAIL() << "see " << folder.filePath("marked-" + name).toStdString();
  }
}

std::vector<State> everyState() {
  std::vector<State> states;
  for (const char* name :
       {"off", "on", "standby", "error", "error-and-standby", "bands", "user-preset", "menu",
        "drivers", "long-name", "no-name", "keyboard", "scrolled"}) {
    states.push_back({name, false});
    states.push_back({name, true});
  }
  return states;
}

std::string caseName(const testing::TestParamInfo<State>& info) {
  std::string name = info.param.name;
  std::erase(name, '-');
  return name + (info.param.dark ? "Dark" : "Light");
}

INSTANTIATE_TEST_SUITE_P(Panel, Pictures, testing::ValuesIn(everyState()), caseName);

}  // namespace
}  // namespace orvelle
