#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QProcess>
#include <QThreadPool>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "orvelle/platform/linux/AlertSound.h"
#include "orvelle/platform/linux/AutostartEntry.h"
#include "orvelle/platform/linux/IdleInhibitor.h"

namespace orvelle {
namespace {

namespace fs = std::filesystem;

/// A home, folders of the system and a bus address of its own.
class HostServicesTest : public testing::Test {
 protected:
  HostServicesTest() {
    std::string name = (fs::temp_directory_path() / "orvelle-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    setenv("XDG_CONFIG_HOME", (folder_ / "user").c_str(), 1);
    setenv("XDG_CONFIG_DIRS", (folder_ / "system").c_str(), 1);
    setenv("XDG_DATA_HOME", folder_.c_str(), 1);
    setenv("XDG_DATA_DIRS", folder_.c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + bus().string()).c_str(), 1);
  }
  ~HostServicesTest() override {
    fs::remove_all(folder_);
    fs::remove(bus());
  }

  [[nodiscard]] const fs::path& folder() const { return folder_; }
  /// The same for all tests of a process: its first use is the one that counts.
  static fs::path bus() {
    return fs::temp_directory_path() / ("orvelle-bus-" + std::to_string(getpid()));
  }
  [[nodiscard]] fs::path entry(const char* owner) const {
    return folder_ / owner / "autostart" / "app.orvelle.desktop";
  }

  static void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  static std::string read(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  fs::path program(const std::string& name, const std::string& script = "") const {
    const fs::path file = folder_ / name;
    write(file, "#!/bin/sh\n" + script);
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }

  /// Serves the event loop until `condition` holds; says whether it held in time.
  static bool eventually(const std::function<bool()>& condition) {
    QElapsedTimer elapsed;
    for (elapsed.start(); !condition();) {
      if (elapsed.elapsed() > 5000) {
        return false;
      }
      QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
      usleep(1000);
    }
    return true;
  }

 private:
  fs::path folder_;
  int argumentCount_ = 1;
  std::string name_ = "test";
  std::array<char*, 2> arguments_ = {name_.data(), nullptr};
  QCoreApplication application_{argumentCount_, arguments_.data()};
};

// Start at login

using AutostartTest = HostServicesTest;

// Fault: a path that the desktop reads as another one, or as several arguments.
TEST_F(AutostartTest, AnyPathIsStarted) {
  for (const char* name :
       {"orvelle", "two words", "a \"b\" 100%f $c `d` \\e", "tab\tand\nline", "\\", "%", " "}) {
    const AutostartEntry entry(program(name));
    ASSERT_EQ(entry.enable(), std::nullopt) << name;
    EXPECT_TRUE(entry.isEnabled()) << name;
    fs::remove(folder() / name);
    EXPECT_FALSE(entry.isEnabled()) << name << " has been uninstalled";
  }
  // By the rules of desktop entries, without this program's own reading.
  ASSERT_EQ(AutostartEntry("/a \"b\" 100%f $c `d` \\e").enable(), std::nullopt);
  EXPECT_NE(read(entry("user"))
                .find(R"(Exec="/a \\"b\\" 100%%f \\$c \\`d\\` \\\\e" gui)"
                      "\n"),
            std::string::npos)
      << read(entry("user"));
}

// Fault: a switch shown that is not what the desktop will do, and one that does not take because of
// what stood there before.
TEST_F(AutostartTest, SwitchesWhateverWasThere) {
  const std::string works = "[Desktop Entry]\nExec=sh %U\n";
  struct Case {
    const char* what;
    std::string user;
    std::string system;
    bool isEnabled;
  };
  for (const Case& test : std::vector<Case>{
           {"nothing", "", "", false},
           {"user's", works, "", true},
           {"system's", "", works, true},
           {"hidden", works + "Hidden=true\n", works, false},
           {"switched off by GNOME", works + "X-GNOME-Autostart-enabled=false\n", works, false},
           {"program gone", "[Desktop Entry]\nExec=/nowhere/sh\n", works, false},
           {"no program", "[Desktop Entry]\n", works, false},
           {"an action's keys", works + "[Desktop Action a]\nHidden=true\n", "", true},
           {"a comment", works + "#Hidden=true\n", "", true},
           {"system's hidden", "", works + "Hidden=true\n", false}}) {
    SCOPED_TRACE(test.what);
    fs::remove_all(folder() / "user");
    fs::remove_all(folder() / "system");
    for (const auto& [owner, text] :
         {std::pair("user", test.user), std::pair("system", test.system)}) {
      if (!text.empty()) {
        write(entry(owner), text);
      }
    }
    const AutostartEntry autostart("/bin/sh");
    EXPECT_EQ(autostart.isEnabled(), test.isEnabled);
    for (const bool isWanted : {false, true, false}) {
      EXPECT_EQ(isWanted ? autostart.enable() : autostart.disable(), std::nullopt);
      EXPECT_EQ(autostart.isEnabled(), isWanted);
    }
    EXPECT_EQ(fs::exists(entry("user")), test.system == works) << "left only to switch it off";
  }
}

// Fault: a failure without the file and the reason, or half a file left by it.
TEST_F(AutostartTest, FailuresSayWhichFileAndWhy) {
  const AutostartEntry autostart("/bin/sh");
  fs::create_directories(entry("user") / "in the way");
  for (const auto& problem : {autostart.enable(), autostart.disable()}) {
    ASSERT_TRUE(problem);
    EXPECT_TRUE(problem->find(entry("user").string() + ": ") != std::string::npos) << *problem;
  }
  const fs::directory_iterator files(folder() / "user" / "autostart");
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);

  fs::remove_all(folder() / "user");
  write(folder() / "user", "a file");
  EXPECT_EQ(autostart.enable(),
            "cannot create " + (folder() / "user/autostart").string() + ": Not a directory");
}

// Staying awake

/// What stands behind the lock that it gave.
class LoginManager : public QDBusVirtualObject {
 public:
  QString introspect(const QString& /*path*/) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    question = message;
    connection_ = std::make_unique<QDBusConnection>(connection);
    return true;
  }

  /// Gives the lock that was asked for.
  void answer() {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    reader_ = ends[0];
    connection_->send(question.createReply(QVariant::fromValue(QDBusUnixFileDescriptor(ends[1]))));
    close(ends[1]);
  }
  [[nodiscard]] bool isLockHeld() const {
    pollfd state{reader_, POLLIN, 0};
    return poll(&state, 1, 0) == 0;
  }

  QDBusMessage question;

 private:
  std::unique_ptr<QDBusConnection> connection_;
  int reader_ = -1;
};

class IdleInhibitorTest : public HostServicesTest {
 protected:
  void startBus() {
    // Does not outlive a test that is killed.
    daemon_.start("setpriv",
                  {"--pdeathsig", "KILL", "--", "dbus-daemon", "--session", "--nofork",
                   "--print-address", "--address", QString("unix:path=") + bus().c_str()});
    ASSERT_TRUE(daemon_.waitForReadyRead());
    auto connection =
        QDBusConnection::connectToBus(QString("unix:path=") + bus().c_str(), "login manager");
    ASSERT_TRUE(connection.registerService("org.freedesktop.login1"));
    ASSERT_TRUE(connection.registerVirtualObject("/org/freedesktop/login1", &manager_));
  }

  std::unique_ptr<IdleInhibitor> begin() {
    QElapsedTimer elapsed;
    elapsed.start();
    auto inhibitor = std::make_unique<IdleInhibitor>(worker_, "Loud music");
    EXPECT_LT(elapsed.elapsed(), 500) << "waited for the bus";
    return inhibitor;
  }
  bool isAsked() {
    return eventually([&] { return manager_.question.member() == "Inhibit"; });
  }

  ~IdleInhibitorTest() override {
    QDBusConnection::disconnectFromBus("login manager");
    daemon_.kill();
    daemon_.waitForFinished();
  }

  LoginManager manager_;
  QThreadPool worker_;

 private:
  QProcess daemon_;
};

// Fault: a computer that falls asleep while music plays, that does not when its lid is closed, or
// that never does again.
TEST_F(IdleInhibitorTest, HoldsTheLockWhileItLives) {
  startBus();
  auto inhibitor = begin();
  ASSERT_TRUE(isAsked());
  EXPECT_EQ(manager_.question.interface(), "org.freedesktop.login1.Manager");
  EXPECT_EQ(manager_.question.arguments(),
            (QVariantList{"idle", "Orvelle", "Loud music", "block"}));
  manager_.answer();
  worker_.waitForDone();
  EXPECT_TRUE(manager_.isLockHeld());
  inhibitor.reset();
  EXPECT_TRUE(eventually([&] { return !manager_.isLockHeld(); }));
}

// Fault: a lock that arrives when nobody is there any more to give it back.
TEST_F(IdleInhibitorTest, EndsALockThatComesTooLate) {
  startBus();
  auto inhibitor = begin();
  ASSERT_TRUE(isAsked());
  inhibitor.reset();
  manager_.answer();
  EXPECT_TRUE(eventually([&] { return !manager_.isLockHeld(); }));
}

// Fault: a program that stands still, or complains, because of a bus that is not there or hangs.
TEST_F(IdleInhibitorTest, DoesNotNeedABus) {
  testing::internal::CaptureStderr();
  begin();
  worker_.waitForDone();
  const int mute = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  bus().string().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(mute, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(mute, 1), 0);
  begin();
  usleep(100'000);
  begin();
  close(mute);
  worker_.waitForDone();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Alert

// Fault: a program that stands still while its alert sounds, or collects dead children.
TEST_F(HostServicesTest, TheAlertIsPlayedByNobodysChild) {
  setenv("PATH", (folder().string() + ":" + std::getenv("PATH")).c_str(), 1);
  const fs::path marker = folder() / "played";
  const fs::path sound = folder() / "sounds" / "freedesktop" / "stereo" / "bell.oga";
  write(sound, "");
  program("pw-play", "echo \"$@\" >" + marker.string() + ".new\nmv " + marker.string() + ".new " +
                         marker.string() + "\nsleep 2\n");
  QElapsedTimer elapsed;
  elapsed.start();
  playAlert();
  EXPECT_LT(elapsed.elapsed(), 1000);
  ASSERT_TRUE(eventually([&] { return fs::exists(marker); }));
  EXPECT_NE(read(marker).find(sound.string()), std::string::npos);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace orvelle
