#include "project/cut_list_load_save.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "foundation/byte_order.h"
#include "project/testing_cut_lists.h"

namespace {

using CutListLoadSaveTest = CutListTest;
using Memory = std::vector<unsigned char>;
constexpr std::uint32_t kFileType = 4;

std::vector<std::tuple<int, int, int, float>> Segments(LCutListAudio const& list) {
  std::vector<std::tuple<int, int, int, float>> out;
  list.ForEachSegment(
      [&](LCutListSegment const& s) { out.emplace_back(s.GetCut(), s.iStart, s.iLength, s.fGain); });
  return out;
}

// A file whose root holds the list as container 0x2003.
Memory Save(LCutListAudio const& list) {
  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> writer;
  writer.Open(out, kFileType, 21);
  LProcessInterfaceVoid quiet;
  EXPECT_EQ(ProcessSaveCutListAudioLink(quiet, writer, 0x2003, list), LProcessFinished);
  EXPECT_TRUE(writer.Close());
  return out.TakeData();
}

LProcessResult Load(Memory const& bytes, LCutListAudio& list) {
  LInputStreamMemory in(bytes);
  LSDFReader<LInputStreamMemory> reader;
  if (!reader.Open(in, kFileType)) return LProcessFailed;
  LProcessInterfaceVoid quiet;
  LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
  if (!it.IsValid() || it->GetChunkID() != 0x2003) return LProcessFailed;
  LProcessResult const r = ProcessLoadCutListAudioLink(quiet, reader, *it, list);
  if (r != LProcessFinished) return r;
  return reader.Close() ? r : LProcessFailed;
}

LSDFUnknownChunk Foreign(std::uint16_t id, int position, unsigned char fill) {
  LSDFUnknownChunk c;
  c.wID = id;
  c.wType = LSDFTypeBlob;
  c.vData.assign(3, fill);
  c.iPosition = position;
  return c;
}

// A list saved and loaded comes back segment for segment, its references taken
// anew, and the chunks of a newer program, in the list and in a segment, come back
// where they were.
TEST_F(CutListLoadSaveTest, RoundTripKeepsSegmentsAndForeignChunks) {
  LCutListAudio list;
  LAudioCutRef const a = MakeKnownFile(list, 1, 1000, 2);
  list.SetSampleRate(96000);
  list.EfSilence(100, 200);
  list.EfGainAll(0.3f);
  list.GetUnknownChunks() = {Foreign(0x7000, 0, 1), Foreign(0x7001, 3, 2), Foreign(0x7002, 99, 3)};
  {
    LCutListAudio withSegmentChunk;
    withSegmentChunk.AppendSegment(LCutListSegment(a, 5, 7, 2.0f));
    LCutListSegment tagged(a, 8, 9);
    tagged.lUnknown = {Foreign(0x3000, 1, 4)};
    withSegmentChunk.AppendSegment(tagged);
    list.EfInsert(list.GetEndSample(), withSegmentChunk);
  }

  Memory const first = Save(list);
  LCutListAudio back;
  ASSERT_EQ(Load(first, back), LProcessFinished);
  EXPECT_EQ(Segments(back), Segments(list));
  EXPECT_EQ(back.GetSampleRate(), 96000);
  EXPECT_EQ(back.GetChannels(), 2);
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(a), 2 * (list.GetSegmentCount() - 1));  // one silence each
  // Saving what was loaded gives the same bytes: every foreign chunk in its place.
  EXPECT_EQ(Save(back), first);
  ASSERT_EQ(back.GetUnknownChunks().size(), 3u);
  EXPECT_EQ(back.GetUnknownChunks()[1].iPosition, 3);
}

// Files from before the float gain carry only gain x 2^24.
TEST_F(CutListLoadSaveTest, FixedGainOfOlderFilesIsRead) {
  auto file = [](bool withFloat, float gain, std::int32_t fixed) {
    LOutputStreamMemory out;
    LSDFWriter<LOutputStreamMemory> w;
    w.Open(out, kFileType, 21);
    w.StartContainer(0x2003);
    w.WriteInt(LCutListChunk::SampleRate, 22050);
    w.WriteInt(LCutListChunk::Channels, 1);
    w.StartContainer(LCutListChunk::Segment);
    w.WriteInt(LCutListChunk::Cut, 65535);
    w.WriteInt(LCutListChunk::Length, 10);
    if (withFloat) w.WriteFloat(LCutListChunk::Gain, gain);
    w.WriteInt(LCutListChunk::GainFixed, fixed);
    w.EndContainer(LCutListChunk::Segment);
    w.EndContainer(0x2003);
    w.Close();
    return out.TakeData();
  };
  LCutListAudio list;
  ASSERT_EQ(Load(file(false, 1.0f, 8388608), list), LProcessFinished);
  EXPECT_EQ(std::get<3>(Segments(list).at(0)), 0.5f);
  ASSERT_EQ(Load(file(true, 0.75f, 8388608), list), LProcessFinished);
  EXPECT_EQ(std::get<3>(Segments(list).at(0)), 0.75f);
  ASSERT_EQ(Load(file(true, 1.0f, 0), list), LProcessFinished);
  EXPECT_EQ(std::get<3>(Segments(list).at(0)), 1.0f);
  EXPECT_EQ(list.GetSampleRate(), 22050);
}

TEST_F(CutListLoadSaveTest, OlderPositionalLayout) {
  auto file = [](std::vector<std::int32_t> const& ints) {
    LOutputStreamMemory out;
    LSDFWriter<LOutputStreamMemory> w;
    w.Open(out, kFileType, 10);
    for (std::int32_t v : ints) w.WriteInt(1, v);
    w.Close();
    return out.TakeData();
  };
  auto load = [](Memory const& bytes, LCutListAudio& list) {
    LInputStreamMemory in(bytes);
    LSDFReader<LInputStreamMemory> reader;
    EXPECT_TRUE(reader.Open(in, kFileType));
    LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
    LProcessInterfaceVoid quiet;
    return ProcessLoadCutListAudioLink(quiet, it, list);
  };
  LCutListAudio list;
  ASSERT_EQ(load(file({48000, 2, 2, 7, 100, 50, 16777216, 65535, 0, 20, 4194304}), list), LProcessFinished);
  EXPECT_EQ(Segments(list), (std::vector<std::tuple<int, int, int, float>>{{7, 100, 50, 1.0f}, {65535, 0, 20, 0.25f}}));
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(7), 1);
  // A count that claims more than follows fails without making up segments.
  EXPECT_EQ(load(file({48000, 2, 2000000000, 7, 100, 50, 16777216}), list), LProcessFailed);
  EXPECT_EQ(load(file({48000, 2, -1}), list), LProcessFailed);
}

// Every cut-off point of a saved list, and every single damaged byte of its
// chunk headers, fails or loads cleanly, never more than what was there.
TEST_F(CutListLoadSaveTest, DamagedFilesFailCleanly) {
  LCutListAudio list;
  LAudioCutRef const a = MakeKnownFile(list, 1, 1000, 1);
  for (int i = 0; i < 5; ++i) list.EfSilence(100 * i + 10, 100 * i + 20);
  Memory const good = Save(list);
  for (std::size_t cut = 0; cut < good.size(); ++cut) {
    LCutListAudio back;
    EXPECT_EQ(Load(Memory(good.begin(), good.begin() + static_cast<long>(cut)), back), LProcessFailed) << cut;
  }
  for (std::size_t at = 0; at < good.size(); ++at) {
    Memory bad = good;
    bad[at] ^= 0xA5;
    LCutListAudio back;
    Load(bad, back);  // either answer will do; no crash, no wild allocation
    EXPECT_LE(back.GetSegmentCount(), list.GetSegmentCount() + 1);
  }
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(a), 6);  // nothing leaked from the failed loads
}

Memory StoredAudio(std::int32_t rate, std::uint8_t channels, std::int32_t frames, std::vector<std::uint32_t> words) {
  Memory m(9);
  LWriteLE32(m.data(), static_cast<std::uint32_t>(rate));
  m[4] = channels;
  LWriteLE32(m.data() + 5, static_cast<std::uint32_t>(frames));
  for (std::uint32_t w : words) {
    m.resize(m.size() + 4);
    LWriteLE32(m.data() + m.size() - 4, w);
  }
  return m;
}

std::uint32_t FloatBits(float f) {
  std::uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}

TEST_F(CutListLoadSaveTest, AudioStoredInOldProjectFilesBecomesAFilePair) {
  LProcessInterfaceVoid quiet;
  LCutListAudio list;
  Memory const floats = StoredAudio(32000, 2, 2, {FloatBits(0.5f), FloatBits(-0.25f), FloatBits(1.0f), 0});
  LInputStreamMemory in(floats);
  ASSERT_EQ(ProcessLoadCutListAudio(quiet, in, list), LProcessFinished);
  EXPECT_EQ(list.GetSampleRate(), 32000);
  EXPECT_EQ(list.GetChannels(), 2);
  std::vector<float> buf(4);
  LSoundSource src = list.OpenSource();
  src->Read(buf.data(), 2);
  EXPECT_EQ(buf, (std::vector<float>{0.5f, -0.25f, 1.0f, 0.0f}));

  Memory const ints = StoredAudio(8000, 1, 2, {0x40000000u, 0x80000000u});
  LInputStreamMemory in2(ints);
  ASSERT_EQ(ProcessLoadCutListAudioFromLegacyInt(quiet, in2, list), LProcessFinished);
  src = list.OpenSource();
  src->Read(buf.data(), 2);
  EXPECT_EQ(buf[0], 0.5f);
  EXPECT_EQ(buf[1], -1.0f);

  // A frame count beyond the bytes there, or no channels, is damage: nothing is made.
  LCutListAudio none;
  Memory const lying = StoredAudio(8000, 1, 1000000000, {0});
  LInputStreamMemory in3(lying);
  EXPECT_EQ(ProcessLoadCutListAudio(quiet, in3, none), LProcessFailed);
  Memory const silent = StoredAudio(8000, 0, 0, {});
  LInputStreamMemory in4(silent);
  EXPECT_EQ(ProcessLoadCutListAudio(quiet, in4, none), LProcessFailed);
  EXPECT_TRUE(none.IsEmpty());
}

}  // namespace
