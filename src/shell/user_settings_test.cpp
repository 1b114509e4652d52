#include "shell/user_settings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class UserSettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::path(TANDREL_BINARY_DIR) / "settings-scratch" /
             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    file = (folder / "tandrel" / "settings.conf").string();
    LUserSettingsStore::Global().UseFile(file);
  }
  fs::path folder;
  std::string file;
};

TEST_F(UserSettingsTest, MissingKeysGiveTheDefaultAndFalse) {
  std::string out;
  EXPECT_FALSE(LUserSettingGetString("Settings", "Never", "fallback", out));
  EXPECT_EQ(out, "fallback");
  EXPECT_EQ(LUserSettingGet("Settings", "Never", 42), 42);
  EXPECT_TRUE(LUserSettingGet("Settings", "Never", true));
  EXPECT_FALSE(fs::exists(file));  // reading writes nothing
}

TEST_F(UserSettingsTest, ValuesSurviveARestartWhateverTheyHold) {
  LUserSettingSet("Settings", "MasterVolume", -7);
  LUserSettingSet("Settings", "bLoopPlay", false);
  const std::string odd = "a=b\\c\nline two\r";
  LUserSettingSetString("Export", "Path=With=Equals", odd.c_str());

  // A new process reads the file afresh.
  LUserSettingsStore::Global().UseFile(file);
  EXPECT_EQ(LUserSettingGet("Settings", "MasterVolume", 0), -7);
  EXPECT_FALSE(LUserSettingGet("Settings", "bLoopPlay", true));
  std::string out;
  EXPECT_TRUE(LUserSettingGetString("Export", "Path=With=Equals", "", out));
  EXPECT_EQ(out, odd);
}

TEST_F(UserSettingsTest, ATrailingSlashOnTheSectionNamesTheSameKey) {
  std::string a, b;
  EXPECT_TRUE(_LSettingGetFullKeyName("Hints", "Multitake", a));
  EXPECT_TRUE(_LSettingGetFullKeyName("Hints/", "Multitake", b));
  EXPECT_EQ(a, "Hints/Multitake");
  EXPECT_EQ(a, b);
  LUserSettingSet("Hints/", "Multitake", 3);
  EXPECT_EQ(LUserSettingGet("Hints", "Multitake", 0), 3);

  std::string tooLong;
  EXPECT_FALSE(_LSettingGetFullKeyName("S", std::string(519, 'k').c_str(), tooLong));
  EXPECT_TRUE(tooLong.empty());
}

TEST_F(UserSettingsTest, DeletingAnItemTakesItsTwinAndASectionTakesOnlyItself) {
  LUserSettingSetString("SoundCloud", "Token", "t");
  LUserSettingSetString("SoundCloud", "__Token", "enciphered");
  LUserSettingSetString("SoundCloudX", "Token", "other section");
  LUserSettingDeleteItem("SoundCloud", "Token");
  std::string out;
  EXPECT_FALSE(LUserSettingGetString("SoundCloud", "Token", "", out));
  EXPECT_FALSE(LUserSettingGetString("SoundCloud", "__Token", "", out));

  LUserSettingSetString("SoundCloud", "User", "me");
  LUserSettingDeleteSection("SoundCloud");
  EXPECT_FALSE(LUserSettingGetString("SoundCloud", "User", "", out));
  EXPECT_TRUE(LUserSettingGetString("SoundCloudX", "Token", "", out));
}

TEST_F(UserSettingsTest, ADamagedFileLosesOnlyItsBadLines) {
  fs::create_directories(fs::path(file).parent_path());
  std::ofstream(file) << "garbage without separator\nSettings/Good=5\n=no key\n\\";
  LUserSettingsStore::Global().UseFile(file);
  EXPECT_EQ(LUserSettingGet("Settings", "Good", 0), 5);
  EXPECT_EQ(LUserSettingGet("Settings", "Bad", 9), 9);
}

TEST_F(UserSettingsTest, AnUnwritableFolderLosesTheSetButNotTheRun) {
  LUserSettingsStore::Global().UseFile("/proc/no-such-place/settings.conf");
  LUserSettingSet("Settings", "X", 1);
  EXPECT_EQ(LUserSettingGet("Settings", "X", 0), 1);  // kept for this run
}

}  // namespace
