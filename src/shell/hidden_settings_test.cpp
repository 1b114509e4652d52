#include "shell/hidden_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "shell/user_settings.h"

namespace fs = std::filesystem;

namespace {

class HiddenSettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::path(TANDREL_BINARY_DIR) / "hidden-settings-scratch" /
             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    if (const char* old = std::getenv("HOME")) oldHome = old;
  }
  void TearDown() override {
    if (oldHome)
      setenv("HOME", oldHome->c_str(), 1);
    else
      unsetenv("HOME");
  }
  fs::path folder;
  std::optional<std::string> oldHome;
};

TEST_F(HiddenSettingsTest, TheFirstSetMakesThePrivateFolderWithItsParents) {
  const fs::path home = folder / "not" / "yet" / "home";
  setenv("HOME", home.c_str(), 1);
  EXPECT_EQ(LUserHiddenSettingsFolder(), (home / ".orvanesoftware").string());

  std::string out;
  EXPECT_FALSE(LUserHiddenSettingGetString("Install", "Id", "none", out));
  EXPECT_EQ(out, "none");
  EXPECT_FALSE(fs::exists(home));  // reading makes nothing

  LUserHiddenSettingSetString("Install", "Id", "a1b2");
  const fs::path hidden = home / ".orvanesoftware";
  ASSERT_TRUE(fs::is_directory(hidden));
  EXPECT_EQ(fs::status(hidden).permissions() & fs::perms::all, fs::perms::owner_all);

  // Another process reads it from the file.
  LUserSettingsStore fresh((hidden / "settings.conf").string());
  EXPECT_TRUE(fresh.Get("Install/Id", out));
  EXPECT_EQ(out, "a1b2");
  EXPECT_TRUE(LUserHiddenSettingGetString("Install/", "Id", "none", out));
  EXPECT_EQ(out, "a1b2");
}

TEST_F(HiddenSettingsTest, TheStoreFollowsTheHome) {
  setenv("HOME", (folder / "first").c_str(), 1);
  LUserHiddenSettingSetString("Install", "Id", "first");
  setenv("HOME", (folder / "second").c_str(), 1);
  std::string out;
  EXPECT_FALSE(LUserHiddenSettingGetString("Install", "Id", "none", out));
  LUserHiddenSettingSetString("Install", "Id", "second");
  setenv("HOME", (folder / "first").c_str(), 1);
  EXPECT_TRUE(LUserHiddenSettingGetString("Install", "Id", "none", out));
  EXPECT_EQ(out, "first");
}

}  // namespace
