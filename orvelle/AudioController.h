// The model behind the panel: one boost, its settings per output device, and what the user sees of
// both.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/AppAudio.h"
#include "orvelle/BoostEngine.h"
#include "orvelle/BoostStarter.h"
#include "orvelle/DeviceRouter.h"
#include "orvelle/DriverConflicts.h"
#include "orvelle/EQSelection.h"
#include "orvelle/IdleStandby.h"
#include "orvelle/PlayerWatch.h"
#include "orvelle/ProcessAudio.h"
#include "orvelle/SettingsStore.h"
#include "orvelle/platform/BackgroundQueue.h"
#include "orvelle/platform/HostServices.h"
#include "orvelle/platform/UserDefaults.h"

namespace orvelle {

/// What the controller needs of the world. All of it outlives the controller.
struct ControllerHost {
  EngineHost engine;
  BackgroundQueue& background;
  UserDefaults& defaults;
  HostServices& services;
  const ApplicationNames& applicationNames;
  /// Where this system's audio drivers are installed.
  std::filesystem::path installedDrivers{driverFolder};
};

/// Off, Starting, On or Standby; never more than one engine, and none behind a panel that shows
/// Off. Views bind to the properties. They hear of changes when all that belongs to them has taken
/// effect, so that whoever is told may call back. A setting that is changed is written when its
/// setter returns. Main thread.
class AudioController : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool isOn READ isOn NOTIFY isOnChanged)
  Q_PROPERTY(bool startInProgress READ startInProgress NOTIFY startInProgressChanged)
  Q_PROPERTY(bool boostArmed READ boostArmed NOTIFY boostArmedChanged)
  Q_PROPERTY(QString deviceName READ deviceName NOTIFY deviceNameChanged)
  Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
  Q_PROPERTY(QString boostStatus READ boostStatus NOTIFY boostStatusChanged)
  Q_PROPERTY(float level READ level NOTIFY levelChanged)
  Q_PROPERTY(double boost READ boost WRITE setBoost NOTIFY boostChanged)
  Q_PROPERTY(QString dbLabel READ dbLabel NOTIFY boostChanged)
  Q_PROPERTY(bool eqEnabled READ eqEnabled WRITE setEqEnabled NOTIFY eqEnabledChanged)
  Q_PROPERTY(QString eqSelection READ eqSelection WRITE setEqSelection NOTIFY eqSelectionChanged)
  Q_PROPERTY(bool isEditingBands READ isEditingBands NOTIFY isEditingBandsChanged)
  Q_PROPERTY(
      QList<double> customGains READ customGains WRITE setCustomGains NOTIFY customGainsChanged)
  Q_PROPERTY(QVariantMap userPresets READ userPresets NOTIFY userPresetsChanged)
  Q_PROPERTY(
      bool spatialEnabled READ spatialEnabled WRITE setSpatialEnabled NOTIFY spatialEnabledChanged)
  Q_PROPERTY(double spatialWidth READ spatialWidth WRITE setSpatialWidth NOTIFY spatialWidthChanged)
  Q_PROPERTY(bool idleStandbyEnabled READ idleStandbyEnabled WRITE setIdleStandbyEnabled NOTIFY
                 idleStandbyEnabledChanged)
  Q_PROPERTY(bool startAtLogin READ startAtLogin WRITE setStartAtLogin NOTIFY startAtLoginChanged)
  Q_PROPERTY(
      QStringList activeHALConflicts READ activeHALConflicts NOTIFY activeHALConflictsChanged)
  Q_PROPERTY(QString audioSystemName READ audioSystemName CONSTANT)

 public:
  /// Reads the settings and takes those of the preferred output. Starts no boost.
  explicit AudioController(const ControllerHost& host);
  AudioController(const AudioController&) = delete;
  AudioController& operator=(const AudioController&) = delete;
  /// Waits for a start that runs, but puts nothing right: call `shutdown` first.
  ~AudioController() override;

  /// The application's one controller, which `provideShared` has said how to make; made on first
  /// use.
  static AudioController& shared();
  static void provideShared(std::function<std::unique_ptr<AudioController>()> make);

  /// Begins to start the boost into the preferred output; supersedes an attempt that runs.
  Q_INVOKABLE void start();
  /// Ends the boost, also one that sleeps or is about to start.
  Q_INVOKABLE void stop();
  /// What the panel's switch does. Nothing while a start is in progress.
  Q_INVOKABLE void toggle();
  /// Ends all that sounds, before the program ends; the controller is of no use afterwards. False
  /// when the audio system hangs in a start and did not let go for some seconds: destructors would
  /// wait for it.
  bool shutdown();

  /// Takes the bands as they are as a preset of that name, white space around it removed, and
  /// selects it. Replaces one of that name; an empty name does nothing.
  Q_INVOKABLE void saveUserPreset(const QString& named);
  /// Where it was selected, its bands stay as the custom ones.
  Q_INVOKABLE void deleteUserPreset(const QString& name);

  [[nodiscard]] bool isOn() const { return isOn_; }
  [[nodiscard]] bool startInProgress() const { return startInProgress_; }
  /// The boost sleeps and waits for a program that plays.
  [[nodiscard]] bool boostArmed() const { return boostArmed_; }
  /// The device whose settings are the live ones; empty where there has been none yet.
  [[nodiscard]] const std::string& currentDeviceUID() const { return currentDeviceUID_; }
  /// "—" where there is no output.
  [[nodiscard]] QString deviceName() const { return QString::fromStdString(deviceName_); }
  /// Why the last start failed; null when it did not.
  [[nodiscard]] QString lastError() const { return lastError_; }
  /// What a boost that sleeps is waiting for; null when it does not.
  [[nodiscard]] QString boostStatus() const { return boostStatus_; }
  /// Linear, 0 while the panel is closed.
  [[nodiscard]] float level() const { return level_; }

  /// Linear factor.
  [[nodiscard]] double boost() const { return boost_; }
  void setBoost(double boost);
  [[nodiscard]] QString dbLabel() const;

  [[nodiscard]] bool eqEnabled() const { return eqEnabled_; }
  void setEqEnabled(bool isEnabled);
  /// A built-in preset, "Custom", or a user preset.
  [[nodiscard]] QString eqSelection() const { return QString::fromStdString(eqSelection_); }
  void setEqSelection(const QString& selection);
  [[nodiscard]] bool isEditingBands() const;
  /// Ten gains in dB, 32 Hz first.
  [[nodiscard]] QList<double> customGains() const;
  void setCustomGains(const QList<double>& gainsDb);
  /// Lists of gains in dB by name.
  [[nodiscard]] QVariantMap userPresets() const;

  [[nodiscard]] bool spatialEnabled() const { return spatialEnabled_; }
  void setSpatialEnabled(bool isEnabled);
  /// 1 is neutral; heard while `spatialEnabled`.
  [[nodiscard]] double spatialWidth() const { return spatialWidth_; }
  void setSpatialWidth(double width);

  [[nodiscard]] bool idleStandbyEnabled() const { return idleStandbyEnabled_; }
  /// Switched off, it wakes a boost that sleeps.
  void setIdleStandbyEnabled(bool isEnabled);

  [[nodiscard]] bool startAtLogin() const { return startAtLogin_; }
  /// Stays as it was set where the desktop refuses; the next run asks the desktop again.
  void setStartAtLogin(bool isEnabled);

  /// Other drivers and programs that work on all sound.
  [[nodiscard]] QStringList activeHALConflicts() const { return activeHALConflicts_; }
  [[nodiscard]] QString audioSystemName() const;

  /// Applications with a volume of their own. The controller moves their taps along with the boost
  /// and ends them at `shutdown`; whoever fills the list is elsewhere.
  std::vector<std::unique_ptr<AppAudio>> apps;

 signals:
  void isOnChanged();
  void startInProgressChanged();
  void boostArmedChanged();
  void deviceNameChanged();
  void lastErrorChanged();
  void boostStatusChanged();
  void levelChanged();
  void boostChanged();
  void eqEnabledChanged();
  void eqSelectionChanged();
  void isEditingBandsChanged();
  void customGainsChanged();
  void userPresetsChanged();
  void spatialEnabledChanged();
  void spatialWidthChanged();
  void idleStandbyEnabledChanged();
  void startAtLoginChanged();
  void activeHALConflictsChanged();

 private:
  // AudioController.cpp: life of the boost.
  void observeHardware();
  void startEnded(std::int64_t attempt, const StartOutcome& outcome);
  void startSucceeded();
  void startFailed(const std::string& problem);
  void watchStart(std::int64_t attempt);
  void leaveOn(bool restoreDefault);
  void rerouteTaps();
  void outputWillChange(const std::string& uid);
  void outputChanged(const AudioDeviceInfo& output);
  void devicesChanged();
  void refreshDeviceName();
  void refreshHALConflicts();
  void updateLoginItem();

  // AudioControllerStandby.cpp: the timers that look at what is heard.
  void startStandbyWatcher(double intervalSeconds);
  void stopStandbyWatcher();
  void standbyTick();
  void watchForSilence();
  void watchForPlayers();
  void enterStandby();
  [[nodiscard]] bool isOutputBluetooth() const;
  [[nodiscard]] bool hasRealPlayers() const;
  void startLevelMeter();
  void stopLevelMeter();
  void meterTick();
  [[nodiscard]] bool isPanelVisible() const;

  // AudioControllerSettings.cpp: what is remembered per device.
  void loadSettings();
  void switchToDevice(const std::string& uid);
  void apply(const DeviceSettings& settings);
  [[nodiscard]] DeviceSettings currentSettings() const;
  void persist();
  void announceSelection();
  void applyCurrentEQ();
  void applySpatialWidth();

  using Signal = void (AudioController::*)();

  /// Something is changing. The end of the outermost change tells the views: at once, or with the
  /// main queue's next job where the caller is in the middle of something.
  class Change {
   public:
    enum class Telling : std::uint8_t { atOnce, later };
    explicit Change(AudioController& controller, Telling telling = Telling::atOnce)
        : controller_(controller), telling_(telling) {
      ++controller_.openChanges_;
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    ~Change() {
      --controller_.openChanges_;
      if (telling_ == Telling::atOnce) {
        controller_.tellViews();
      } else {
        controller_.host_.engine.queue.post(controller_.whileAlive([] {}));
      }
    }

   private:
    AudioController& controller_;
    const Telling telling_;
  };

  void announce(Signal changed);
  void tellViews();

  /// For what the user cannot set: views hear of true changes only.
  template <typename Value>
  void publish(Value& field, const Value& value, Signal changed) {
    if (field != value) {
      field = value;
      announce(changed);
    }
  }
  /// `job` for the main queue as one change, without effect once the controller is gone.
  MainQueue::Job whileAlive(std::function<void()> job);

  ControllerHost host_;
  HAL hal_;
  ProcessAudio processes_;
  SettingsStore settings_;
  BoostEngine engine_;
  BoostStarter starter_;
  std::unique_ptr<DeviceRouter> router_;
  std::unique_ptr<ProcessActivity> napActivity_;
  /// The own loopback device where there is one, else the driver that many computers have.
  const std::string loopbackUID_;

  bool isOn_ = false;
  bool startInProgress_ = false;
  bool boostArmed_ = false;
  std::string deviceName_ = "—";
  QString lastError_;
  QString boostStatus_;
  float level_ = 0.0F;
  double boost_ = 2.0;
  bool eqEnabled_ = false;
  std::string eqSelection_ = "Flat";
  BandGains customGains_{};
  UserPresets userPresets_;
  bool spatialEnabled_ = false;
  double spatialWidth_ = 1.5;
  bool idleStandbyEnabled_ = false;
  bool startAtLogin_ = false;
  QStringList activeHALConflicts_;

  /// Names the latest start, stop or standby: results of earlier starts are not its own.
  std::int64_t startAttempt_ = 0;
  /// When the boost that runs began, on the engine's clock.
  std::optional<double> boostStartedAt_;
  SilenceCounter silence_;
  TimerID standbyTimer_ = 0;
  std::unique_ptr<PlayerWatch> playerWatch_;  ///< in standby
  TimerID levelTimer_ = 0;

  /// Settings are not written before they have been read, nor while a record is being applied: a
  /// mixture of two devices' settings must never be stored.
  bool loaded_ = false;
  bool isApplying_ = false;
  DeviceStore store_;
  /// The device whose settings are the live ones; empty where there is none.
  std::string currentDeviceUID_;

  int openChanges_ = 0;
  std::vector<Signal> untold_;  ///< each once, in the order of the changes

  std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
};

}  // namespace orvelle
