#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "project/project.h"
#include "project/project_paths.h"

namespace {

struct CountingNotify : TDProjectNotify {
  int clipsChanged = 0;
  void prntfClipsChanged(long what) override {
    EXPECT_EQ(what, 0);
    ++clipsChanged;
  }
};

LTimeLineBookmark BookmarkAt(LSoundTime position) {
  LTimeLineBookmark mark;
  mark.iPosition = position;
  return mark;
}

// Points XDG_DATA_HOME at a fresh folder for one test and puts it back after.
class ScopedDataHome {
 public:
  ScopedDataHome()
      : folder(std::filesystem::temp_directory_path() / ("tandrel-project-test-" + std::to_string(getpid()))) {
    if (const char* old = std::getenv("XDG_DATA_HOME")) previous = old;
    std::filesystem::remove_all(folder);
    setenv("XDG_DATA_HOME", folder.c_str(), 1);
  }
  ~ScopedDataHome() {
    if (previous)
      setenv("XDG_DATA_HOME", previous->c_str(), 1);
    else
      unsetenv("XDG_DATA_HOME");
    std::filesystem::remove_all(folder);
  }

  const std::filesystem::path folder;

 private:
  std::optional<std::string> previous;
};

std::tm FixedTime() {
  std::tm when{};
  when.tm_year = 2024 - 1900;
  when.tm_mon = 1;  // February
  when.tm_mday = 5;
  when.tm_hour = 7;
  when.tm_min = 8;
  when.tm_sec = 9;
  return when;
}

}  // namespace

TEST(TDProject, EndWithoutClipsStaysAtTheMinimum) {
  TDProject project;
  CountingNotify notify;
  project.pNotify = &notify;

  project.SetEnd(5000);
  project.SetEnd(500000);
  EXPECT_EQ(project.GetEnd(), 120000);
  EXPECT_EQ(notify.clipsChanged, 0);  // nothing changed

  project.IncreaseEnd();
  EXPECT_EQ(project.GetEnd(), 130000);
  EXPECT_EQ(project.WorkRegion.GetMaxWorkRegionEnd(), 130000);
  project.SetEnd(0);
  EXPECT_EQ(project.GetEnd(), 120000);
  EXPECT_EQ(notify.clipsChanged, 1);

  // ResetEnd never shrinks, and reports in any case.
  project.IncreaseEnd();
  project.ResetEnd();
  EXPECT_EQ(project.GetEnd(), 130000);
  EXPECT_EQ(notify.clipsChanged, 2);
}

TEST(TDProject, BookmarksPushTheEndOutButDoNotHoldItOnTrim) {
  TDProject project;
  CountingNotify notify;
  project.pNotify = &notify;

  project.AddBookmark(BookmarkAt(300000));
  project.AddBookmark(BookmarkAt(50000));
  EXPECT_EQ(project.GetBookmarks().front().iPosition, 50000);  // newest first
  project.ResetEnd();
  EXPECT_EQ(project.GetEnd(), 310000);

  project.ClearBookmarks();
  project.ResetEnd();
  EXPECT_EQ(project.GetEnd(), 310000);

  project.WorkRegion.Set(305000, 100000);
  EXPECT_EQ(project.WorkRegion.GetStart(), 100000);
  project.TrimEnd();
  EXPECT_EQ(project.GetEnd(), 120000);
  EXPECT_EQ(project.WorkRegion.GetStart(), 100000);
  EXPECT_EQ(project.WorkRegion.GetEnd(), 120000);
  EXPECT_EQ(notify.clipsChanged, 3);
}

TEST(TDProject, CloseEmptiesTheProjectButKeepsTempoAndFolders) {
  TDProject project;
  for (int n = 0; n < 4; ++n) project.Tracks.AddTrack();
  project.Tracks.SetCurrentTrackIndex(3);
  project.szFilePath = "/music/song.tdpj";
  project.szDataFolderPath = "/music/song.tdpj.ProjectData";
  project.AddBookmark(BookmarkAt(1000));
  project.SetEditRegion(10, 20, 0, 1);
  project.WorkRegion.Set(1000, 2000);
  project.Metronome.SetFirstBPM(90.0);
  project.iTimeSignatureBeats = 3;

  project.Close();
  EXPECT_EQ(project.Tracks.GetTrackCount(), 0);
  EXPECT_EQ(project.Tracks.GetCurrentTrackIndex(), 0);
  EXPECT_TRUE(project.szFilePath.empty());
  EXPECT_TRUE(project.GetBookmarks().empty());
  EXPECT_EQ(project.GetEditRegion(), (TDEditRegion{0, 0, -1, -1}));

  EXPECT_EQ(project.szDataFolderPath, "/music/song.tdpj.ProjectData");
  EXPECT_EQ(project.WorkRegion.GetStart(), 1000);
  EXPECT_EQ(project.WorkRegion.GetEnd(), 2000);
  EXPECT_DOUBLE_EQ(project.Metronome.GetTempoChanges().front().dBPM, 90.0);
  EXPECT_EQ(project.iTimeSignatureBeats, 3);
}

TEST(TDProject, TrackOperationsRefuseUnknownIndices) {
  TDProject project;
  project.Tracks.AddTrack();
  project.Tracks.AddTrack();
  EXPECT_EQ(project.AddTrackAfter(2), nullptr);
  EXPECT_FALSE(project.DeleteTrack(2));
  EXPECT_FALSE(project.ExchangeTracks(1, 2));
  EXPECT_EQ(project.Tracks.GetTrackCount(), 2);

  EXPECT_NE(project.AddTrackAfter(1), nullptr);
  EXPECT_TRUE(project.ExchangeTracks(0, 2));
  EXPECT_TRUE(project.DeleteTrack(0));
  EXPECT_EQ(project.Tracks.GetTrackCount(), 2);
}

TEST(TDProject, ClipInEditRegion) {
  TDProject project;
  EXPECT_FALSE(project.IsClipInEditRegion(0, 100000, 0));

  project.SetEditRegion(1000, 2000, 1, 2);
  EXPECT_TRUE(project.IsClipInEditRegion(1500, 1600, 1));
  EXPECT_TRUE(project.IsClipInEditRegion(0, 1000, 2));     // touches the start
  EXPECT_TRUE(project.IsClipInEditRegion(2000, 3000, 2));  // touches the end
  EXPECT_FALSE(project.IsClipInEditRegion(0, 999, 1));
  EXPECT_FALSE(project.IsClipInEditRegion(2001, 3000, 1));
  EXPECT_FALSE(project.IsClipInEditRegion(1500, 1600, 0));
  EXPECT_FALSE(project.IsClipInEditRegion(1500, 1600, 3));

  project.SetEditRegion(1000, 1000, 0, 5);
  EXPECT_FALSE(project.IsClipInEditRegion(500, 1500, 1));
  project.SetEditRegion(1000, 2000, 2, 1);
  EXPECT_FALSE(project.IsClipInEditRegion(1500, 1600, 1));
}

TEST(TDProject, RecordNamesCarryTrackNumberAndLocalTime) {
  ScopedDataHome home;
  TDProject project;
  project.Tracks.AddTrack();
  project.Tracks.AddTrack();
  project.Tracks.AddTrack()->SetName("Vocals");

  std::string name;
  EXPECT_FALSE(project.CreateAudioRecordName(3, FixedTime(), name));
  ASSERT_TRUE(project.CreateAudioRecordName(2, FixedTime(), name));
  EXPECT_EQ(name, "3_2024-2-5_7-8-9_Vocals");

  std::string path;
  EXPECT_FALSE(project.CreateRecordFilePath(3, FixedTime(), path, "wav"));
  ASSERT_TRUE(project.CreateRecordFilePath(0, FixedTime(), path, "wav"));
  const auto folder = home.folder / "tandrel" / "Recordings";
  EXPECT_EQ(path, (folder / "1_2024-2-5_7-8-9.wav").string());
  EXPECT_TRUE(std::filesystem::is_directory(folder));
}

TEST(TDProjectPaths, DataFolderOfAProjectFile) {
  std::string out;
  ASSERT_TRUE(TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile("/music/song.tdpj", out));
  EXPECT_EQ(out, "/music/song.tdpj.ProjectData");
  ASSERT_TRUE(TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile(
      "/music/song.tdpj.ProjectData/Recover.tdpj-recover", out));
  EXPECT_EQ(out, "/music/song.tdpj.ProjectData");
  EXPECT_FALSE(TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile("", out));
}

TEST(TDProjectMetronomeFeature, TempoList) {
  TDProjectMetronomeFeature metronome;
  ASSERT_EQ(metronome.GetTempoChanges().size(), 1u);
  EXPECT_EQ(metronome.GetTempoChanges().front(), (LTempoChange{-32768.0, 120.0}));

  metronome.SetTempoChanges({{16.0, 90.0}, {-32768.0, 100.0}, {8.0, 140.0}});
  ASSERT_EQ(metronome.GetTempoChanges().size(), 3u);
  EXPECT_EQ(metronome.GetTempoChanges()[1], (LTempoChange{8.0, 140.0}));
  metronome.SetFirstBPM(60.0);
  EXPECT_EQ(metronome.GetTempoChanges().front(), (LTempoChange{-32768.0, 60.0}));

  metronome.ResetTempoChanges();
  EXPECT_EQ(metronome.GetTempoChanges(), (std::vector<LTempoChange>{{-32768.0, 120.0}}));

  // A file with no tempo still gets one.
  metronome.SetTempoChanges({});
  EXPECT_EQ(metronome.GetTempoChanges(), (std::vector<LTempoChange>{{0.0, 120.0}}));
}

TEST(TDProjectMetronomeFeature, VolumeIsClamped) {
  TDProjectMetronomeFeature metronome;
  metronome.SetMetronomeVolume(20);
  EXPECT_EQ(metronome.GetMetronomeVolume(), 7);
  metronome.SetMetronomeVolume(-200);
  EXPECT_EQ(metronome.GetMetronomeVolume(), -127);
  metronome.SetMetronomeVolume(-10);
  EXPECT_EQ(metronome.GetMetronomeVolume(), -10);
}

TEST(TDGroupIdGenerator, SmallestFreeIdFromOne) {
  EXPECT_EQ(TDGroupIdGenerator::GetNewGroupId({}), 1);
  EXPECT_EQ(TDGroupIdGenerator::GetNewGroupId({4, 1, 2}), 3);
  EXPECT_EQ(TDGroupIdGenerator::GetNewGroupId({2, 3}), 1);
  EXPECT_EQ(TDGroupIdGenerator::GetNewGroupId({2, 1, 1, 2, -5}), 3);
}
