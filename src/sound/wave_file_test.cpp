#include "sound/wave_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "foundation/byte_order.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"

namespace {

std::vector<float> Ramp(int frames, int channels) {
  std::vector<float> v(static_cast<std::size_t>(frames * channels));
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = std::sin(static_cast<float>(i) * 0.37f) * 0.8f;
  return v;
}

std::vector<std::uint8_t> Head(std::string const& path, std::size_t n) {
  std::vector<std::uint8_t> b = ReadFileBytes(path);
  b.resize(std::min(n, b.size()));
  return b;
}

std::uint32_t LE32At(std::vector<std::uint8_t> const& b, std::size_t at) {
  return LReadLE32(b.data() + at);
}

}  // namespace

TEST(WaveFile, PcmHeaderIsMarkedUnfinishedWhileOpenAndSizedOnClose) {
  std::string const path = ScratchFolder() + "/a.wav";
  LSoundSink sink = LWaveFile::OpenSinkPCM(path, 44100, 2, 16);
  ASSERT_TRUE(sink.IsGood());
  std::vector<std::uint8_t> const open = ReadFileBytes(path);
  ByteImage expect;
  expect.Tag("RIFF").LE32(0xFFFFFFFF).Tag("WAVE").Tag("fmt ").LE32(18).LE16(1).LE16(2).LE32(44100);
  expect.LE32(44100 * 4).LE16(4).LE16(16).LE16(0).Tag("data").LE32(0xFFFFFFD9);
  EXPECT_EQ(open, expect.b);

  sink->Write(Ramp(10, 2).data(), 10);
  sink.Close();
  std::vector<std::uint8_t> const done = ReadFileBytes(path);
  ASSERT_EQ(done.size(), 46u + 40u);
  EXPECT_EQ(LE32At(done, 4), 40u + 38u);
  EXPECT_EQ(LE32At(done, 42), 40u);
  // The first sample, sin(0) * 0.8, and the second, sin(0.37) * 0.8, in 16 bits.
  EXPECT_EQ(LReadLE16(done.data() + 46), 0);
  EXPECT_EQ(static_cast<std::int16_t>(LReadLE16(done.data() + 48)),
            static_cast<std::int16_t>(std::sin(0.37f) * 0.8f * 32767.0f + 0.5f));
}

TEST(WaveFile, BitsChooseTheStoreAndFloatCarriesTagThree) {
  std::string const dir = ScratchFolder();
  struct Case {
    int bits, storedBits;
  } const cases[] = {{1, 8}, {8, 8}, {12, 16}, {16, 16}, {20, 24}, {24, 24}, {28, 32}, {32, 32}, {48, 32}};
  for (Case c : cases) {
    std::string const path = dir + "/b" + std::to_string(c.bits) + ".wav";
    LWaveFile::OpenSinkPCM(path, 8000, 3, c.bits);
    std::vector<std::uint8_t> const h = Head(path, 46);
    EXPECT_EQ(LReadLE16(h.data() + 20), 1) << c.bits;
    EXPECT_EQ(LReadLE16(h.data() + 34), c.storedBits) << c.bits;
    EXPECT_EQ(LReadLE16(h.data() + 32), 3 * c.storedBits / 8) << c.bits;
    EXPECT_EQ(LE32At(h, 28), 8000u * 3u * static_cast<std::uint32_t>(c.storedBits) / 8u) << c.bits;
  }
  std::string const f = dir + "/f.wav";
  {
    LSoundSink sink = LWaveFile::OpenSinkFloat(f, 96000, 1);
    float const v[3] = {0.25f, -1.5f, 3.0e-7f};
    sink->Write(v, 3);
  }
  std::vector<std::uint8_t> const h = ReadFileBytes(f);
  EXPECT_EQ(LReadLE16(h.data() + 20), 3);
  EXPECT_EQ(LReadLE16(h.data() + 34), 32);
  LSoundSource s = LWaveFile::OpenSource(f);
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetPeakBound(), LSoundPeakUnknown);
  EXPECT_EQ(ReadAll(s, 3), (std::vector<float>{0.25f, -1.5f, 3.0e-7f}));  // beyond full scale too: no clipping
}

TEST(WaveFile, G711HeaderHasFactChunkAndFollowsTheChannels) {
  std::string const path = ScratchFolder() + "/u.wav";
  LSoundSink sink = LWaveFile::OpenSinkG711(path, 8000, 2, 7);
  ASSERT_TRUE(sink.IsGood());
  ByteImage expect;
  expect.Tag("RIFF").LE32(0xFFFFFFFF).Tag("WAVE").Tag("fmt ").LE32(18).LE16(7).LE16(2).LE32(8000);
  expect.LE32(16000).LE16(2).LE16(8).LE16(0).Tag("fact").LE32(4).LE32(0).Tag("data").LE32(0xFFFFFFD9);
  EXPECT_EQ(ReadFileBytes(path), expect.b);
  sink->Write(Ramp(5, 2).data(), 5);
  sink.Close();
  std::vector<std::uint8_t> const done = ReadFileBytes(path);
  ASSERT_EQ(done.size(), 68u);
  EXPECT_EQ(LE32At(done, 4), 10u + 50u);
  EXPECT_EQ(LE32At(done, 46), 5u);
  EXPECT_EQ(LE32At(done, 54), 10u);
  EXPECT_EQ(done[58], LSFULAW::Compress(0.0f));

  EXPECT_FALSE(LWaveFile::OpenSinkG711(path, 8000, 1, 5).IsGood());
  EXPECT_TRUE(LWaveFile::OpenSinkG711(path, 8000, 1, 6).IsGood());
}

TEST(WaveFile, OpenSinkDispatchesOnTheFormatTag) {
  std::string const dir = ScratchFolder();
  auto tagOf = [&](LWaveFileFormat const& f) -> int {
    std::string const path = dir + "/x.wav";
    std::remove(path.c_str());
    LSoundSink sink = LWaveFile::OpenSink(path, f);
    if (!sink.IsGood()) return -1;
    sink.Close();
    return LReadLE16(ReadFileBytes(path).data() + 20);
  };
  EXPECT_EQ(tagOf(LWaveFileFormat::PCM(44100, 2, 24)), 1);
  EXPECT_EQ(tagOf(LWaveFileFormat::Float(44100, 2)), 3);
  EXPECT_EQ(tagOf(LWaveFileFormat::G711(8000, 1, 6)), 6);
  EXPECT_EQ(tagOf(LWaveFileFormat::G711(8000, 1, 7)), 7);
  LWaveFileFormat f64 = LWaveFileFormat::Float(44100, 2);
  f64.wBitsPerSample = 64;
  EXPECT_EQ(tagOf(f64), -1);
  LWaveFileFormat adpcm = LWaveFileFormat::PCM(44100, 2, 4);
  adpcm.wFormatTag = 2;
  EXPECT_EQ(tagOf(adpcm), -1);
  EXPECT_FALSE(LWaveFile::OpenSinkPCM(dir + "/no/such/folder.wav", 44100, 2, 16).IsGood());
  EXPECT_FALSE(LWaveFile::OpenSinkPCM(dir + "/c0.wav", 44100, 0, 16).IsGood());
}

TEST(WaveFile, SinkSeekGoesOnlyBackwardsAndCutsTheFile) {
  std::string const path = ScratchFolder() + "/s.wav";
  LSoundSink sink = LWaveFile::OpenSinkPCM(path, 1000, 1, 16);
  sink->Write(Ramp(100, 1).data(), 100);
  sink->Seek(150);
  EXPECT_EQ(sink->GetPositionSample(), 100);
  sink->Seek(40);
  EXPECT_EQ(sink->GetPositionSample(), 40);
  EXPECT_EQ(ReadFileBytes(path).size(), 46u + 80u);
  float const one = 0.5f;
  sink->Write(&one, 1);
  sink->Seek(-5);
  EXPECT_EQ(sink->GetPositionSample(), 0);
  sink->Write(&one, 1);
  sink.Close();
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  ASSERT_EQ(b.size(), 48u);
  EXPECT_EQ(LE32At(b, 42), 2u);
  EXPECT_EQ(LReadLE16(b.data() + 46), 16384);
}

TEST(WaveFile, StartFrameCountsFromThereButTheBodyStartsAtTheHeader) {
  std::string const path = ScratchFolder() + "/st.wav";
  LSoundSink sink = LWaveFile::OpenSinkPCM(path, 1000, 2, 16, 500);
  EXPECT_EQ(sink->GetPositionSample(), 500);
  sink->Write(Ramp(10, 2).data(), 10);
  EXPECT_EQ(sink->GetPositionSample(), 510);
  sink->Seek(505);
  sink.Close();
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  EXPECT_EQ(b.size(), 46u + 20u);
  EXPECT_EQ(LE32At(b, 42), 20u);
}

TEST(WaveFile, UnfinishedFileIsFollowedWhileItGrowsAndFixedWhenDone) {
  std::string const path = ScratchFolder() + "/grow.wav";
  LSoundSink sink = LWaveFile::OpenSinkPCM(path, 8000, 2, 16);
  std::vector<float> const data = Ramp(300, 2);
  sink->Write(data.data(), 100);
  LSoundSource s = LWaveFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_TRUE(s->IsStreaming());
  EXPECT_EQ(s->GetEndSample(), 100);

  // Asking for more than there is: the position stops at what was there.
  std::vector<float> got(400, 9.0f);
  s->Read(got.data(), 200);
  EXPECT_EQ(s->GetPositionSample(), 100);
  EXPECT_EQ(got[399], 0.0f);
  EXPECT_NEAR(got[199], data[199], 1.0 / 32767);

  sink->Write(data.data() + 200, 200);
  EXPECT_EQ(s->GetEndSample(), 300);
  s->Read(got.data(), 200);
  EXPECT_EQ(s->GetPositionSample(), 300);
  EXPECT_NEAR(got[0], data[200], 1.0 / 32767);
  EXPECT_NEAR(got[399], data[599], 1.0 / 32767);

  sink.Close();
  EXPECT_EQ(s->GetEndSample(), 300);
  EXPECT_FALSE(s->IsStreaming());
}

TEST(WaveFile, SourceReadsPastTheEndAsSilenceAndSeeks) {
  std::string const path = ScratchFolder() + "/r.wav";
  {
    LSoundSink sink = LWaveFile::OpenSinkPCM(path, 1000, 3, 24);
    std::vector<float> const data = Ramp(20000, 3);
    sink->Write(data.data(), 20000);
  }
  LSoundSource s = LWaveFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetSampleRate(), 1000);
  EXPECT_EQ(s->GetChannels(), 3);
  EXPECT_EQ(s->GetEndSample(), 20000);
  EXPECT_FALSE(s->IsStreaming());
  EXPECT_EQ(s->GetPeakBound(), LSoundPeakInRange);
  std::vector<float> const all = ReadAll(s, 20000, 8192);
  std::vector<float> const want = Ramp(20000, 3);
  for (std::size_t i = 0; i < all.size(); i += 997) ASSERT_NEAR(all[i], want[i], 1.0 / (1 << 22)) << i;

  s->Seek(-2);
  std::vector<float> v = ReadAll(s, 4);
  EXPECT_EQ(v[0], 0.0f);
  EXPECT_EQ(v[5], 0.0f);
  EXPECT_EQ(v[6], all[0]);
  EXPECT_EQ(v[11], all[5]);
  EXPECT_EQ(s->GetPositionSample(), 2);

  s->Seek(19999);
  v = ReadAll(s, 3);
  EXPECT_EQ(v[2], all[all.size() - 1]);
  EXPECT_EQ(v[3], 0.0f);
  EXPECT_EQ(v[8], 0.0f);
  EXPECT_EQ(s->GetPositionSample(), 20002);
}

TEST(WaveFile, ChunkWalkSkipsJunkOddChunksAndReadsExtensible) {
  std::string const dir = ScratchFolder();
  std::vector<std::uint8_t> const body = {0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80};  // 1, 32767, -32768

  // Junk in front of the RIFF chunk, an odd-sized chunk with its pad byte before the
  // format and another between format and data.
  ByteImage w;
  w.Tag("JUNK").LE32(6).Bytes({'a', 'b', 'c', 'd', 'e', 'f'});
  w.Tag("RIFF").LE32(0).Tag("WAVE");
  w.Tag("odd ").LE32(3).Bytes({1, 2, 3, 0});
  w.Tag("fmt ").LE32(16).LE16(1).LE16(1).LE32(22050).LE32(44100).LE16(2).LE16(16);
  w.Tag("LIST").LE32(5).Bytes({'x', 'y', 'z', 'w', 'v', 0});
  w.Tag("data").LE32(6).Bytes({0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80});
  w.SaveTo(dir + "/walk.wav");
  LSoundSource s = LWaveFile::OpenSource(dir + "/walk.wav");
  ASSERT_TRUE(s.IsGood()) << int(s->GetErrorState());
  EXPECT_EQ(s->GetSampleRate(), 22050);
  EXPECT_EQ(s->GetEndSample(), 3);
  EXPECT_EQ(ReadAll(s, 3), (std::vector<float>{3.051851e-5f, 32767 * 3.051851e-5f, -32768 * 3.051851e-5f}));

  // WAVE_FORMAT_EXTENSIBLE with the PCM sub-format plays as PCM.
  ByteImage e;
  e.Tag("RIFF").LE32(0).Tag("WAVE");
  e.Tag("fmt ").LE32(40).LE16(0xFFFE).LE16(1).LE32(8000).LE32(16000).LE16(2).LE16(16).LE16(22);
  e.LE16(16).LE32(4).LE32(1).Bytes({0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71});
  e.Tag("data").LE32(6).Bytes({0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80});
  e.SaveTo(dir + "/ext.wav");
  s = LWaveFile::OpenSource(dir + "/ext.wav");
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(ReadAll(s, 3)[1], 32767 * 3.051851e-5f);

  LWaveFormatEx fx;
  ASSERT_TRUE(fx.Load(dir + "/ext.wav"));
  EXPECT_EQ(fx.Size(), 40u);
  EXPECT_EQ(fx.GetFormatTag(), 0xFFFE);
  EXPECT_EQ(fx.GetExtraSize(), 22);
  EXPECT_EQ(fx.GetSampleRate(), 8000u);
  fx.Destroy();
  EXPECT_FALSE(fx.IsLoaded());
  EXPECT_FALSE(fx.Load(dir + "/none.wav"));
  (void)body;
}

TEST(WaveFile, DamagedOrForeignHeadersGiveTheirErrorStates) {
  std::string const dir = ScratchFolder();
  std::vector<std::uint8_t> const pcm(64, 0);
  struct Case {
    char const* name;
    ByteImage image;
    int state;
  };
  auto wav = [&](int tag, int ch, std::uint32_t rate, int align, int bits) {
    return PlainWav(tag, ch, rate, align, bits, pcm);
  };
  ByteImage noData;
  noData.Tag("RIFF").LE32(28).Tag("WAVE").Tag("fmt ").LE32(16).LE16(1).LE16(1).LE32(8000).LE32(16000).LE16(2).LE16(16);
  ByteImage hugeFmt;
  hugeFmt.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(8194).LE16(1).LE16(1).LE32(8000).LE32(0).LE16(2).LE16(16);
  ByteImage shortFmt;
  shortFmt.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(14).LE16(1).LE16(1).LE32(8000).LE32(0).LE16(2);
  ByteImage cutFmt;  // states 40 bytes of format, holds 20
  cutFmt.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(40).LE16(1).LE16(1).LE32(8000).LE32(0).LE16(2).LE16(16);
  cutFmt.Fill(4, 0);
  ByteImage giantChunk;  // a chunk claiming 4 GB before the data
  giantChunk.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(16).LE16(1).LE16(1).LE32(8000).LE32(0).LE16(2);
  giantChunk.LE16(16).Tag("JUNK").LE32(0xFFFFFFFF).Tag("data").LE32(2).LE16(0);
  ByteImage extShort;  // extensible whose stated extension runs past the chunk
  extShort.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(18).LE16(0xFFFE).LE16(1).LE32(8000).LE32(0).LE16(2);
  extShort.LE16(16).LE16(22).Tag("data").LE32(2).LE16(0);
  ByteImage notWav;
  notWav.Tag("RIFF").LE32(4).Tag("AVI ").Fill(100, 0);
  ByteImage empty;

  Case const cases[] = {
      {"empty", empty, 3},
      {"notwav", notWav, 3},
      {"nodata", noData, 3},
      {"hugefmt", hugeFmt, 3},
      {"shortfmt", shortFmt, 3},
      {"cutfmt", cutFmt, 3},
      {"giantchunk", giantChunk, 3},
      {"extshort", extShort, 5},
      {"zerochannels", wav(1, 0, 8000, 2, 16), 3},
      {"256channels", wav(1, 256, 8000, 512, 16), 3},
      {"zerorate", wav(1, 1, 0, 2, 16), 3},
      {"absurdrate", wav(1, 1, 196001, 2, 16), 3},
      {"hugerate", wav(1, 1, 0xFFFFFFFF, 2, 16), 3},
      {"zeroalign", wav(1, 1, 8000, 0, 16), 3},
      {"float16", wav(3, 1, 8000, 2, 16), 3},
      {"tag34", wav(34, 1, 8000, 2, 16), 7},
      {"tag69", wav(69, 1, 8000, 2, 16), 7},
      {"adpcm", wav(2, 1, 8000, 256, 4), 5},
      {"unknown", wav(0x1234, 1, 8000, 2, 16), 5},
      {"tag0", wav(0, 1, 8000, 2, 16), 5},
      {"maxrate", wav(1, 255, 196000, 510, 16), 0},
  };
  for (Case const& c : cases) {
    std::string const path = dir + "/" + c.name + ".wav";
    c.image.SaveTo(path);
    LSoundSource s = LWaveFile::OpenSource(path);
    EXPECT_EQ(s->GetErrorState(), c.state) << c.name;
    std::vector<float> buf(static_cast<std::size_t>(s->GetChannels()) * 64, 1.0f);
    s->Read(buf.data(), 64);
    for (float v : buf) ASSERT_EQ(v, 0.0f) << c.name;
  }
  EXPECT_EQ(LWaveFile::OpenSource(dir + "/missing.wav")->GetErrorState(), 4);
  EXPECT_EQ(LWaveFile::OpenSource(dir)->GetErrorState(), 3);  // a folder opens but reads nothing
}

TEST(WaveFile, DataSizeBeyondTheFileEndsWhereTheFileDoes) {
  std::string const path = ScratchFolder() + "/cut.wav";
  ByteImage w = PlainWav(1, 2, 8000, 4, 16, std::vector<std::uint8_t>(40, 0x11));
  w.b[40] = 0x00;  // data size: 0x7FFFFF00 bytes
  w.b[41] = 0xFF;
  w.b[42] = 0xFF;
  w.b[43] = 0x7F;
  w.SaveTo(path);
  LSoundSource s = LWaveFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_FALSE(s->IsStreaming());
  EXPECT_EQ(s->GetEndSample(), 10);
  std::vector<float> v = ReadAll(s, 12);
  EXPECT_EQ(v[19], LSF16{0x1111}.Get());
  EXPECT_EQ(v[20], 0.0f);
  EXPECT_EQ(v[23], 0.0f);
  EXPECT_EQ(s->GetPositionSample(), 12);
}

TEST(WaveFile, TemporarySourceTakesItsFileAlong) {
  std::string const dir = ScratchFolder();
  std::string const path = dir + "/0tmp.wav";
  { LWaveFile::OpenSinkPCM(path, 8000, 1, 16)->Write(Ramp(10, 1).data(), 10); }
  LSoundSource s = LWaveFile::OpenSourceDeletingFileWhenClosed(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_TRUE(LFile::Exists(path));
  LSoundSource copy = s;
  s.Close();
  EXPECT_TRUE(LFile::Exists(path));
  copy.Close();
  EXPECT_FALSE(LFile::Exists(path));

  WriteFileBytes(path, {'n', 'o', 'p', 'e'});
  EXPECT_EQ(LWaveFile::OpenSourceDeletingFileWhenClosed(path)->GetErrorState(), 3);
  EXPECT_FALSE(LFile::Exists(path));
}

TEST(WaveFile, CodecFileKeepsTheWholeFormatAndRefusesWhatIsNotOne) {
  std::string const dir = ScratchFolder();
  LWaveFileFormat f = LWaveFileFormat::PCM(48000, 6, 24);
  for (std::size_t i = 0; i < f.abExtra.size(); ++i) f.abExtra[i] = static_cast<std::uint8_t>(i * 7);
  ASSERT_TRUE(f.SaveToWavCodecFile(dir + "/WavCodec.wff"));
  EXPECT_EQ(ReadFileBytes(dir + "/WavCodec.wff").size(), 1028u);

  LWaveFileFormat g;
  ASSERT_TRUE(g.LoadFromWavCodecFile(dir + "/WavCodec.wff"));
  EXPECT_EQ(g.wFormatTag, 1);
  EXPECT_EQ(g.nChannels, 6);
  EXPECT_EQ(g.nSamplesPerSec, 48000u);
  EXPECT_EQ(g.nAvgBytesPerSec, 48000u * 18u);
  EXPECT_EQ(g.nBlockAlign, 18);
  EXPECT_EQ(g.wBitsPerSample, 24);
  EXPECT_EQ(g.abExtra, f.abExtra);

  ASSERT_TRUE(f.SaveToWavCodecFile(dir + "/other.wf"));
  LWaveFileFormat h;
  EXPECT_FALSE(h.LoadFromWavCodecFile(dir + "/other.wf"));
  LWaveFileFormat bad = f;
  bad.nSamplesPerSec = 0;
  ASSERT_TRUE(bad.SaveToWavCodecFile(dir + "/bad.wff"));
  EXPECT_FALSE(h.LoadFromWavCodecFile(dir + "/bad.wff"));
  WriteFileBytes(dir + "/short.wff", std::vector<std::uint8_t>(1027, 1));
  EXPECT_FALSE(h.LoadFromWavCodecFile(dir + "/short.wff"));
  EXPECT_EQ(h.wFormatTag, 0);  // failed loads leave it as it was

  // A writer holding the lock makes both sides give up after the limit, not hang.
  LFile holder;
  ASSERT_TRUE(holder.OpenRead(dir + "/WavCodec.wff"));
  ASSERT_TRUE(holder.Lock(true, 0));
  EXPECT_FALSE(h.LoadFromWavCodecFile(dir + "/WavCodec.wff"));
  EXPECT_FALSE(f.SaveToWavCodecFile(dir + "/WavCodec.wff"));
  holder.Unlock();
  EXPECT_TRUE(h.LoadFromWavCodecFile(dir + "/WavCodec.wff"));

  setenv("XDG_DATA_HOME", dir.c_str(), 1);
  EXPECT_EQ(GetWavCodecFilePath(), dir + "/tandrel/WavCodec.wff");
}
