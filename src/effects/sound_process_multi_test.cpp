#include "effects/sound_process_multi.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "effects/table_effects.h"
#include "effects/testing_chains.h"
#include "sound/gain_sources.h"
#include "sound/testing_sources.h"

namespace fs = std::filesystem;

namespace {

using Writer = LSDFWriter<LOutputStreamMemory>;

void WriteHeader(Writer& w, bool bypass) {
  w.StartContainer(LSPChunk::Header);
  w.WriteBool(LSPChunk::Bypass, bypass);
  w.EndContainer(LSPChunk::Header);
}

void WriteGain(Writer& w, float gain) {
  w.WriteInt(LSPChunk::ChainType, LSPT_Gain);
  w.StartContainer(LSPChunk::ChainEffect);
  WriteHeader(w, false);
  w.WriteFloat(8193, gain);
  w.EndContainer(LSPChunk::ChainEffect);
}

// An effect of a type from some later version, with chunks of every kind.
void WriteStranger(Writer& w, int type, bool bypass) {
  w.WriteInt(LSPChunk::ChainType, type);
  w.StartContainer(LSPChunk::ChainEffect);
  WriteHeader(w, bypass);
  w.WriteInt(8193, 7 * type);
  unsigned char const blob[5] = {1, 2, 3, 250, 0};
  w.WriteBlob(8200, blob, sizeof blob);
  w.StartContainer(9000);
  w.WriteString(1, "nested");
  w.WriteFloat(2, -0.25f);
  w.EndContainer(9000);
  w.WriteInt64(8201, -5);
  w.EndContainer(LSPChunk::ChainEffect);
}

template <class Body>
std::vector<unsigned char> ChainFile(Body body) {
  LOutputStreamMemory out;
  Writer w;
  w.Open(out, LSPChainFileType, LSPChainFileVersion);
  body(w);
  EXPECT_TRUE(w.Close());
  return out.TakeData();
}

TEST(EffectChain, UnknownEffectsInTheMiddleLoadPassAudioAndSaveUnchanged) {
  std::vector<unsigned char> const file = ChainFile([](Writer& w) {
    WriteGain(w, 2.0f);
    WriteStranger(w, 18, false);
    WriteGain(w, 1.5f);
    WriteStranger(w, 99, true);
  });

  LSoundProcessMulti chain = LoadChainFromMemory(file);
  ASSERT_EQ(chain.GetCount(), 4);
  EXPECT_EQ(chain.GetAt(1)->GetSoundProcessType(), 18);
  EXPECT_EQ(chain.GetAt(1)->GetNameString(), "Unknown");
  EXPECT_EQ(chain.GetAt(1)->GetNumParameters(), 0);
  EXPECT_EQ(chain.GetAt(3)->GetSoundProcessType(), 99);
  EXPECT_TRUE(chain.GetAt(3)->bBypass);

  EXPECT_EQ(SaveChainToMemory(chain), file);
  // A copy of the chain (an undo snapshot) keeps them as well.
  EXPECT_EQ(SaveChainToMemory(LSoundProcessMulti(chain)), file);

  LSoundSource out = chain.OpenSource(MakeRampSource(44100, 2, 1000));
  std::vector<float> const samples = ReadAll(out, 100);
  for (int f = 0; f < 100; ++f) {
    for (int c = 0; c < 2; ++c) ASSERT_FLOAT_EQ(samples[static_cast<std::size_t>(f * 2 + c)], 3.0f * TestRamp(f, c));
  }
}

TEST(EffectChain, TheOldPointListEqualiserIsReadAndDropped) {
  fs::path const path = fs::path(TANDREL_BINARY_DIR) / "effects-test-point-list.ecf";
  {
    LOutputStreamFile out;
    ASSERT_TRUE(out.Open(path.string()));
    LSDFWriter<LOutputStreamFile> w;
    w.Open(out, LSPChainFileType, LSPChainFileVersion);
    w.WriteInt(LSPChunk::ChainType, LSPT_HighPass);
    w.StartContainer(LSPChunk::ChainEffect);
    w.WriteInt(8192, 300);
    w.EndContainer(LSPChunk::ChainEffect);
    w.WriteInt(LSPChunk::ChainType, LSPT_PointListEq);
    w.StartContainer(LSPChunk::ChainEffect);
    w.WriteInt(8192, 1);
    std::vector<unsigned char> const points(256, 7);
    w.WriteBlob(8193, points.data(), points.size());
    w.WriteBool(8195, true);
    w.EndContainer(LSPChunk::ChainEffect);
    w.WriteInt(LSPChunk::ChainType, LSPT_LowPass);
    w.StartContainer(LSPChunk::ChainEffect);
    w.EndContainer(LSPChunk::ChainEffect);
    ASSERT_TRUE(w.Close());
    ASSERT_TRUE(out.Close());
  }
  LSoundProcessMulti chain;
  chain.Append(std::make_unique<LSPGain>(0.5f));
  ASSERT_TRUE(LSPLoadChainFile(chain, path.string()));
  ASSERT_EQ(chain.GetCount(), 3);  // appended to what was there
  EXPECT_EQ(chain.GetAt(1)->GetSoundProcessType(), LSPT_HighPass);
  EXPECT_EQ(static_cast<LSPHighPass*>(chain.GetAt(1))->GetFrequency(), 300);
  EXPECT_EQ(chain.GetAt(2)->GetSoundProcessType(), LSPT_LowPass);
  EXPECT_EQ(static_cast<LSPLowPass*>(chain.GetAt(2))->GetFrequency(), 1600);  // no chunk: its default

  // A file of another format version is refused.
  {
    LOutputStreamFile out;
    ASSERT_TRUE(out.Open(path.string()));
    LSDFWriter<LOutputStreamFile> w;
    w.Open(out, LSPChainFileType, 2);
    ASSERT_TRUE(w.Close());
    ASSERT_TRUE(out.Close());
  }
  EXPECT_FALSE(LSPLoadChainFile(chain, path.string()));
  EXPECT_FALSE(LSPLoadChainFile(chain, (path.string() + ".missing")));
  EXPECT_EQ(chain.GetCount(), 3);
  fs::remove(path);
}

TEST(EffectChain, ATypeZeroBeforeAContainerEndsTheLoad) {
  std::vector<unsigned char> const file = ChainFile([](Writer& w) {
    WriteGain(w, 2.0f);
    w.WriteString(77, "skipped");
    WriteGain(w, 3.0f);
    w.WriteInt(LSPChunk::ChainType, 0);
    w.StartContainer(LSPChunk::ChainEffect);
    w.EndContainer(LSPChunk::ChainEffect);
    WriteGain(w, 4.0f);
  });
  LSoundProcessMulti chain = LoadChainFromMemory(file);
  ASSERT_EQ(chain.GetCount(), 2);
  EXPECT_FLOAT_EQ(static_cast<LSPGain*>(chain.GetAt(1))->GetGain(), 3.0f);
}

TEST(EffectChain, WithNothingToDoTheSameSourceComesBack) {
  LSoundSource source = MakeRampSource(44100, 2, 100);
  LSoundProcessMulti chain;
  EXPECT_EQ(chain.OpenSource(source).Get(), source.Get());
  chain.Append(std::make_unique<LSPGain>(2.0f))->bBypass = true;
  chain.Append(std::make_unique<LSPHighPass>(200))->bBypass = true;
  EXPECT_EQ(chain.OpenSource(source).Get(), source.Get());

  // Effects open top first: the high pass reads what the gain made.
  chain.GetAt(0)->bBypass = false;
  chain.GetAt(1)->bBypass = false;
  LSoundSource top = chain.OpenSource(source);
  auto* filter = dynamic_cast<LSoundProcessBase*>(top.Get());
  ASSERT_NE(filter, nullptr);
  auto* gain = dynamic_cast<LSRCGain*>(filter->GetSource().Get());
  ASSERT_NE(gain, nullptr);
  EXPECT_EQ(gain->GetSource().Get(), source.Get());
}

TEST(EffectChain, CopiesCloneEveryEffect) {
  LSoundProcessMulti chain;
  chain.Append(std::make_unique<LSPEcho>());
  LSoundProcessMulti copy = chain;
  ASSERT_EQ(copy.GetCount(), 1);
  EXPECT_NE(copy.GetAt(0), chain.GetAt(0));
  static_cast<LSPEcho*>(copy.GetAt(0))->SetShown(0, 10);
  EXPECT_EQ(static_cast<LSPEcho*>(chain.GetAt(0))->GetShown(0), 50);
  EXPECT_EQ(static_cast<LSPEcho*>(copy.GetAt(0))->GetShown(0), 10);
}

LSoundProcessMulti LoadPositional(std::vector<unsigned char> const& file) {
  LInputStreamMemory in(file);
  LSDFReader<LInputStreamMemory> reader;
  EXPECT_TRUE(reader.Open(in, LSPChainFileType));
  LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
  LSoundProcessMulti chain;
  chain.LoadFromSDF(it);
  return chain;
}

TEST(EffectChain, ThePositionalFormOfOldProjects) {
  std::vector<unsigned char> const file = ChainFile([](Writer& w) {
    w.WriteInt(1, 4);  // count
    w.WriteInt(2, LSPT_Gain);
    w.WriteInt(3, static_cast<std::int32_t>(16777216 * 2));  // the old fixed-point gain
    w.WriteInt(4, LSPT_Echo);
    w.WriteInt(5, 20);
    w.WriteInt(6, 300);
    w.WriteInt(7, LSPT_PointListEq);  // ends the load
    w.WriteInt(8, LSPT_HighPass);
    w.WriteInt(9, 100);
  });
  LSoundProcessMulti const chain = LoadPositional(file);
  ASSERT_EQ(chain.GetCount(), 2);
  EXPECT_FLOAT_EQ(static_cast<LSPGain*>(chain.GetAt(0))->GetGain(), 2.0f);
  EXPECT_EQ(static_cast<LSPEcho*>(chain.GetAt(1))->GetShown(1), 300);

  // An effect whose values are cut short is not added.
  std::vector<unsigned char> const cut = ChainFile([](Writer& w) {
    w.WriteInt(1, 2);
    w.WriteInt(2, LSPT_Gain);
    w.WriteFloat(3, 0.5f);
    w.WriteInt(4, LSPT_Echo);
    w.WriteInt(5, 20);
  });
  LSoundProcessMulti const chain2 = LoadPositional(cut);
  ASSERT_EQ(chain2.GetCount(), 1);
  EXPECT_FLOAT_EQ(static_cast<LSPGain*>(chain2.GetAt(0))->GetGain(), 0.5f);
}

TEST(EffectChain, TheOldestRecordsConvert) {
  LSoundProcessChainItem amplify{{{"type", "aMPLIFY"}, {"Gain", "150"}}, false};
  auto gain = amplify.ConvertToSoundProcess();
  ASSERT_NE(gain, nullptr);
  EXPECT_FLOAT_EQ(static_cast<LSPGain*>(gain.get())->GetGain(), 1.5f);
  EXPECT_TRUE(gain->bBypass);

  LSoundProcessChainItem compressor{{{"type", "Compressor"}, {"Threshold", "196"}, {"Ratio", "300"}}, true};
  auto drc = compressor.ConvertToSoundProcess();
  ASSERT_NE(drc, nullptr);
  auto* d = static_cast<LSPDRCSimple*>(drc.get());
  EXPECT_EQ(d->GetShown(0), -60);  // 196 as a signed byte
  EXPECT_NEAR(d->GetShown(1), 3.0, 1e-4);
  EXPECT_EQ(d->GetShown(2), 100);
  EXPECT_EQ(d->GetShown(4), 500);
  EXPECT_FALSE(drc->bBypass);

  LSoundProcessChainItem chorus{{{"type", "Chorus"}, {"Modulation", "150"}}, true};
  auto c = chorus.ConvertToSoundProcess();
  ASSERT_NE(c, nullptr);
  EXPECT_NEAR(static_cast<LSPChorus*>(c.get())->GetShown(2), 1.5, 1e-6);
  EXPECT_EQ(static_cast<LSPChorus*>(c.get())->GetShown(0), 70);

  LSoundProcessChainItem distortion{{{"type", "distortion"}, {"Level", "-12"}}, true};
  auto dist = distortion.ConvertToSoundProcess();
  ASSERT_NE(dist, nullptr);
  EXPECT_NEAR(static_cast<LSPDistortion*>(dist.get())->GetShown(0), 50.0, 1e-5);
  EXPECT_EQ(static_cast<LSPDistortion*>(dist.get())->GetShown(1), -12);

  LSoundProcessChainItem const vocoder{{{"type", "Vocoder"}}, true};
  EXPECT_EQ(vocoder.ConvertToSoundProcess(), nullptr);
  EXPECT_EQ(LSoundProcessChainItem().ConvertToSoundProcess(), nullptr);
}

TEST(EffectChain, TypesTheBuildCannotPlayAreKeptAndNotOffered) {
  for (int type : {9, 10, 11, 12, 16, 23, 18, 25, 32767}) {
    auto p = LSoundProcessMulti::CreateSoundProcessByType(type);
    ASSERT_NE(p, nullptr) << type;
    EXPECT_EQ(p->GetSoundProcessType(), type);
    EXPECT_FALSE(LSPHasSignalWork(type));
    LSoundSource s = MakeRampSource(8000, 1, 10);
    EXPECT_EQ(p->OpenSource(s).Get(), s.Get());
  }
  EXPECT_EQ(LSoundProcessMulti::CreateSoundProcessByType(0), nullptr);
  EXPECT_EQ(LSoundProcessMulti::CreateSoundProcessByType(12)->GetNameString(), "Visual EQ");
  int w = 0, h = 0;
  LSoundProcessMulti::CreateSoundProcessByType(23)->GetEditorSize(w, h);
  EXPECT_EQ(w, 500);
  EXPECT_EQ(h, 250);
}

TEST(EffectChain, AProcessWithoutANameOfItsOwn) {
  struct Plain : LSoundProcess {
    std::unique_ptr<LSoundProcess> GetNewCopy() const override { return std::make_unique<Plain>(*this); }
  } plain;
  EXPECT_EQ(plain.GetNameString(), "Unnamed Effect");
  EXPECT_EQ(plain.GetIndexInPreset(), -1);
  EXPECT_EQ(plain.GetEditorType(), 1);
}

}  // namespace
