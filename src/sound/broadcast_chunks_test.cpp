#include "sound/broadcast_chunks.h"

#include <gtest/gtest.h>

#include <cstring>

#include "foundation/byte_order.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"
#include "sound/wave_file.h"

namespace {

// A finished 8-bit mono WAV of three frames: an odd data chunk.
std::string OddWav(std::string const& dir) {
  std::string const path = dir + "/odd.wav";
  float const v[3] = {0.5f, -0.5f, 0.25f};
  LWaveFile::OpenSinkPCM(path, 8000, 1, 8)->Write(v, 3);
  return path;
}

BWF SampleBwf() {
  BWF b;
  std::strcpy(b.bbs.Description, "Take 3");
  std::strcpy(b.bbs.Originator, "Tandrel");
  std::strcpy(b.bbs.OriginatorReference, "REF0001");
  std::memcpy(b.bbs.OriginationDate, "2024-05-06", 10);
  std::memcpy(b.bbs.OriginationTime, "07-08-09", 8);
  b.bbs.TimeReferenceLow = 0x89ABCDEF;
  b.bbs.TimeReferenceHigh = 3;
  b.bbs.Version = 2;
  for (int i = 0; i < 64; ++i) b.bbs.UMID[i] = static_cast<std::uint8_t>(i * 3);
  b.bbs.LoudnessValue = -2300;
  b.bbs.MaxShortTermLoudness = -100;
  b.AddHistoryLine("A=PCM,F=8000,W=8,M=mono");
  return b;
}

template <class T>
std::vector<std::uint8_t> Fixed(T const& base) {
  std::vector<std::uint8_t> b(T::kBytes);
  base.ToBytes(b.data());
  return b;
}

}  // namespace

TEST(BroadcastChunks, BextIsAppendedInItsPublishedLayoutAndReadBack) {
  std::string const path = OddWav(ScratchFolder());
  ASSERT_TRUE(WriteBWFChunk(path, SampleBwf()));
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  std::size_t const bext = 46 + 3 + 1;  // behind the data and its pad byte
  std::string const history = "A=PCM,F=8000,W=8,M=mono\r\n";
  ASSERT_EQ(b.size(), bext + 8 + 602 + history.size() + 1);
  EXPECT_EQ(b[49], 0);
  EXPECT_EQ(std::string(b.begin() + bext, b.begin() + bext + 4), "bext");
  EXPECT_EQ(LReadLE32(b.data() + bext + 4), 602 + history.size());
  EXPECT_EQ(LReadLE32(b.data() + 4), b.size() - 8);
  std::uint8_t const* f = b.data() + bext + 8;
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(f)), "Take 3");
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(f + 256)), "Tandrel");
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(f + 288)), "REF0001");
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(f + 320), 18), "2024-05-0607-08-09");
  EXPECT_EQ(LReadLE32(f + 338), 0x89ABCDEFu);
  EXPECT_EQ(LReadLE32(f + 342), 3u);
  EXPECT_EQ(LReadLE16(f + 346), 2);
  EXPECT_EQ(f[348 + 63], 189);
  EXPECT_EQ(static_cast<std::int16_t>(LReadLE16(f + 412)), -2300);
  EXPECT_EQ(static_cast<std::int16_t>(LReadLE16(f + 420)), -100);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(f + 602), history.size()), history);

  BWF back;
  ASSERT_TRUE(ReadBWFChunk(path, back));
  EXPECT_EQ(Fixed(back.bbs), Fixed(SampleBwf().bbs));
  EXPECT_EQ(back.slHistory, history);

  // The sound is untouched and a second chunk goes behind the first.
  LSoundSource s = LWaveFile::OpenSource(path);
  EXPECT_EQ(s->GetEndSample(), 3);
  CART cart;
  std::memcpy(cart.cbs.Version, "0101", 4);
  std::strcpy(cart.cbs.Title, "Jingle");
  std::strcpy(cart.cbs.URL, "http://example.org/");
  cart.cbs.LevelReference = 32768;
  std::memcpy(cart.cbs.PostTimers[1].Usage, "SEC1", 4);
  cart.cbs.PostTimers[1].Value = 44100;
  cart.slTagTextCart = "free text";
  ASSERT_TRUE(WriteCARTTag(path, cart));
  std::vector<std::uint8_t> const c = ReadFileBytes(path);
  std::size_t const at = b.size();
  EXPECT_EQ(std::string(c.begin() + at, c.begin() + at + 4), "cart");
  EXPECT_EQ(LReadLE32(c.data() + at + 4), 2048u + 9u);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(c.data() + at + 8 + 4)), "Jingle");
  EXPECT_EQ(LReadLE32(c.data() + at + 8 + 680), 32768u);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(c.data() + at + 8 + 692), 4), "SEC1");
  EXPECT_EQ(LReadLE32(c.data() + at + 8 + 696), 44100u);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(c.data() + at + 8 + 1024)), "http://example.org/");
  EXPECT_EQ(LReadLE32(c.data() + 4), c.size() - 8);
  CART cback;
  ASSERT_TRUE(ReadCARTChunk(path, cback));
  EXPECT_EQ(Fixed(cback.cbs), Fixed(cart.cbs));
  EXPECT_EQ(cback.slTagTextCart, "free text");
  ASSERT_TRUE(ReadBWFChunk(path, back));
  EXPECT_EQ(LWaveFile::OpenSource(path)->GetEndSample(), 3);
}

TEST(BroadcastChunks, BwfMapsToTheTagTable) {
  LTagHashTable t;
  SampleBwf().ToHashTable(t);
  EXPECT_EQ(t["COMMENT"], "Take 3");
  EXPECT_EQ(t["ORIGINATOR"], "Tandrel");
  EXPECT_EQ(t["REFERENCE"], "REF0001");
  EXPECT_EQ(t["DATE"], "2024-05-06");  // a full field has no NUL and is not overrun
  EXPECT_EQ(t["TIME"], "07-08-09");
  EXPECT_EQ(t["TIMEREFLOW"], "2309737967");
  EXPECT_EQ(t["TIMEREFHIGH"], "3");
  EXPECT_EQ(t["BWFVERSION"], "2");
  EXPECT_EQ(t["UMID"].substr(0, 12), "0,3,6,9,12,1");
  EXPECT_EQ(t["CODINGHISTORY"], "A=PCM,F=8000,W=8,M=mono\r\n");

  BWF b;
  b.FromHashTable(t);
  b.bbs.LoudnessValue = -2300;  // the loudness fields have no keys
  b.bbs.MaxShortTermLoudness = -100;
  EXPECT_EQ(Fixed(b.bbs), Fixed(SampleBwf().bbs));
  EXPECT_EQ(b.bbs.TimeReferenceLow, 0x89ABCDEFu);
  EXPECT_EQ(b.slHistory, SampleBwf().slHistory);

  LTagHashTable u{{"COMMENT", std::string(300, 'x')}, {"BWFVERSION", "1f"}, {"UMID", "1,2,,300"}};
  BWF c;
  c.FromHashTable(u);
  EXPECT_EQ(std::string(c.bbs.Description, 256), std::string(256, 'x'));
  EXPECT_EQ(c.bbs.Version, 31);
  EXPECT_EQ(c.bbs.UMID[0], 1);
  EXPECT_EQ(c.bbs.UMID[1], 2);
  EXPECT_EQ(c.bbs.Originator[0], 0);  // keys not given stay as they were
}

TEST(BroadcastChunks, ForeignOrDamagedFilesAreLeftAlone) {
  std::string const dir = ScratchFolder();
  WriteFileBytes(dir + "/not.wav", std::vector<std::uint8_t>(100, 7));
  EXPECT_FALSE(WriteBWFChunk(dir + "/not.wav", SampleBwf()));
  EXPECT_EQ(ReadFileBytes(dir + "/not.wav"), std::vector<std::uint8_t>(100, 7));
  EXPECT_FALSE(WriteCARTTag(dir + "/missing.wav", CART{}));
  BWF b;
  EXPECT_FALSE(ReadBWFChunk(dir + "/missing.wav", b));
  std::string const path = OddWav(dir);
  EXPECT_FALSE(ReadBWFChunk(path, b));
  CART c;
  EXPECT_FALSE(ReadCARTChunk(path, c));

  // A bext too small for its fixed part, and one that claims more than the file holds.
  ByteImage small = PlainWav(1, 1, 8000, 2, 16, {0, 0});
  small.Tag("bext").LE32(100).Fill(100, 0);
  small.SaveTo(dir + "/small.wav");
  EXPECT_FALSE(ReadBWFChunk(dir + "/small.wav", b));
  ByteImage big = PlainWav(1, 1, 8000, 2, 16, {0, 0});
  big.Tag("bext").LE32(0xFFFFFFF0).Fill(602, 0).Tag("hist");
  big.SaveTo(dir + "/big.wav");
  ASSERT_TRUE(ReadBWFChunk(dir + "/big.wav", b));
  EXPECT_EQ(b.slHistory, "hist");
}
