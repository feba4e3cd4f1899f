#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include "orvelle/platform/linux/DesktopApplications.h"

namespace orvelle {

namespace {

using namespace std::string_literals;

class DesktopApplicationsTest : public testing::Test {
 protected:
  DesktopApplicationsTest() {
    std::string name = (std::filesystem::temp_directory_path() / "orvelle-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    std::filesystem::create_directories(folder_ / "applications");
    setenv("XDG_DATA_HOME", folder_.c_str(), 1);
    setenv("XDG_DATA_DIRS", folder_.c_str(), 1);
  }
  ~DesktopApplicationsTest() override { std::filesystem::remove_all(folder_); }

  void install(const std::string& file, const std::string& content) const {
    std::ofstream(folder_ / "applications" / file) << content;
  }

  static std::optional<std::string> name(const std::string& bundleID,
                                         const std::string& locale = "C") {
    return DesktopApplications(locale).localizedName(1, bundleID);
  }

 private:
  std::filesystem::path folder_;
};

}  // namespace

// Fault: a language passed over, or taken for one that it only resembles.
TEST_F(DesktopApplicationsTest, NameIsInTheUsersLanguage) {
  install("org.example.Player.desktop",
          "[Desktop Entry]\nName[sr]=sr\nName=default\nName[sr_YU]=sr_YU\nName[sr_YU@Latn]=all\n"
          "Name[sr@Latn]=sr@Latn\nName[de_AT]=de_AT\n");
  for (const auto& [locale, expected] :
       std::vector<std::pair<std::string, std::string>>{{"sr_YU.UTF-8@Latn", "all"},
                                                        {"sr_YU@Cyrl", "sr_YU"},
                                                        {"sr_RS@Latn", "sr@Latn"},
                                                        {"sr_RS", "sr"},
                                                        {"sr", "sr"},
                                                        {"de_AT.UTF-8", "de_AT"},
                                                        {"de_DE.UTF-8", "default"},
                                                        {"s", "default"},
                                                        {"C.UTF-8", "default"},
                                                        {"", "default"}}) {
    EXPECT_EQ(name("org.example.Player", locale), expected) << locale;
  }
}

// Fault: the name of an action, a comment or another key, escapes or blanks that stay in the name,
// and an empty name or translation.
TEST_F(DesktopApplicationsTest, NameIsThatOfTheEntryItself) {
  install(
      "a.desktop",
      "# Name=comment\nName=before any group\n[Desktop Action new]\nName=action\n"
      "[Desktop Entry]\r\nGenericName=generic\nName[de]=\nName [fr] = two\\sand\\n\\\\ more \r\n"
      "Name = last\\\n[Desktop Action old]\nName=old action\n");
  EXPECT_EQ(name("a"), "last\\");
  EXPECT_EQ(name("a", "de_DE"), "last\\");
  install("b.desktop", "[Desktop Entry]\nName[fr]=two\\sand\\n\\\\ more \n");
  EXPECT_EQ(name("b", "fr"), "two and \\ more");
  EXPECT_EQ(name("b"), std::nullopt);
}

// Fault: a file outside of the menu that a program makes us read, and a file that is no entry taken
// for one.
TEST_F(DesktopApplicationsTest, NothingElseIsRead) {
  install("../secret.desktop", "[Desktop Entry]\nName=secret\n");
  install(".desktop", "[Desktop Entry]\nName=nameless\n");
  install("empty.desktop", "");
  install("noise.desktop", "\0\xff[[]]=\n=\nName\n[Desktop Entry]\nName[=x\nName]=y\n"s);
  for (const char* bundleID : {"../secret", "/secret", "", "absent", "empty", "noise", ".."}) {
    EXPECT_EQ(name(bundleID), std::nullopt) << bundleID;
  }
}

}  // namespace orvelle
