// Every format the program writes, written and read back at every kind of rate and
// channel count, and read by sox where sox knows the format.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>

#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/pcm_file.h"
#include "sound/raw_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"
#include "sound/wave_file.h"

namespace {

template <class F>
float Stored(float x) {
  F f{};
  f.Set(x);
  return f.Get();
}

using Open = std::function<LSoundSink(std::string const&, int rate, int channels)>;
using Reopen = std::function<LSoundSource(std::string const&, int rate, int channels)>;

struct Format {
  std::string name;
  std::string ext;
  Open open;
  float (*stored)(float);  // what the body gives back for a sample
  double absolute;         // how far that may lie from the sample written ...
  double relative;         // ... plus this part of its size
  std::string soxInput;    // what sox must be told before the file name (raw bodies)
  double soxRelative;      // sox scales integers by 2^(bits-1), G.711 by its own peak; < 0: sox cannot read it
  Reopen reopen = nullptr;
};

LSoundSource ReopenByExtension(std::string const& path, int, int) {
  if (path.ends_with(".wav")) return LWaveFile::OpenSource(path);
  if (path.ends_with(".aif") || path.ends_with(".aifc")) return LAifFile::OpenSource(path);
  return LAuFile::OpenSource(path);
}

Format Raw(std::string name, int codec, float (*stored)(float), double absolute, double relative, std::string sox,
           double soxRelative) {
  auto settings = [codec](int rate, int channels) {
    LRawSettings s;
    s.iCodec = codec;
    s.iSampleRate = rate;
    s.iChannels = channels;
    return s;
  };
  Format f{name,
           ".raw",
           [settings](std::string const& p, int r, int c) { return LRawFile::OpenSink(p, settings(r, c)); },
           stored,
           absolute,
           relative,
           std::move(sox),
           soxRelative};
  f.reopen = [settings](std::string const& p, int r, int c) { return LRawFile::OpenSource(p, settings(r, c)); };
  return f;
}

double const k8 = 1.01 / 127;
double const k16 = 0.6 / 32767;
double const k24 = 1.5 / (1 << 23);
double const k32 = 1e-7;

std::vector<Format> const& Formats() {
  static std::vector<Format> const formats = [] {
    using namespace LAifFile;
    auto wavPCM = [](int bits) {
      return [bits](std::string const& p, int r, int c) { return LWaveFile::OpenSinkPCM(p, r, c, bits); };
    };
    auto wavG711 = [](int tag) {
      return [tag](std::string const& p, int r, int c) { return LWaveFile::OpenSinkG711(p, r, c, tag); };
    };
    auto wavFloat = [](std::string const& p, int r, int c) { return LWaveFile::OpenSinkFloat(p, r, c); };
    std::vector<Format> v = {
        {"wav8", ".wav", wavPCM(8), Stored<LSFU8>, k8, 0, "", 0.01},
        {"wav16", ".wav", wavPCM(16), Stored<LSF16>, k16, 1e-6, "", 1e-4},
        {"wav24", ".wav", wavPCM(24), Stored<LSFLE24>, k24, 1e-6, "", 1e-6},
        {"wav32", ".wav", wavPCM(32), Stored<LSF32>, k32, 1e-6, "", 1e-6},
        {"wavfloat", ".wav", wavFloat, Stored<LSFF32>, 0, 0, "", 0},
        {"wavalaw", ".wav", wavG711(6), Stored<LSFALAW>, 1e-3, 1.0 / 16, "", 0.02},
        {"wavulaw", ".wav", wavG711(7), Stored<LSFULAW>, 1e-3, 1.0 / 16, "", 0.02},
        {"aiff8", ".aif", OpenSinkPCM8, Stored<LSFS8>, k8, 0, "", 0.01},
        {"aiff16", ".aif", OpenSinkPCM16, Stored<LSF16BE>, k16, 1e-6, "", 1e-4},
        {"aiff24", ".aif", OpenSinkPCM24, Stored<LSFBE24>, k24, 1e-6, "", 1e-6},
        {"aiff32", ".aif", OpenSinkPCM32, Stored<LSF32BE>, k32, 1e-6, "", 1e-6},
        {"aifc8", ".aifc", OpenSinkPCM8AIFC, Stored<LSFS8>, k8, 0, "", 0.01},
        {"aifc16", ".aifc", OpenSinkPCM16AIFC, Stored<LSF16BE>, k16, 1e-6, "", 1e-4},
        {"aifc24", ".aifc", OpenSinkPCM24AIFC, Stored<LSFBE24>, k24, 1e-6, "", 1e-6},
        {"aifc32", ".aifc", OpenSinkPCM32AIFC, Stored<LSF32BE>, k32, 1e-6, "", 1e-6},
        {"aifcsowt", ".aifc", OpenSinkPCM16AIFCLE, Stored<LSF16>, k16, 1e-6, "", 1e-4},
        {"aifculaw", ".aifc", OpenSinkULawAIFC, Stored<LSFULAW>, 1e-3, 1.0 / 16, "", -1},  // sox has no G.711 AIFC
        {"aifcalaw", ".aifc", OpenSinkALawAIFC, Stored<LSFALAW>, 1e-3, 1.0 / 16, "", -1},
        {"au8", ".au", LAuFile::OpenSinkPCM8, Stored<LSFS8>, k8, 0, "", 0.01},
        {"au16", ".au", LAuFile::OpenSinkPCM16, Stored<LSF16BE>, k16, 1e-6, "", 1e-4},
        {"auulaw", ".au", LAuFile::OpenSinkULaw, Stored<LSFULAW>, 1e-3, 1.0 / 16, "", 0.02},
        {"aualaw", ".au", LAuFile::OpenSinkALaw, Stored<LSFALAW>, 1e-3, 1.0 / 16, "", 0.02},
    };
    for (Format& f : v) f.reopen = ReopenByExtension;
    using namespace LRawCodec;
    v.push_back(Raw("rawu8", PCM8Unsigned, Stored<LSFU8>, k8, 0, "-e unsigned -b 8", 0.01));
    v.push_back(Raw("raws8", PCM8Signed, Stored<LSFS8>, k8, 0, "-e signed -b 8", 0.01));
    v.push_back(Raw("raw16le", PCM16LE, Stored<LSF16>, k16, 1e-6, "-e signed -b 16 -L", 1e-4));
    v.push_back(Raw("raw16be", PCM16BE, Stored<LSF16BE>, k16, 1e-6, "-e signed -b 16 -B", 1e-4));
    v.push_back(Raw("raw24le", PCM24LE, Stored<LSFLE24>, k24, 1e-6, "-e signed -b 24 -L", 1e-6));
    v.push_back(Raw("raw24be", PCM24BE, Stored<LSFBE24>, k24, 1e-6, "-e signed -b 24 -B", 1e-6));
    v.push_back(Raw("raw32le", PCM32LE, Stored<LSF32>, k32, 1e-6, "-e signed -b 32 -L", 1e-6));
    v.push_back(Raw("raw32be", PCM32BE, Stored<LSF32BE>, k32, 1e-6, "-e signed -b 32 -B", 1e-6));
    v.push_back(Raw("rawf32le", Float32LE, Stored<LSFF32>, 0, 0, "-e floating-point -b 32 -L", 0));
    v.push_back(Raw("rawf32be", Float32BE, Stored<LSFF32BE>, 0, 0, "-e floating-point -b 32 -B", 0));
    v.push_back(Raw("rawulaw", ULaw, Stored<LSFULAW>, 1e-3, 1.0 / 16, "-e mu-law -b 8", 0.02));
    v.push_back(Raw("rawalaw", ALaw, Stored<LSFALAW>, 1e-3, 1.0 / 16, "-e a-law -b 8", 0.02));
    return v;
  }();
  return formats;
}

// A different tone on every channel, with some noise, never quite at full scale.
std::vector<float> Signal(int frames, int channels) {
  std::vector<float> v(static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels));
  std::uint32_t noise = 12345;
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) {
      noise = noise * 1664525u + 1013904223u;
      float const n = static_cast<float>(static_cast<int>(noise >> 16) - 32768) / 32768.0f * 0.02f;
      v[static_cast<std::size_t>(f * channels + c)] =
          0.9f * std::sin(0.05f * static_cast<float>(f * (c + 1)) + static_cast<float>(c)) + n;
    }
  }
  return v;
}

void WriteAndCheck(Format const& format, std::string const& path, int rate, int channels, int frames) {
  SCOPED_TRACE(format.name + " at " + std::to_string(rate) + " Hz, " + std::to_string(channels) + " channels");
  std::vector<float> const data = Signal(frames, channels);
  {
    LSoundSink sink = format.open(path, rate, channels);
    ASSERT_TRUE(sink.IsGood());
    for (int done = 0; done < frames;) {
      int const n = std::min(frames - done, 5000);
      sink->Write(data.data() + static_cast<std::size_t>(done * channels), n);
      done += n;
    }
    ASSERT_TRUE(sink.IsGood());
    EXPECT_EQ(sink->GetPositionSample(), frames);
  }
  LSoundSource s = format.reopen(path, rate, channels);
  ASSERT_TRUE(s.IsGood()) << "state " << int(s->GetErrorState());
  EXPECT_EQ(s->GetSampleRate(), rate);
  EXPECT_EQ(s->GetChannels(), channels);
  EXPECT_EQ(s->GetEndSample(), frames);
  EXPECT_FALSE(s->IsStreaming());
  std::vector<float> const back = ReadAll(s, frames);
  for (std::size_t i = 0; i < data.size(); ++i) {
    ASSERT_EQ(back[i], format.stored(data[i])) << "sample " << i;
    ASSERT_NEAR(back[i], data[i], format.absolute + format.relative * std::abs(data[i])) << "sample " << i;
  }
}

bool HaveSox() {
  return std::system("command -v sox >/dev/null 2>&1") == 0;
}

std::string RunCommand(std::string const& command) {
  std::string out;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buf[4096];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
  }
  return out;
}

}  // namespace

TEST(PcmRoundTrip, EveryWrittenFormatReadsBackAtEveryRateAndChannelCount) {
  std::string const dir = ScratchFolder();
  for (Format const& format : Formats()) {
    // A file of its own for each case: rewriting one file over and over is slow on
    // disks that discard freed blocks.
    std::string const path = dir + "/" + format.name;
    for (int rate : {8, 11025, 44100, 96000, 192000}) {
      for (int channels = 1; channels <= 8; ++channels) {
        WriteAndCheck(format, path + "-" + std::to_string(rate) + "-" + std::to_string(channels) + format.ext, rate,
                      channels, 301);
        if (::testing::Test::HasFatalFailure()) return;
      }
    }
    // Longer than one conversion block, written and read in pieces of other sizes.
    WriteAndCheck(format, path + "-long" + format.ext, 48000, 3, 20011);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

TEST(PcmRoundTrip, SoxReadsWhatWeWrite) {
  if (!HaveSox()) GTEST_SKIP() << "sox is not installed (tools/install-deps)";
  std::string const dir = ScratchFolder();
  int const rate = 22050;
  int const channels = 3;
  int const frames = 1001;
  for (Format const& format : Formats()) {
    if (format.soxRelative < 0) continue;
    SCOPED_TRACE(format.name);
    std::string const path = dir + "/" + format.name + format.ext;
    std::vector<float> const data = Signal(frames, channels);
    {
      LSoundSink sink = format.open(path, rate, channels);
      sink->Write(data.data(), frames);
    }
    std::string input = "'" + path + "'";
    if (!format.soxInput.empty()) {
      input =
          "-t raw -r " + std::to_string(rate) + " -c " + std::to_string(channels) + " " + format.soxInput + " " + input;
    }
    if (format.soxInput.empty()) {  // a raw body has no header to ask about
      std::string const info = RunCommand("sox --i " + input + " 2>&1");
      EXPECT_NE(info.find("Channels       : 3"), std::string::npos) << info;
      EXPECT_NE(info.find("Sample Rate    : 22050"), std::string::npos) << info;
      EXPECT_NE(info.find("= 1001 samples"), std::string::npos) << info;
    }

    std::string const raw = RunCommand("sox -V1 " + input + " -t raw -e floating-point -b 32 -L - 2>/dev/null");
    ASSERT_EQ(raw.size(), data.size() * 4) << "sox read a different length";
    for (std::size_t i = 0; i < data.size(); ++i) {
      float s;
      std::memcpy(&s, raw.data() + 4 * i, 4);
      float const ours = format.stored(data[i]);
      ASSERT_NEAR(s, ours, std::abs(ours) * format.soxRelative + 1.5 / 32768) << "sample " << i;
    }
  }
}
