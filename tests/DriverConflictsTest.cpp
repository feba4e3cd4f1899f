#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "orvelle/DriverConflicts.h"

namespace orvelle {
namespace {

namespace fs = std::filesystem;

// Fault: drivers in the order of the folder, a driver that is a folder or a file overlooked,
// another one listed, and a folder that cannot be read that ends the program.
TEST(DriverConflictsTest, ListsWhatIsInstalled) {
  std::string name = (fs::temp_directory_path() / "orvelle-XXXXXX").string();
  const fs::path folder = mkdtemp(name.data());
  EXPECT_EQ(installedConflictDrivers(folder), std::vector<std::string>{});
  fs::create_directory(folder / "BlackHole64ch.driver");
  fs::create_directory(folder / "BlackHole2ch.driver");
  fs::create_directory(folder / "OrvelleAudio.driver");
  std::ofstream(folder / "BoomAudio.driver") << "a file";
  fs::create_symlink(folder / "nowhere", folder / "ParrotAudioPlugin.driver");
  EXPECT_EQ(installedConflictDrivers(folder),
            (std::vector<std::string>{"BoomAudio.driver", "BlackHole2ch.driver",
                                      "BlackHole64ch.driver"}));
  fs::remove_all(folder);
  EXPECT_EQ(installedConflictDrivers(folder), std::vector<std::string>{});
  EXPECT_EQ(installedConflictDrivers(fs::path(std::string(5000, 'a'))), std::vector<std::string>{});
}

}  // namespace
}  // namespace orvelle
