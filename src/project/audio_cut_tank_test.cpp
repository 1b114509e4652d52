#include "project/audio_cut_tank.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "project/cut_list_audio.h"
#include "project/testing_cut_lists.h"

namespace {

using AudioCutTankTest = CutListTest;

void Touch(std::string const& path) { std::ofstream(path) << "x"; }

TEST_F(AudioCutTankTest, LastReferenceRemovesTheFilesUnlessPreserved) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  LCutListAudio saved;
  LAudioCutRef const kept = MakeKnownFile(saved, 1, 300, 1);
  LCutListAudio recording;
  LAudioCutRef const dropped = MakeKnownFile(recording, 2, 300, 1);
  EXPECT_EQ(kept, 0);
  EXPECT_EQ(dropped, 1);

  saved.DisallowCacheDelete();  // as a save does
  saved.Clear();
  recording.Clear();
  EXPECT_TRUE(HasFiles(kept));
  EXPECT_FALSE(std::filesystem::exists(AudPath(dropped)));
  EXPECT_FALSE(std::filesystem::exists(GrfPath(dropped)));

  // The freed number is the lowest free one again; the preserved one is free too,
  // and its new writer overwrites the old file.
  EXPECT_EQ(tank.CreateNewRefAndIncRef(), kept);
  EXPECT_EQ(tank.CreateNewRefAndIncRef(), dropped);
}

TEST_F(AudioCutTankTest, FilesOfAnotherFolderAreNeverRemoved) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  LCutListAudio list;
  LAudioCutRef const n = MakeKnownFile(list, 1, 10, 1);
  std::string const other = folder + "/other";
  std::filesystem::create_directories(other);
  tank.SetWorkingFolder(other);  // another project opened while the list lives
  list.Clear();
  EXPECT_TRUE(HasFiles(n));

  // A number whose files were given a path of their own outside the folder.
  LAudioCutRef const m = tank.CreateNewRefAndIncRef();
  tank.SetNameOverride(m, folder + "/elsewhere");
  Touch(folder + "/elsewhere.aud");
  EXPECT_EQ(tank.GetFilePath(m, ".aud"), folder + "/elsewhere.aud");
  tank.DecRef(m);
  EXPECT_TRUE(std::filesystem::exists(folder + "/elsewhere.aud"));

  // With no folder at all nothing counts down and nothing goes.
  tank.SetWorkingFolder("");
  LAudioCutRef const k = tank.CreateNewRefAndIncRef();
  tank.DecRef(k);
  EXPECT_EQ(tank.GetRefCount(k), 1);
}

TEST_F(AudioCutTankTest, CountsSaturateAndTheTankFills) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  LAudioCutRef const n = tank.CreateNewRefAndIncRef();
  for (int i = 0; i < 70000; ++i) tank.IncRef(n);
  EXPECT_EQ(tank.GetRefCount(n), 65534);
  tank.DecRef(n);
  EXPECT_EQ(tank.GetRefCount(n), 65534);  // a saturated number never dies

  tank.IncRef(LAudioCutRefNull);
  tank.DecRef(LAudioCutRefFull);
  EXPECT_EQ(tank.GetRefCount(LAudioCutRefNull), 0);
  EXPECT_EQ(tank.GetFilePath(LAudioCutRefNull, ".aud"), "");

  for (int i = 1; i <= LAudioCutRefMax; ++i) ASSERT_EQ(tank.CreateNewRefAndIncRef(), i);
  EXPECT_EQ(tank.CreateNewRefAndIncRef(), LAudioCutRefFull);
  tank.DecRef(300);
  EXPECT_EQ(tank.CreateNewRefAndIncRef(), 300);
}

TEST_F(AudioCutTankTest, NumbersFromPaths) {
  LAudioCutTank const& tank = LAudioCutTank::Instance();
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/17.aud"), 17);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/17.GRF"), 17);
  EXPECT_EQ(tank.GetAudioNoFromPath("17.fft"), 17);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/17.wav"), -1);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/17"), -1);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/take 1.aud"), -1);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/.aud"), -1);
  EXPECT_EQ(tank.GetAudioNoFromPath("/x/65535.aud"), 65535);
}

TEST_F(AudioCutTankTest, SweepRemovesOnlyUnclaimedNumberedFiles) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  LCutListAudio live;
  LAudioCutRef const inUse = MakeKnownFile(live, 1, 10, 1);
  for (char const* name : {"5.aud", "5.grf", "6.aud", "7.grf", "notes.aud", "5.wav"}) Touch(folder + "/" + name);
  tank.DisallowCacheDelete(6);
  tank.DeleteCachedFiles();
  EXPECT_TRUE(HasFiles(inUse));
  EXPECT_FALSE(std::filesystem::exists(folder + "/5.aud"));
  EXPECT_FALSE(std::filesystem::exists(folder + "/5.grf"));
  EXPECT_FALSE(std::filesystem::exists(folder + "/7.grf"));
  EXPECT_TRUE(std::filesystem::exists(folder + "/6.aud"));
  EXPECT_TRUE(std::filesystem::exists(folder + "/notes.aud"));
  EXPECT_TRUE(std::filesystem::exists(folder + "/5.wav"));
}

// Two threads take and give back numbers as fast as they can; each number taken
// must be nobody else's at that moment.
TEST_F(AudioCutTankTest, TwoThreadsNeverGetTheSameNumber) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  std::vector<std::atomic<int>> owner(65536);
  std::atomic<int> clashes{0};
  auto work = [&](int me) {
    std::vector<LAudioCutRef> held;
    for (int round = 0; round < 300; ++round) {
      for (int i = 0; i < 20; ++i) {
        LAudioCutRef const n = tank.CreateNewRefAndIncRef();
        if (owner[n].exchange(me) != 0) ++clashes;
        held.push_back(n);
      }
      for (LAudioCutRef n : held) {
        owner[n].store(0);
        tank.DecRef(n);
      }
      held.clear();
    }
  };
  std::thread a(work, 1);
  std::thread b(work, 2);
  a.join();
  b.join();
  EXPECT_EQ(clashes.load(), 0);
  for (int n = 0; n < 100; ++n) EXPECT_EQ(tank.GetRefCount(static_cast<LAudioCutRef>(n)), 0);
}

}  // namespace
