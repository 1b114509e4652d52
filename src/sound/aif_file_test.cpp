#include "sound/aif_file.h"

#include <gtest/gtest.h>

#include <climits>

#include "foundation/byte_order.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"

namespace {

using B = std::vector<std::uint8_t>;

B Extended(int v) {
  B b(10);
  LConvert32to80(v, b.data());
  return b;
}

int FromExtended(B const& b) {
  return LConvert80to32(b.data());
}

// An AIFC image with the given COMM body and sound chunk.
ByteImage Aifc(B const& comm, B const& ssndBody, std::uint32_t offset = 0) {
  ByteImage a;
  a.Tag("FORM").BE32(0).Tag("AIFC");
  a.Tag("COMM").BE32(static_cast<std::uint32_t>(comm.size()));
  a.b.insert(a.b.end(), comm.begin(), comm.end());
  if (comm.size() & 1) a.b.push_back(0);
  a.Tag("SSND").BE32(static_cast<std::uint32_t>(8 + ssndBody.size())).BE32(offset).BE32(0);
  a.b.insert(a.b.end(), ssndBody.begin(), ssndBody.end());
  return a;
}

B Comm(int channels, std::uint32_t frames, int bits, B const& rate, char const* type, B const& name = {0, 0}) {
  ByteImage c;
  c.BE16(static_cast<std::uint32_t>(channels)).BE32(frames).BE16(static_cast<std::uint32_t>(bits));
  c.b.insert(c.b.end(), rate.begin(), rate.end());
  if (type != nullptr) c.Tag(type);
  c.b.insert(c.b.end(), name.begin(), name.end());
  return c.b;
}

}  // namespace

TEST(AifFile, ExtendedRateConvertsBothWays) {
  EXPECT_EQ(Extended(44100), (B{0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Extended(8000), (B{0x40, 0x0B, 0xFA, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Extended(1), (B{0x3F, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Extended(0), B(10, 0));
  for (int v : {1, 2, 3, 7, 8, 11025, 22050, 44100, 48000, 96000, 192000, 196000, INT_MAX}) {
    EXPECT_EQ(FromExtended(Extended(v)), v);
  }
  EXPECT_EQ(FromExtended(Extended(-8000)), 0);  // negative rates are no rates
  // 22254.545454... (a Macintosh rate) rounds to the nearest.
  EXPECT_EQ(FromExtended(B{0x40, 0x0D, 0xAD, 0xDD, 0x17, 0x45, 0xBF, 0x26, 0xF1, 0xDC}), 22255);
  EXPECT_EQ(FromExtended(B{0x3F, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0}), 1);        // 0.5
  EXPECT_EQ(FromExtended(B{0x3F, 0xFD, 0x80, 0, 0, 0, 0, 0, 0, 0}), 0);        // 0.25
  EXPECT_EQ(FromExtended(B{0x7F, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0}), 0);        // infinity
  EXPECT_EQ(FromExtended(B{0x7F, 0xFF, 0xC0, 0, 0, 0, 0, 0, 0, 1}), 0);        // NaN
  EXPECT_EQ(FromExtended(B{0x40, 0x3E, 0x80, 0, 0, 0, 0, 0, 0, 0}), INT_MAX);  // 2^63
  EXPECT_EQ(FromExtended(B{0x40, 0x0E, 0, 0, 0, 0, 0, 0, 0, 0}), 0);           // zero mantissa
}

TEST(AifFile, AiffHeaderIsExactAndPadsAnOddBody) {
  std::string const path = ScratchFolder() + "/a.aif";
  LSoundSink sink = LAifFile::OpenSinkPCM8(path, 44100, 1);
  ASSERT_TRUE(sink.IsGood());
  ByteImage open;
  open.Tag("FORM").BE32(46).Tag("AIFF").Tag("COMM").BE32(18).BE16(1).BE32(0).BE16(8);
  open.Bytes({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}).Tag("SSND").BE32(0xFFFFFFFF).BE32(0).BE32(0);
  EXPECT_EQ(ReadFileBytes(path), open.b);

  float const v[3] = {0.5f, -1.0f, 0.0f};
  sink->Write(v, 3);
  sink.Close();
  ByteImage done;
  done.Tag("FORM").BE32(46 + 4).Tag("AIFF").Tag("COMM").BE32(18).BE16(1).BE32(3).BE16(8);
  done.Bytes({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}).Tag("SSND").BE32(8 + 3).BE32(0).BE32(0);
  done.Bytes({63, 0x81, 0x00, 0x00});  // 0.5 * 127 truncated, -127, 0, the pad byte
  EXPECT_EQ(ReadFileBytes(path), done.b);

  LSoundSource s = LAifFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetEndSample(), 3);
  EXPECT_EQ(ReadAll(s, 3), (std::vector<float>{63 * 0.007874016f, -127 * 0.007874016f, 0.0f}));
}

TEST(AifFile, AifcHeaderCarriesVersionCompressionAndName) {
  std::string const dir = ScratchFolder();
  {
    LSoundSink sink = LAifFile::OpenSinkPCM16AIFC(dir + "/n.aifc", 8000, 2);
    float const v[2] = {1.0f, -1.0f};
    sink->Write(v, 1);
  }
  ByteImage n;
  n.Tag("FORM").BE32(86 - 8 + 4).Tag("AIFC").Tag("FVER").BE32(4).BE32(0xA2805140);
  n.Tag("COMM").BE32(22 + 16).BE16(2).BE32(1).BE16(16).Bytes({0x40, 0x0B, 0xFA, 0, 0, 0, 0, 0, 0, 0});
  n.Tag("NONE").Bytes({14}).Tag("not ").Tag("comp").Tag("ress").Bytes({'e', 'd', 0});
  n.Tag("SSND").BE32(8 + 4).BE32(0).BE32(0).Bytes({0x7F, 0xFF, 0x80, 0x01});
  EXPECT_EQ(ReadFileBytes(dir + "/n.aifc"), n.b);

  {
    LSoundSink sink = LAifFile::OpenSinkPCM16AIFCLE(dir + "/s.aifc", 8000, 1);
    std::vector<std::uint8_t> const open = ReadFileBytes(dir + "/s.aifc");
    ASSERT_EQ(open.size(), 72u);  // an empty name still takes two bytes
    EXPECT_EQ(LReadBE32(open.data() + 28), 24u);
    EXPECT_EQ(std::string(open.begin() + 50, open.begin() + 54), "sowt");
    EXPECT_EQ(LReadBE32(open.data() + 60), 0xFFFFFFFFu);
    float const v = 0.5f;
    sink->Write(&v, 1);
  }
  std::vector<std::uint8_t> const s = ReadFileBytes(dir + "/s.aifc");
  ASSERT_EQ(s.size(), 74u);
  EXPECT_EQ(s[72], 0x00);  // little-endian 16384
  EXPECT_EQ(s[73], 0x40);

  { LAifFile::OpenSinkULawAIFC(dir + "/u.aifc", 8000, 1); }
  std::vector<std::uint8_t> const u = ReadFileBytes(dir + "/u.aifc");
  EXPECT_EQ(std::string(u.begin() + 50, u.begin() + 54), "ulaw");
  EXPECT_EQ(LReadBE16(u.data() + 38), 16);  // companded codes state the width they expand to
  EXPECT_EQ(LReadBE32(u.data() + 4), u.size() - 8);
}

TEST(AifFile, DamagedOrForeignHeadersGiveTheirErrorStates) {
  std::string const dir = ScratchFolder();
  B const r8000 = Extended(8000);
  B const body(32, 0);
  struct Case {
    char const* name;
    ByteImage image;
    int state;
    int end;
  };
  ByteImage aiffLongComm;  // AIFF reads 18 bytes of any COMM, however large
  aiffLongComm.Tag("FORM").BE32(0).Tag("AIFF").Tag("COMM").BE32(400);
  {
    B c = Comm(1, 4, 16, r8000, nullptr);
    c.resize(400, 0xEE);
    aiffLongComm.b.insert(aiffLongComm.b.end(), c.begin(), c.end());
  }
  aiffLongComm.Tag("SSND").BE32(16).BE32(0).BE32(0).Fill(8, 0);
  ByteImage notForm;
  notForm.Tag("RIFF").BE32(0).Tag("AIFF").Fill(40, 0);
  ByteImage notAiff;
  notAiff.Tag("FORM").BE32(0).Tag("8SVX").Fill(40, 0);
  ByteImage noComm;
  noComm.Tag("FORM").BE32(0).Tag("AIFF").Tag("SSND").BE32(16).Fill(16, 0);
  ByteImage shortSsnd;  // the sound chunk's offset and block size are cut off
  shortSsnd.Tag("FORM").BE32(0).Tag("AIFF").Tag("COMM").BE32(18);
  {
    B c = Comm(1, 4, 16, r8000, nullptr);
    shortSsnd.b.insert(shortSsnd.b.end(), c.begin(), c.end());
  }
  shortSsnd.Tag("SSND").BE32(4).BE32(0);
  B longComm = Comm(1, 4, 16, r8000, "NONE");
  longComm.resize(284, 0);

  Case const cases[] = {
      {"ok", Aifc(Comm(1, 16, 16, r8000, "NONE"), body), 0, 16},
      {"twos", Aifc(Comm(2, 8, 16, r8000, "twos"), body), 0, 8},
      {"framesbeyonddata", Aifc(Comm(1, 0xFFFFFFFF, 16, r8000, "NONE"), body), 0, 16},
      {"offsetbeyonddata", Aifc(Comm(1, 16, 16, r8000, "NONE"), body, 1000), 0, 0},
      {"commtoolong", Aifc(longComm, body), 3, 0},
      {"commtooshort", Aifc(B(16, 0), body), 3, 0},
      {"aifflongcomm", aiffLongComm, 0, 4},
      {"notform", notForm, 3, 0},
      {"notaiff", notAiff, 3, 0},
      {"nocomm", noComm, 3, 0},
      {"shortssnd", shortSsnd, 3, 0},
      {"zerochannels", Aifc(Comm(0, 16, 16, r8000, "NONE"), body), 3, 0},
      {"zerorate", Aifc(Comm(1, 16, 16, B(10, 0), "NONE"), body), 3, 0},
      {"hugerate", Aifc(Comm(1, 16, 16, Extended(1 << 30), "NONE"), body), 3, 0},
      {"negativerate", Aifc(Comm(1, 16, 16, Extended(-44100), "NONE"), body), 3, 0},
      {"ima4", Aifc(Comm(1, 16, 16, r8000, "ima4"), body), 7, 0},
      {"unknown", Aifc(Comm(1, 16, 16, r8000, "XYZW"), body), 7, 0},
  };
  for (Case const& c : cases) {
    std::string const path = dir + "/" + c.name + ".aif";
    c.image.SaveTo(path);
    LSoundSource s = LAifFile::OpenSource(path);
    EXPECT_EQ(s->GetErrorState(), c.state) << c.name;
    EXPECT_EQ(s->GetEndSample(), c.end) << c.name;
    std::vector<float> buf(static_cast<std::size_t>(s->GetChannels()) * 64, 1.0f);
    s->Read(buf.data(), 64);
    for (float v : buf) ASSERT_EQ(v, 0.0f) << c.name;
  }
  EXPECT_EQ(LAifFile::OpenSource(dir + "/missing.aif")->GetErrorState(), 4);
}
