#include "shell/format_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "shell/gen_sink_open.h"
#include "shell/user_settings.h"
#include "sound/au_file.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

class FormatSettingsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = fs::path(TANDREL_BINARY_DIR) / "format-settings-scratch" /
             ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    fs::create_directories(folder / "data" / "tandrel");
    setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    LUserSettingsStore::Global().UseFile((folder / "settings.conf").string());
  }
  fs::path folder;
};

// Another allowed value than the one shown, so that a store and a reload prove
// the value went where the form reads it from.
void ChangeEveryField(LFormatSettingsModel& m) {
  for (auto& f : m.Fields) {
    switch (f.eKind) {
      case LFormatSetting::Choice:
        f.iValue = f.Choices.front().second == f.iValue ? f.Choices.back().second : f.Choices.front().second;
        break;
      case LFormatSetting::Number: f.iValue = f.iValue == f.iMax ? f.iMin : f.iMax; break;
      case LFormatSetting::Check: f.iValue = f.iValue != 0 ? 0 : 1; break;
      case LFormatSetting::Text: f.szText = "--tt " + f.szKey; break;
    }
  }
}

struct Captured : LFormatSettingsEditor {
  std::function<void(LFormatSettingsModel&)> edit;
  int shown = 0;
  bool EditFormatSettings(LFormatSettingsModel& m) override {
    ++shown;
    if (!edit) return false;
    edit(m);
    return true;
  }
};

TEST_F(FormatSettingsTest, EveryFormatsFieldsComeBackAsTheyWereStored) {
  int withSettings = 0;
  for (std::string const& ext : LGenSinkGetExtensions(false)) {
    LFormatSettingsModel m = LGenSinkGetSettingsModel(ext);
    if (m.Fields.empty()) continue;
    ++withSettings;
    EXPECT_FALSE(m.szTitle.empty()) << ext;
    // WAV's GSM choice fixes rate and channels, so the last format stays clear of it.
    if (ext == ".wav") {
      ChangeEveryField(m);
      m.Find("Format")->iValue = 2;  // 24-bit PCM
    } else {
      ChangeEveryField(m);
    }
    LGenSinkStoreSettings(m);
    LFormatSettingsModel const back = LGenSinkGetSettingsModel(ext);
    ASSERT_EQ(back.Fields.size(), m.Fields.size()) << ext;
    for (std::size_t i = 0; i < m.Fields.size(); ++i) {
      EXPECT_EQ(back.Fields[i].iValue, m.Fields[i].iValue) << ext << " " << m.Fields[i].szKey;
      EXPECT_EQ(back.Fields[i].szText, m.Fields[i].szText) << ext << " " << m.Fields[i].szKey;
    }
  }
  EXPECT_GE(withSettings, 13);
  EXPECT_FALSE(LGenSinkHasSettings(".gsm"));
  EXPECT_FALSE(LGenSinkHasSettings(".spx"));
  EXPECT_TRUE(LGenSinkHasSettings(".MP3"));
}

TEST_F(FormatSettingsTest, TheSinkOpensWithWhatTheFormStored) {
  Captured form;
  // WAV: 24-bit mono at 22050 Hz, whatever the mix brings.
  form.edit = [](LFormatSettingsModel& m) {
    m.Find("Format")->iValue = 2;
    m.Find("SampleRate")->iValue = 22050;
    m.Find("Channels")->iValue = 1;
  };
  ASSERT_TRUE(LGenSinkCheckSettings(".wav", form));
  std::string const wav = (folder / "a.wav").string();
  {
    LSoundSink sink = LGenSinkOpenSink(wav, 48000, 2, nullptr);
    ASSERT_TRUE(sink.IsGood());
    EXPECT_EQ(sink->GetSampleRate(), 22050);
    EXPECT_EQ(sink->GetChannels(), 1);
    std::vector<float> frames(100, 0.1f);
    sink->Write(frames.data(), 100);
  }
  LWaveFormatEx format;
  ASSERT_TRUE(format.Load(wav));
  ASSERT_GE(format.Size(), 16u);
  EXPECT_EQ(format.Data()[14], 24);  // wBitsPerSample
  LSoundSource back = LWaveFile::OpenSource(wav);
  ASSERT_TRUE(back.IsGood());
  EXPECT_EQ(back->GetEndSample(), 100);

  // "Same as project" follows the mix again.
  form.edit = [](LFormatSettingsModel& m) {
    m.Find("SampleRate")->iValue = 0;
    m.Find("Channels")->iValue = 0;
  };
  ASSERT_TRUE(LGenSinkCheckSettings(".wav", form));
  {
    LSoundSink sink = LGenSinkOpenSink((folder / "b.wav").string(), 48000, 2, nullptr);
    EXPECT_EQ(sink->GetSampleRate(), 48000);
    EXPECT_EQ(sink->GetChannels(), 2);
  }

  // AU: mono µ-law at 8000 Hz.
  form.edit = [](LFormatSettingsModel& m) {
    m.Find("CodecIndex")->iValue = 2;
    m.Find("SampleRate")->iValue = 8000;
    m.Find("Channels")->iValue = 1;
  };
  ASSERT_TRUE(LGenSinkCheckSettings(".au", form));
  std::string const au = (folder / "a.au").string();
  {
    LSoundSink sink = LGenSinkOpenSink(au, 44100, 2, nullptr);
    EXPECT_EQ(sink->GetSampleRate(), 8000);
    EXPECT_EQ(sink->GetChannels(), 1);
    std::vector<float> frames(80, 0.1f);
    sink->Write(frames.data(), 80);
  }
  // One byte a sample behind the 24-byte header said µ-law.
  EXPECT_EQ(fs::file_size(au) - 24, 80u);

  // A cancelled form stores nothing.
  form.edit = nullptr;
  EXPECT_FALSE(LGenSinkCheckSettings(".au", form));
  EXPECT_EQ(LUserSettingGet("AuEncoder", "SampleRate", 0), 8000);
  // A format without settings shows no form.
  int const shown = form.shown;
  EXPECT_FALSE(LGenSinkCheckSettings(".gsm", form));
  EXPECT_EQ(form.shown, shown);
}

TEST_F(FormatSettingsTest, ValuesNoFormCouldGiveAreStoredAsTheNearestAllowed) {
  LUserSettingSet("FlacEncoder", "Compression", 40);
  LUserSettingSet("Mp3Encoder", "BitRate", 150);
  LFormatSettingsModel flac = LGenSinkGetSettingsModel(".flac");
  LGenSinkStoreSettings(flac);
  EXPECT_EQ(LUserSettingGet("FlacEncoder", "Compression", 0), 8);
  LFormatSettingsModel mp3 = LGenSinkGetSettingsModel(".mp3");
  mp3.Find("StereoMode")->iValue = 'm';  // mono is no choice for a stereo mode
  LGenSinkStoreSettings(mp3);
  EXPECT_EQ(LUserSettingGet("Mp3Encoder", "BitRate", 0), 160);
  std::string letter;
  LUserSettingGetString("Mp3Encoder", "StereoMode", "", letter);
  EXPECT_TRUE(letter == "j" || letter == "s" || letter == "f" || letter == "d") << letter;
}

}  // namespace
