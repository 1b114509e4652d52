#include <gtest/gtest.h>

#include "foundation/byte_order.h"
#include "sound/au_file.h"
#include "sound/pcm_file.h"
#include "sound/raw_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"

namespace {

ByteImage Au(std::uint32_t offset, std::uint32_t size, std::uint32_t encoding, std::uint32_t rate,
             std::uint32_t channels) {
  ByteImage a;
  a.Tag(".snd").BE32(offset).BE32(size).BE32(encoding).BE32(rate).BE32(channels);
  return a;
}

}  // namespace

TEST(AuFile, HeaderIsUnsizedWhileOpenAndSizedOnClose) {
  std::string const path = ScratchFolder() + "/a.au";
  LSoundSink sink = LAuFile::OpenSinkPCM16(path, 8000, 2);
  ASSERT_TRUE(sink.IsGood());
  EXPECT_EQ(ReadFileBytes(path), Au(24, 0xFFFFFFFF, 3, 8000, 2).b);
  float const v[4] = {0.5f, -0.5f, 1.0f, -1.0f};
  sink->Write(v, 2);
  sink.Close();
  ByteImage done = Au(24, 8, 3, 8000, 2);
  done.BE16(16384).BE16(0x10000 - 16384).BE16(32767).BE16(0x10000 - 32767);
  EXPECT_EQ(ReadFileBytes(path), done.b);

  { LAuFile::OpenSinkULaw(path, 11025, 1); }
  EXPECT_EQ(ReadFileBytes(path), Au(24, 0, 1, 11025, 1).b);
  { LAuFile::OpenSinkALaw(path, 11025, 1); }
  EXPECT_EQ(LReadBE32(ReadFileBytes(path).data() + 12), 27u);
  { LAuFile::OpenSinkPCM8(path, 11025, 1); }
  EXPECT_EQ(LReadBE32(ReadFileBytes(path).data() + 12), 2u);
}

TEST(AuFile, BodyStartsWhereTheHeaderSaysBehindAnyAnnotation) {
  std::string const dir = ScratchFolder();
  // 8 bytes of annotation, then two 8-bit frames of two channels and a spare byte
  // that the stated size leaves out.
  ByteImage a = Au(32, 4, 2, 8000, 2);
  a.Tag("note").Fill(4, 0).Bytes({0x40, 0xC0, 0x7F, 0x81, 0x11});
  a.SaveTo(dir + "/n.au");
  LSoundSource s = LAuFile::OpenSource(dir + "/n.au");
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetEndSample(), 2);
  EXPECT_EQ(s->GetPeakBound(), LSoundPeakInRange);
  EXPECT_EQ(ReadAll(s, 2),
            (std::vector<float>{64 * 0.007874016f, -64 * 0.007874016f, 127 * 0.007874016f, -127 * 0.007874016f}));

  // Unknown size: all that follows the body's start. An offset into the header is
  // not believed.
  ByteImage u = Au(8, 0xFFFFFFFF, 3, 8000, 1);
  u.BE16(1000).BE16(2000).BE16(3000);
  u.SaveTo(dir + "/u.au");
  s = LAuFile::OpenSource(dir + "/u.au");
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetEndSample(), 3);
  EXPECT_EQ(ReadAll(s, 1)[0], 1000 * 3.051851e-5f);

  // A size beyond the file ends where the file does.
  ByteImage c = Au(24, 1000000, 1, 8000, 1);
  c.Bytes({0xFF, 0x80});
  c.SaveTo(dir + "/c.au");
  s = LAuFile::OpenSource(dir + "/c.au");
  EXPECT_EQ(s->GetEndSample(), 2);
  EXPECT_EQ(s->GetPeakBound(), 1.0f);
  EXPECT_EQ(ReadAll(s, 2)[1], LSFULAW{0x80}.Get());
}

TEST(AuFile, DamagedOrForeignHeadersGiveTheirErrorStates) {
  std::string const dir = ScratchFolder();
  struct Case {
    char const* name;
    ByteImage image;
    int state;
  } const cases[] = {
      {"short", ByteImage().Tag(".snd").BE32(24).BE32(0), 3},
      {"magic", ByteImage().Tag("dns.").BE32(24).BE32(0).BE32(3).BE32(8000).BE32(1), 3},
      {"zerochannels", Au(24, 0, 3, 8000, 0), 3},
      {"manychannels", Au(24, 0, 3, 8000, 256), 3},
      {"zerorate", Au(24, 0, 3, 0, 1), 3},
      {"hugerate", Au(24, 0, 3, 0x80000000u, 1), 3},
      {"int24", Au(24, 0, 4, 8000, 1), 5},
      {"float", Au(24, 0, 6, 8000, 1), 5},
      {"adpcm", Au(24, 0, 23, 8000, 1), 5},
  };
  for (Case const& c : cases) {
    c.image.SaveTo(dir + "/" + c.name + ".au");
    EXPECT_EQ(LAuFile::OpenSource(dir + "/" + c.name + ".au")->GetErrorState(), c.state) << c.name;
  }
  EXPECT_EQ(LAuFile::OpenSource(dir + "/missing.au")->GetErrorState(), 4);
}

TEST(RawFile, BodyIsAllBehindTheOffsetInTheStatedFormat) {
  std::string const dir = ScratchFolder();
  ByteImage r;
  r.Fill(5, 0xEE).LE16(1000).LE16(static_cast<std::uint16_t>(-1000)).LE16(7).Bytes({0x55});
  r.SaveTo(dir + "/a.raw");
  LRawSettings s;
  s.iCodec = LRawCodec::PCM16LE;
  s.iSampleRate = 16000;
  s.iChannels = 1;
  s.iOffset = 5;
  LSoundSource src = LRawFile::OpenSource(dir + "/a.raw", s);
  ASSERT_TRUE(src.IsGood());
  EXPECT_EQ(src->GetSampleRate(), 16000);
  EXPECT_EQ(src->GetEndSample(), 3);  // the odd byte at the end is not a frame
  EXPECT_EQ(ReadAll(src, 3), (std::vector<float>{1000 * 3.051851e-5f, -1000 * 3.051851e-5f, 7 * 3.051851e-5f}));

  s.iCodec = LRawCodec::Float64BE;
  s.iOffset = 0;
  ByteImage d;
  d.Bytes({0x3F, 0xE0, 0, 0, 0, 0, 0, 0, 0xC0, 0x00, 0, 0, 0, 0, 0, 0});
  d.SaveTo(dir + "/d.raw");
  src = LRawFile::OpenSource(dir + "/d.raw", s);
  EXPECT_EQ(ReadAll(src, 2), (std::vector<float>{0.5f, -2.0f}));
  EXPECT_EQ(src->GetPeakBound(), LSoundPeakUnknown);
  EXPECT_FALSE(LRawFile::OpenSink(dir + "/d2.raw", s).IsGood());  // doubles are not written

  s.iOffset = 1000;
  src = LRawFile::OpenSource(dir + "/d.raw", s);
  EXPECT_TRUE(src.IsGood());
  EXPECT_EQ(src->GetEndSample(), 0);

  s.iCodec = LRawCodec::PCM16LE;
  s.iOffset = 0;
  s.iChannels = 2;
  {
    LSoundSink sink = LRawFile::OpenSink(dir + "/w.raw", s);
    float const v[4] = {0.5f, -0.5f, 0.25f, 0.0f};
    sink->Write(v, 2);
  }
  EXPECT_EQ(ReadFileBytes(dir + "/w.raw"), (std::vector<std::uint8_t>{0x00, 0x40, 0x00, 0xC0, 0x00, 0x20, 0, 0}));
}

TEST(RawFile, SettingsThatCannotBeReadGiveTheirErrorStates) {
  std::string const dir = ScratchFolder();
  WriteFileBytes(dir + "/x.raw", std::vector<std::uint8_t>(64, 0x80));
  auto state = [&](int codec, int rate, int channels, std::int64_t offset) {
    LRawSettings s{codec, rate, channels, offset};
    return int(LRawFile::OpenSource(dir + "/x.raw", s)->GetErrorState());
  };
  EXPECT_EQ(state(LRawCodec::PCM8Unsigned, 8000, 1, 0), 0);
  EXPECT_EQ(state(LRawCodec::DialogicADPCM, 8000, 1, 0), 0);
  EXPECT_EQ(state(LRawCodec::Count, 8000, 1, 0), 5);
  EXPECT_EQ(state(-1, 8000, 1, 0), 5);
  EXPECT_EQ(state(LRawCodec::PCM16LE, 0, 1, 0), 3);
  EXPECT_EQ(state(LRawCodec::PCM16LE, 196001, 1, 0), 3);
  EXPECT_EQ(state(LRawCodec::PCM16LE, 8000, 0, 0), 3);
  EXPECT_EQ(state(LRawCodec::PCM16LE, 8000, 256, 0), 3);
  EXPECT_EQ(state(LRawCodec::PCM16LE, 8000, 1, -4), 3);
  LRawSettings s;
  EXPECT_EQ(LRawFile::OpenSource(dir + "/missing.raw", s)->GetErrorState(), 4);
  s.iCodec = LRawCodec::Float64LE;  // read only
  EXPECT_FALSE(LRawFile::OpenSink(dir + "/v.raw", s).IsGood());
}
