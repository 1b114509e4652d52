#include "shell/user_settings.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>

#include "foundation/base64.h"

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
  std::string FileText() const {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  fs::path folder;
  std::string file;
};

// Sets an environment variable for one scope and puts the old value back.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : szName(name) {
    if (const char* old = std::getenv(name)) oldValue = old;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (oldValue)
      setenv(szName, oldValue->c_str(), 1);
    else
      unsetenv(szName);
  }

 private:
  const char* szName;
  std::optional<std::string> oldValue;
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

TEST_F(UserSettingsTest, APasswordComesBackButIsNotStoredAsItself) {
  LUserSettingSetPassword("SoundCloud", "Token", "s3cret pass \xC3\xA9");
  std::string out;
  EXPECT_FALSE(LUserSettingGetString("SoundCloud", "Token", "", out));  // nothing under the plain name
  ASSERT_TRUE(LUserSettingGetString("SoundCloud", "__Token", "", out));
  EXPECT_EQ(out.find("s3cret"), std::string::npos);
  EXPECT_EQ(FileText().find("s3cret"), std::string::npos);

  LUserSettingsStore::Global().UseFile(file);
  EXPECT_TRUE(LUserSettingGetPassword("SoundCloud", "Token", "none", out));
  EXPECT_EQ(out, "s3cret pass \xC3\xA9");
  EXPECT_FALSE(LUserSettingGetPassword("SoundCloud", "Never", "none", out));
  EXPECT_EQ(out, "none");

  LUserSettingSetPassword("SoundCloud", "Token", "");
  EXPECT_TRUE(LUserSettingGetPassword("SoundCloud", "Token", "none", out));
  EXPECT_EQ(out, "");

  // Deleting the item takes the plain key and the enciphered twin.
  LUserSettingSetString("SoundCloud", "User", "me");
  LUserSettingSetPassword("SoundCloud", "User", "pw");
  LUserSettingDeleteItem("SoundCloud", "User");
  LUserSettingsStore::Global().UseFile(file);
  EXPECT_FALSE(LUserSettingGetString("SoundCloud", "User", "", out));
  EXPECT_FALSE(LUserSettingGetPassword("SoundCloud", "User", "", out));
}

TEST(SettingEncrypt, PadsToWholeBlocksWithRoomForTheEnd) {
  std::string out = "stale";
  LSettingEncrypt(out, "");
  EXPECT_EQ(out, "");
  LSettingEncrypt(out, nullptr);
  EXPECT_EQ(out, "");
  EXPECT_TRUE(LSettingDecrypt(out));
  EXPECT_EQ(out, "");

  for (std::size_t length : {1, 7, 8, 9, 15, 16, 100}) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('!' + (i * 7) % 90);
    std::string coded, bytes;
    LSettingEncrypt(coded, text.c_str());
    ASSERT_TRUE(LBase64Decode(coded, bytes)) << coded;
    EXPECT_EQ(bytes.size(), (length + 8) / 8 * 8) << length;  // 8 gives 16: the end always has a zero
    ASSERT_TRUE(LSettingDecrypt(coded)) << length;
    EXPECT_EQ(coded, text);
  }
}

TEST(SettingEncrypt, WhatWasNotEncipheredIsRefusedWithoutReadingPastIt) {
  std::string good;
  LSettingEncrypt(good, "password1");  // two blocks
  std::string damaged = good;
  damaged[damaged.size() - 6] = damaged[damaged.size() - 6] == 'A' ? 'B' : 'A';  // inside the last block
  std::string shortened = good.substr(0, 12);                                    // one block, whose text runs on
  for (std::string text : {std::string("not base64!"), std::string("Zg=="), std::string("AAAAAAAAAAA="), damaged,
                           shortened, good + "AAAAAAAAAAA="}) {
    const std::string original = text;
    EXPECT_FALSE(LSettingDecrypt(text)) << original;
    EXPECT_EQ(text, "") << original;
  }

  // Random text: whatever is accepted must be what enciphering its result gives,
  // so that no two stored values mean the same password.
  std::mt19937 random(20261121);
  const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
  int accepted = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    if (round % 2 == 0) {
      const std::size_t length = 1 + random() % 48;
      for (std::size_t i = 0; i < length; ++i) text += alphabet[random() % (sizeof alphabet - 1)];
    } else {  // valid base64 of whole blocks
      std::string bytes(8 * (1 + random() % 4), '\0');
      for (char& c : bytes) c = static_cast<char>(random());
      text = LBase64Encode(bytes.data(), bytes.size());
    }
    std::string value = text;
    if (LSettingDecrypt(value)) {
      std::string again;
      LSettingEncrypt(again, value.c_str());
      EXPECT_EQ(again, text);
      ++accepted;
    } else {
      EXPECT_EQ(value, "");
    }
  }
  EXPECT_LT(accepted, 30);
}

TEST_F(UserSettingsTest, AColourKeepsItsThreeComponentsUnderOneKey) {
  const TDRGB16 colour{0, 0x8000, 0xFFFF};
  LSettingSetColor("Setting", "ClipColor", colour);
  EXPECT_NE(FileText().find("Setting/ClipColor=0,32768,65535"), std::string::npos);
  LUserSettingsStore::Global().UseFile(file);
  TDRGB16 out;
  EXPECT_TRUE(LSettingGetColor("Setting", "ClipColor", TDRGB16{1, 2, 3}, out));
  EXPECT_EQ(out, colour);

  for (const char* damaged : {"", "1,2", "1,2,3,4", "a,b,c", "65536,0,0", "-1,0,0", "1, 2,3", "1,2,3,"}) {
    LUserSettingSetString("Setting", "ClipColor", damaged);
    EXPECT_FALSE(LSettingGetColor("Setting", "ClipColor", TDRGB16{1, 2, 3}, out)) << damaged;
    EXPECT_EQ(out, (TDRGB16{1, 2, 3})) << damaged;
  }
}

TEST_F(UserSettingsTest, ABooleanForAnotherApplicationGoesToItsOwnFile) {
  const fs::path config = folder / "config";
  ScopedEnv xdg("XDG_CONFIG_HOME", config.string());
  LSettingForApplicationSetBool("com.orvanesoftware.BeatBox", "Hints", "bFirstRun", false);
  LSettingForApplicationSetBool("beatbox", "Hints", "bShown", true);
  LUserSettingsStore other((config / "beatbox" / "settings.conf").string());
  std::string out;
  EXPECT_TRUE(other.Get("Hints/bFirstRun", out));
  EXPECT_EQ(out, "0");
  EXPECT_TRUE(other.Get("Hints/bShown", out));
  EXPECT_EQ(out, "1");

  // Our own identifier is our own store, wherever it has been pointed.
  LSettingForApplicationSetBool("com.orvanesoftware.tandrel", "Hints", "bMine", true);
  EXPECT_TRUE(LUserSettingGet("Hints", "bMine", false));
  EXPECT_FALSE(fs::exists(config / "tandrel"));

  for (const char* bad : {"", "com.orvanesoftware.", "../escape", "a/b", "com.other.app"}) {
    LSettingForApplicationSetBool(bad, "Hints", "x", true);
  }
  LSettingForApplicationSetBool(nullptr, "Hints", "x", true);
  std::vector<std::string> made;
  for (const auto& entry : fs::directory_iterator(config)) made.push_back(entry.path().filename().string());
  EXPECT_EQ(made, std::vector<std::string>{"beatbox"});
  EXPECT_FALSE(fs::exists(folder / "escape"));
}

TEST_F(UserSettingsTest, TwoStoresOnOneFileKeepEachOthersChanges) {
  // As two processes would: each store reads the file once and keeps a copy.
  LUserSettingsStore first(file), second(file);
  first.Set("A/one", "1");
  std::string out;
  EXPECT_TRUE(second.Get("A/one", out));
  second.Set("A/two", "2");
  first.Set("A/three", "3");  // must not write its stale copy over "two"
  EXPECT_TRUE(first.Get("A/two", out));
  EXPECT_EQ(out, "2");

  second.Erase("A/one");
  first.Set("A/four", "4");  // nor bring "one" back
  LUserSettingsStore fresh(file);
  EXPECT_FALSE(fresh.Get("A/one", out));
  for (const char* key : {"A/two", "A/three", "A/four"}) EXPECT_TRUE(fresh.Get(key, out)) << key;
}

TEST_F(UserSettingsTest, ProcessesSettingAtTheSameTimeLoseNothing) {
  fs::create_directories(fs::path(file).parent_path());
  constexpr int kProcesses = 4, kKeys = 25;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      LUserSettingsStore store(file);
      for (int k = 0; k < kKeys; ++k) store.Set("P" + std::to_string(p) + "/" + std::to_string(k), "v");
      _exit(0);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  LUserSettingsStore fresh(file);
  int found = 0;
  std::string out;
  for (int p = 0; p < kProcesses; ++p) {
    for (int k = 0; k < kKeys; ++k) found += fresh.Get("P" + std::to_string(p) + "/" + std::to_string(k), out);
  }
  EXPECT_EQ(found, kProcesses * kKeys);
}

}  // namespace
