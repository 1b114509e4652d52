#include "project/project_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "effects/table_effects.h"
#include "foundation/byte_order.h"
#include "project/clip_audio.h"
#include "project/testing_cut_lists.h"

namespace fs = std::filesystem;

namespace {

struct Quiet : LProcessInterfaceVoid {
  std::vector<std::string> errors;
  void SetError(char const* text) override { errors.push_back(text); }
};

class ProjectFileTest : public CutListTest {
 protected:
  void SetUp() override {
    CutListTest::SetUp();
    path = folder + "/song.tdpj";
    data = folder + "/song.tdpj.ProjectData";
    fs::create_directories(data);
    LAudioCutTank::Instance().SetWorkingFolder(data);
  }

  // A project worth saving: tracks with their fields set, clips over real audio
  // (a take group among them), tempo, signature and a bookmark.
  void Fill(TDProject& p, int tracks = 4, int clipsPerTrack = 2) {
    p.szFilePath = path;
    p.szDataFolderPath = data;
    for (int i = 0; i < tracks; ++i) {
      TDTrack* t = p.Tracks.AddTrack();
      t->SetName("Track " + std::to_string(i + 1));
      t->PannedVolume.fCentre = static_cast<float>(-i);
      t->PannedVolume.dPan = i == 1 ? -0.5 : 0.25;
      t->PannedVolume.ApplyCentreToLeftAndRight();
      t->bMute = i == 2;
      t->Colour = TDRGB16{static_cast<std::uint16_t>(0x1200 * i), 0x3400, 0xFF00};
      t->szRecordDeviceName = "Line In";
      t->iTrackStateWord = 7;
    }
    LCutListAudio audio;
    MakeKnownFile(audio, 1, 4410, 2);
    for (int i = 0; i < tracks; ++i) {
      for (int k = 0; k < clipsPerTrack; ++k) {
        auto clip = std::make_unique<TDClipAudio>(audio);
        clip->iPosition = 1000 * k;
        clip->szName = "clip " + std::to_string(k);
        p.AddClip(std::move(clip), i, false);
      }
    }
    auto const& clips = p.Clips.GetClips();
    clips[0]->uTakeGroupId = 3;
    clips[0]->iTakeNumber = 2;
    clips[0]->bActiveTake = false;
    if (clips.size() > 1) clips[1]->bLocked = true;
    p.Metronome.SetTempoChanges({{-32768.0, 96.0}, {16.0, 140.0}});
    p.iTimeSignatureBeats = 3;
    p.iTimeSignatureUnit = 8;
    LTimeLineBookmark mark;
    mark.SetName("Chorus");
    mark.iPosition = 4200;
    mark.Colour = TDRGB16{0xAB00, 0xCD00, 0xEF00};
    p.AddBookmark(mark);
  }

  LProcessResult Save(TDProject& p, std::string const& to) {
    TDSaveProject job{&p, to, {}};
    return Process(quiet, job);
  }
  LProcessResult Load(TDProject& p, std::string const& from, bool convert = false) {
    TDLoadProject job;
    job.pProject = &p;
    job.szPath = from;
    job.AskConvert = [&](std::string const& q) {
      asked = q;
      return convert;
    };
    return Process(quiet, job);
  }
  static std::vector<std::uint8_t> Bytes(std::string const& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  std::string path;
  std::string data;
  std::string asked;
  Quiet quiet;
};

LSDFUnknownChunk Foreign(std::uint16_t id, int position) {
  LSDFUnknownChunk c;
  c.wID = id;
  c.wType = LSDFTypeBlob;
  c.vData = {1, 2, 3, static_cast<unsigned char>(id)};
  c.iPosition = position;
  return c;
}

TEST_F(ProjectFileTest, SaveLoadSaveIsByteIdenticalAndKeepsForeignChunksInPlace) {
  TDProject p;
  Fill(p);
  p.lUnknown = {Foreign(0x6000, 4)};  // behind the settings container
  p.Tracks.GetTrack(1)->lUnknown = {Foreign(0x1041, 3)};
  p.Clips.GetClips()[2]->lUnknown = {Foreign(0x2020, 0)};
  ASSERT_EQ(Save(p, path), LProcessFinished);
  std::vector<std::uint8_t> const first = Bytes(path);
  EXPECT_FALSE(fs::exists(folder + "/tmp.tdpj"));

  TDProject back;
  ASSERT_EQ(Load(back, path), LProcessFinished) << (quiet.errors.empty() ? "" : quiet.errors[0]);
  ASSERT_EQ(back.Tracks.GetTrackCount(), 4);
  TDTrack const& t1 = *back.Tracks.GetTrack(1);
  EXPECT_EQ(t1.GetName(), "Track 2");
  EXPECT_DOUBLE_EQ(t1.PannedVolume.dPan, -0.5);
  EXPECT_EQ(t1.PannedVolume.fCentre, -1.0f);
  EXPECT_EQ(t1.Colour, (TDRGB16{0x1200, 0x3400, 0xFF00}));
  EXPECT_TRUE(back.Tracks.GetTrack(2)->bMute);
  EXPECT_EQ(t1.uTrackId, p.Tracks.GetTrack(1)->uTrackId);
  ASSERT_EQ(t1.lUnknown.size(), 1u);
  EXPECT_EQ(t1.lUnknown[0].iPosition, 3);
  ASSERT_EQ(back.Clips.GetCount(), 8);
  TDClip const& c0 = *back.Clips.GetClips()[0];
  EXPECT_EQ(c0.uTakeGroupId, 3u);
  EXPECT_FALSE(c0.bActiveTake);
  EXPECT_EQ(c0.pTrack, back.Tracks.GetTrack(c0.iTrackIndex));
  EXPECT_EQ(c0.GetEnd(), 100);
  EXPECT_EQ(back.Metronome.GetTempoChanges().size(), 2u);
  EXPECT_EQ(back.iTimeSignatureUnit, 8);
  ASSERT_EQ(back.GetBookmarks().size(), 1u);
  EXPECT_EQ(back.GetBookmarks().front().Colour, (TDRGB16{0xAB00, 0xCD00, 0xEF00}));
  ASSERT_EQ(back.lUnknown.size(), 1u);
  EXPECT_EQ(back.lUnknown[0].iPosition, 4);

  ASSERT_EQ(Save(back, path), LProcessFinished);
  EXPECT_EQ(Bytes(path), first);
}

// The audio files are numbered and the file names them; the references the
// loaded clips hold keep them, and the pan goes through the file exactly.
TEST_F(ProjectFileTest, PansTempoAndBookmarksFollowTheirRules) {
  TDProject p;
  Fill(p, 2, 1);
  LTimeLineBookmark second;
  second.SetName("Verse");
  p.AddBookmark(second);
  p.Metronome.SetTempoChanges({});
  ASSERT_EQ(Save(p, path), LProcessFinished);
  TDProject back;
  ASSERT_EQ(Load(back, path), LProcessFinished);
  // Bookmarks come back in the opposite order each time.
  EXPECT_EQ(back.GetBookmarks().front().GetName(), "Chorus");
  EXPECT_EQ(p.GetBookmarks().front().GetName(), "Verse");
  ASSERT_EQ(back.Metronome.GetTempoChanges().size(), 1u);
  EXPECT_EQ(back.Metronome.GetTempoChanges()[0].dBPM, 120.0);
}

TEST_F(ProjectFileTest, AClipNamingAnotherTrackIsLeftOut) {
  TDProject p;
  Fill(p, 2, 1);
  p.Clips.GetClips()[0]->uTrackId = 999999;  // not the id of the track at its index
  ASSERT_EQ(Save(p, path), LProcessFinished);
  TDProject back;
  ASSERT_EQ(Load(back, path), LProcessFinished);
  EXPECT_EQ(back.Clips.GetCount(), 1);
  EXPECT_TRUE(quiet.errors.empty());
}

TEST_F(ProjectFileTest, SaveAsCarriesTheWholeDataFolder) {
  TDProject p;
  Fill(p, 1, 1);
  std::ofstream(data + "/77.aud") << "left over";
  std::string const elsewhere = folder + "/other";
  fs::create_directories(elsewhere);
  std::string const copy = elsewhere + "/copy.tdpj";
  TDSaveProject job{&p, copy, {}};
  ASSERT_EQ(Process(quiet, job), LProcessFinished);
  EXPECT_EQ(job.szDataFolder, copy + ".ProjectData");
  EXPECT_TRUE(fs::exists(copy + ".ProjectData/0.aud"));
  EXPECT_TRUE(fs::exists(copy + ".ProjectData/0.grf"));
  EXPECT_TRUE(fs::exists(copy + ".ProjectData/77.aud"));
  TDProject back;
  ASSERT_EQ(Load(back, copy), LProcessFinished);
  EXPECT_EQ(back.szDataFolderPath, copy + ".ProjectData");
}

TEST_F(ProjectFileTest, BadFilesFailWithTheirWords) {
  TDProject p;
  Fill(p, 2, 2);
  ASSERT_EQ(Save(p, path), LProcessFinished);
  std::vector<std::uint8_t> const good = Bytes(path);

  TDProject none;
  EXPECT_EQ(Load(none, folder + "/absent.tdpj"), LProcessFailed);
  EXPECT_EQ(quiet.errors.back(), "Cannot open the file \"" + folder + "/absent.tdpj\" for reading.");

  std::ofstream(folder + "/text.tdpj") << "not a project";
  TDProject text;
  EXPECT_EQ(Load(text, folder + "/text.tdpj"), LProcessFailed);
  EXPECT_EQ(quiet.errors.back(), "The file " + folder + "/text.tdpj  is not a correct Tandrel project file. Cannot open.");

  // The version sits after the magic, container version and file type.
  auto withVersion = [&](std::uint16_t v) {
    std::vector<std::uint8_t> b = good;
    LWriteLE16(b.data() + 10, v);
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<char const*>(b.data()),
                                                                   static_cast<std::streamsize>(b.size()));
  };
  withVersion(22);
  TDProject newer;
  EXPECT_EQ(Load(newer, path), LProcessFailed);
  EXPECT_EQ(quiet.errors.back(),
            "This project file was created with a newer version of Tandrel. Please upgrade to the latest version of "
            "Tandrel to open this project.");

  withVersion(20);
  TDProject declined;
  EXPECT_EQ(Load(declined, path, false), LProcessStopped);
  EXPECT_EQ(asked,
            "Tandrel needs to convert the project and you cannot revert back to this old project format once "
            "converting finishes.");
  TDProject converted;
  ASSERT_EQ(Load(converted, path, true), LProcessFinished);
  EXPECT_EQ(LReadLE16(Bytes(path).data() + 10), 21);  // written back in this version

  // Every cut-off point fails cleanly.
  for (std::size_t cut = 0; cut < good.size(); cut += 7) {
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<char const*>(good.data()),
                                                                   static_cast<std::streamsize>(cut));
    TDProject partial;
    ASSERT_NE(Load(partial, path), LProcessFinished) << cut;
  }

  // A project whose data folder went away fails without words of its own: the
  // controller knows how to say it.
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<char const*>(good.data()),
                                                                 static_cast<std::streamsize>(good.size()));
  fs::rename(data, folder + "/moved");
  std::size_t const said = quiet.errors.size();
  TDProject lost;
  EXPECT_EQ(Load(lost, path), LProcessFailed);
  EXPECT_EQ(quiet.errors.size(), said);
}

// A save killed at any moment leaves a project file that loads, as the old
// version or the new one, never a broken one. The child tells each step of its
// save through a pipe, so the parent can kill it at a chosen step, anywhere from
// the first save's start to the middle of a later one.
TEST_F(ProjectFileTest, AKilledSaveNeverDamagesTheProjectFile) {
  TDProject p;
  Fill(p, 100, 20);  // 2,000 clips: a file of some hundreds of kilobytes
  p.Tracks.GetTrack(0)->SetName("old");
  ASSERT_EQ(Save(p, path), LProcessFinished);
  int const stepsPerSave = 100 + 100 * 20;

  struct Reporting : LProcessInterfaceVoid {
    int fd = -1;
    void SetProgress(double) override {
      char const step = 1;
      if (::write(fd, &step, 1) != 1) ::_exit(1);
    }
  };
  std::mt19937 rng(11);
  int killedMidway = 0;
  for (int trial = 0; trial < 50; ++trial) {
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(pipeFds[0]);
      p.Tracks.GetTrack(0)->SetName("new " + std::to_string(trial));
      TDSaveProject job{&p, path, {}};
      Reporting reporting;
      reporting.fd = pipeFds[1];
      for (;;) Process(reporting, job);  // until killed
    }
    ::close(pipeFds[1]);
    int const killAt = 1 + static_cast<int>(rng() % static_cast<unsigned>(2 * stepsPerSave));
    char steps[4096];
    for (int seen = 0; seen < killAt;) {
      ssize_t const got = ::read(pipeFds[0], steps, static_cast<std::size_t>(std::min<int>(killAt - seen, 4096)));
      ASSERT_GT(got, 0);
      seen += static_cast<int>(got);
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(pipeFds[0]);
    killedMidway += fs::exists(folder + "/tmp.tdpj") ? 1 : 0;

    TDProject back;
    ASSERT_EQ(Load(back, path), LProcessFinished) << "trial " << trial;
    std::string const name = back.Tracks.GetTrack(0)->GetName();
    ASSERT_TRUE(name == "old" || name.rfind("new ", 0) == 0) << name;
    ASSERT_EQ(back.Clips.GetCount(), 100 * 20);
    LAudioCutTank::Instance().SetWorkingFolder(data);
  }
  EXPECT_GT(killedMidway, 25);  // most kills fell inside the writing of a file
}

// ---- lines, automation and effect chains in the file ----

// A chunk as the file holds it: id, type, 64-bit size, data.
std::vector<unsigned char> ChunkBytes(std::uint16_t id, std::uint16_t type, std::vector<unsigned char> const& data) {
  std::vector<unsigned char> out(12);
  LWriteLE16(out.data(), id);
  LWriteLE16(out.data() + 2, type);
  LWriteLE32(out.data() + 4, static_cast<std::uint32_t>(data.size()));
  LWriteLE32(out.data() + 8, 0);
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

std::vector<unsigned char> IntBytes(std::int32_t v) {
  std::vector<unsigned char> out(4);
  LWriteLE32(out.data(), static_cast<std::uint32_t>(v));
  return out;
}

LSDFUnknownChunk ForeignContainer(std::uint16_t id, std::vector<std::vector<unsigned char>> const& children,
                                  int position) {
  LSDFUnknownChunk c;
  c.wID = id;
  c.wType = LSDFTypeContainer;
  for (auto const& child : children) c.vData.insert(c.vData.end(), child.begin(), child.end());
  c.iPosition = position;
  return c;
}

class ProjectFileLinesTest : public ProjectFileTest {
 protected:
  // Lines on two clips, volume and pan automation on the first track, an effect
  // parameter line on the second, and an effect chain on the third.
  void Shape(TDProject& p) {
    Fill(p, 3, 2);
    auto const& clips = p.Clips.GetClips();
    TDClipFadePoints& volume = clips[0]->GetFadeListByType(FadeTypeVolume);
    volume = {{-1.0, 0, FadeTypeVolume}, {-0.25, 30, FadeTypeVolume}, {0.123457, 60, FadeTypeVolume},
              {0.0, 100, FadeTypeVolume}};
    clips[3]->GetFadeListByType(FadeTypePan) = {{0.5, 0, FadePan()}, {-1.0, 100, FadePan()}};

    TDTrack& first = *p.Tracks.GetTrack(0);
    TDTrackAutomation& gain = *first.Automation.GetAutomationTrack(
        first.Automation.AddTrackAutomation(LCountedPtr<TDSPAutomation>(new TDSPGainAutomation), 0));
    gain.vPoints = {{0.0, 0}, {-0.5, 60000}, {0.25, 120000}};
    gain.lUnknown = {Foreign(0x1100, 2)};
    TDTrackAutomation& pan = *first.Automation.GetAutomationTrack(
        first.Automation.AddTrackAutomation(LCountedPtr<TDSPAutomation>(new TDSPPanAutomation), 0));
    pan.vPoints = {{-1.0, 0}, {1.0, 120000}};
    TDTrack& second = *p.Tracks.GetTrack(1);
    TDTrackAutomation& cutoff = *second.EffectAutomation.GetAutomationTrack(
        second.EffectAutomation.AddTrackAutomation(LCountedPtr<TDSPAutomation>(new TDSPVSTAutomation("Cutoff")), 0));
    cutoff.vPoints = {{0.75, 0}, {0.125, 120000}};

    LSoundProcessMulti& chain = p.Tracks.GetTrack(2)->EffectChain;
    chain.Append(std::make_unique<LSPGain>(0.5f))->bBypass = true;
    chain.Append(std::make_unique<LSPHighPass>(120));
    chain.Append(std::make_unique<LSPEcho>());
  }
  static FadeType FadePan() { return FadeTypePan; }
};

TEST_F(ProjectFileLinesTest, LinesAutomationAndEffectChainsComeBackAsSaved) {
  TDProject p;
  Shape(p);
  ASSERT_EQ(Save(p, path), LProcessFinished);
  std::vector<std::uint8_t> const first = Bytes(path);
  TDProject back;
  ASSERT_EQ(Load(back, path), LProcessFinished) << (quiet.errors.empty() ? "" : quiet.errors[0]);

  // Clip lines, by clip: values go through the file as millionths.
  for (auto const& c : p.Clips.GetClips()) {
    TDClip const* loaded = back.Clips.GetClip(c->uClipId);
    ASSERT_NE(loaded, nullptr);
    for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
      TDClipFadePoints const& want = c->GetFadeListByType(type);
      TDClipFadePoints const& got = loaded->GetFadeListByType(type);
      ASSERT_EQ(got.size(), want.size()) << c->uClipId;
      for (std::size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(got[i].iPosition, want[i].iPosition);
        EXPECT_EQ(got[i].iType, type);
        EXPECT_NEAR(got[i].dValue, want[i].dValue, 0.5e-6);
      }
    }
  }

  // Automation rows in their groups, with their kinds, names and points.
  auto rows = [](TDAutomationTracksManager const& m) {
    std::vector<std::tuple<int, std::string, int, LEnvelopeLine>> out;
    for (int i = 0; i < m.GetCount(); ++i) {
      TDTrackAutomation const& row = *m.GetAutomationTrack(i);
      std::string name;
      row.lpAutomation->GetName(name);
      LEnvelopeLine points = row.vPoints;
      for (LEnvelopePoint& pt : points) pt.dValue = static_cast<float>(pt.dValue);  // stored as float
      out.emplace_back(row.lpAutomation->GetType(), name, row.iParaIndex, points);
    }
    return out;
  };
  for (int t = 0; t < 3; ++t) {
    TDTrack const& want = *p.Tracks.GetTrack(t);
    TDTrack const& got = *back.Tracks.GetTrack(t);
    EXPECT_EQ(rows(got.Automation), rows(want.Automation)) << t;
    EXPECT_EQ(rows(got.EffectAutomation), rows(want.EffectAutomation)) << t;
  }
  ASSERT_EQ(back.Tracks.GetTrack(0)->Automation.GetCount(), 2);
  EXPECT_EQ(back.Tracks.GetTrack(0)->Automation.GetAutomationTrack(0)->lUnknown.size(), 1u);
  ASSERT_EQ(back.Tracks.GetTrack(1)->EffectAutomation.GetCount(), 1);

  // The chain, effect by effect.
  LSoundProcessMulti const& want = p.Tracks.GetTrack(2)->EffectChain;
  LSoundProcessMulti const& got = back.Tracks.GetTrack(2)->EffectChain;
  ASSERT_EQ(got.GetCount(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(got.GetAt(i)->GetSoundProcessType(), want.GetAt(i)->GetSoundProcessType());
    EXPECT_EQ(got.GetAt(i)->bBypass, want.GetAt(i)->bBypass);
    auto const& a = dynamic_cast<LSPTableEffect const&>(*got.GetAt(i));
    auto const& b = dynamic_cast<LSPTableEffect const&>(*want.GetAt(i));
    for (int f = 0; f < a.GetNumParameters(); ++f) EXPECT_EQ(a.GetHeld(f), b.GetHeld(f)) << i << "/" << f;
  }
  EXPECT_TRUE(back.Tracks.GetTrack(0)->EffectChain.IsEmpty());

  ASSERT_EQ(Save(back, path), LProcessFinished);
  EXPECT_EQ(Bytes(path), first);
}

// Automation of a kind this program can't make stays as it was read, in its
// place, and doesn't take the place of the rows it knows.
TEST_F(ProjectFileLinesTest, AutomationOfAnUnknownKindIsKept) {
  TDProject p;
  Shape(p);
  std::vector<unsigned char> const strange = IntBytes(7);
  p.Tracks.GetTrack(0)->lUnknown = {
      ForeignContainer(0x1029, {ChunkBytes(0x1030, LSDFTypeInt, strange), ChunkBytes(0x1035, LSDFTypeContainer, {})},
                       30),
      ForeignContainer(0x1036, {ChunkBytes(0x1030, LSDFTypeInt, strange), ChunkBytes(0x1038, LSDFTypeContainer, {})},
                       31)};
  ASSERT_EQ(Save(p, path), LProcessFinished);
  std::vector<std::uint8_t> const first = Bytes(path);
  TDProject back;
  ASSERT_EQ(Load(back, path), LProcessFinished);
  TDTrack const& t = *back.Tracks.GetTrack(0);
  EXPECT_EQ(t.lUnknown.size(), 2u);
  ASSERT_EQ(t.Automation.GetCount(), 2);
  EXPECT_EQ(t.Automation.GetAutomationTrack(0)->lpAutomation->GetType(), TDAutomationTypeGain);
  EXPECT_EQ(t.Automation.GetAutomationTrack(1)->lpAutomation->GetType(), TDAutomationTypePan);
  ASSERT_EQ(Save(back, path), LProcessFinished);
  EXPECT_EQ(Bytes(path), first);
}

// Bytes changed anywhere in a file with lines, automation and effects: the load
// fails or succeeds, and what it gives can be saved and loaded again.
TEST_F(ProjectFileLinesTest, DamagedChunksNeverCrashALoad) {
  TDProject p;
  Shape(p);
  std::mt19937 rng(5);
  auto noise = [&](std::size_t n) {
    std::vector<unsigned char> v(n);
    for (auto& b : v) b = static_cast<unsigned char>(rng());
    return v;
  };
  ASSERT_EQ(Save(p, path), LProcessFinished);
  std::vector<std::uint8_t> const good = Bytes(path);

  // Understood chunks that are not what they should be: a non-container where a
  // container belongs is kept as it is; noise inside a container, or a value too
  // short for its type, fails the load cleanly.
  {
    TDProject odd;
    Shape(odd);
    odd.Tracks.GetTrack(1)->lUnknown = {Foreign(0x1029, 40), Foreign(0x1002, 41)};
    odd.Clips.GetClips()[1]->lUnknown = {Foreign(0x1001, 20)};
    ASSERT_EQ(Save(odd, path), LProcessFinished);
    TDProject back;
    ASSERT_EQ(Load(back, path), LProcessFinished);
    EXPECT_EQ(back.Tracks.GetTrack(1)->lUnknown.size(), 2u);
    EXPECT_EQ(back.Tracks.GetTrack(1)->EffectAutomation.GetCount(), 1);
  }
  for (auto const& inside : {noise(40), ChunkBytes(0x2007, LSDFTypeString, noise(3))}) {
    TDProject odd;
    Shape(odd);
    odd.Clips.GetClips()[1]->lUnknown = {ForeignContainer(0x1000, {inside}, 20)};
    odd.Tracks.GetTrack(1)->lUnknown = {ForeignContainer(0x1036, {inside}, 41)};
    ASSERT_EQ(Save(odd, path), LProcessFinished);
    TDProject back;
    EXPECT_EQ(Load(back, path), LProcessFailed);
    LAudioCutTank::Instance().SetWorkingFolder(data);
  }

  int loaded = 0;
  for (int trial = 0; trial < 400; ++trial) {
    std::vector<std::uint8_t> bad = good;
    int const changes = 1 + static_cast<int>(rng() % 4);
    for (int k = 0; k < changes; ++k) {
      // Past the header, so that most trials reach the chunks.
      std::size_t const at = 12 + rng() % (bad.size() - 12);
      bad[at] = static_cast<std::uint8_t>(rng());
    }
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<char const*>(bad.data()), static_cast<std::streamsize>(bad.size()));
    TDProject back;
    if (Load(back, path) != LProcessFinished) continue;
    ++loaded;
    std::string const again = folder + "/again.tdpj";
    fs::create_directories(again + ".ProjectData");
    ASSERT_EQ(Save(back, again), LProcessFinished) << trial;
    TDProject third;
    ASSERT_EQ(Load(third, again), LProcessFinished) << trial;
    LAudioCutTank::Instance().SetWorkingFolder(data);
  }
  EXPECT_GT(loaded, 0);
}

}  // namespace
