#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "foundation/testing_process.h"
#include "shell/commands.h"
#include "shell/export.h"
#include "shell/gen_source_open.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"
#include "sound/testing_tones.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

class ClipCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("clips-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
    wav = (scratch / "two seconds.wav").string();
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 8000, 1, 16);
    std::vector<float> tone(16000);
    for (int i = 0; i < 16000; ++i) tone[static_cast<std::size_t>(i)] = 0.25f * std::sin(i * 0.05f);
    sink->Write(tone.data(), 16000);
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  TDProject& Project() { return dialog.GetProject(); }
  TDClipsManager& Clips() { return dialog.GetProject().Clips; }

  // A clip of the test file at `at` ms on `track`, selected alone.
  TDClip* Place(int track, LSoundTime at) {
    Project().Tracks.SetCurrentTrackIndex(track);
    dialog.SetCursorPosition(at);
    EXPECT_TRUE(dialog.AddClip(wav));
    TDClip* added = nullptr;
    for (auto const& c : Clips().GetClips()) {
      if (c->iTrackIndex == track && c->iPosition == at) added = c.get();
    }
    Clips().DeselectAllClips();
    added->bSelected = true;
    return added;
  }

  // Three takes of a loop pass on `track`, the first active, all selected.
  std::vector<TDClip*> Takes(int track, LSoundTime at) {
    std::uint32_t const group = static_cast<std::uint32_t>(Project().GetNewTakeGroupId());
    std::vector<TDClip*> takes;
    for (int n = 1; n <= 3; ++n) {
      TDClip* t = Place(track, at);
      t->uTakeGroupId = group;
      t->iTakeNumber = n;
      t->bActiveTake = n == 1;
      takes.push_back(t);
    }
    for (TDClip* t : takes) t->bSelected = t->bActiveTake;
    return takes;
  }

  fs::path scratch;
  std::string wav;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};

TEST_F(ClipCommandsTest, AFileBecomesAClipAtTheCursorAndBadCasesSayWhy) {
  Project().Tracks.SetCurrentTrackIndex(3);
  dialog.SetCursorPosition(4500);
  ASSERT_TRUE(dialog.AddClip(wav));
  ASSERT_EQ(Clips().GetCount(), 1);
  TDClip const& clip = *Clips().GetClips()[0];
  EXPECT_EQ(clip.szName, "two seconds.wav");
  EXPECT_EQ(clip.iPosition, 4500);
  EXPECT_EQ(clip.iTrackIndex, 3);
  EXPECT_EQ(clip.GetEnd(), 2000);
  EXPECT_EQ(dialog.GetUndoPointName(), "Add Clip");
  EXPECT_TRUE(dialog.IsProjectDirty());
  EXPECT_EQ(view.jobs, std::vector<std::string>{"Loading clip..."});
  // Its audio lives in the project's data folder.
  fs::path const data = scratch / "Default Project.tdpj.ProjectData";
  EXPECT_TRUE(fs::exists(data / "0.aud"));
  EXPECT_TRUE(fs::exists(data / "0.grf"));

  std::ofstream(scratch / "notes.txt") << "hello";
  EXPECT_FALSE(dialog.AddClip((scratch / "notes.txt").string()));
  EXPECT_EQ(view.LastAlert().rfind("Cannot open the file \"" + (scratch / "notes.txt").string() +
                                       "\". It is possible the file format is not supported by this program.",
                                   0),
            0u)
      << view.LastAlert();
  std::ofstream(scratch / "broken.wav") << "RIFF....WAVEjunk";
  EXPECT_FALSE(dialog.AddClip((scratch / "broken.wav").string()));
  EXPECT_EQ(view.LastAlert(), "Cannot open the file \"" + (scratch / "broken.wav").string() + "\" because it is corrupt.");
  EXPECT_FALSE(dialog.AddClip((scratch / "absent.flac").string()));
  EXPECT_EQ(view.LastAlert(), "Cannot open the file \"" + (scratch / "absent.flac").string() +
                                  "\". Check it exists and you have read access.");

  view.stopNextJob = true;  // Stop pressed while loading: nothing is added
  EXPECT_FALSE(dialog.AddClip(wav));
  engine.recording = true;
  EXPECT_FALSE(dialog.AddClip(wav));
  EXPECT_EQ(view.LastAlert(),
            "Tandrel can't open clips when it is recording. Please stop recording, then try loading clips.");
  EXPECT_EQ(Clips().GetCount(), 1);
  EXPECT_FALSE(fs::exists(data / "1.aud"));  // the stopped load left nothing behind
}

// Whatever the opener reads becomes a clip, and a clip goes out in any format.
TEST_F(ClipCommandsTest, AnyFormatBecomesAClipAndAClipExportsToAnyFormat) {
  std::string const flac = (scratch / "two seconds.flac").string();
  TDExportSource toFlac;
  toFlac.lssSource = LWaveFile::OpenSource(wav);
  toFlac.szPath = flac;
  toFlac.iChannels = 0;
  LTestProcessRecorder pi;
  ASSERT_EQ(Process(pi, toFlac), LProcessFinished);
  toFlac.lssSource.Close();

  Project().Tracks.SetCurrentTrackIndex(1);
  dialog.SetCursorPosition(1000);
  ASSERT_TRUE(dialog.AddClip(flac)) << view.LastAlert();
  ASSERT_EQ(Clips().GetCount(), 1);
  TDClip& clip = *Clips().GetClips()[0];
  EXPECT_EQ(clip.szName, "two seconds.flac");
  EXPECT_EQ(clip.GetEnd(), 2000);

  TDExportClip out{&clip, (scratch / "clip.ogg").string(), 22050};
  ASSERT_EQ(Process(pi, out), LProcessFinished);
  LSoundSource back;
  LGenSourceOpenInterfaceProcess face(pi);
  ASSERT_EQ(ProcessGenSourceOpenSource(back, out.szPath.c_str(), face), LProcessFinished);
  EXPECT_EQ(back->GetSampleRate(), 22050);
  EXPECT_EQ(back->GetChannels(), 2);
  EXPECT_NEAR(back->GetEndSample(), 44100, 256);
  std::vector<float> const all = LTestReadToEnd(back);
  // The tone of the fixture's file: 0.05 radians a sample at 8000 Hz, a quarter of full scale.
  LTestTone const tone = LTestMeasureTone(all, 2, 0, 22050, 2205, 41895);
  EXPECT_NEAR(tone.dFrequency, 0.05 * 8000 / (2 * M_PI), 0.5);
  EXPECT_NEAR(tone.dRms, 0.25 / std::sqrt(2.0), 0.01);
}

// The project's mix goes out as far as the last clip heard, with the metronome
// silent whatever its setting, which is as it was afterwards.
TEST_F(ClipCommandsTest, TheProjectExportsItsMixWithoutTheMetronome) {
  Place(2, 500);
  Project().Metronome.bMetronomeOn = true;
  LUserSettingSet("Settings", "MetronomeMode", 2);
  TDExportProjectNormal job;
  job.pProject = &Project();
  job.szPath = (scratch / "mix.flac").string();
  job.iSampleRate = 8000;
  LTestProcessRecorder pi;
  ASSERT_EQ(Process(pi, job), LProcessFinished) << (pi.Errors().empty() ? "" : pi.Errors()[0]);
  EXPECT_TRUE(Project().Metronome.bMetronomeOn);
  EXPECT_EQ(LUserSettingGet("Settings", "MetronomeMode", 0), 2);
  EXPECT_EQ(pi.Statuses(0).front(), "Mixing down file...");

  LSoundSource mix;
  LGenSourceOpenInterfaceProcess face(pi);
  ASSERT_EQ(ProcessGenSourceOpenSource(mix, job.szPath.c_str(), face), LProcessFinished);
  EXPECT_EQ(mix->GetSampleRate(), 8000);
  ASSERT_EQ(mix->GetChannels(), 2);
  ASSERT_EQ(mix->GetEndSample(), 8000 * 5 / 2);
  std::vector<float> const all = LTestReadToEnd(mix);
  for (std::size_t i = 0; i < 4000 * 2; ++i) ASSERT_EQ(all[i], 0.0f) << "a click at frame " << i / 2;
  LTestTone const tone = LTestMeasureTone(all, 2, 0, 8000, 4400, 19600);
  EXPECT_NEAR(tone.dFrequency, 0.05 * 8000 / (2 * M_PI), 0.5);
  EXPECT_GT(tone.dRms, 0.05);

  // A playlist or an unknown type fails at once and makes nothing.
  job.szPath = (scratch / "mix.m3u").string();
  EXPECT_EQ(Process(pi, job), LProcessFailed);
  EXPECT_FALSE(fs::exists(job.szPath));
}

TEST_F(ClipCommandsTest, DeleteAsksAndRefusesLockedClips) {
  TDClip* clip = Place(0, 0);
  clip->bLocked = true;
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(view.LastAlert(), "The Clip two seconds.wav is locked. Please unlock it before deleting.");
  EXPECT_EQ(view.flashes, 1);
  clip->bLocked = false;

  view.answers.push_back({1, false});  // "No"
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(view.questions.back().text, "Are you sure you want to delete this clip from the current project?");
  EXPECT_EQ(Clips().GetCount(), 1);

  view.answers.push_back({0, true});  // "Yes", and don't ask again
  engine.playing = true;
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(Clips().GetCount(), 0);
  EXPECT_EQ(engine.stops, 1);  // nothing left to play
  EXPECT_EQ(dialog.GetUndoPointName(), "Delete Clip");

  Place(0, 0);
  std::size_t const asked = view.questions.size();
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(view.questions.size(), asked);  // the box was ticked
  EXPECT_EQ(Clips().GetCount(), 0);
}

TEST_F(ClipCommandsTest, DeletingATakeAsksWhichAndKeepsTheGroupRight) {
  LUserSettingSet("Settings", "bWarnClipDelete", false);
  std::vector<TDClip*> takes = Takes(2, 1000);
  view.answers.push_back({0, false});  // "Delete the current take"
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(view.questions.back().text,
            "This clip contains multiple takes. Do you want to delete the current take, or all takes?");
  ASSERT_EQ(Clips().GetCount(), 2);
  EXPECT_TRUE(Clips().GetClips()[0]->bActiveTake);  // the first left takes over

  Clips().GetClips()[0]->bSelected = true;
  view.answers.push_back({1, false});  // "Cancel"
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(Clips().GetCount(), 2);
  view.answers.push_back({2, false});  // "Delete all takes"
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_EQ(Clips().GetCount(), 0);
}

TEST_F(ClipCommandsTest, ChoosingAndDeletingTakes) {
  std::vector<TDClip*> takes = Takes(1, 0);
  dialog.Command(CM_CHOOSE_NEXT_TAKE);
  EXPECT_TRUE(takes[1]->bActiveTake && takes[1]->bSelected);
  EXPECT_FALSE(takes[0]->bActiveTake || takes[0]->bSelected);
  dialog.Command(CM_CHOOSE_PREV_TAKE);
  dialog.Command(CM_CHOOSE_PREV_TAKE);  // from take 1 round to take 3
  EXPECT_TRUE(takes[2]->bActiveTake);
  EXPECT_EQ(dialog.GetUndoPointName(), "Choose Take");

  dialog.SetTakeMenuClip(takes[0]->uClipId);
  std::vector<MainDialog::MenuEntry> menu = dialog.GetTakeMenu(takes[0]->uClipId);
  ASSERT_EQ(menu.size(), 7u);
  EXPECT_EQ(menu[0].text, "Expand Takes");
  EXPECT_EQ(menu[1].text, "Delete all other takes");
  EXPECT_EQ(menu[2].text, "Delete Current Take");
  EXPECT_EQ(menu[3].id, 0);
  EXPECT_EQ(menu[6].text, "Use: Take  3");
  EXPECT_TRUE(menu[6].checked);
  EXPECT_EQ(menu[4].id, 20001);
  dialog.Command(menu[5].id);  // "Use: Take  2"
  EXPECT_TRUE(takes[1]->bActiveTake);

  dialog.SetTakeMenuClip(takes[1]->uClipId);
  dialog.Command(CM_DELETE_ACTIVE_TAKE);
  EXPECT_EQ(dialog.GetUndoPointName(), "Delete Active Take");
  ASSERT_EQ(Clips().GetCount(), 2);
  TDClip* keep = Clips().GetClips()[1].get();
  dialog.SetTakeMenuClip(keep->uClipId);
  dialog.Command(CM_DELETE_NO_ACTIVE_TAKES);
  ASSERT_EQ(Clips().GetCount(), 1);
  EXPECT_FALSE(Clips().GetClips()[0]->IsTake());
  EXPECT_EQ(dialog.GetUndoPointName(), "Delete All Other Takes");
}

// A take group split at the cursor becomes two groups: the left parts keep the
// old one, the right parts, moved to the cursor, make a new one.
TEST_F(ClipCommandsTest, SplittingATakeGroupMakesTwoGroups) {
  dialog.Command(CM_CLIP_SPLIT);
  EXPECT_EQ(view.alerts.back().caption, "Select Clip");
  std::vector<TDClip*> takes = Takes(0, 1000);
  std::uint32_t const oldGroup = takes[0]->uTakeGroupId;
  dialog.SetCursorPosition(500);
  dialog.Command(CM_CLIP_SPLIT);
  EXPECT_EQ(view.LastAlert(),
            "The project cursor is not over any selected, unlocked clips. To split, make sure your clip is unlocked "
            "and that the cursor is in the right position.");
  dialog.SetCursorPosition(1600);
  dialog.Command(CM_CLIP_SPLIT);
  ASSERT_EQ(Clips().GetCount(), 6);
  EXPECT_EQ(Clips().GetNumTakesInGroup(oldGroup), 3);
  std::uint32_t newGroup = 0;
  for (auto const& c : Clips().GetClips()) {
    if (c->uTakeGroupId == oldGroup) {
      EXPECT_EQ(c->iPosition, 1000);
      EXPECT_EQ(c->GetEnd(), 600);
    } else {
      newGroup = c->uTakeGroupId;
      EXPECT_EQ(c->iPosition, 1600);
      EXPECT_EQ(c->GetEnd(), 1400);
    }
  }
  EXPECT_NE(newGroup, 0u);
  EXPECT_EQ(Clips().GetNumTakesInGroup(newGroup), 3);
  EXPECT_EQ(dialog.GetUndoPointName(), "Split Clip");
}

TEST_F(ClipCommandsTest, ExpandingTakesSpreadsThemOverTracks) {
  std::vector<TDClip*> takes = Takes(10, 0);  // tracks 10, 11 and a new 12
  dialog.SetTakeMenuClip(takes[0]->uClipId);
  dialog.Command(CM_EXPAND_TAKES);
  EXPECT_EQ(Project().Tracks.GetTrackCount(), 13);
  EXPECT_EQ(dialog.GetUndoPointName(), "Expand Takes");
  for (int n = 0; n < 3; ++n) {
    EXPECT_EQ(takes[static_cast<std::size_t>(n)]->iTrackIndex, 10 + n);
    EXPECT_FALSE(takes[static_cast<std::size_t>(n)]->IsTake());
    EXPECT_EQ(takes[static_cast<std::size_t>(n)]->szName, "two seconds.wav (" + std::to_string(n + 1) + ")");
  }

  while (Project().Tracks.GetTrackCount() < 250) dialog.Command(CM_TRACK_ADD);
  std::vector<TDClip*> more = Takes(248, 0);
  dialog.SetTakeMenuClip(more[0]->uClipId);
  dialog.Command(CM_EXPAND_TAKES);
  EXPECT_EQ(view.alerts.back().text, "Only 250 tracks supported.");
  EXPECT_TRUE(more[1]->IsTake());
}

TEST_F(ClipCommandsTest, JoinKeepsTimingAndRefusesWhatItCannotJoin) {
  dialog.Command(CM_CLIP_JOIN);
  EXPECT_EQ(view.alerts.back().caption, "Join Clips Error");
  TDClip* a = Place(0, 1000);
  TDClip* b = Place(0, 3500);
  a->bSelected = true;
  b->bLocked = true;
  dialog.Command(CM_CLIP_JOIN);
  EXPECT_EQ(view.infoBar.back(),
            "Tandrel can't perform this action while the clip is locked. Please unlock the clip first.");
  b->bLocked = false;
  dialog.Command(CM_CLIP_JOIN);
  ASSERT_EQ(Clips().GetCount(), 1);
  EXPECT_EQ(a->iPosition, 1000);
  EXPECT_EQ(a->GetEnd(), 4500);  // 2 s, a gap of 0.5 s, 2 s
  EXPECT_EQ(dialog.GetUndoPointName(), "Join Clips");
}

TEST_F(ClipCommandsTest, MovingNudgingRenamingAndLocking) {
  TDClip* a = Place(0, 5000);
  TDClip* b = Place(1, 7000);
  a->bSelected = true;
  dialog.SetCursorPosition(2000);
  dialog.Command(CM_CLIP_MOVE_TO_CURSOR);
  EXPECT_EQ(a->iPosition, 2000);
  EXPECT_EQ(b->iPosition, 4000);  // keeps its distance
  dialog.Command(CM_CLIP_MOVE_TO_START);
  EXPECT_EQ(a->iPosition, 0);
  dialog.Command(CM_CLIP_NUDGE_LEFT);  // not before 0
  EXPECT_EQ(a->iPosition, 0);
  dialog.Command(CM_CLIP_NUDGE_RIGHT);
  EXPECT_EQ(a->iPosition, MainDialog::kNudgeMs);

  dialog.Command(CM_CLIP_LOCK_TOGGLE);
  EXPECT_TRUE(a->bLocked && b->bLocked);
  view.answers.push_back({0, true});
  dialog.Command(CM_CLIP_MOVE_TO_START);
  EXPECT_EQ(view.questions.back().text, "Some clips have been locked please unlock them and try again.");
  EXPECT_EQ(a->iPosition, MainDialog::kNudgeMs);
  std::size_t const asked = view.questions.size();
  dialog.Command(CM_CLIP_MOVE_TO_START);
  EXPECT_EQ(view.questions.size(), asked);  // not shown again
  dialog.CmClipRename(a->uClipId, "Lead");
  EXPECT_EQ(view.LastAlert(), "The clip is locked. Please unlock the clip and try to rename again.");
  dialog.Command(CM_CLIP_LOCK_TOGGLE);
  dialog.CmClipRename(a->uClipId, "Lead");
  EXPECT_EQ(a->szName, "Lead");

  Project().Tracks.SetCurrentTrackIndex(1);
  Clips().DeselectAllClips();
  dialog.Command(CM_CLIP_SELECT_NEXT);
  EXPECT_TRUE(b->bSelected);
  dialog.Command(CM_CLIP_SELECT_ALL);
  EXPECT_EQ(Clips().GetNumSelectedClips(), 2);
}

}  // namespace

namespace {

using Line = std::vector<std::pair<LSoundTime, double>>;

Line LineOf(TDClip const& clip, FadeType type = FadeTypeVolume) {
  Line out;
  for (TDClipFadePoint const& p : clip.GetFadeListByType(type)) out.emplace_back(p.iPosition, p.dValue);
  return out;
}

constexpr char kLocked[] = "Tandrel can't perform this action while the clip is locked. Please unlock the clip first.";

// Fades in and out work on the selected clip under the cursor, or on the part of
// each clip within the edit region; a refused command changes nothing.
TEST_F(ClipCommandsTest, FadeInAndOutAtTheCursorOrOverTheRegion) {
  TDClip* a = Place(0, 1000);  // 1000..3000
  Line const flat{{0, 0.0}, {2000, 0.0}};
  ASSERT_EQ(LineOf(*a), flat);
  int const states = dialog.GetUndoPointCount();
  dialog.SetCursorPosition(500);
  dialog.Command(CM_CLIP_FADE_IN);
  EXPECT_EQ(view.alerts.back().text,
            "Please select the region of a clip you want to fade, or put the cursor over a selected clip.");
  EXPECT_EQ(view.alerts.back().caption, "Select Region");
  EXPECT_EQ(dialog.GetUndoPointCount(), states);
  EXPECT_EQ(LineOf(*a), flat);

  dialog.SetCursorPosition(1500);
  engine.playing = true;
  int const applies = view.clipApplies;
  dialog.Command(CM_CLIP_FADE_IN);
  EXPECT_EQ(LineOf(*a), (Line{{0, -1.0}, {500, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(dialog.GetUndoPointName(), "Fade in");
  EXPECT_EQ(engine.restarts, 1);  // the playing mix is rebuilt
  EXPECT_GT(view.clipApplies, applies);
  engine.playing = false;

  dialog.SetCursorPosition(2600);
  dialog.Command(CM_CLIP_FADE_OUT);
  EXPECT_EQ(LineOf(*a), (Line{{0, -1.0}, {500, 0.0}, {1600, 0.0}, {2000, -1.0}}));
  EXPECT_EQ(dialog.GetUndoPointName(), "Fade out");

  a->bLocked = true;
  int const before = dialog.GetUndoPointCount();
  dialog.SetCursorPosition(1200);
  dialog.Command(CM_CLIP_FADE_OUT);
  EXPECT_EQ(view.infoBar.back(), kLocked);
  EXPECT_EQ(view.flashes, 1);
  EXPECT_EQ(dialog.GetUndoPointCount(), before);
  EXPECT_EQ(LineOf(*a), (Line{{0, -1.0}, {500, 0.0}, {1600, 0.0}, {2000, -1.0}}));
  a->bLocked = false;

  // A region over tracks 0 and 1 from 2500 to 3500: the clips there fade, each
  // over its own part of it, selected or not; the clip on track 2 does not.
  TDClip* b = Place(1, 2000);  // 2000..4000
  TDClip* c = Place(2, 2000);
  Project().SetEditRegion(2500, 3500, 0, 1);
  dialog.Command(CM_CLIP_FADE_OUT);
  EXPECT_EQ(LineOf(*a), (Line{{0, -1.0}, {500, 0.0}, {1500, 0.0}, {2000, -1.0}}));
  EXPECT_EQ(LineOf(*b), (Line{{0, 0.0}, {500, 0.0}, {1500, -1.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*c), flat);
  // The same region, with one of its clips locked, refuses for all.
  b->bLocked = true;
  dialog.Command(CM_CLIP_FADE_IN);
  EXPECT_EQ(view.infoBar.back(), kLocked);
  EXPECT_EQ(LineOf(*a), (Line{{0, -1.0}, {500, 0.0}, {1500, 0.0}, {2000, -1.0}}));
}

TEST_F(ClipCommandsTest, CrossFadeAddAndDeleteFadePoints) {
  TDClip* a = Place(0, 1000);  // 1000..3000
  TDClip* b = Place(1, 2000);  // 2000..4000, selected alone
  dialog.Command(CM_CLIP_CROSS_FADE);
  EXPECT_EQ(view.alerts.back().text,
            "The cross fade could not be applied. Please make sure you have two overlapping clips selected.");
  EXPECT_EQ(view.alerts.back().caption, "Cross fade not completed");
  a->bSelected = true;
  a->bLocked = true;
  dialog.Command(CM_CLIP_CROSS_FADE);
  EXPECT_EQ(view.infoBar.back(), kLocked);
  EXPECT_EQ(LineOf(*b), (Line{{0, 0.0}, {2000, 0.0}}));
  a->bLocked = false;
  dialog.Command(CM_CLIP_CROSS_FADE);
  EXPECT_EQ(LineOf(*a), (Line{{0, 0.0}, {1000, 0.0}, {2000, -1.0}}));
  EXPECT_EQ(LineOf(*b), (Line{{0, -1.0}, {1000, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(dialog.GetUndoPointName(), "Clips Crossfaded");

  // A point goes on the line the clip's track shows.
  Clips().DeselectAllClips();
  b->bSelected = true;
  Project().Tracks.GetTrack(1)->iFadeTypeShown = FadeTypePan;
  dialog.SetCursorPosition(5000);
  dialog.Command(CM_CLIP_ADD_FADE_POINT);
  EXPECT_EQ(view.alerts.back().text, "Please put the cursor over a selected clip to add a fade point there.");
  dialog.SetCursorPosition(3500);
  dialog.Command(CM_CLIP_ADD_FADE_POINT);
  EXPECT_EQ(LineOf(*b, FadeTypePan), (Line{{0, 0.0}, {1500, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*b).size(), 3u);
  EXPECT_EQ(dialog.GetUndoPointName(), "Fade Point Added");
  int const states = dialog.GetUndoPointCount();
  dialog.Command(CM_CLIP_ADD_FADE_POINT);  // one is there already
  EXPECT_EQ(dialog.GetUndoPointCount(), states);

  // Deleting over the region clears the shown line there, ends included;
  // without a region, the selected clips' whole shown lines.
  b->GetFadeListByType(FadeTypePan).back().dValue = 0.5;
  Project().SetEditRegion(3000, 4000, 1, 1);
  dialog.Command(CM_CLIP_DELETE_FADE_POINTS);
  EXPECT_EQ(LineOf(*b, FadeTypePan), (Line{{0, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*b), (Line{{0, -1.0}, {1000, 0.0}, {2000, 0.0}}));  // not shown: left alone
  EXPECT_EQ(dialog.GetUndoPointName(), "Fade Point Deleted");
  Project().ResetEditRegion();
  Clips().DeselectAllClips();
  a->bSelected = true;
  dialog.Command(CM_CLIP_DELETE_FADE_POINTS);
  EXPECT_EQ(LineOf(*a), (Line{{0, 0.0}, {2000, 0.0}}));
  int const cleared = dialog.GetUndoPointCount();
  dialog.Command(CM_CLIP_DELETE_FADE_POINTS);  // nothing left to clear
  EXPECT_EQ(dialog.GetUndoPointCount(), cleared);
}

}  // namespace
