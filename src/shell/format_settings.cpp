#include "shell/format_settings.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "shell/user_settings.h"
#include "sound/raw_file.h"
#include "sound/wave_file.h"

namespace {

using Choices = std::vector<std::pair<std::string, int>>;

std::string Lower(std::string ext) {
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

// The rates offered wherever a rate is chosen; "Same as project" stores 0, which
// the opener reads as the mix's own rate.
Choices Rates(bool sameAsProject) {
  Choices c;
  if (sameAsProject) c.emplace_back("Same as project", 0);
  for (int r : {8000, 11025, 16000, 22050, 32000, 44100, 48000, 88200, 96000}) c.emplace_back(std::to_string(r) + " Hz", r);
  return c;
}

Choices Channels(bool sameAsProject) {
  Choices c;
  if (sameAsProject) c.emplace_back("Same as project (stereo)", 0);
  c.emplace_back("Mono", 1);
  c.emplace_back("Stereo", 2);
  return c;
}

Choices BitRates(std::initializer_list<int> rates) {
  Choices c;
  for (int r : rates) c.emplace_back(std::to_string(r) + " kbit/s", r);
  return c;
}

LFormatSetting Field(LFormatSetting::Kind kind, char const* section, char const* key, char const* label) {
  LFormatSetting f;
  f.eKind = kind;
  f.szSection = section;
  f.szKey = key;
  f.szLabel = label;
  return f;
}

LFormatSetting Choice(char const* section, char const* key, char const* label, Choices choices, int def) {
  LFormatSetting f = Field(LFormatSetting::Choice, section, key, label);
  f.Choices = std::move(choices);
  f.iValue = LUserSettingGet(section, key, def);
  return f;
}

LFormatSetting Number(char const* section, char const* key, char const* label, int lo, int hi, int def) {
  LFormatSetting f = Field(LFormatSetting::Number, section, key, label);
  f.iMin = lo;
  f.iMax = hi;
  f.iValue = LUserSettingGet(section, key, def);
  return f;
}

LFormatSetting Check(char const* section, char const* key, char const* label, bool def) {
  LFormatSetting f = Field(LFormatSetting::Check, section, key, label);
  f.iValue = LUserSettingGet(section, key, def ? 1 : 0) != 0 ? 1 : 0;
  return f;
}

LFormatSetting Text(char const* section, char const* key, char const* label, char const* def) {
  LFormatSetting f = Field(LFormatSetting::Text, section, key, label);
  LUserSettingGetString(section, key, def, f.szText);
  return f;
}

// The stereo mode of lame is stored as its letter; the choice keeps the letter's code.
constexpr char kLetterSection[] = "Mp3Encoder";
constexpr char kLetterKey[] = "StereoMode";

bool IsLetter(LFormatSetting const& f) { return f.szSection == kLetterSection && f.szKey == kLetterKey; }

void AddMp3(std::vector<LFormatSetting>& out) {
  out.push_back(Choice("Mp3Encoder", "Mode", "Bit rate mode",
                       {{"Constant bit rate", 0}, {"Average bit rate", 1}, {"Variable bit rate", 2}}, 0));
  out.push_back(Choice("Mp3Encoder", "BitRate", "Bit rate (least, when variable)",
                       BitRates({32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}), 128));
  out.push_back(Number("Mp3Encoder", "VBRQuality", "Variable bit rate quality (0 best)", 0, 9, 4));
  out.push_back(Number("Mp3Encoder", "Quality", "Encoder care (0 best and slowest)", 0, 9, 2));
  LFormatSetting stereo = Field(LFormatSetting::Choice, kLetterSection, kLetterKey, "Stereo mode");
  stereo.Choices = {{"Joint stereo", 'j'}, {"Simple stereo", 's'}, {"Forced mid/side", 'f'}, {"Dual channel", 'd'}};
  std::string letter;
  LUserSettingGetString(kLetterSection, kLetterKey, "j", letter);
  stereo.iValue = letter.empty() ? 'j' : static_cast<unsigned char>(letter[0]);
  out.push_back(stereo);
  out.push_back(Text("Mp3Encoder", "Flags", "More lame options", ""));
}

void AddAac(std::vector<LFormatSetting>& out) {
  out.push_back(Check("AACEncoder", "AverageBitRate", "Average bit rate instead of quality", false));
  out.push_back(Choice("AACEncoder", "ABRBitRate", "Average bit rate",
                       BitRates({32, 48, 64, 96, 128, 160, 192, 256, 320}), 128));
  out.push_back(Number("AACEncoder", "VBRQuality", "Quality (100 is about 128 kbit/s)", 10, 500, 100));
  out.push_back(Check("AACEncoder", "ForceMPEG2", "Mark the stream as MPEG-2", false));
  out.push_back(Check("AACEncoder", "DisableTNS", "No temporal noise shaping", false));
}

// WAV keeps its format in the codec file beside the settings; these fields stand
// for it in the form.
enum WavChoice { Pcm16, Pcm8, Pcm24, Pcm32, Float32, ALaw, ULaw, Gsm };

int WavChoiceOf(LWaveFileFormat const& f) {
  switch (f.wFormatTag) {
    case LWavTagPCM:
      return f.wBitsPerSample == 8 ? Pcm8 : f.wBitsPerSample == 24 ? Pcm24 : f.wBitsPerSample == 32 ? Pcm32 : Pcm16;
    case LWavTagFloat: return Float32;
    case LWavTagALaw: return ALaw;
    case LWavTagULaw: return ULaw;
    case LWavTagGSM610: return Gsm;
    default: return Pcm16;
  }
}

void AddWav(std::vector<LFormatSetting>& out) {
  LWaveFileFormat stored;
  bool const has = stored.LoadFromWavCodecFile(GetWavCodecFilePath());
  LFormatSetting format = Choice("WavSettings", "Format", "Sample format",
                                 {{"16-bit PCM", Pcm16},
                                  {"8-bit PCM", Pcm8},
                                  {"24-bit PCM", Pcm24},
                                  {"32-bit PCM", Pcm32},
                                  {"32-bit float", Float32},
                                  {"A-law", ALaw},
                                  {"\xC2\xB5-law", ULaw},
                                  {"GSM 6.10 (mono, 8000 Hz)", Gsm}},
                                 Pcm16);
  format.iValue = has ? WavChoiceOf(stored) : Pcm16;
  LFormatSetting rate = Choice("WavSettings", "SampleRate", "Sample rate", Rates(true), 0);
  rate.iValue = has && LUserSettingGet("WavSettings", "SampleRateAuto", 0) == 0 ? static_cast<int>(stored.nSamplesPerSec) : 0;
  LFormatSetting channels = Choice("WavSettings", "Channels", "Channels", Channels(true), 0);
  channels.iValue = has && LUserSettingGet("WavSettings", "ChansAuto", 0) == 0 ? stored.nChannels : 0;
  out.push_back(format);
  out.push_back(rate);
  out.push_back(channels);
}

void StoreWav(LFormatSettingsModel const& model) {
  auto value = [&](char const* key, int def) {
    for (auto const& f : model.Fields) {
      if (f.szKey == key) return f.iValue;
    }
    return def;
  };
  int const rate = value("SampleRate", 0);
  int const channels = value("Channels", 0);
  // The stored format carries a rate and channels even when the mix's are used.
  int const r = rate > 0 ? rate : 44100;
  int const c = channels > 0 ? channels : 2;
  LWaveFileFormat f;
  switch (value("Format", Pcm16)) {
    case Pcm8: f = LWaveFileFormat::PCM(r, c, 8); break;
    case Pcm24: f = LWaveFileFormat::PCM(r, c, 24); break;
    case Pcm32: f = LWaveFileFormat::PCM(r, c, 32); break;
    case Float32: f = LWaveFileFormat::Float(r, c); break;
    case ALaw: f = LWaveFileFormat::G711(r, c, LWavTagALaw); break;
    case ULaw: f = LWaveFileFormat::G711(r, c, LWavTagULaw); break;
    case Gsm:
      // GSM 6.10 is mono at 8000 Hz whatever else was chosen: say so in what is stored.
      f = LWaveFileFormat::PCM(8000, 1, 16);
      f.wFormatTag = LWavTagGSM610;
      break;
    default: f = LWaveFileFormat::PCM(r, c, 16); break;
  }
  bool const gsm = value("Format", Pcm16) == Gsm;
  f.SaveToWavCodecFile(GetWavCodecFilePath());
  LUserSettingSet("WavSettings", "SampleRateAuto", !gsm && rate == 0 ? 1 : 0);
  LUserSettingSet("WavSettings", "ChansAuto", !gsm && channels == 0 ? 1 : 0);
}

// A value the form could not have given (a hand-edited setting, say) goes to the
// nearest one allowed, so the opener never sees it.
int Allowed(LFormatSetting const& f) {
  switch (f.eKind) {
    case LFormatSetting::Number: return std::clamp(f.iValue, f.iMin, f.iMax);
    case LFormatSetting::Check: return f.iValue != 0 ? 1 : 0;
    case LFormatSetting::Choice: {
      if (f.Choices.empty()) return f.iValue;
      auto best = f.Choices.front().second;
      for (auto const& [label, v] : f.Choices) {
        if (v == f.iValue) return v;
        if (std::abs(v - f.iValue) < std::abs(best - f.iValue)) best = v;
      }
      return best;
    }
    case LFormatSetting::Text: break;
  }
  return f.iValue;
}

}  // namespace

LFormatSetting* LFormatSettingsModel::Find(std::string const& key) {
  for (auto& f : Fields) {
    if (f.szKey == key) return &f;
  }
  return nullptr;
}

LFormatSettingsModel LGenSinkGetSettingsModel(std::string const& extension) {
  LFormatSettingsModel m;
  m.szExtension = Lower(extension);
  std::string const& ext = m.szExtension;
  auto& out = m.Fields;
  if (ext == ".wav") {
    m.szTitle = "WAV Settings";
    AddWav(out);
  } else if (ext == ".mp3") {
    m.szTitle = "MP3 Settings";
    AddMp3(out);
  } else if (ext == ".rss") {
    m.szTitle = "Podcast Feed Settings";
    out.push_back(Text("RSSEncode", "RootURL", "Address the MP3 will be found under", ""));
    AddMp3(out);
  } else if (ext == ".au") {
    m.szTitle = "AU Settings";
    out.push_back(Choice("AuEncoder", "CodecIndex", "Sample format",
                         {{"16-bit PCM", 0}, {"8-bit PCM", 1}, {"\xC2\xB5-law", 2}, {"A-law", 3}}, 0));
    out.push_back(Choice("AuEncoder", "SampleRate", "Sample rate", Rates(false), 44100));
    out.push_back(Choice("AuEncoder", "Channels", "Channels", Channels(false), 2));
  } else if (ext == ".aiff" || ext == ".aif" || ext == ".aifc") {
    m.szTitle = ext == ".aifc" ? "AIFC Settings" : "AIFF Settings";
    out.push_back(Choice("AIFFEncode", "SampleRate", "Sample rate", Rates(true), 0));
    out.push_back(Choice("AIFFEncode", "Channels", "Channels", Channels(true), 0));
    out.push_back(Choice("AIFFEncode", "SampleSize", "Bits per sample", {{"8", 8}, {"16", 16}, {"24", 24}, {"32", 32}}, 16));
    if (ext == ".aifc") {
      out.push_back(Choice("AIFFEncode", "Format", "Coding",
                           {{"Big-endian PCM", 0}, {"Little-endian 16-bit PCM", 1}, {"\xC2\xB5-law", 2}, {"A-law", 3}},
                           0));
    }
  } else if (ext == ".raw" || ext == ".vox") {
    bool const vox = ext == ".vox";
    char const* section = vox ? "VoxAudio" : "RawAudio";
    m.szTitle = vox ? "VOX Settings" : "Raw Audio Settings";
    Choices codecs = {{"Dialogic ADPCM", LRawCodec::DialogicADPCM},
                      {"8-bit unsigned PCM", LRawCodec::PCM8Unsigned},
                      {"8-bit signed PCM", LRawCodec::PCM8Signed},
                      {"16-bit PCM, little-endian", LRawCodec::PCM16LE},
                      {"16-bit PCM, big-endian", LRawCodec::PCM16BE},
                      {"24-bit PCM, little-endian", LRawCodec::PCM24LE},
                      {"24-bit PCM, big-endian", LRawCodec::PCM24BE},
                      {"32-bit PCM, little-endian", LRawCodec::PCM32LE},
                      {"32-bit PCM, big-endian", LRawCodec::PCM32BE},
                      {"32-bit float, little-endian", LRawCodec::Float32LE},
                      {"32-bit float, big-endian", LRawCodec::Float32BE},
                      {"\xC2\xB5-law", LRawCodec::ULaw},
                      {"A-law", LRawCodec::ALaw}};
    out.push_back(Choice(section, "Codec", "Coding", codecs, vox ? LRawCodec::DialogicADPCM : LRawCodec::PCM16LE));
    if (vox) {
      // VOX files carry no rate; telephony's 8000 Hz is what readers assume.
      Choices rates = Rates(false);
      out.push_back(Choice(section, "SampleRate", "Sample rate", rates, 8000));
      out.push_back(Choice(section, "Channels", "Channels", Channels(false), 1));
    } else {
      out.push_back(Choice(section, "SampleRate", "Sample rate", Rates(true), 0));
      out.push_back(Choice(section, "Channels", "Channels", Channels(true), 0));
    }
  } else if (ext == ".ogg") {
    m.szTitle = "Ogg Vorbis Settings";
    out.push_back(Choice("OggEncoder", "Quality", "Mode",
                         {{"Nominal bit rate", 0}, {"Quality", 1}, {"Bit rate range", 2}}, 1));
    out.push_back(Choice("OggEncoder", "BitRate", "Nominal bit rate", BitRates({64, 80, 96, 112, 128, 160, 192, 224, 256, 320}), 128));
    out.push_back(Number("OggEncoder", "VBRQuality", "Quality (-1 to 10)", -1, 10, 4));
    out.push_back(Choice("OggEncoder", "VBRMinBitRate", "Least bit rate", BitRates({32, 48, 64, 80, 96, 112, 128, 160, 192}), 96));
    out.push_back(Choice("OggEncoder", "VBRMaxBitRate", "Greatest bit rate", BitRates({96, 112, 128, 160, 192, 224, 256, 320}), 128));
    out.push_back(Choice("OggEncoder", "Channels", "Channels", {{"As mixed", 0}, {"Mono", 1}}, 0));
    out.push_back(Check("OggEncoder", "StripComments", "Write no comments", false));
  } else if (ext == ".flac") {
    m.szTitle = "FLAC Settings";
    out.push_back(Number("FlacEncoder", "Compression", "Compression (0 fastest, 8 smallest)", 0, 8, 4));
    out.push_back(Choice("FlacEncoder", "SampleRate", "Sample rate", Rates(true), 0));
    out.push_back(Choice("FlacEncoder", "Channels", "Channels", Channels(true), 0));
  } else if (ext == ".mpc") {
    m.szTitle = "Musepack Settings";
    out.push_back(Number("MPCEncoder", "Quality", "Quality (0 to 10)", 0, 10, 5));
  } else if (ext == ".aac") {
    m.szTitle = "AAC Settings";
    AddAac(out);
  } else if (ext == ".m4a" || ext == ".m4r") {
    m.szTitle = ext == ".m4r" ? "Ringtone Settings" : "M4A Settings";
    out.push_back(Choice("M4AEncoder", "CodecType", "Codec", {{"AAC", 0}, {"Apple Lossless", 1}}, 0));
    out.push_back(Choice("M4AEncoder", "SampleRate", "Sample rate", Rates(true), 0));
    out.push_back(Choice("M4AEncoder", "NumChannels", "Channels", Channels(true), 0));
    out.push_back(Choice("ALACSettings", "BitDepth", "Apple Lossless bits per sample", {{"16", 16}, {"24", 24}}, 16));
    AddAac(out);
  } else if (ext == ".amr") {
    m.szTitle = "AMR Settings";
    out.push_back(Choice("AMREncoder", "ModeRateSelection", "Bit rate",
                         {{"4.75 kbit/s", 0},
                          {"5.15 kbit/s", 1},
                          {"5.90 kbit/s", 2},
                          {"6.70 kbit/s", 3},
                          {"7.40 kbit/s", 4},
                          {"7.95 kbit/s", 5},
                          {"10.2 kbit/s", 6},
                          {"12.2 kbit/s", 7}},
                         4));
  }
  return m;
}

bool LGenSinkHasSettings(std::string const& extension) {
  return !LGenSinkGetSettingsModel(extension).Fields.empty();
}

void LGenSinkStoreSettings(LFormatSettingsModel const& model) {
  if (model.szExtension == ".wav") {
    LFormatSettingsModel checked = model;
    for (auto& f : checked.Fields) f.iValue = Allowed(f);
    StoreWav(checked);
    return;
  }
  for (auto const& f : model.Fields) {
    if (f.eKind == LFormatSetting::Text) {
      LUserSettingSetString(f.szSection.c_str(), f.szKey.c_str(), f.szText.c_str());
    } else if (IsLetter(f)) {
      char const letter[2] = {static_cast<char>(Allowed(f)), '\0'};
      LUserSettingSetString(f.szSection.c_str(), f.szKey.c_str(), letter);
    } else {
      LUserSettingSet(f.szSection.c_str(), f.szKey.c_str(), Allowed(f));
    }
  }
}

bool LGenSinkCheckSettings(std::string const& extension, LFormatSettingsEditor& editor) {
  LFormatSettingsModel model = LGenSinkGetSettingsModel(extension);
  if (model.Fields.empty()) return false;
  if (!editor.EditFormatSettings(model)) return false;
  LGenSinkStoreSettings(model);
  return true;
}

std::string LGenSinkTypeName(std::string const& extension) {
  static const std::pair<char const*, char const*> kNames[] = {
      {".wav", "WAV"},          {".mov", "QuickTime movie"}, {".aifc", "AIFF-C"},
      {".mp3", "MP3"},          {".m4a", "M4A (AAC or Apple Lossless)"},
      {".m4r", "Ringtone (M4R)"}, {".aac", "AAC"},          {".amr", "AMR narrow band"},
      {".flac", "FLAC"},        {".ogg", "Ogg Vorbis"},      {".mpc", "Musepack"},
      {".spx", "Speex"},        {".aiff", "AIFF"},           {".aif", "AIFF"},
      {".au", "Sun AU"},        {".gsm", "GSM 6.10"},        {".raw", "Raw audio"},
      {".rss", "Podcast feed with MP3"}, {".vox", "Dialogic VOX"}};
  std::string const ext = Lower(extension);
  for (auto const& [e, name] : kNames) {
    if (ext == e) return std::string(name) + " (*" + ext + ")";
  }
  std::string upper = ext.size() > 1 ? ext.substr(1) : ext;
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return upper + " (*" + ext + ")";
}
