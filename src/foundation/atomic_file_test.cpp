#include "foundation/atomic_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

class AtomicFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::path(TANDREL_BINARY_DIR) / "atomic-file-scratch" /
             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    fs::create_directories(folder);
    file = (folder / "data.conf").string();
  }
  std::size_t EntriesInFolder() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }
  fs::path folder;
  std::string file;
};

TEST_F(AtomicFileTest, AWriteReplacesTheWholeFileAndLeavesNothingElseBehind) {
  ASSERT_TRUE(LWriteFileAtomically(file, "a much longer first version\n"));
  ASSERT_TRUE(LWriteFileAtomically(file, "short"));
  std::string text;
  EXPECT_EQ(LReadSmallFile(file, 100, text), LReadResult::Read);
  EXPECT_EQ(text, "short");  // no tail of the longer version
  EXPECT_EQ(EntriesInFolder(), 1u);
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);

  // Into a folder that is not there: nothing written, nothing left over.
  EXPECT_FALSE(LWriteFileAtomically((folder / "none" / "x").string(), "x"));
  EXPECT_EQ(EntriesInFolder(), 1u);
}

TEST_F(AtomicFileTest, StampsTellEveryRewriteApartEvenOfTheSameSize) {
  EXPECT_FALSE(LFileStampOf(file).bExists);
  LFileStamp written, read;
  ASSERT_TRUE(LWriteFileAtomically(file, "one", 0600, &written));
  EXPECT_TRUE(written.bExists);
  EXPECT_EQ(written, LFileStampOf(file));  // the stamp of a write is the one a later look sees

  std::string text;
  ASSERT_EQ(LReadSmallFile(file, 100, text, &read), LReadResult::Read);
  EXPECT_EQ(read, written);

  ASSERT_TRUE(LWriteFileAtomically(file, "two"));
  EXPECT_NE(LFileStampOf(file), written);

  fs::remove(file);
  EXPECT_EQ(LFileStampOf(file), LFileStamp{});
}

TEST_F(AtomicFileTest, ReadsAreBoundedAndSayWhyTheyFailed) {
  std::string text = "stale";
  EXPECT_EQ(LReadSmallFile(file, 100, text), LReadResult::Missing);
  EXPECT_TRUE(text.empty());

  std::ofstream(file) << std::string(101, 'x');
  text = "stale";
  EXPECT_EQ(LReadSmallFile(file, 100, text), LReadResult::TooLarge);
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(LReadSmallFile(file, 101, text), LReadResult::Read);
  EXPECT_EQ(text.size(), 101u);

  std::ofstream(file, std::ios::trunc).flush();
  EXPECT_EQ(LReadSmallFile(file, 0, text), LReadResult::Read);
  EXPECT_TRUE(text.empty());

  EXPECT_EQ(LReadSmallFile(folder.string(), 100, text), LReadResult::Failed);  // a folder is no file
}

}  // namespace
