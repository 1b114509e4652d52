#include "shell/gen_sink_open.h"

#include "shell/gen_source_open.h"
#include "shell/user_settings.h"
#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/components.h"
#include "sound/compressed_wave.h"
#include "sound/ffmpeg_sink.h"
#include "sound/raw_file.h"
#include "sound/wave_file.h"

namespace {

constexpr char const* kExtensions[] = {".wav", ".mov", ".aifc", ".mp3", ".m4a", ".m4r", ".aac", ".amr",
                                       ".flac", ".ogg", ".mpc", ".spx", ".aiff", ".aif", ".au", ".gsm",
                                       ".raw", ".rss", ".vox"};
constexpr char const* kPlaylists[] = {".m3u", ".pls", ".wpl"};
// Written too, though not offered in the list: Apple Lossless in CAF.
constexpr char const* kAlsoWritten[] = {".caf"};

std::string Lower(std::string const& path_or_ext) {
  std::string ext = path_or_ext;
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

// A setting of 0 (or none) leaves the caller's value.
int SettingOr(char const* section, char const* key, int callers) {
  int const v = LUserSettingGet(section, key, 0);
  return v > 0 ? v : callers;
}

bool IsALACInM4A() { return LUserSettingGet("M4AEncoder", "CodecType", 0) == 1; }

LMp3EncodeSettings Mp3Settings() {
  LMp3EncodeSettings s;
  s.iMode = LUserSettingGet("Mp3Encoder", "Mode", s.iMode);
  s.iBitRate = LUserSettingGet("Mp3Encoder", "BitRate", s.iBitRate);
  s.iVBRQuality = LUserSettingGet("Mp3Encoder", "VBRQuality", s.iVBRQuality);
  s.iQuality = LUserSettingGet("Mp3Encoder", "Quality", s.iQuality);
  std::string mode;
  LUserSettingGetString("Mp3Encoder", "StereoMode", "j", mode);
  if (!mode.empty()) s.cStereoMode = mode[0];
  LUserSettingGetString("Mp3Encoder", "Flags", "", s.szExtraFlags);
  return s;
}

LAACEncodeSettings AACSettings() {
  LAACEncodeSettings s;
  s.bAverageBitRate = LUserSettingGet("AACEncoder", "AverageBitRate", 0) != 0;
  s.iABRBitRate = LUserSettingGet("AACEncoder", "ABRBitRate", 128);
  s.iVBRQuality = LUserSettingGet("AACEncoder", "VBRQuality", 100);
  s.bForceMPEG2 = LUserSettingGet("AACEncoder", "ForceMPEG2", 0) != 0;
  s.bDisableTNS = LUserSettingGet("AACEncoder", "DisableTNS", 0) != 0;
  return s;
}

// The stored WAV format, brought to the caller's rate and channels where the user
// asked for that, or 16-bit PCM at the caller's when none is stored.
LSoundSink OpenWavSink(std::string const& path, int rate, int channels) {
  LWaveFileFormat format;
  if (!format.LoadFromWavCodecFile(GetWavCodecFilePath())) return LWaveFile::OpenSinkPCM(path, rate, channels, 16);
  int const r = LUserSettingGet("WavSettings", "SampleRateAuto", 0) != 0 ? rate : static_cast<int>(format.nSamplesPerSec);
  int const c = LUserSettingGet("WavSettings", "ChansAuto", 0) != 0 ? channels : format.nChannels;
  switch (format.wFormatTag) {
    case LWavTagPCM: return LWaveFile::OpenSinkPCM(path, r, c, format.wBitsPerSample);
    case LWavTagFloat: return LWaveFile::OpenSinkFloat(path, r, c);
    case LWavTagALaw:
    case LWavTagULaw: return LWaveFile::OpenSinkG711(path, r, c, format.wFormatTag);
    case LWavTagGSM610: return LGSMWaveOpenSink(path, r, 1);
    default: return LWaveFile::OpenSink(path, format);
  }
}

LSoundSink OpenAuSink(std::string const& path) {
  int const rate = LUserSettingGet("AuEncoder", "SampleRate", 44100);
  int const channels = LUserSettingGet("AuEncoder", "Channels", 2);
  switch (LUserSettingGet("AuEncoder", "CodecIndex", 0)) {
    case 1: return LAuFile::OpenSinkPCM8(path, rate, channels);
    case 2: return LAuFile::OpenSinkULaw(path, rate, channels);
    case 3: return LAuFile::OpenSinkALaw(path, rate, channels);
    default: return LAuFile::OpenSinkPCM16(path, rate, channels);
  }
}

LSoundSink OpenAiffSink(std::string const& path, int rate, int channels, bool aifc) {
  int const r = SettingOr("AIFFEncode", "SampleRate", rate);
  int const c = SettingOr("AIFFEncode", "Channels", channels);
  int const bits = LUserSettingGet("AIFFEncode", "SampleSize", 16);
  int const format = LUserSettingGet("AIFFEncode", "Format", 0);
  if (!aifc) {
    switch (bits) {
      case 8: return LAifFile::OpenSinkPCM8(path, r, c);
      case 24: return LAifFile::OpenSinkPCM24(path, r, c);
      case 32: return LAifFile::OpenSinkPCM32(path, r, c);
      default: return LAifFile::OpenSinkPCM16(path, r, c);
    }
  }
  switch (format) {
    case 1: return LAifFile::OpenSinkPCM16AIFCLE(path, r, c);
    case 2: return LAifFile::OpenSinkULawAIFC(path, r, c);
    case 3: return LAifFile::OpenSinkALawAIFC(path, r, c);
    default: break;
  }
  switch (bits) {
    case 8: return LAifFile::OpenSinkPCM8AIFC(path, r, c);
    case 24: return LAifFile::OpenSinkPCM24AIFC(path, r, c);
    case 32: return LAifFile::OpenSinkPCM32AIFC(path, r, c);
    default: return LAifFile::OpenSinkPCM16AIFC(path, r, c);
  }
}

LSoundSink OpenRawSink(std::string const& path, char const* section, int rate, int channels, int codec) {
  LRawSettings raw;
  raw.iSampleRate = SettingOr(section, "SampleRate", rate);
  raw.iChannels = SettingOr(section, "Channels", channels);
  raw.iCodec = LUserSettingGet(section, "Codec", codec);
  return LRawFile::OpenSink(path, raw);
}

}  // namespace

std::vector<std::string> LGenSinkGetExtensions(bool withPlaylists) {
  std::vector<std::string> out(std::begin(kExtensions), std::end(kExtensions));
  if (withPlaylists) out.insert(out.end(), std::begin(kPlaylists), std::end(kPlaylists));
  return out;
}

bool LGenSinkIsPlaylist(std::string const& extension) {
  std::string const ext = Lower(extension);
  for (char const* e : kPlaylists) {
    if (ext == e) return true;
  }
  return false;
}

bool LGenSinkIsSupported(std::string const& extension) {
  std::string const ext = Lower(extension);
  for (char const* e : kExtensions) {
    if (ext == e) return true;
  }
  for (char const* e : kAlsoWritten) {
    if (ext == e) return true;
  }
  return LGenSinkIsPlaylist(ext);
}

bool LGenSinkIsSupported(std::string const& extension, LProcessInterface& pi) {
  if (!LGenSinkIsSupported(extension)) return false;
  char const* component = LGenSinkGetComponentName(extension);
  if (component == nullptr) return true;
  std::string path;
  return LComponentGetPathDownload(pi, component, path, Lower(extension).c_str());
}

char const* LGenSinkGetComponentName(std::string const& extension) {
  std::string const ext = Lower(extension);
  if (ext == ".mp3" || ext == ".rss") return "mp3el2";
  if (ext == ".ogg") return "oggenc2";
  if (ext == ".flac") return "flaccodec";
  if (ext == ".mpc" || ext == ".mpp") return "mpcenc2";
  if (ext == ".amr") return "amrenc2";
  if (ext == ".spx") return "speexenc2";
  if (ext == ".aac") return "aacenc4";
  if (ext == ".m4a" || ext == ".m4r") return IsALACInM4A() ? "alacenc" : "aacenc4";
  if (ext == ".caf") return "alacenc";
  return nullptr;
}

LSoundSink LGenSinkOpenSink(std::string const& path, int rate, int channels, LSoundTags const* tags) {
  std::string const ext = TDLowerExtension(path);
  if (ext == ".wav") return OpenWavSink(path, rate, channels);
  if (ext == ".mp3") return OpenMp3Sink(path, rate, channels, Mp3Settings());
  if (ext == ".au") return OpenAuSink(path);
  if (ext == ".aiff" || ext == ".aif") return OpenAiffSink(path, rate, channels, false);
  if (ext == ".aifc") return OpenAiffSink(path, rate, channels, true);
  if (ext == ".gsm") return LGSMFile::OpenSink(path);
  if (ext == ".vox") return OpenRawSink(path, "VoxAudio", 8000, 1, LRawCodec::DialogicADPCM);
  if (ext == ".raw") return OpenRawSink(path, "RawAudio", rate, channels, LRawCodec::PCM16LE);
  if (ext == ".ogg") {
    LOggEncodeSettings s;
    s.iMode = LUserSettingGet("OggEncoder", "Quality", s.iMode);
    s.iBitRate = LUserSettingGet("OggEncoder", "BitRate", s.iBitRate);
    s.iVBRQuality = LUserSettingGet("OggEncoder", "VBRQuality", s.iVBRQuality);
    s.iVBRMinBitRate = LUserSettingGet("OggEncoder", "VBRMinBitRate", s.iVBRMinBitRate);
    s.iVBRMaxBitRate = LUserSettingGet("OggEncoder", "VBRMaxBitRate", s.iVBRMaxBitRate);
    s.iChannels = LUserSettingGet("OggEncoder", "Channels", 0);
    s.bStripComments = LUserSettingGet("OggEncoder", "StripComments", 0) != 0;
    return OpenOggSink(path, rate, channels, s, tags);
  }
  if (ext == ".flac") {
    LFlacEncodeSettings s;
    s.iCompression = LUserSettingGet("FlacEncoder", "Compression", s.iCompression);
    return OpenFlacSink(path, SettingOr("FlacEncoder", "SampleRate", rate),
                        SettingOr("FlacEncoder", "Channels", channels), s, tags);
  }
  if (ext == ".mpc") {
    LMPCEncodeSettings s;
    s.iQuality = LUserSettingGet("MPCEncoder", "Quality", s.iQuality);
    return OpenMPCSink(path, rate, channels, s, tags);
  }
  if (ext == ".aac") return OpenAACSink(path, rate, channels, AACSettings(), tags, "adts");
  if (ext == ".m4a" || ext == ".m4r") {
    int const r = SettingOr("M4AEncoder", "SampleRate", rate);
    int const c = SettingOr("M4AEncoder", "NumChannels", channels);
    if (IsALACInM4A()) return OpenM4AALACSink(path, r, c, LUserSettingGet("ALACSettings", "BitDepth", 16), tags);
    return OpenAACSink(path, r, c, AACSettings(), tags, "ipod");
  }
  if (ext == ".caf") return OpenALACSink(path, rate, channels, LUserSettingGet("ALACSettings", "BitDepth", 16));
  if (ext == ".spx") return OpenSpeexSink(path, rate, channels, tags);
  if (ext == ".rss") {
    LRSSEncodeSettings s;
    LUserSettingGetString("RSSEncode", "RootURL", "", s.szRootURL);
    s.mp3 = Mp3Settings();
    return OpenRSSSink(path, rate, channels, s, tags);
  }
  if (ext == ".amr") return OpenAMRSink(path, LUserSettingGet("AMREncoder", "ModeRateSelection", 4));
  if (ext == ".mov") return LQTMovEncode::OpenSink(path, rate, channels, tags);
  return LSoundSink();
}
