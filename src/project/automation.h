#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/counted.h"
#include "foundation/sdf.h"
#include "foundation/sound_time.h"
#include "sound/envelope_points.h"
#include "sound/sound_source.h"

// Automation: lines on the project's timeline, drawn in rows beneath a track, that
// move a track's volume, its pan or an effect's parameter as the project plays.
// A row (TDTrackAutomation) holds the points; what the points drive is a shared,
// counted description (TDSPAutomation) that turns the rows into a sound source.

// GetType of the three kinds, also the type written beside each in a project file.
inline constexpr int TDAutomationTypeGain = 0;
inline constexpr int TDAutomationTypePan = 1;
inline constexpr int TDAutomationTypeVST = 32767;

// GetParaType: the scale a parameter's line is read on, so that a row is drawn and
// evaluated like the clip line of the same kind (the FadeType numbers), or as a
// plain value for an effect parameter.
inline constexpr int TDAutomationParaPlain = 0;
inline constexpr int TDAutomationParaVolume = 1;
inline constexpr int TDAutomationParaPan = 2;

namespace TDAutomationChunk {
inline constexpr std::uint16_t ParaIndex = 0x1037;      // int, in a row's container
inline constexpr std::uint16_t Points = 0x1032;         // container of the row's points
inline constexpr std::uint16_t Point = 0x0500;          // container, one per point
inline constexpr std::uint16_t PointPosition = 0x0502;  // int, ms
inline constexpr std::uint16_t PointValue = 0x0501;     // float
inline constexpr std::uint16_t Name = 0x1034;           // string, an effect parameter's name
}  // namespace TDAutomationChunk

// What a line controls. One object is shared by the rows it drives (one row per
// parameter) and, through copies of tracks and undo snapshots, by several tracks:
// once made it only changes by a load.
class TDSPAutomation : public LCountedObject {
 public:
  ~TDSPAutomation() override = default;

  // Wraps `source` in what plays `lines`: this automation's rows in parameter
  // order, with positions in ms from the source's frame 0. Without lines the
  // source comes back as it is.
  virtual LSoundSource OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const = 0;
  virtual int GetType() const = 0;
  virtual void GetName(std::string& out) const = 0;
  virtual void GetParaName(int index, std::string& out) const = 0;
  virtual int GetParaType(int index) const = 0;
  virtual int GetNumParas() const { return 1; }
  // The automation's own container, `id`, with any chunks a newer program put
  // there; false when the writer failed.
  virtual bool SaveToSDF(LSDFWriter<LOutputStreamFile>& writer, std::uint16_t id) const;
  virtual bool SaveToSDF(LSDFWriter<LOutputStreamMemory>& writer, std::uint16_t id) const;
  // Reads that container back; false on damage.
  virtual bool LoadFromSDF(LSDFReader<LInputStreamFile>& reader, LSDFReaderChunk<LInputStreamFile> const& container);
  virtual bool LoadFromSDF(LSDFReader<LInputStreamMemory>& reader,
                           LSDFReaderChunk<LInputStreamMemory> const& container);
  virtual bool IsValid() const { return true; }

  LSDFUnknownChunkList lUnknown;

 protected:
  template <class Stream>
  bool SaveContainer(LSDFWriter<Stream>& writer, std::uint16_t id, std::string const* name) const;
  template <class Stream>
  bool LoadContainer(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container, std::string* name);
};

// The track's volume line: "Amplify", one parameter "Volume" on the volume scale.
class TDSPGainAutomation : public TDSPAutomation {
 public:
  LSoundSource OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const override;
  int GetType() const override { return TDAutomationTypeGain; }
  void GetName(std::string& out) const override { out = "Amplify"; }
  void GetParaName(int index, std::string& out) const override;
  int GetParaType(int index) const override;
};

// The track's pan line: "Pan", one parameter "Pan Volume" on the pan scale.
class TDSPPanAutomation : public TDSPAutomation {
 public:
  LSoundSource OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const override;
  int GetType() const override { return TDAutomationTypePan; }
  void GetName(std::string& out) const override { out = "Pan"; }
  void GetParaName(int index, std::string& out) const override;
  int GetParaType(int index) const override;
};

// A hosted effect's parameter line. No effect is hosted here, so it leaves the
// sound alone; it keeps the parameter's name so that the line survives a load and
// a save for a program that can play it.
class TDSPVSTAutomation : public TDSPAutomation {
 public:
  TDSPVSTAutomation() = default;
  explicit TDSPVSTAutomation(std::string_view name) { SetName(name); }

  LSoundSource OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const override;
  int GetType() const override { return TDAutomationTypeVST; }
  void GetName(std::string& out) const override { out = szName; }
  void GetParaName(int index, std::string& out) const override;
  int GetParaType(int index) const override;
  bool SaveToSDF(LSDFWriter<LOutputStreamFile>& writer, std::uint16_t id) const override;
  bool SaveToSDF(LSDFWriter<LOutputStreamMemory>& writer, std::uint16_t id) const override;
  bool LoadFromSDF(LSDFReader<LInputStreamFile>& reader, LSDFReaderChunk<LInputStreamFile> const& container) override;
  bool LoadFromSDF(LSDFReader<LInputStreamMemory>& reader,
                   LSDFReaderChunk<LInputStreamMemory> const& container) override;

  // Cut to 259 bytes, as every file has stored it.
  void SetName(std::string_view name);

 private:
  std::string szName;
};

// The automation of a type as written in a project file; null for a type this
// program does not know.
LCountedPtr<TDSPAutomation> TDMakeAutomation(int type);

// A row beneath a track.
class TDSubTrack {
 public:
  // Half a track body: room to draw a line without hiding the clips above.
  static constexpr int kDefaultHeightDialogUnits = 25;

  virtual ~TDSubTrack() = default;
  virtual int GetSubTrackHeightDialogUnits() const { return iHeightDialogUnits; }

  int iHeightDialogUnits = kDefaultHeightDialogUnits;
  std::uint32_t uViewFlags = 0;
};

// One automation line: the points of one parameter of one automation, positions
// in ms on the project's timeline, kept sorted.
class TDTrackAutomation : public TDSubTrack {
 public:
  // A point this close to an end of the project stands for the point there.
  static constexpr LSoundTime kEndReach = 99;

  TDTrackAutomation() = default;
  TDTrackAutomation(LCountedPtr<TDSPAutomation> automation, int paraIndex)
      : iParaIndex(paraIndex), lpAutomation(std::move(automation)) {}

  // Fits the line to a project running from start to end:
  //  - a line without points becomes two points of value 0, at start and end;
  //  - otherwise each end gets a point holding the line's value there, unless a
  //    point within 99 ms of it stands for it; one that stands outside the range
  //    moves onto the end, so the line keeps its level right up to it;
  //  - points outside start..end go;
  //  - a point whose value equals both its neighbours' is dropped, as it changes
  //    nothing about the line.
  void ValidatePoints(LSoundTime start, LSoundTime end);

  // The row as container `id`: the parameter index, then the points. Chunks of a
  // newer program in the row and in its points container are put back in place;
  // those inside a point are not kept. False when the writer failed.
  template <class Stream>
  bool SaveToSDF(LSDFWriter<Stream>& writer, std::uint16_t id) const;
  // Replaces index, points and kept chunks from `container`; the automation is
  // the caller's to set. False on damage.
  template <class Stream>
  bool LoadFromSDF(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container);

  int iParaIndex = 0;
  LEnvelopeLine vPoints;
  LCountedPtr<TDSPAutomation> lpAutomation;
  LSDFUnknownChunkList lUnknown;
  LSDFUnknownChunkList lPointsUnknown;
};

// The automation rows of a track, in the order they are drawn. A track has two:
// its volume and pan lines, and the lines of its effects' parameters.
//
// A copy copies the rows; the automations they point to are shared.
class TDAutomationTracksManager {
 public:
  TDAutomationTracksManager() = default;
  TDAutomationTracksManager(TDAutomationTracksManager const& other);
  TDAutomationTracksManager& operator=(TDAutomationTracksManager const& other);
  TDAutomationTracksManager(TDAutomationTracksManager&&) noexcept = default;
  TDAutomationTracksManager& operator=(TDAutomationTracksManager&&) noexcept = default;

  // The place of the row for that automation (the same object) and parameter: the
  // existing one, or a new row without points at the end. -1 for no automation.
  int AddTrackAutomation(LCountedPtr<TDSPAutomation> const& automation, int paraIndex);
  bool DeleteAutomationTrack(int index);
  void Clear() { vRows.clear(); }

  int GetCount() const { return static_cast<int>(vRows.size()); }
  // Null for an index out of range. The row lives until it is deleted or the
  // manager is assigned or cleared.
  TDTrackAutomation* GetAutomationTrack(int index);
  TDTrackAutomation const* GetAutomationTrack(int index) const;

  // The distinct automations of the rows, in order of their first row.
  void GetAllAutomations(std::vector<LCountedPtr<TDSPAutomation>>& out) const;
  int GetTotalAutomationTracksHeightDialogUnits() const;

  // Every row fitted to a project from start to end.
  void ValidatePoints(LSoundTime start, LSoundTime end);

  // Puts the automations over `source`, whose frame 0 stands at `time` on the
  // timeline: each automation gets its rows in parameter order as lines moved by
  // -time, and what it returns is the source for the next, in the order of the
  // automations' first rows.
  LSoundSource OpenSource(LSoundSource const& source, LSoundTime time) const;

 private:
  std::vector<std::unique_ptr<TDTrackAutomation>> vRows;
};
