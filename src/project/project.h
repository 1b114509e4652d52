#pragma once
#include <ctime>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/sound_time.h"
#include "project/bookmark.h"
#include "project/clip.h"
#include "project/clips_manager.h"
#include "project/metronome_feature.h"
#include "project/project_notify.h"
#include "project/tracks_manager.h"
#include "project/work_region.h"

// The sample rate the project was made at, as saved in its file.
class TDProjectPreferSampleRateInfo {
 public:
  int GetPreferredSampleRate() const { return iSampleRate; }
  void SetPreferSampleRate(int rate) { iSampleRate = rate; }

 private:
  int iSampleRate = 44100;
};

// The selection on the clips: a time range and an inclusive range of tracks.
struct TDEditRegion {
  int iStart = 0;  // ms
  int iEnd = 0;    // ms; equal to iStart: nothing selected
  int iFirstTrack = -1;
  int iLastTrack = -1;

  friend bool operator==(const TDEditRegion&, const TDEditRegion&) = default;
};

// The one project in memory. Opening or clearing a project empties and refills the
// same object. Changed on the main thread only.
//
// Still to come with their own work: surround speaker positions (the project is
// also its surround feature), Beat Designer patterns, export tags, the file chunks
// this version does not know, and the MIDI tempo events built from the tempo list.
class LCutListAudio;
class TDProjectSourceNotify;

// The user's settings that the mix openers read each time they open a mix. The
// preference store belongs to the shell, which hands them over through
// TDProject::SetMixSettingsProvider; without it the defaults below hold.
struct TDMixSettings {
  // "PlaybackSpeed" in "Settings": percent of normal speed.
  int iPlaybackSpeed = 100;
  // "MetronomePrerollOnly" in "Settings": while recording, the metronome only
  // counts in, in the pre-roll before the recording starts.
  bool bMetronomePrerollOnly = false;
};

class TDProject {
 public:
  static constexpr LSoundTime kMinimumEnd = 120000;
  // Room left after the last clip or bookmark, to drop the next one into.
  static constexpr LSoundTime kEndMargin = 10000;

  TDProject();
  TDProject(const TDProject&) = delete;
  TDProject& operator=(const TDProject&) = delete;

  // Empties the project for the next one: clips, tracks, file path, bookmarks
  // and the selection go; the tempo list, time signature, data folder and working
  // region stay until a load overwrites them.
  void Close();

  // Track operations that keep the clips on their tracks. False or null, with
  // nothing changed, for an unknown index.
  TDTrack* AddTrackAfter(int i);
  bool DeleteTrack(int i);
  bool ExchangeTracks(int a, int b);

  // Project length. The project is never shorter than 120 s, and with clips never
  // shorter than the clips plus 10 s.
  void SetEnd(LSoundTime end);
  LSoundTime GetEnd() const { return iEnd; }
  // Grows the project to cover the clips, temporary clips and bookmarks; never
  // shrinks it.
  void ResetEnd();
  // Shrinks (or grows) the project to just cover the clips.
  void TrimEnd();
  void IncreaseEnd();

  void SetEditRegion(int start, int end, int firstTrack, int lastTrack);
  void ResetEditRegion() { EditRegion = TDEditRegion{}; }
  const TDEditRegion& GetEditRegion() const { return EditRegion; }
  // Whether a clip from start to end (ms) on track lies in the selection. A clip
  // that only touches the selected range counts.
  bool IsClipInEditRegion(LSoundTime clipStart, LSoundTime clipEnd, int track) const;

  bool IsClipInEditRegion(TDClip const& clip) const {
    return IsClipInEditRegion(clip.iPosition, clip.GetEndTime(), clip.iTrackIndex);
  }
  // The first clip in the selection (list order), their count, whether there is one.
  TDClip* GetClipInEditRegion() const;
  int GetNumClipsInEditRegion() const;
  bool IsAnyClipInEditRegion() const { return GetClipInEditRegion() != nullptr; }

  int GetNewTakeGroupId() const;

  // Places a clip: on track `track`, or the current track when there is no such
  // track; a fresh id; bound to the track; in order. With `findFree` it goes to the
  // first track from there on down where it overlaps nothing, and to a new track
  // when none is free. Null, with the clip dropped, when the project has no track.
  TDClip* AddClip(std::unique_ptr<TDClip> clip, int track, bool findFree);
  // A clip made from a file: named after the file, at `position`, on `track`
  // (which wraps round the track count).
  TDClip* AddClipFinalise(std::unique_ptr<TDClip> clip, std::string const& path, int track, LSoundTime position);
  // The placeholder of a recording in progress, named "Recording...".
  TDClip* AddTemporaryClip(LCutListAudio const& list, LSoundTime position, int track);
  bool DeleteClip(std::uint32_t id);
  bool DeleteClip(TDClip const* clip);
  // Deletes every selected clip that is not locked; the count deleted.
  int DeleteSelectedClips();
  // The first track from the clip's own down (towards index 0) where it overlaps
  // no other clip, or INT_MIN when every one is taken. Clips that only touch don't
  // overlap.
  int FindTrackNoOverlapped(TDClip const& clip) const;
  // The same as if the clip stood on track `from`.
  int FindTrackNoOverlapped(TDClip const& clip, int from) const;
  // A free track for the clip near `track`, or `track` itself.
  int AdjustClipPositionNoOverlapping(TDClip const& clip, int track) const;
  // Fades the two selected overlapping audio clips into each other
  // (TDClipsManager::CrossFadeClips); false when they can't be.
  bool CrossFadeClips();
  // Stretches a clip to `length` ms and grows the project to cover it.
  LProcessResult StretchClip(LProcessInterface& pi, TDClip& clip, LSoundTime length, bool keepPitch);

  // ---- opening the mix ----
  //
  // Each opener reads the mix settings first and keeps the playback speed in
  // dPlaybackSpeed. Every mix has the project's rate and channels asked; the
  // notify, which may be null, hears the track meters of every Read.

  // For export: the metronome is silent, and the mix ends with the last audible
  // clip, or at the selection's end when only the selection is exported (the mix
  // then starts at the selection's start).
  LSoundSource OpenSourceForExport(int rate, int channels, TDProjectSourceNotify* notify, bool selectionOnly);
  // For playing: with the metronome when it is on, clicking from the metronome
  // boundary's start.
  LSoundSource OpenNonLoopSource(int rate, int channels, TDProjectSourceNotify* notify);
  // For recording from `start`: with the input monitor and the MIDI stream (error
  // sources for none), which make the mix endless.
  LSoundSource OpenNonLoopSource(int rate, int channels, LSoundSource const& monitor, LSoundSource const& midiStream,
                                 LSoundTime start, TDProjectSourceNotify* notify);
  // The mix looping over the working region; a plain mix when the region is
  // empty or starts past the mix's end.
  LSoundSource OpenLoopSource(int rate, int channels, LSoundSource const& monitor, LSoundSource const& midiStream,
                              TDProjectSourceNotify* notify);
  // Plays from `preroll` (before the working region) into the region, then loops it.
  LSoundSource OpenPrerollLoopSource(int rate, int channels, LSoundTime preroll, LSoundSource const& monitor,
                                     LSoundSource const& midiStream, TDProjectSourceNotify* notify);
  // The metronome at the mix's format, following the tempo list and the time
  // signature, positioned at `startFrame`. The project's own click sounds when
  // it names files that exist, else the program's "beat.wav" and "accent.wav".
  LSoundSource OpenMetronomeSource(int rate, int channels, int startFrame);

  // Where a mix at `rate` ends: with the last frame of the clips that play
  // (active takes and clips, also on muted tracks). 0 with none.
  int GetProjectSoundSourceEnd(int rate) const;
  // The same for the clips that are heard (GetAudibleEnd), where an export ends.
  int GetProjectExportEnd(int rate) const;
  // The end of the last clip that is heard: none on a muted track, and while a
  // track is solo only clips on solo tracks. 0 for an empty project.
  LSoundTime GetAudibleEnd() const { return Clips.GetAudibleEnd(Tracks); }

  void SetMixSettingsProvider(std::function<TDMixSettings()> provider) { MixSettings = std::move(provider); }

  // Bookmarks are kept newest first.
  void AddBookmark(const LTimeLineBookmark& bookmark);
  const std::list<LTimeLineBookmark>& GetBookmarks() const { return Bookmarks; }
  // The bookmark at exactly `position`, or null.
  LTimeLineBookmark* FindBookmark(LSoundTime position);
  bool RemoveBookmark(LSoundTime position);
  void ClearBookmarks() { Bookmarks.clear(); }

  // Names of new recordings, from the track number, the local time and (for the
  // clip) the track's name. The std::tm overloads take the time to use. False for
  // an unknown track.
  bool CreateAudioRecordName(int track, std::string& out) const;
  bool CreateAudioRecordName(int track, const std::tm& when, std::string& out) const;
  // A path in the recordings folder, which is created when missing. False for an
  // unknown track or when the folder can't be made.
  bool CreateRecordFilePath(int track, std::string& out, const std::string& ext) const;
  bool CreateRecordFilePath(int track, const std::tm& when, std::string& out, const std::string& ext) const;
  // "Recordings" in the user data folder, created when missing.
  static bool GetRecordingFolder(std::string& out);

  TDProjectMetronomeFeature Metronome;
  std::string szDataFolderPath;
  std::string szFilePath;
  TDProjectPreferSampleRateInfo PreferSampleRate;

 private:
  LSoundTime iEnd = kMinimumEnd;  // before WorkRegion, which refers to it

 public:
  TDWorkRegionInfo WorkRegion;
  TDProjectNotify* pNotify = nullptr;
  TDTracksManager Tracks;
  TDClipsManager Clips;

  // The preferences these four start from are applied by the controller.
  bool bLoopPlay = true;
  bool bLoopRecord = true;
  bool GridMode = false;
  bool EnableMonitoring = false;

  double dPlaybackSpeed = 1.0;
  // Guards what the mix thread reads while the main thread may change it.
  mutable std::recursive_mutex Lock;
  int iTimeSignatureBeats = 4;  // beats per bar
  int iTimeSignatureUnit = 4;   // note value of one beat
  // "Stereo", "5.1" or "7.1": how the mix is laid out on speakers.
  std::string szChannelFormat = "Stereo";
  // Chunks of a project file that this version does not know (and, until their
  // parts of the program exist, the Beat Designer patterns, the MIDI clips and
  // the tags), written back in their places: at the root and inside the header,
  // track list, clip list and settings containers.
  LSDFUnknownChunkList lUnknown;
  LSDFUnknownChunkList lUnknownHeader;
  LSDFUnknownChunkList lUnknownTracks;
  LSDFUnknownChunkList lUnknownAudioClips;
  LSDFUnknownChunkList lUnknownSettings;

 private:
  // The end of whatever is on the timeline, and whether there is anything.
  LSoundTime LatestContentEnd(bool withBookmarks, bool& any) const;
  // Reads the mix settings and keeps the playback speed.
  TDMixSettings ReadMixSettings();
  // The last frame of the audio clips `counts` accepts, at `rate`.
  template <class Counts>
  int AudioClipsEndFrames(int rate, Counts counts) const;
  // The mix made and initialised; the metronome as the opener left it.
  LSoundSource OpenProjectSource(int rate, int channels, LSoundSource const& monitor, LSoundSource const& midiStream,
                                 TDProjectSourceNotify* notify, bool forExport, bool selectionOnly);
  // Puts the finished mix through the playback speed.
  LSoundSource ApplyPlaybackSpeed(LSoundSource const& mix) const;
  // The metronome for a mix at `rate` that starts at `startFrame`, clicking only
  // before `clickEnd` (a frame), or none when it is off.
  void PrepareMetronome(int rate, int channels, int startFrame, int clickEnd);
  std::function<TDMixSettings()> MixSettings;
  void NotifyClipsChanged();

  TDEditRegion EditRegion;
  std::list<LTimeLineBookmark> Bookmarks;
};
