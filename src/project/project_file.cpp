#include "project/project_file.h"

#include <dirent.h>
#include <errno.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "foundation/file.h"
#include "foundation/sdf.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/cut_list_load_save.h"
#include "project/identity.h"
#include "project/project_paths.h"

namespace {

using Writer = LSDFWriter<LOutputStreamFile>;
using Reader = LSDFReader<LInputStreamFile>;
using Chunk = LSDFReaderChunk<LInputStreamFile>;
using Iterator = LSDFReaderChunkIterator<LInputStreamFile>;

// Chunk ids of the project file.
namespace Id {
constexpr std::uint16_t Tracks = 0x1000, Track = 0x1001, AudioClips = 0x2000, AudioClip = 0x2002,
                        ClipFields = 0x2001, CutList = 0x2003, Settings = 0x4000, Header = 0x5000;
constexpr std::uint16_t HeaderDataFolder = 0x5001, HeaderNextTrackId = 0x5002;
// Track fields.
constexpr std::uint16_t TrackName = 0x1008, TrackMute = 0x1009, TrackSolo = 0x100A, TrackCollapsed = 0x100B,
                        TrackVolume = 0x100C, TrackPan = 0x100D, TrackFadeShown = 0x100E, TrackDeviceName = 0x100F,
                        TrackSecondChannels = 0x1010, TrackLeftInput = 0x1011, TrackRightInput = 0x1012,
                        TrackIndex = 0x1013, TrackRecordRate = 0x1014, TrackRecordChannels = 0x1015,
                        TrackId = 0x1039, TrackMidiPlay = 0x1016, TrackMidiRecord = 0x1020, TrackRecordMidi = 0x1022,
                        TrackStateWord = 0x1021, TrackVolumeEnvelope = 0x1017, TrackPanEnvelope = 0x1018,
                        TrackChainFlag = 0x1023, TrackFlag = 0x1040, TrackOlder1 = 0x1003, TrackOlder2 = 0x1004,
                        TrackColour = 0x1019, TrackSurroundX = 0x1024, TrackSurroundY = 0x1025,
                        TrackEffects = 0x1002, TrackAutomation = 0x1029, TrackAutomationRow = 0x1036;
// Inside the track's automation chunks: the type (0 gain, 1 pan, 32767 an effect
// parameter), the automation's own container, a row's name and its line.
constexpr std::uint16_t AutomationType = 0x1030, AutomationData = 0x1035, AutomationName = 0x1034,
                        AutomationRow = 0x1038;
// Clip fields.
constexpr std::uint16_t ClipId = 0x2011, ClipName = 0x2000, ClipLocked = 0x2002, ClipTrackIndex = 0x2003,
                        ClipPosition = 0x2004, ClipTakeNumber = 0x2008, ClipTakeGroup = 0x2009,
                        ClipActiveTake = 0x2010, ClipTrackId = 0x1039;
// One container per fade point, volume or pan, holding its position (ms) and its
// value x 1000000.
constexpr std::uint16_t ClipVolumePoint = 0x1000, ClipPanPoint = 0x1001, FadePosition = 0x2006, FadeValue = 0x2007;
// Settings.
constexpr std::uint16_t TempoList = 0x4010, Tempo = 0x4011, TempoBPM = 0x4012, TempoPosition = 0x4013,
                        BeatsPerBar = 0x4002, BeatUnit = 0x4003, ChannelFormat = 0x4004, Bookmarks = 0x4005,
                        BookmarkPosition = 0x4006, BookmarkName = 0x4007, BookmarkColour = 0x4008,
                        PreferredRate = 0x4014, OldBPM = 0x4001, OldTempo = 0x4009;
}  // namespace Id

std::string FolderOf(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool EndsWithNoCase(std::string const& s, char const* tail) {
  std::size_t const n = std::strlen(tail);
  return s.size() >= n && strcasecmp(s.c_str() + s.size() - n, tail) == 0;
}

bool IsFolder(std::string const& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string Format(char const* pattern, std::string const& a, std::string const& b = {}, std::string const& c = {}) {
  // The patterns hold %s only; each is replaced in turn.
  std::string out;
  std::string const* args[3] = {&a, &b, &c};
  int next = 0;
  for (char const* p = pattern; *p != 0; ++p) {
    if (p[0] == '%' && p[1] == 's' && next < 3) {
      out += *args[next++];
      ++p;
    } else {
      out += *p;
    }
  }
  return out;
}

bool CopyFile(std::string const& from, std::string const& to) {
  LFile in;
  LFile out;
  if (!in.OpenRead(from) || !out.OpenCreate(to)) return false;
  std::vector<unsigned char> buffer(1 << 20);
  for (;;) {
    std::int64_t const got = in.Read(buffer.data(), buffer.size());
    if (got < 0) return false;
    if (got == 0) return true;
    if (out.Write(buffer.data(), static_cast<std::size_t>(got)) != got) return false;
  }
}

// ---- saving ----

std::int32_t ColourWord(TDRGB16 const& c) {
  return static_cast<std::int32_t>(((c.uRed >> 8) << 16) | ((c.uGreen >> 8) << 8) | (c.uBlue >> 8));
}

// The automations of both groups, each once, then every row: the rows find their
// automations again by their order, as each automation drives one row.
void WriteAutomation(Writer& w, TDTrack const& t, int& n) {
  TDAutomationTracksManager const* const groups[2] = {&t.Automation, &t.EffectAutomation};
  std::vector<LCountedPtr<TDSPAutomation>> automations;
  for (int g = 0; g < 2; ++g) {
    groups[g]->GetAllAutomations(automations);
    for (LCountedPtr<TDSPAutomation> const& a : automations) {
      w.StartContainer(Id::TrackAutomation, n++);
      w.WriteInt(Id::AutomationType, g == 0 ? a->GetType() : TDAutomationTypeVST, 0);
      a->SaveToSDF(w, Id::AutomationData);
      w.EndContainer(Id::TrackAutomation);
    }
  }
  for (int g = 0; g < 2; ++g) {
    for (int i = 0; i < groups[g]->GetCount(); ++i) {
      TDTrackAutomation const& row = *groups[g]->GetAutomationTrack(i);
      if (!row.lpAutomation) continue;
      int const type = g == 0 ? row.lpAutomation->GetType() : TDAutomationTypeVST;
      std::string name;
      if (type == TDAutomationTypeVST) {
        row.lpAutomation->GetParaName(row.iParaIndex, name);
      } else {
        row.lpAutomation->GetName(name);
      }
      w.StartContainer(Id::TrackAutomationRow, n++);
      w.WriteInt(Id::AutomationType, type, 0);
      w.WriteString(Id::AutomationName, name, 1);
      row.SaveToSDF(w, Id::AutomationRow);
      w.EndContainer(Id::TrackAutomationRow);
    }
  }
}

// Rounded, not cut: a value read back as n x 1e-6 must store as n again, or every
// save would wear a point's value down.
std::int32_t StoredFadeValue(double value) {
  if (std::isnan(value)) return 0;
  double const scaled = std::clamp(value * 1000000.0, -2147483648.0, 2147483647.0);
  return static_cast<std::int32_t>(std::llround(scaled));
}

void WriteFadePoints(Writer& w, TDClipFadePoints const& list, std::uint16_t id, int& n) {
  for (TDClipFadePoint const& p : list) {
    w.StartContainer(id, n++);
    w.WriteInt(Id::FadePosition, p.iPosition, 0);
    w.WriteInt(Id::FadeValue, StoredFadeValue(p.dValue), 1);
    w.EndContainer(id);
  }
}

void WriteTrack(Writer& w, TDTrack const& t) {
  w.StartContainer(Id::Track, t.lUnknown);
  int n = 0;
  w.WriteString(Id::TrackName, t.GetName(), n++);
  w.WriteBool(Id::TrackMute, t.bMute, n++);
  w.WriteBool(Id::TrackSolo, t.bSolo, n++);
  w.WriteBool(Id::TrackCollapsed, t.bCollapsed, n++);
  w.WriteInt(Id::TrackVolume, static_cast<std::int32_t>(t.PannedVolume.fCentre), n++);
  w.WriteInt(Id::TrackPan, static_cast<std::int32_t>(t.PannedVolume.dPan * 1000000.0), n++);
  w.WriteInt(Id::TrackFadeShown, t.iFadeTypeShown, n++);
  w.WriteString(Id::TrackDeviceName, t.szRecordDeviceName, n++);
  w.WriteInt(Id::TrackSecondChannels, t.byRecordChannels[1], n++);
  w.WriteInt(Id::TrackLeftInput, t.RecordDevice.iLeftInput, n++);
  w.WriteInt(Id::TrackRightInput, t.RecordDevice.iRightInput, n++);
  w.WriteInt(Id::TrackIndex, t.iIndex, n++);
  w.WriteInt(Id::TrackRecordRate, t.iRecordSampleRate, n++);
  w.WriteInt(Id::TrackRecordChannels, t.byRecordChannels[0], n++);
  w.WriteInt64(Id::TrackId, static_cast<std::int64_t>(t.uTrackId), n++);
  w.WriteInt(Id::TrackMidiPlay, t.iMidiPlayDevice, n++);
  w.WriteInt(Id::TrackMidiRecord, t.iMidiRecordDevice, n++);
  w.WriteBool(Id::TrackRecordMidi, t.bRecordMidi, n++);
  w.WriteInt(Id::TrackStateWord, t.iTrackStateWord, n++);
  w.WriteBool(Id::TrackVolumeEnvelope, t.bVolumeEnvelopeOn, n++);
  w.WriteBool(Id::TrackPanEnvelope, t.bPanEnvelopeOn, n++);
  w.StartContainer(Id::TrackEffects, n++);
  t.EffectChain.SaveToSDF(w);
  w.EndContainer(Id::TrackEffects);
  w.WriteBool(Id::TrackChainFlag, t.bEffectChainFlag, n++);
  // An older file's record goes out twice, as its readers expect; a load keeps
  // the last copy.
  for (LSDFUnknownChunk const& c : t.lOlderRecord) {
    (void)n++;
    w.WriteUnknownChunk(c);
  }
  w.WriteBool(Id::TrackFlag, t.bTrackFlag, n++);
  for (LSDFUnknownChunk const& c : t.lOlderRecord) {
    (void)n++;
    w.WriteUnknownChunk(c);
  }
  w.WriteInt(Id::TrackColour, ColourWord(t.Colour), n++);
  w.WriteFloat(Id::TrackSurroundX, t.fStaticSurroundX, n++);
  w.WriteFloat(Id::TrackSurroundY, t.fStaticSurroundY, n++);
  WriteAutomation(w, t, n);
  w.EndContainer(Id::Track);
}

LProcessResult WriteAudioClip(LProcessInterface& pi, Writer& w, TDClipAudio const& c) {
  w.StartContainer(Id::AudioClip, c.lUnknownOuter);
  w.StartContainer(Id::ClipFields, c.lUnknown, 0);
  int n = 0;
  w.WriteInt(Id::ClipId, static_cast<std::int32_t>(c.uClipId), n++);
  w.WriteString(Id::ClipName, c.szName, n++);
  w.WriteBool(Id::ClipLocked, c.bLocked, n++);
  w.WriteInt(Id::ClipTrackIndex, c.iTrackIndex, n++);
  w.WriteInt(Id::ClipPosition, c.iPosition, n++);
  w.WriteInt(Id::ClipTakeNumber, c.iTakeNumber, n++);
  w.WriteInt(Id::ClipTakeGroup, static_cast<std::int32_t>(c.uTakeGroupId), n++);
  w.WriteBool(Id::ClipActiveTake, c.bActiveTake, n++);
  w.WriteInt64(Id::ClipTrackId, static_cast<std::int64_t>(c.uTrackId), n++);
  WriteFadePoints(w, c.GetFadeListByType(FadeTypeVolume), Id::ClipVolumePoint, n);
  WriteFadePoints(w, c.GetFadeListByType(FadeTypePan), Id::ClipPanPoint, n);
  w.EndContainer(Id::ClipFields);
  LProcessResult const r = ProcessSaveCutListAudioLink(pi, w, Id::CutList, c.GetCutListAudio());
  if (r != LProcessFinished) return r;
  w.EndContainer(Id::AudioClip);
  return LProcessFinished;
}

void WriteSettings(Writer& w, TDProject const& p) {
  w.StartContainer(Id::Settings, p.lUnknownSettings, 3);
  int n = 0;
  w.StartContainer(Id::TempoList, n++);
  for (LTempoChange const& t : p.Metronome.GetTempoChanges()) {
    w.StartContainer(Id::Tempo);
    w.WriteFloat(Id::TempoPosition, static_cast<float>(t.dBeatPosition));
    w.WriteFloat(Id::TempoBPM, static_cast<float>(t.dBPM));
    w.EndContainer(Id::Tempo);
  }
  w.EndContainer(Id::TempoList);
  w.WriteInt(Id::BeatsPerBar, p.iTimeSignatureBeats, n++);
  w.WriteInt(Id::BeatUnit, p.iTimeSignatureUnit, n++);
  w.WriteString(Id::ChannelFormat, p.szChannelFormat == "Device Channels" ? "Stereo" : p.szChannelFormat, n++);
  w.StartContainer(Id::Bookmarks, n++);
  for (LTimeLineBookmark const& b : p.GetBookmarks()) {
    w.WriteString(Id::BookmarkName, b.GetName());
    w.WriteInt(Id::BookmarkPosition, b.iPosition);
    w.WriteInt(Id::BookmarkColour, static_cast<std::int32_t>((b.Colour.uRed >> 8) | (b.Colour.uGreen & 0xFF00) |
                                                              ((b.Colour.uBlue >> 8) << 16)));
  }
  w.EndContainer(Id::Bookmarks);
  w.WriteInt(Id::PreferredRate, p.PreferSampleRate.GetPreferredSampleRate(), n++);
  w.EndContainer(Id::Settings);
}

// Copies the files (not the folders) of `from` into `to`, within progress
// start..start+width. Single failures don't stop the save: the user keeps what
// could be copied. 1 when stopped.
LProcessResult CopyDataFolder(LProcessInterface& pi, std::string const& from, std::string const& to, double start,
                              double width) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(from.c_str())) {
    while (dirent* e = ::readdir(dir)) {
      std::string const name = e->d_name;
      if (name == "." || name == "..") continue;
      struct stat st {};
      if (::stat((from + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode)) names.push_back(name);
    }
    ::closedir(dir);
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (pi.IsToStop()) return LProcessStopped;
    CopyFile(from + "/" + names[i], to + "/" + names[i]);
    pi.SetProgress(start + width * static_cast<double>(i + 1) / static_cast<double>(names.size()));
  }
  return LProcessFinished;
}

}  // namespace

std::string TDProjectDataFolderOf(std::string const& projectFile) {
  std::string out;
  TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile(projectFile, out);
  return out;
}

LProcessResult Process(LProcessInterface& pi, TDSaveProject& job) {
  if (job.pProject == nullptr || job.szPath.empty()) return LProcessFailed;
  TDProject& p = *job.pProject;
  // No id in the file may be missing.
  p.Tracks.EnsureAllTrackIds();
  for (auto const& c : p.Clips.GetClips()) {
    if (c->uClipId == 0xFFFFFFFFu) c->uClipId = TDClipID::GetNewId();
  }
  pi.SetStatus("Saving your project...", 0);
  pi.SetProgress(0.0);
  std::string const temporary = FolderOf(job.szPath) + "/tmp.tdpj";

  bool const samePlace = strcasecmp(job.szPath.c_str(), p.szFilePath.c_str()) == 0 ||
                         EndsWithNoCase(job.szPath, ".tdpj-recover");
  if (samePlace) {
    job.szDataFolder = p.szDataFolderPath.empty() ? TDProjectDataFolderOf(job.szPath) : p.szDataFolderPath;
    pi.SetProgress(0.1);
  } else {
    // A new place: the whole data folder goes with the file, clips' files or not.
    job.szDataFolder = TDProjectDataFolderOf(job.szPath);
    ::mkdir(job.szDataFolder.c_str(), 0777);
    std::string const from = LAudioCutTank::Instance().GetWorkingFolder();
    if (!from.empty() && from != job.szDataFolder) {
      if (CopyDataFolder(pi, from, job.szDataFolder, 0.0, 0.6) == LProcessStopped) return LProcessStopped;
    }
  }
  double const base = samePlace ? 0.1 : 0.6;

  LOutputStreamFile stream;
  if (!stream.Open(temporary)) {
    pi.SetError(Format("Cannot open the file \"%s\" for writing.", temporary).c_str());
    return LProcessFailed;
  }
  Writer w;
  w.Open(stream, TDProjectFileType, TDProjectFileVersion, p.lUnknown);

  w.StartContainer(Id::Header, p.lUnknownHeader, 0);
  w.WriteString(Id::HeaderDataFolder, job.szDataFolder, 0);
  w.WriteInt64(Id::HeaderNextTrackId, static_cast<std::int64_t>(TDID::uIdNext), 1);
  w.EndContainer(Id::Header);

  double const steps = std::max(1, p.Tracks.GetTrackCount() + p.Clips.GetCount());
  double done = base;
  pi.SetStatus("Saving Tracks", 1);
  w.StartContainer(Id::Tracks, p.lUnknownTracks, 1);
  for (int i = 0; i < p.Tracks.GetTrackCount(); ++i) {
    WriteTrack(w, *p.Tracks.GetTrack(i));
    done += 0.1 / steps;
    pi.SetProgress(done);
  }
  w.EndContainer(Id::Tracks);

  pi.SetStatus("Saving Clips", 1);
  w.StartContainer(Id::AudioClips, p.lUnknownAudioClips, 2);
  for (auto const& c : p.Clips.GetClips()) {
    auto const* audio = dynamic_cast<TDClipAudio const*>(c.get());
    if (audio == nullptr) continue;
    if (WriteAudioClip(pi, w, *audio) == LProcessStopped) {
      // The temporary file stays; the project file is untouched.
      w.Close();
      stream.Close();
      return LProcessStopped;
    }
    done += 0.1 / steps;
    pi.SetProgress(done);
  }
  w.EndContainer(Id::AudioClips);
  WriteSettings(w, p);

  bool const written = w.Close() && stream.Close();
  if (!written) {
    ::unlink(temporary.c_str());
    pi.SetError(Format("Tandrel could not write the project file \"%s\". Is the disk full?", job.szPath).c_str());
    return LProcessFailed;
  }
  pi.SetStatus("Copying project file to new location...", 1);
  if (::rename(temporary.c_str(), job.szPath.c_str()) != 0) {
    bool moved = false;
    if (errno == EXDEV && CopyFile(temporary, job.szPath)) {
      ::unlink(temporary.c_str());
      moved = true;
    }
    if (!moved) {
      pi.SetError(Format("Unable to move the temporary project file at '%s' to '%s'. You may not have permission to "
                         "write '%s'?",
                         temporary, job.szPath, job.szPath)
                      .c_str());
      return LProcessFailed;
    }
  }
  pi.SetProgress(1.0);
  return LProcessFinished;
}

// ---- loading ----

namespace {

bool ReadInt(Chunk& c, int& out) {
  std::int32_t v = 0;
  if (!c.ReadInt(v)) return false;
  out = v;
  return true;
}

TDRGB16 ColourFromWord(std::uint32_t w, int redShift, int greenShift, int blueShift) {
  return TDRGB16{static_cast<std::uint16_t>(((w >> redShift) & 0xFF) << 8),
                 static_cast<std::uint16_t>(((w >> greenShift) & 0xFF) << 8),
                 static_cast<std::uint16_t>(((w >> blueShift) & 0xFF) << 8)};
}

// What the automation chunks of a track hold, gathered until the track is read:
// the automations in the order written, and the rows with the type and name each
// was written with.
struct TrackAutomationRead {
  struct Row {
    int iType = -1;
    std::string szName;
    TDTrackAutomation Line;
  };
  std::vector<LCountedPtr<TDSPAutomation>> vAutomations;
  std::vector<Row> vRows;
};

// One automation chunk (0x1029). `known` is false, with nothing added, for a type
// this program can't make: the caller keeps the chunk as it is.
bool LoadAutomation(Reader& r, Chunk const& container, TrackAutomationRead& read, bool& known) {
  int type = -1;
  LCountedPtr<TDSPAutomation> automation;
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    if (it->GetChunkID() == Id::AutomationType) {
      if (!ReadInt(*it, type)) return false;
    } else if (it->GetChunkID() == Id::AutomationData && it->GetChunkType() == LSDFTypeContainer) {
      automation = TDMakeAutomation(type);
      if (automation && !automation->LoadFromSDF(r, *it)) return false;
    }
  }
  known = static_cast<bool>(automation);
  if (known) read.vAutomations.push_back(automation);
  return r.IsValid();
}

// One row chunk (0x1036); `known` as above.
bool LoadAutomationRow(Reader& r, Chunk const& container, TrackAutomationRead& read, bool& known) {
  TrackAutomationRead::Row row;
  bool line = false;
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    switch (it->GetChunkID()) {
      case Id::AutomationType:
        if (!ReadInt(*it, row.iType)) return false;
        break;
      case Id::AutomationName:
        if (!it->ReadString(row.szName)) return false;
        break;
      case Id::AutomationRow:
        if (it->GetChunkType() != LSDFTypeContainer) break;
        if (!row.Line.LoadFromSDF(r, *it)) return false;
        line = true;
        break;
      default: break;
    }
  }
  known = line && static_cast<bool>(TDMakeAutomation(row.iType));
  if (known) read.vRows.push_back(std::move(row));
  return r.IsValid();
}

// Each row goes to the automation written at its place, when that is of its type;
// a row without one gets an automation of its own. Effect parameter rows go to
// the track's second group.
void JoinAutomation(TrackAutomationRead& read, TDTrack& t) {
  for (std::size_t i = 0; i < read.vRows.size(); ++i) {
    TrackAutomationRead::Row& row = read.vRows[i];
    LCountedPtr<TDSPAutomation> automation;
    if (i < read.vAutomations.size() && read.vAutomations[i]->GetType() == row.iType) {
      automation = read.vAutomations[i];
    } else {
      automation = TDMakeAutomation(row.iType);
      if (auto* vst = dynamic_cast<TDSPVSTAutomation*>(automation.Get())) vst->SetName(row.szName);
    }
    TDAutomationTracksManager& group = row.iType == TDAutomationTypeVST ? t.EffectAutomation : t.Automation;
    TDTrackAutomation* target = group.GetAutomationTrack(group.AddTrackAutomation(automation, row.Line.iParaIndex));
    if (target == nullptr) continue;
    row.Line.lpAutomation = automation;
    *target = std::move(row.Line);
  }
}

bool LoadTrack(Reader& r, Chunk const& container, TDTrack& t) {
  TrackAutomationRead automation;
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    std::uint16_t const id = it->GetChunkID();
    bool ok = true;
    int v = 0;

    std::int64_t l = 0;
    switch (id) {
      case Id::TrackName: {
        std::string name;
        ok = it->ReadString(name);
        t.SetName(name);
        break;
      }
      case Id::TrackMute: ok = it->ReadBool(t.bMute); break;
      case Id::TrackSolo: ok = it->ReadBool(t.bSolo); break;
      case Id::TrackCollapsed: ok = it->ReadBool(t.bCollapsed); break;
      case Id::TrackVolume:
        ok = ReadInt(*it, v);
        t.PannedVolume.fCentre = static_cast<float>(std::clamp(v, -127, 127));
        t.PannedVolume.ApplyCentreToLeftAndRight();
        break;
      case Id::TrackPan:
        ok = ReadInt(*it, v);
        t.PannedVolume.dPan = std::clamp(v * 1e-6, -1.0, 1.0);
        t.PannedVolume.ApplyCentreToLeftAndRight();
        break;
      case Id::TrackFadeShown: ok = ReadInt(*it, t.iFadeTypeShown); break;
      case Id::TrackDeviceName: ok = it->ReadString(t.szRecordDeviceName); break;
      case Id::TrackSecondChannels:
        ok = ReadInt(*it, v);
        t.byRecordChannels[1] = static_cast<std::uint8_t>(v);
        break;
      case Id::TrackLeftInput: ok = ReadInt(*it, t.RecordDevice.iLeftInput); break;
      case Id::TrackRightInput: ok = ReadInt(*it, t.RecordDevice.iRightInput); break;
      case Id::TrackIndex: ok = ReadInt(*it, v); break;  // the place in the list decides
      case Id::TrackRecordRate: ok = ReadInt(*it, t.iRecordSampleRate); break;
      case Id::TrackRecordChannels:
        ok = ReadInt(*it, v);
        t.byRecordChannels[0] = static_cast<std::uint8_t>(v);
        break;
      case Id::TrackId:
        ok = it->ReadInt64(l);
        t.uTrackId = static_cast<std::uint64_t>(l);
        break;
      case Id::TrackMidiPlay: ok = ReadInt(*it, t.iMidiPlayDevice); break;
      case Id::TrackMidiRecord: ok = ReadInt(*it, t.iMidiRecordDevice); break;
      case Id::TrackRecordMidi: ok = it->ReadBool(t.bRecordMidi); break;
      case Id::TrackStateWord: ok = ReadInt(*it, t.iTrackStateWord); break;
      case Id::TrackVolumeEnvelope: ok = it->ReadBool(t.bVolumeEnvelopeOn); break;
      case Id::TrackPanEnvelope: ok = it->ReadBool(t.bPanEnvelopeOn); break;
      case Id::TrackChainFlag: ok = it->ReadBool(t.bEffectChainFlag); break;
      case Id::TrackFlag: ok = it->ReadBool(t.bTrackFlag); break;
      case Id::TrackOlder1:
      case Id::TrackOlder2: {
        LSDFUnknownChunk older;
        ok = it->ReadUnknownChunk(older);
        t.lOlderRecord.assign(1, older);
        break;
      }
      case Id::TrackColour:
        ok = ReadInt(*it, v);
        t.Colour = ColourFromWord(static_cast<std::uint32_t>(v), 16, 8, 0);
        break;
      case Id::TrackSurroundX: ok = it->ReadFloat(t.fStaticSurroundX); break;
      case Id::TrackSurroundY: ok = it->ReadFloat(t.fStaticSurroundY); break;
      case Id::TrackEffects:
        if (it->GetChunkType() == LSDFTypeContainer) {
          Iterator effects(r, *it);
          t.EffectChain.Clear();
          ok = t.EffectChain.LoadFromSDF(r, effects) && r.IsValid();
        } else {
          ok = it->ReadUnknownChunk(t.lUnknown);
        }
        break;
      case Id::TrackAutomation:
      case Id::TrackAutomationRow: {
        bool known = false;
        if (it->GetChunkType() == LSDFTypeContainer) {
          ok = id == Id::TrackAutomation ? LoadAutomation(r, *it, automation, known)
                                         : LoadAutomationRow(r, *it, automation, known);
        }
        if (ok && !known) ok = it->ReadUnknownChunk(t.lUnknown);
        break;
      }
      default:
        // The surround positions come back from here in their place until
        // their own reader takes them.
        ok = it->ReadUnknownChunk(t.lUnknown);
        break;
    }
    if (!ok) return false;
  }
  if (!r.IsValid()) return false;
  JoinAutomation(automation, t);
  return true;
}

bool LoadFadePoint(Reader& r, Chunk const& container, FadeType type, TDClip& c) {
  TDClipFadePoint point{0.0, 0, type};
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    int v = 0;
    if (it->GetChunkID() == Id::FadePosition) {
      if (!ReadInt(*it, v)) return false;
      point.iPosition = v;
    } else if (it->GetChunkID() == Id::FadeValue) {
      if (!ReadInt(*it, v)) return false;
      point.dValue = v * 1e-6;
    }
  }
  // Sorted once the clip is read.
  c.GetFadeListByType(type).push_back(point);
  return r.IsValid();
}

bool LoadClipFields(Reader& r, Chunk const& container, TDClip& c) {
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    bool ok = true;
    int v = 0;
    std::int64_t l = 0;
    switch (it->GetChunkID()) {
      case Id::ClipId:
        ok = ReadInt(*it, v);
        c.uClipId = static_cast<std::uint32_t>(v);
        if (c.uClipId != 0xFFFFFFFFu && c.uClipId >= TDClipID::uIdNext) TDClipID::SetNextFromLoad(c.uClipId + 1);
        break;
      case Id::ClipName: ok = it->ReadString(c.szName); break;
      case Id::ClipLocked: ok = it->ReadBool(c.bLocked); break;
      case Id::ClipTrackIndex: ok = ReadInt(*it, c.iTrackIndex); break;
      case Id::ClipPosition: ok = ReadInt(*it, c.iPosition); break;
      case Id::ClipTakeNumber: ok = ReadInt(*it, c.iTakeNumber); break;
      case Id::ClipTakeGroup:
        ok = ReadInt(*it, v);
        c.uTakeGroupId = static_cast<std::uint32_t>(v);
        break;
      case Id::ClipActiveTake: ok = it->ReadBool(c.bActiveTake); break;
      case Id::ClipTrackId:
        ok = it->ReadInt64(l);
        c.uTrackId = static_cast<std::uint64_t>(l);
        break;
      case Id::ClipVolumePoint:
      case Id::ClipPanPoint:
        if (it->GetChunkType() == LSDFTypeContainer) {
          ok = LoadFadePoint(r, *it, it->GetChunkID() == Id::ClipPanPoint ? FadeTypePan : FadeTypeVolume, c);
        } else {
          ok = it->ReadUnknownChunk(c.lUnknown);
        }
        break;
      case 0x2001:  // written by older versions, no longer meant anything
      case 0x2005:
      case 0x2012: break;
      default: ok = it->ReadUnknownChunk(c.lUnknown); break;
    }
    if (!ok) return false;
  }
  return r.IsValid();
}

LProcessResult LoadAudioClip(LProcessInterface& pi, Reader& r, Chunk const& container, TDProject& p) {
  auto clip = std::make_unique<TDClipAudio>();
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    if (it->GetChunkID() == Id::ClipFields && it->GetChunkType() == LSDFTypeContainer) {
      if (!LoadClipFields(r, *it, *clip)) return LProcessFailed;
    } else if (it->GetChunkID() == Id::CutList && it->GetChunkType() == LSDFTypeContainer) {
      LCutListAudio list;
      LProcessResult const res = ProcessLoadCutListAudioLink(pi, r, *it, list);
      if (res != LProcessFinished) return res;
      clip->SetCutListAudio(list);
    } else if (!it->ReadUnknownChunk(clip->lUnknownOuter)) {
      return LProcessFailed;
    }
  }
  if (!r.IsValid()) return LProcessFailed;
  TDTrack* track = p.Tracks.GetTrack(clip->iTrackIndex);
  if (track != nullptr) {
    // A clip that names another track than the one now at its index belongs to
    // none: it is left out, as the track it belonged to is gone.
    if (clip->uTrackId != 0 && track->uTrackId != 0 && clip->uTrackId != track->uTrackId) return LProcessFinished;
    clip->BindTrack(track, clip->iTrackIndex);
  }
  if (clip->uClipId == 0xFFFFFFFFu) clip->uClipId = TDClipID::GetNewId();
  clip->SortFadePoints();
  clip->InitFadePoints();
  p.Clips.AddClip(std::move(clip));
  return LProcessFinished;
}

bool LoadSettings(Reader& r, Chunk const& container, TDProject& p) {
  p.ClearBookmarks();
  std::vector<LTempoChange> tempos;
  std::string channelFormat = "Stereo";
  std::string bookmarkName;
  int bookmarkPosition = 0;
  for (Iterator it(r, container); it.IsValid(); it.Next()) {
    bool ok = true;
    switch (it->GetChunkID()) {
      case Id::TempoList:
        for (Iterator t(r, *it); t.IsValid(); t.Next()) {
          if (t->GetChunkID() != Id::Tempo) continue;
          LTempoChange change{TDProjectMetronomeFeature::kFirstTempoPosition, TDProjectMetronomeFeature::kDefaultBPM};
          for (Iterator f(r, *t); f.IsValid(); f.Next()) {
            float v = 0.0f;
            if (f->GetChunkID() == Id::TempoPosition && f->ReadFloat(v)) change.dBeatPosition = v;
            if (f->GetChunkID() == Id::TempoBPM && f->ReadFloat(v)) change.dBPM = v;
          }
          tempos.push_back(change);
        }
        break;
      case Id::OldBPM: {
        int v = 0;
        ok = ReadInt(*it, v);
        tempos.push_back({0.0, v * 1e-6});
        break;
      }
      case Id::OldTempo: {
        unsigned char bytes[16];
        if (it->ReadBlob(bytes, sizeof bytes)) {
          double d[2];
          std::memcpy(d, bytes, sizeof d);
          tempos.push_back({d[0], d[1]});
        }
        break;
      }
      case Id::BeatsPerBar: ok = ReadInt(*it, p.iTimeSignatureBeats); break;
      case Id::BeatUnit: ok = ReadInt(*it, p.iTimeSignatureUnit); break;
      case Id::ChannelFormat: ok = it->ReadString(channelFormat); break;
      case Id::Bookmarks:
        for (Iterator b(r, *it); b.IsValid(); b.Next()) {
          int v = 0;
          if (b->GetChunkID() == Id::BookmarkName) b->ReadString(bookmarkName);
          if (b->GetChunkID() == Id::BookmarkPosition && ReadInt(*b, v)) bookmarkPosition = v;
          if (b->GetChunkID() == Id::BookmarkColour && ReadInt(*b, v)) {
            LTimeLineBookmark mark;
            mark.SetName(bookmarkName);
            mark.iPosition = bookmarkPosition;
            mark.Colour = ColourFromWord(static_cast<std::uint32_t>(v), 0, 8, 16);
            p.AddBookmark(mark);
          }
        }
        break;
      case Id::PreferredRate: {
        int v = 0;
        ok = ReadInt(*it, v);
        if (ok && v > 0) p.PreferSampleRate.SetPreferSampleRate(v);
        break;
      }
      default: ok = it->ReadUnknownChunk(p.lUnknownSettings); break;
    }
    if (!ok) return false;
  }
  p.szChannelFormat = channelFormat == "Device Channels" ? "Stereo" : channelFormat;
  p.Metronome.SetTempoChanges(std::move(tempos));
  return r.IsValid();
}

LProcessResult LoadCurrentVersion(LProcessInterface& pi, TDLoadProject& job, Reader& r) {
  TDProject& p = *job.pProject;
  pi.SetStatus("Loading tracks", 1);
  pi.SetProgress(0.0);
  p.szFilePath = job.szPath;
  std::string const folder = TDProjectDataFolderOf(job.szPath);
  // The caller tells the user about a missing folder: the audio is not there.
  if (!IsFolder(folder)) return LProcessFailed;
  p.szDataFolderPath = folder;
  LAudioCutTank::Instance().SetWorkingFolder(folder);

  p.lUnknown.clear();
  p.lUnknownHeader.clear();
  p.lUnknownTracks.clear();
  p.lUnknownAudioClips.clear();
  p.lUnknownSettings.clear();
  for (Iterator it(r); it.IsValid(); it.Next()) {
    if (pi.IsToStop()) return LProcessStopped;
    bool const container = it->GetChunkType() == LSDFTypeContainer;
    switch (container ? it->GetChunkID() : 0) {
      case Id::Tracks:
        for (Iterator t(r, *it); t.IsValid(); t.Next()) {
          if (t->GetChunkID() != Id::Track || t->GetChunkType() != LSDFTypeContainer) {
            if (!t->ReadUnknownChunk(p.lUnknownTracks)) return LProcessFailed;
            continue;
          }
          TDTrack* track = p.Tracks.AddTrack();
          if (track == nullptr || !LoadTrack(r, *t, *track)) return LProcessFailed;
        }
        break;
      case Id::AudioClips: {
        std::int64_t const end = it->GetInfo().GetEndStreamPosition();
        std::int64_t const start = it->GetDataStreamPosition();
        for (Iterator c(r, *it); c.IsValid(); c.Next()) {
          if (c->GetChunkID() != Id::AudioClip || c->GetChunkType() != LSDFTypeContainer) {
            if (!c->ReadUnknownChunk(p.lUnknownAudioClips)) return LProcessFailed;
            continue;
          }
          LProcessResult const res = LoadAudioClip(pi, r, *c, p);
          if (res != LProcessFinished) return res;
          double const at = static_cast<double>(c->GetDataStreamPosition() - start) /
                            static_cast<double>(std::max<std::int64_t>(1, end - start));
          pi.SetProgress(0.3 + 0.3 * at);
        }
        break;
      }
      case Id::Settings:
        if (!LoadSettings(r, *it, p)) return LProcessFailed;
        break;
      case Id::Header:
        for (Iterator h(r, *it); h.IsValid(); h.Next()) {
          if (h->GetChunkID() == Id::HeaderNextTrackId) {
            std::int64_t next = 0;
            if (h->ReadInt64(next)) TDID::SetNextFromLoad(static_cast<std::uint64_t>(next));
          } else if (h->GetChunkID() != Id::HeaderDataFolder) {
            h->ReadUnknownChunk(p.lUnknownHeader);
          }
        }
        break;
      default:
        if (!it->ReadUnknownChunk(p.lUnknown)) return LProcessFailed;
        break;
    }
  }
  if (!r.IsValid() || !r.Close()) return LProcessFailed;
  p.Tracks.EnsureAllTrackIds();
  for (auto const& c : p.Clips.GetClips()) {
    if (c->pTrack != nullptr && c->uTrackId == 0) c->uTrackId = c->pTrack->EnsureTrackId();
  }
  pi.SetProgress(1.0);
  return LProcessFinished;
}

}  // namespace

LProcessResult Process(LProcessInterface& pi, TDLoadProject& job) {
  if (job.pProject == nullptr) return LProcessFailed;
  LInputStreamFile stream;
  if (!stream.Open(job.szPath)) {
    pi.SetError(Format("Cannot open the file \"%s\" for reading.", job.szPath).c_str());
    return LProcessFailed;
  }
  // A reader's lock: a save of the same file elsewhere waits for it.
  stream.GetFile().Lock(false, 1000);
  Reader r;
  if (!r.Open(stream, TDProjectFileType)) {
    pi.SetError(Format("The file %s  is not a correct Tandrel project file. Cannot open.", job.szPath).c_str());
    return LProcessFailed;
  }
  std::uint16_t const version = r.GetFormatVersion();
  if (version > TDProjectFileVersion) {
    pi.SetError(
        "This project file was created with a newer version of Tandrel. Please upgrade to the latest version of "
        "Tandrel to open this project.");
    return LProcessFailed;
  }
  if (version < TDProjectFileVersion) {
    bool const convert =
        job.AskConvert && job.AskConvert("Tandrel needs to convert the project and you cannot revert back to this old "
                                         "project format once converting finishes.");
    if (!convert) return LProcessStopped;
    if (version != 20) {
      // The tree of version 20 is this one; the earlier ones need converters of
      // their own, which this version does not have.
      pi.SetError(Format("Converting project failed. Cannot load project.%s",
                         " This version of Tandrel cannot read project files from before version 20.")
                      .c_str());
      return LProcessFailed;
    }
    job.bConverted = true;
  }
  LProcessResult result = LoadCurrentVersion(pi, job, r);
  stream.Close();
  if (result == LProcessFinished && job.bConverted) {
    TDSaveProject save{job.pProject, job.szPath, {}};
    result = Process(pi, save);
  }
  return result;
}
