// The settings file: damaged, in the way of a kill, on a full disk, and in other hands.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <tuple>

#include "orvelle/SettingsStore.h"
#include "orvelle/platform/linux/FileUserDefaults.h"
#include "orvelle/platform/simulated/RecordingConsole.h"

namespace orvelle {
namespace {

namespace fs = std::filesystem;

/// All values depend on `boost`: a mixture of two states is neither.
DeviceStore stateOf(double boost) {
  DeviceStore store;
  for (const char* uid : {"alsa_output.usb", "bluez \"é\"", "built-in; [x]=\\"}) {
    store[uid] = {boost, true, "Mine", false, boost / 3.0, std::vector<double>(10, boost)};
  }
  return store;
}

const UserPresets savedPresets = {{"Mine", {0.1, -3.0}}, {"Böse \U0001F50A", {12.0}}};

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class FileUserDefaultsTest : public testing::Test {
 protected:
  FileUserDefaultsTest() { fs::create_directories(folder_); }
  ~FileUserDefaultsTest() override { fs::remove_all(folder_); }

  static std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  void fill(const std::string& content) const {
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << content;
  }

  fs::path copy(int number) const {
    return folder_ / ("orvelle.conf.damaged-" + std::to_string(number));
  }

  /// What a sound program leaves behind.
  std::string wholeFile() {
    FileUserDefaults defaults(file_, console_);
    SettingsStore store(defaults);
    store.saveStore(stateOf(2.0));
    store.saveUserPresets(savedPresets);
    store.saveIdleStandby(true);
    return contentOf(file_);
  }

  struct Found {
    std::optional<DeviceStore> devices;
    std::optional<UserPresets> presets;
    bool isKept = false;  ///< the content, in a file of its own
  };

  /// Starts with `content`, reads everything, changes one setting, and starts again.
  Found runOn(const std::string& content) {
    Found found;
    fs::remove(copy(1));
    fill(content);
    {
      FileUserDefaults defaults(file_, console_);
      SettingsStore store(defaults);
      std::ignore = store.loadIdleStandby();
      found.presets = store.loadUserPresets();
      found.devices = store.loadStore();
      EXPECT_FALSE(fs::exists(copy(1))) << "copied without need: nothing is written yet";
      store.saveStore(stateOf(3.0));
    }
    FileUserDefaults defaults(file_, console_);
    EXPECT_EQ(SettingsStore(defaults).loadStore(), stateOf(3.0)) << content;
    found.isKept = fs::exists(copy(1)) && contentOf(copy(1)) == content;
    return found;
  }

  // In memory where that is possible: thousands of files are written to the disk here.
  const fs::path folder_ = fs::path(fs::exists("/dev/shm") ? "/dev/shm" : testing::TempDir()) /
                           ("orvelle-settings-" + std::to_string(getpid()));
  const fs::path file_ = folder_ / "orvelle.conf";
  RecordingConsole console_;
};

// Would catch bytes that the file changes, presets that nobody could rescue with an editor, an
// entry of another process that is lost, and a link that is replaced by a file.
TEST_F(FileUserDefaultsTest, KeepsBytesExactlyAndTextReadable) {
  using namespace std::string_literals;
  const std::vector<std::string> values = {"{\"é \U0001F50A\":[1,-2.5]}", "", "=\\n\n\\\\\nend\n",
                                           "\0x\x7F\r\xFF\xC3"s, std::string(1'000'000, '\\')};
  const fs::path file = folder_ / "new folder" / "orvelle.conf";
  fs::create_symlink(file, file_);
  FileUserDefaults defaults(file, console_);
  defaults.setBoolean("switch", true);
  FileUserDefaults other(file_, console_);
  for (std::size_t i = 0; i < values.size(); ++i) {
    other.setData("value." + std::to_string(i), values[i]);
  }
  defaults.setBoolean("switch", false);
  defaults.setBoolean("switch", true);

  EXPECT_TRUE(has(contentOf(file), "\nvalue.0={\"é \U0001F50A\":[1,-2.5]}\n"));
  FileUserDefaults reader(file_, console_);
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(reader.data("value." + std::to_string(i)), values[i]) << i;
  }
  EXPECT_TRUE(reader.boolean("switch"));
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "not sound?";
  EXPECT_EQ(console_.errors, "");
}

// Would catch a crash, a record that is half there, and a damaged file that is overwritten.
TEST_F(FileUserDefaultsTest, ReadsAFileThatWasCutAnywhereWholeOrNotAtAll) {
  const std::string whole = wholeFile();
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const std::string content = whole.substr(0, length);
    const Found found = runOn(content);
    EXPECT_EQ(found.devices.value_or(stateOf(2.0)), stateOf(2.0));
    EXPECT_EQ(found.presets.value_or(savedPresets), savedPresets);
    EXPECT_EQ(found.isKept, length > 0 && length < whole.size()) << content;
  }
}

std::string mutated(std::string content, std::mt19937& random) {
  constexpr std::string_view special = "\"\\[];=,@%\n{}:0";
  const auto below = [&](std::size_t count) { return random() % std::max<std::size_t>(count, 1); };
  for (std::size_t times = 1 + below(3); times > 0; --times) {
    const std::size_t position = below(content.size());
    const char byte =
        below(2) == 0 ? special[below(special.size())] : static_cast<char>(below(256));
    switch (below(5)) {
      case 0:
        content[position] = byte;
        break;
      case 1:
        content[position] = static_cast<char>(content[position] ^ (1 << below(8)));
        break;
      case 2:
        content.insert(position, 1, byte);
        break;
      case 3:
        content.erase(position, 1 + below(20));
        break;
      default:
        content.insert(below(content.size()), content.substr(position, below(200)));
    }
  }
  return content;
}

// Would catch the same for any other damage.
TEST_F(FileUserDefaultsTest, KeepsWhateverItCannotRead) {
  const std::string whole = wholeFile();
  const std::size_t begin = whole.find(R"({"B)");
  const std::string presetsText = whole.substr(begin, whole.find('\n', begin) - begin);
  std::mt19937 random(5);
  int kept = 0;
  for (int round = 0; round < 10'000; ++round) {
    const std::string content = mutated(whole, random);
    const Found found = runOn(content);
    const bool isSound = found.devices && found.presets;
    for (const auto& [uid, settings] : found.devices.value_or(DeviceStore{})) {
      EXPECT_TRUE(std::isfinite(settings.boost + settings.spatialWidth)) << content;
    }
    kept += found.isKept ? 1 : 0;
    // What is there under its name and cannot be read must not get lost ...
    const bool hasAllNames =
        has(content, "\nuserPresets.v1=") && has(content, "\ndeviceSettings.v1=");
    EXPECT_TRUE(found.isKept || isSound || !hasAllNames) << round << "\n" << content;
    // ... nor what could be read, under whatever name.
    EXPECT_TRUE(found.isKept || has(contentOf(file_), presetsText) || !has(content, presetsText))
        << content;
  }
  EXPECT_GT(kept, 5'000);
}

// Would catch a new copy at each start for one and the same damage, older copies that are
// overwritten, a folder that fills up, and settings that are stored no more when it is full.
TEST_F(FileUserDefaultsTest, KeepsNeitherTooManyCopiesNorOneTwice) {
  const auto change = [&](double boost) {
    FileUserDefaults defaults(file_, console_);
    SettingsStore store(defaults);
    EXPECT_FALSE(store.loadUserPresets() || store.loadIdleStandby());
    store.saveStore(stateOf(boost));
    EXPECT_EQ(store.loadStore(), stateOf(boost));
  };
  for (int round = 1; round <= 12; ++round) {
    for (int again = 0; again < 3; ++again) {
      const std::string key = round == 2 ? "idleStandby.v1" : "userPresets.v1";
      fill("orvelle-settings 1\n" + key + "={\"" + std::to_string(round) + "\"\nend\n");
      change(round);
      change(round + 0.5);  // does not stumble over the undecodable entry again
    }
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 10);
  for (int number = 1; number <= 9; ++number) {
    EXPECT_TRUE(has(contentOf(copy(number)), "{\"" + std::to_string(number) + "\"\n"));
  }
  EXPECT_EQ(console_.errors, "");
}

/// The process can write no file longer than this.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit{bytes, former_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    formerAction_ = std::signal(SIGXFSZ, SIG_IGN);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &former_);
    std::signal(SIGXFSZ, formerAction_);
  }

 private:
  rlimit former_{};
  void (*formerAction_)(int) = SIG_DFL;
};

// Would catch a full disk that costs the settings that are there, a line at each step of a slider,
// and a damaged file that is overwritten though there was no room for its copy.
TEST_F(FileUserDefaultsTest, KeepsTheOldFileOnAFullDiskAndSaysSoOnce) {
  const std::string whole = wholeFile();
  const std::string line =
      "orvelle: the settings cannot be stored in " + file_.string() + ": File too large.\n";
  // The new file would fit where the copy of a damaged one does not.
  for (const std::string& content : {whole, whole + std::string(10'000, 'x') + "\n"}) {
    fill(content);
    RecordingConsole console;
    FileUserDefaults defaults(file_, console);
    SettingsStore store(defaults);
    {
      const FileSizeLimit limit(content.size() / 2);
      store.saveIdleStandby(false);
      store.saveStore(stateOf(5.0));
    }
    EXPECT_EQ(console.errors, line);
    EXPECT_EQ(contentOf(file_), content);
    EXPECT_EQ(store.loadUserPresets(), savedPresets);
    store.saveStore(stateOf(6.0));
    EXPECT_TRUE(has(contentOf(file_), "\"boost\":6,"));
    EXPECT_TRUE(has(contentOf(file_), "idleStandby.v1=false"));
    EXPECT_EQ(fs::exists(copy(1)), content != whole);
  }
}

// Would catch a program that ends, hangs or keeps silent where its folder cannot be made.
TEST_F(FileUserDefaultsTest, GoesOnWhereThereIsNoFolder) {
  std::ofstream(folder_ / "file") << "in the way";
  const fs::path file = folder_ / "file" / "orvelle.conf";
  FileUserDefaults defaults(file, console_);
  SettingsStore store(defaults);
  EXPECT_FALSE(store.loadStore());
  store.saveStore(stateOf(4.0));
  store.saveIdleStandby(true);
  EXPECT_EQ(console_.errors,
            "orvelle: the settings cannot be stored in " + file.string() + ": Not a directory.\n");
  EXPECT_EQ(contentOf(folder_ / "file"), "in the way");
}

/// Writes one state after the other, and tells of each when it is stored, until it is killed.
[[noreturn]] void writeStates(const fs::path& file, double firstBoost, int writeEnd) {
  RecordingConsole console;
  FileUserDefaults defaults(file, console);
  SettingsStore store(defaults);
  for (double boost = firstBoost;; boost += 1.0) {
    store.saveStore(stateOf(boost));
    std::ignore = write(writeEnd, &boost, sizeof boost);
  }
}

// Would catch half a file, and a state that was reported as stored and is not.
TEST_F(FileUserDefaultsTest, IsOneWholeStateAfterAKill) {
  std::mt19937 random(5);
  double stored = 0.0;
  for (int round = 0; round < 100 || stored < 1'000.0; ++round) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
      writeStates(file_, stored + 1.0, ends[1]);
    }
    close(ends[1]);
    std::ignore = read(ends[0], &stored, sizeof stored);
    usleep(static_cast<useconds_t>(random() % 1'000));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(ends[0], &stored, sizeof stored) > 0) {
    }
    close(ends[0]);
    FileUserDefaults defaults(file_, console_);
    const auto store = SettingsStore(defaults).loadStore();
    ASSERT_TRUE(store == stateOf(stored) || store == stateOf(stored + 1.0)) << contentOf(file_);
    stored = store->begin()->second.boost;
  }
}

// Would catch a slider that stutters, a store that collects changes instead of writing them, and
// one that writes what is there already.
TEST_F(FileUserDefaultsTest, WritesEachChangeThroughWithLittleWork) {
  constexpr int changes = 200;
  const fs::path file = fs::path(testing::TempDir()) / (folder_.filename().string() + ".conf");
  FileUserDefaults defaults(file, console_);
  SettingsStore store(defaults);
  const auto start = std::chrono::steady_clock::now();
  const std::clock_t startOfWork = std::clock();
  for (int change = 0; change < changes; ++change) {
    store.saveStore(stateOf(change));
    ASSERT_TRUE(has(contentOf(file), "\"boost\":" + std::to_string(change) + ","));
  }
  const double workMs = 1e3 * static_cast<double>(std::clock() - startOfWork) / CLOCKS_PER_SEC;
  const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
  std::printf("measured: one setting written through: %.2f ms, %.2f ms of them work\n",
              passed.count() / changes, workMs / changes);
  // Not of the time that passes: the disk may be busy with something else.
  EXPECT_LT(workMs / changes, 2.0);
  const auto written = fs::last_write_time(file);
  store.saveStore(stateOf(changes - 1));
  EXPECT_EQ(fs::last_write_time(file), written);
  fs::remove(file);
}

}  // namespace
}  // namespace orvelle
