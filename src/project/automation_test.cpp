#include "project/automation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "project/track.h"
#include "project/tracks_manager.h"
#include "sound/testing_sources.h"

namespace {

using Line = LEnvelopeLine;

TDTrackAutomation Row(Line points) {
  TDTrackAutomation row(TDMakeAutomation(TDAutomationTypeGain), 0);
  row.vPoints = std::move(points);
  return row;
}

Line Validated(Line points, LSoundTime start, LSoundTime end) {
  TDTrackAutomation row = Row(std::move(points));
  row.ValidatePoints(start, end);
  return row.vPoints;
}

}  // namespace

TEST(TrackAutomation, ValidatePointsFitsTheLineToTheProject) {
  // An empty line becomes flat unity over the project.
  EXPECT_EQ(Validated({}, 0, 120000), (Line{{0.0, 0}, {0.0, 120000}}));

  // A point 80 ms in stands for the start; one at 150 does not, and the start
  // takes the line's level there.
  EXPECT_EQ(Validated({{0.5, 80}, {0.5, 120000}}, 0, 120000), (Line{{0.5, 80}, {0.5, 120000}}));
  EXPECT_EQ(Validated({{-0.5, 150}, {0.2, 119901}}, 0, 120000), (Line{{-0.5, 0}, {-0.5, 150}, {0.2, 119901}}));

  // The project shrank. A point 50 ms past the new end moves onto it; with the
  // nearest point 200 ms past, the end takes the line's level and the point goes.
  EXPECT_EQ(Validated({{0.0, 0}, {-1.0, 5000}, {-1.0, 10050}}, 0, 10000),
            (Line{{0.0, 0}, {-1.0, 5000}, {-1.0, 10000}}));
  Line const shortened = Validated({{0.0, 0}, {-1.0, 9000}, {0.0, 10200}}, 0, 10000);
  ASSERT_EQ(shortened.size(), 3u);
  EXPECT_EQ(shortened[2].iPosition, 10000);
  EXPECT_DOUBLE_EQ(shortened[2].dValue, -1.0 + 1000.0 / 1200.0);
  // Out of order and before the start too.
  EXPECT_EQ(Validated({{0.3, 7000}, {0.1, -500}, {0.2, 20}}, 0, 10000), (Line{{0.2, 20}, {0.3, 7000}, {0.3, 10000}}));

  // Inner points that change nothing go: the middle of three equal values, both
  // middles of four; the ends of a flat run stay as the line turns there.
  EXPECT_EQ(Validated({{0.0, 0}, {0.4, 100}, {0.4, 200}, {0.4, 300}, {0.0, 1000}}, 0, 1000),
            (Line{{0.0, 0}, {0.4, 100}, {0.4, 300}, {0.0, 1000}}));
  EXPECT_EQ(Validated({{0.1, 0}, {0.1, 100}, {0.1, 200}, {0.1, 1000}}, 0, 1000), (Line{{0.1, 0}, {0.1, 1000}}));
  // Equal only to one neighbour, or only nearly equal: kept.
  EXPECT_EQ(Validated({{0.1, 0}, {0.1, 100}, {0.10000001, 200}, {0.1, 1000}}, 0, 1000).size(), 4u);
}

TEST(TrackAutomation, ManagerRowsCopiesAndProjectLength) {
  LCountedPtr<TDSPAutomation> const gain = TDMakeAutomation(TDAutomationTypeGain);
  LCountedPtr<TDSPAutomation> const pan = TDMakeAutomation(TDAutomationTypePan);
  TDAutomationTracksManager rows;
  EXPECT_EQ(rows.AddTrackAutomation(gain, 0), 0);
  EXPECT_EQ(rows.AddTrackAutomation(pan, 0), 1);
  EXPECT_EQ(rows.AddTrackAutomation(gain, 1), 2);
  EXPECT_EQ(rows.AddTrackAutomation(gain, 0), 0);  // that row exists
  // Another object of the same kind is another automation.
  EXPECT_EQ(rows.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0), 3);
  EXPECT_EQ(rows.AddTrackAutomation(LCountedPtr<TDSPAutomation>(), 0), -1);
  EXPECT_EQ(rows.GetCount(), 4);

  std::vector<LCountedPtr<TDSPAutomation>> all;
  rows.GetAllAutomations(all);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].Get(), gain.Get());
  EXPECT_EQ(all[1].Get(), pan.Get());
  EXPECT_EQ(rows.GetTotalAutomationTracksHeightDialogUnits(), 4 * TDSubTrack::kDefaultHeightDialogUnits);
  rows.GetAutomationTrack(1)->iHeightDialogUnits = 40;
  EXPECT_EQ(rows.GetTotalAutomationTracksHeightDialogUnits(), 3 * TDSubTrack::kDefaultHeightDialogUnits + 40);

  EXPECT_TRUE(rows.DeleteAutomationTrack(3));
  EXPECT_FALSE(rows.DeleteAutomationTrack(3));
  EXPECT_FALSE(rows.DeleteAutomationTrack(-1));
  EXPECT_EQ(rows.GetAutomationTrack(3), nullptr);

  // A copied track has rows of its own over the same automations.
  TDTrack original;
  original.Automation = rows;
  original.Automation.GetAutomationTrack(0)->vPoints = {{0.5, 0}, {0.5, 1000}};
  original.EffectAutomation.AddTrackAutomation(LCountedPtr<TDSPAutomation>(new TDSPVSTAutomation("Cutoff")), 2);
  TDTrack copy;
  copy.CopyFromAnotherTrack(original);
  ASSERT_EQ(copy.Automation.GetCount(), 3);
  ASSERT_EQ(copy.EffectAutomation.GetCount(), 1);
  EXPECT_EQ(copy.Automation.GetAutomationTrack(0)->vPoints, original.Automation.GetAutomationTrack(0)->vPoints);
  EXPECT_EQ(copy.Automation.GetAutomationTrack(1)->iHeightDialogUnits, 40);
  EXPECT_EQ(copy.Automation.GetAutomationTrack(0)->lpAutomation.Get(), gain.Get());
  copy.Automation.GetAutomationTrack(0)->vPoints.clear();
  EXPECT_EQ(original.Automation.GetAutomationTrack(0)->vPoints.size(), 2u);
  EXPECT_EQ(copy.EffectAutomation.GetAutomationTrack(0)->iParaIndex, 2);

  // A new project length reaches every line of every track, both groups.
  TDTracksManager tracks;
  tracks.AddTrack()->Automation = original.Automation;
  tracks.AddTrack()->EffectAutomation = original.EffectAutomation;
  tracks.UpdateAutomationEnvLine(0, 3000);
  EXPECT_EQ(tracks.GetTrack(0)->Automation.GetAutomationTrack(0)->vPoints, (Line{{0.5, 0}, {0.5, 3000}}));
  EXPECT_EQ(tracks.GetTrack(0)->Automation.GetAutomationTrack(1)->vPoints, (Line{{0.0, 0}, {0.0, 3000}}));
  EXPECT_EQ(tracks.GetTrack(1)->EffectAutomation.GetAutomationTrack(0)->vPoints, (Line{{0.0, 0}, {0.0, 3000}}));
}

TEST(TrackAutomation, KindsNamesAndTypes) {
  struct Expect {
    int type;
    char const* name;
    char const* para;
    int paraType;
  };
  for (Expect const& e : {Expect{TDAutomationTypeGain, "Amplify", "Volume", TDAutomationParaVolume},
                          Expect{TDAutomationTypePan, "Pan", "Pan Volume", TDAutomationParaPan}}) {
    LCountedPtr<TDSPAutomation> const a = TDMakeAutomation(e.type);
    ASSERT_TRUE(a);
    std::string s;
    EXPECT_EQ(a->GetType(), e.type);
    a->GetName(s);
    EXPECT_EQ(s, e.name);
    a->GetParaName(0, s);
    EXPECT_EQ(s, e.para);
    EXPECT_EQ(a->GetParaType(0), e.paraType);
    EXPECT_EQ(a->GetNumParas(), 1);
  }
  TDSPVSTAutomation vst(std::string(300, 'x'));
  std::string s;
  vst.GetName(s);
  EXPECT_EQ(s, std::string(259, 'x'));
  vst.GetParaName(0, s);
  EXPECT_EQ(s, std::string(259, 'x'));
  EXPECT_EQ(vst.GetType(), 32767);
  EXPECT_FALSE(TDMakeAutomation(5));
}

// The rows put over a source play as the lines say, moved to where the source
// starts on the timeline; at 1000 Hz a millisecond is a frame.
TEST(TrackAutomation, OpenSourceChainsTheAutomationsFromTheirLines) {
  auto constant = [](int, int) { return 0.5f; };
  LSoundSource const source = LSoundSource::Make<LTestFunctionSource>(1000, 2, 4000, constant);

  TDAutomationTracksManager rows;
  EXPECT_EQ(rows.OpenSource(source, 0).Get(), source.Get());  // nothing to do
  LCountedPtr<TDSPAutomation> const vst(new TDSPVSTAutomation("Mix"));
  rows.GetAutomationTrack(rows.AddTrackAutomation(vst, 0))->vPoints = {{-1.0, 0}, {-1.0, 9000}};
  EXPECT_EQ(rows.OpenSource(source, 0).Get(), source.Get());  // an effect line has nothing to play here

  LCountedPtr<TDSPAutomation> const gain = TDMakeAutomation(TDAutomationTypeGain);
  LCountedPtr<TDSPAutomation> const pan = TDMakeAutomation(TDAutomationTypePan);
  // The row of parameter 1 comes first in the rows but second to the automation,
  // which plays its first line only.
  rows.GetAutomationTrack(rows.AddTrackAutomation(gain, 1))->vPoints = {{-1.0, 0}, {-1.0, 9000}};
  rows.GetAutomationTrack(rows.AddTrackAutomation(gain, 0))->vPoints = {{-1.0, 1000}, {0.0, 2000}};
  rows.GetAutomationTrack(rows.AddTrackAutomation(pan, 0))->vPoints = {{1.0, 0}, {1.0, 5000}};

  LSoundSource const played = rows.OpenSource(source, 500);  // frame 0 is 500 ms
  std::vector<float> const out = ReadAll(played, 4000, 999);
  auto at = [&](int frame, int channel) { return out[static_cast<std::size_t>(2 * frame + channel)]; };
  EXPECT_EQ(at(499, 0), 0.5f);           // before the volume line
  EXPECT_EQ(at(500, 0), 0.0f);           // 1000 ms: silence
  EXPECT_NEAR(at(1000, 0), 0.25, 1e-6);  // 1500 ms: half way up in amplitude
  EXPECT_NEAR(at(1500, 0), 0.5, 1e-6);
  EXPECT_EQ(at(2500, 0), 0.5f);  // after it
  // Fully panned to the first channel throughout: the second is silent where the
  // line runs, until 4500 ms.
  EXPECT_EQ(at(0, 1), 0.0f);
  EXPECT_EQ(at(2500, 1), 0.0f);
  EXPECT_EQ(at(3999, 1), 0.0f);
}

namespace {

using Memory = std::vector<unsigned char>;
constexpr std::uint32_t kFileType = 4;

LSDFUnknownChunk Foreign(std::uint16_t id, int position) {
  LSDFUnknownChunk c;
  c.wID = id;
  c.wType = LSDFTypeBlob;
  c.vData = {1, 2, 3};
  c.iPosition = position;
  return c;
}

// A file whose root holds the row as 0x1038 and an automation as 0x1035.
Memory Save(TDTrackAutomation const& row, TDSPAutomation const& automation) {
  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> writer;
  writer.Open(out, kFileType, 21);
  EXPECT_TRUE(row.SaveToSDF(writer, 0x1038));
  EXPECT_TRUE(automation.SaveToSDF(writer, 0x1035));
  EXPECT_TRUE(writer.Close());
  return out.TakeData();
}

bool Load(Memory const& bytes, TDTrackAutomation& row, TDSPAutomation& automation) {
  LInputStreamMemory in(bytes);
  LSDFReader<LInputStreamMemory> reader;
  if (!reader.Open(in, kFileType)) return false;
  bool rowRead = false;
  bool automationRead = false;
  for (LSDFReaderChunkIterator<LInputStreamMemory> it(reader); it.IsValid(); it.Next()) {
    if (it->GetChunkID() == 0x1038 && !row.LoadFromSDF(reader, *it)) return false;
    if (it->GetChunkID() == 0x1035 && !automation.LoadFromSDF(reader, *it)) return false;
    rowRead |= it->GetChunkID() == 0x1038;
    automationRead |= it->GetChunkID() == 0x1035;
  }
  return reader.Close() && rowRead && automationRead;
}

}  // namespace

TEST(TrackAutomation, SavedRowsComeBackWithForeignChunksInPlace) {
  LCountedPtr<TDSPVSTAutomation> const vstHandle(new TDSPVSTAutomation("Resonance"));
  TDSPVSTAutomation& vst = *vstHandle;
  vst.lUnknown = {Foreign(0x7100, 0)};
  TDTrackAutomation row(vstHandle, 3);
  row.vPoints = {{-1.0, 0}, {0.25, 1500}, {0.3, 1500}, {1.0, 2000000000}};
  row.lUnknown = {Foreign(0x7000, 1), Foreign(0x7001, 9)};
  row.lPointsUnknown = {Foreign(0x7002, 2)};

  Memory const first = Save(row, vst);
  TDTrackAutomation back;
  back.vPoints = {{0.9, 5}};  // replaced by the load
  TDSPVSTAutomation vstBack;
  ASSERT_TRUE(Load(first, back, vstBack));
  EXPECT_EQ(back.iParaIndex, 3);
  ASSERT_EQ(back.vPoints.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(back.vPoints[i].iPosition, row.vPoints[i].iPosition);
    // Values are stored as floats.
    EXPECT_EQ(back.vPoints[i].dValue, static_cast<double>(static_cast<float>(row.vPoints[i].dValue)));
  }
  std::string name;
  vstBack.GetName(name);
  EXPECT_EQ(name, "Resonance");
  EXPECT_EQ(back.lUnknown.size(), 2u);
  EXPECT_EQ(back.lPointsUnknown.size(), 1u);
  EXPECT_EQ(vstBack.lUnknown.size(), 1u);
  // Saving what was read gives the same bytes: every chunk in its place.
  EXPECT_EQ(Save(back, vstBack), first);

  // Gain and pan automations save an empty container, keeping what others put in it.
  LCountedPtr<TDSPAutomation> const gain = TDMakeAutomation(TDAutomationTypeGain);
  gain->lUnknown = {Foreign(0x7200, 0)};
  Memory const withGain = Save(row, *gain);
  LCountedPtr<TDSPAutomation> const gainBack = TDMakeAutomation(TDAutomationTypeGain);
  ASSERT_TRUE(Load(withGain, back, *gainBack));
  EXPECT_EQ(Save(back, *gainBack), withGain);

  // Every cut-off point fails cleanly.
  for (std::size_t cut = 0; cut < first.size(); ++cut) {
    TDTrackAutomation r;
    TDSPVSTAutomation a;
    EXPECT_FALSE(Load(Memory(first.begin(), first.begin() + static_cast<long>(cut)), r, a)) << cut;
  }
}

// Points are read in the order stored and sorted when the row is complete.
TEST(TrackAutomation, LoadSortsThePoints) {
  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> w;
  w.Open(out, kFileType, 21);
  w.StartContainer(0x1038);
  w.StartContainer(TDAutomationChunk::Points);
  for (auto [t, v] : {std::pair{3000, 0.5f}, std::pair{0, -1.0f}, std::pair{1000, 0.0f}}) {
    w.StartContainer(TDAutomationChunk::Point);
    w.WriteFloat(TDAutomationChunk::PointValue, v);  // value first: order within a point is free
    w.WriteInt(TDAutomationChunk::PointPosition, t);
    w.EndContainer(TDAutomationChunk::Point);
  }
  w.EndContainer(TDAutomationChunk::Points);
  w.WriteInt(TDAutomationChunk::ParaIndex, 7);
  w.EndContainer(0x1038);
  ASSERT_TRUE(w.Close());

  LInputStreamMemory in(out.GetData());
  LSDFReader<LInputStreamMemory> reader;
  ASSERT_TRUE(reader.Open(in, kFileType));
  LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
  ASSERT_TRUE(it.IsValid());
  TDTrackAutomation row;
  ASSERT_TRUE(row.LoadFromSDF(reader, *it));
  EXPECT_EQ(row.iParaIndex, 7);
  EXPECT_EQ(row.vPoints, (Line{{-1.0, 0}, {0.0, 1000}, {0.5, 3000}}));
}
