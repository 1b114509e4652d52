#include "foundation/app_paths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

// Sets an environment variable for one scope and puts the old value back.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : szName(name) {
    if (const char* old = std::getenv(name)) oldValue = old;
    if (value) setenv(name, value, 1);
    else unsetenv(name);
  }
  ~ScopedEnv() {
    if (oldValue) setenv(szName, oldValue->c_str(), 1);
    else unsetenv(szName);
  }

 private:
  const char* szName;
  std::optional<std::string> oldValue;
};

TEST(AppPaths, FoldersFollowXdgAndIgnoreRelativeValues) {
  ScopedEnv home("HOME", "/home/u");
  {
    ScopedEnv data("XDG_DATA_HOME", "/data");
    ScopedEnv config("XDG_CONFIG_HOME", "/conf");
    EXPECT_EQ(LAppPaths::UserDataFolder(), "/data/tandrel");
    EXPECT_EQ(LAppPaths::UserConfigFolder(), "/conf/tandrel");
  }
  for (const char* unusable : {"", "relative/path"}) {
    ScopedEnv data("XDG_DATA_HOME", unusable);
    ScopedEnv config("XDG_CONFIG_HOME", unusable);
    ScopedEnv run("XDG_RUNTIME_DIR", unusable);
    ScopedEnv tmp("TMPDIR", unusable);
    EXPECT_EQ(LAppPaths::UserDataFolder(), "/home/u/.local/share/tandrel");
    EXPECT_EQ(LAppPaths::UserConfigFolder(), "/home/u/.config/tandrel");
    EXPECT_EQ(LAppPaths::RuntimeFolder(), "/tmp");
    EXPECT_EQ(LAppPaths::TemporaryFolder(), "/tmp");
  }
}

TEST(AppPaths, MakeFoldersCreatesEveryLevelAndRefusesAFile) {
  namespace fs = std::filesystem;
  fs::path base = fs::path(TANDREL_BINARY_DIR) / "app-paths-scratch";
  fs::remove_all(base);
  EXPECT_TRUE(LAppPaths::MakeFolders((base / "a/b/c").string(), 0700));
  EXPECT_TRUE(fs::is_directory(base / "a/b/c"));
  EXPECT_TRUE(LAppPaths::MakeFolders((base / "a/b/c").string(), 0700));  // already there
  std::FILE* f = std::fopen((base / "file").c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  EXPECT_FALSE(LAppPaths::MakeFolders((base / "file").string()));
  EXPECT_FALSE(LAppPaths::MakeFolders((base / "file/below").string()));
}

TEST(AppPaths, SharedDataIsFoundBesideTheRunningProgram) {
  // Test programs live in <build>/src; the build tree's share/tandrel is beside it,
  // as an installed program's prefix/share/tandrel is beside prefix/bin.
  std::filesystem::path const shared = std::filesystem::path(LAppPaths::SharedDataFolder()).lexically_normal();
  EXPECT_EQ(shared, (std::filesystem::path(TANDREL_BINARY_DIR) / "share" / "tandrel").lexically_normal());
}

}  // namespace
