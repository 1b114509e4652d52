#include "shell/cli.h"

#include "shell/cli_project.h"
#include "shell/export.h"
#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "foundation/byte_order.h"
#include "foundation/file.h"
#include "foundation/main_thread_queue.h"
#include "foundation/process_interface.h"
#include "foundation/sound_time.h"
#include "project/project.h"
#include "shell/console_progress.h"
#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/compressed_wave.h"
#include "sound/device/sound_devices.h"
#include "sound/device/sound_player_llca.h"
#include "sound/pcm_file.h"
#include "sound/raw_file.h"
#include "sound/sound_player.h"
#include "sound/encoder_sinks.h"
#include "sound/ffmpeg_source.h"
#include "sound/source_to_sink.h"
#include "sound/wave_file.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitStopped = 1;
constexpr int kExitUsage = 2;
constexpr int kExitFailed = 3;

const char kUsage[] =
    "Usage: tandrel-cli COMMAND [ARGUMENTS]\n"
    "\n"
    "Tandrel's headless companion: it works on audio files without a window.\n"
    "\n"
    "Commands:\n"
    "  info FILE              format, rate, channels, length, and a WAV file's chunks\n"
    "  info PROJECT.tdpj      tracks, clips, length, rate, and audio missing from its data folder\n"
    "  new PROJECT.tdpj       a new project of 12 tracks\n"
    "      --rate N           its sample rate (default 44100)\n"
    "      --add FILE[@S][:T] take FILE in as a clip at S seconds (default 0) on track T (default 1)\n"
    "  render PROJECT.tdpj OUT\n"
    "                         mix the project down to OUT as an export does; the options\n"
    "                         of convert choose OUT's samples, rate and channels\n"
    "  convert IN OUT         write IN again in the format OUT's extension names\n"
    "      --bits N           8, 16, 24 or 32-bit integer samples (default 16)\n"
    "      --float            32-bit float samples (WAV, AIFC, raw)\n"
    "      --format NAME      pcm, float, ulaw, alaw, gsm, sowt (AIFC little-endian)\n"
    "      --rate N           convert to N frames a second\n"
    "      --channels N       mix or spread to N channels\n"
    "  play FILE              play FILE to the end (Ctrl-C stops it)\n"
    "      --device NAME      on the playback device of this name (default: the system's)\n"
    "  devices                the playback and recording devices, by the names --device takes\n"
    "  export IN OUT          write IN as OUT in any format Tandrel exports, by OUT's\n"
    "                         extension, with the encoder settings of Tandrel's preferences;\n"
    "                         IN may be a project (.tdpj): its mix, in stereo, as far as the\n"
    "                         last clip heard\n"
    "      --rate N           export at N frames a second (default: IN's)\n"
    "      --channels N       export N channels (default: IN's)\n"
    "      --selection A-B    of a project, only the stretch from A to B seconds\n"
    "  Headerless input (.raw, .pcm) takes --raw RATE,CHANNELS,CODEC[,OFFSET]; CODEC is\n"
    "  u8, s8, s16le, s16be, s24le, s24be, s32le, s32be, f32le, f32be, f64le, f64be, ulaw\n"
    "  or alaw. The same names choose a .raw output's body with --raw-codec.\n"
    "\n"
    "Files read: .wav, .aif, .aiff, .aifc, .au, .snd, .gsm, .mp3, .raw, .pcm, and through FFmpeg\n"
    "  every other sound or video file it knows (.flac, .ogg, .m4a, .aac, .amr, .mp4, ...)\n"
    "Files written by convert: .wav, .aif, .aiff, .aifc, .au, .gsm, .raw\n"
    "Files written by export: .wav, .mov, .aifc, .mp3, .m4a, .m4r, .aac, .amr, .flac, .ogg,\n"
    "  .mpc, .spx, .aiff, .aif, .au, .gsm, .raw, .rss (an MP3 and its podcast feed), .vox, .caf\n"
    "\n"
    "Options:\n"
    "  -h, --help     show this help and exit\n"
    "  -V, --version  show the version and exit\n";

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

std::string ExtensionOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  return Lower(path.substr(dot));
}

struct RawCodecName {
  const char* name;
  int codec;
};
constexpr RawCodecName kRawCodecs[] = {
    {"u8", LRawCodec::PCM8Unsigned},  {"s8", LRawCodec::PCM8Signed},    {"s16le", LRawCodec::PCM16LE},
    {"s16be", LRawCodec::PCM16BE},    {"s24le", LRawCodec::PCM24LE},    {"s24be", LRawCodec::PCM24BE},
    {"s32le", LRawCodec::PCM32LE},    {"s32be", LRawCodec::PCM32BE},    {"f32le", LRawCodec::Float32LE},
    {"f32be", LRawCodec::Float32BE},  {"f64le", LRawCodec::Float64LE},  {"f64be", LRawCodec::Float64BE},
    {"ulaw", LRawCodec::ULaw},        {"alaw", LRawCodec::ALaw},
};

bool ParseRawCodec(const std::string& name, int& codec) {
  for (const auto& c : kRawCodecs)
    if (name == c.name) {
      codec = c.codec;
      return true;
    }
  return false;
}

const char* RawCodecName(int codec) {
  for (const auto& c : kRawCodecs)
    if (c.codec == codec) return c.name;
  return "?";
}

bool ParseInt(const std::string& text, long low, long high, int& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < low || v > high) return false;
  out = static_cast<int>(v);
  return true;
}

// "RATE,CHANNELS,CODEC[,OFFSET]"
bool ParseRawSettings(const std::string& text, LRawSettings& raw) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    std::size_t comma = text.find(',', start);
    parts.push_back(text.substr(start, comma - start));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  if (parts.size() < 3 || parts.size() > 4) return false;
  int offset = 0;
  return ParseInt(parts[0], 1, 1000000, raw.iSampleRate) && ParseInt(parts[1], 1, 255, raw.iChannels) &&
         ParseRawCodec(Lower(parts[2]), raw.iCodec) &&
         (parts.size() == 3 || (ParseInt(parts[3], 0, 0x7FFFFFFF, offset) && (raw.iOffset = offset, true)));
}

bool IsRawExtension(const std::string& ext) { return ext == ".raw" || ext == ".pcm"; }

// The opener's face for a command: what goes wrong is kept for the message.
struct CliOpenFace : LGenSourceOpenInterfaceProcess {
  using LGenSourceOpenInterfaceProcess::LGenSourceOpenInterfaceProcess;
  void SetError(char const* text) override { error = text ? text : ""; }
  std::string error;
};

struct Options {
  std::vector<std::string> positional;
  int bits = 0;  // 0: not given
  bool isFloat = false;
  std::string format;
  int rate = 0;
  int channels = 0;
  bool hasRaw = false;
  LRawSettings raw;
  bool hasRawCodec = false;
  int rawCodec = LRawCodec::PCM16LE;
  std::string device;
  // --selection FROM-TO, in ms; to < 0 when not given.
  LSoundTime selectionFrom = 0, selectionTo = -1;
};

// "12.5-20": two times in seconds, the second after the first.
bool ParseSelection(const std::string& v, LSoundTime& from, LSoundTime& to) {
  std::size_t const dash = v.find('-', 1);
  if (dash == std::string::npos) return false;
  char* end = nullptr;
  std::string const a = v.substr(0, dash), b = v.substr(dash + 1);
  double const f = std::strtod(a.c_str(), &end);
  if (a.empty() || *end != '\0') return false;
  double const t = std::strtod(b.c_str(), &end);
  if (b.empty() || *end != '\0') return false;
  if (!(f >= 0) || !(t > f) || t > 24.0 * 3600) return false;
  from = static_cast<LSoundTime>(f * 1000 + 0.5);
  to = static_cast<LSoundTime>(t * 1000 + 0.5);
  return to > from;
}

// Parses what follows the command; false with a message on `err` for anything wrong.
bool ParseOptions(const std::vector<std::string>& args, std::size_t from, Options& o, std::FILE* err) {
  for (std::size_t i = from; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& v) {
      if (i + 1 >= args.size()) {
        std::fprintf(err, "tandrel-cli: %s needs a value\n", a.c_str());
        return false;
      }
      v = args[++i];
      return true;
    };
    std::string v;
    if (a == "--bits") {
      if (!value(v)) return false;
      if (!ParseInt(v, 8, 32, o.bits) || o.bits % 8 != 0) {
        std::fprintf(err, "tandrel-cli: --bits takes 8, 16, 24 or 32, not '%s'\n", v.c_str());
        return false;
      }
    } else if (a == "--float") {
      o.isFloat = true;
    } else if (a == "--format") {
      if (!value(v)) return false;
      o.format = Lower(v);
    } else if (a == "--rate") {
      if (!value(v)) return false;
      if (!ParseInt(v, 1000, 768000, o.rate)) {
        std::fprintf(err, "tandrel-cli: --rate takes a rate from 1000 to 768000, not '%s'\n", v.c_str());
        return false;
      }
    } else if (a == "--channels") {
      if (!value(v)) return false;
      if (!ParseInt(v, 1, 8, o.channels)) {
        std::fprintf(err, "tandrel-cli: --channels takes 1 to 8, not '%s'\n", v.c_str());
        return false;
      }
    } else if (a == "--raw") {
      if (!value(v)) return false;
      if (!ParseRawSettings(v, o.raw)) {
        std::fprintf(err, "tandrel-cli: --raw takes RATE,CHANNELS,CODEC[,OFFSET], not '%s'\n", v.c_str());
        return false;
      }
      o.hasRaw = true;
    } else if (a == "--raw-codec") {
      if (!value(v)) return false;
      if (!ParseRawCodec(Lower(v), o.rawCodec)) {
        std::fprintf(err, "tandrel-cli: unknown raw codec '%s'\n", v.c_str());
        return false;
      }
      o.hasRawCodec = true;
    } else if (a == "--device") {
      if (!value(v)) return false;
      o.device = v;
    } else if (a == "--selection") {
      if (!value(v)) return false;
      if (!ParseSelection(v, o.selectionFrom, o.selectionTo)) {
        std::fprintf(err, "tandrel-cli: --selection takes FROM-TO in seconds, FROM before TO, not '%s'\n", v.c_str());
        return false;
      }
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(err, "tandrel-cli: unknown option '%s'. Try 'tandrel-cli --help'.\n", a.c_str());
      return false;
    } else {
      o.positional.push_back(a);
    }
  }
  return true;
}

// Opens the input named on the command line, or says why not on `err`. Returns an
// exit code: 0 when `source` is open.
int OpenNamedInput(const std::string& path, const Options& o, std::FILE* err, LProcessInterface& progress,
                   LSoundSource& source) {
  std::string ext = ExtensionOf(path);
  if (IsRawExtension(ext) && !o.hasRaw) {
    std::fprintf(err, "tandrel-cli: \"%s\" has no header: say what it holds with --raw RATE,CHANNELS,CODEC\n",
                 path.c_str());
    return kExitFailed;
  }
  CliOpenFace face(progress);
  LGenSourceOpenOptions options;
  options.pRawSettings = o.hasRaw ? &o.raw : nullptr;
  LProcessResult const r = ProcessGenSourceOpenSource(source, path.c_str(), face, options);
  if (r == LProcessStopped) {
    std::fprintf(err, "tandrel-cli: stopped\n");
    return kExitStopped;
  }
  if (r != LProcessFinished) {
    std::fprintf(err, "tandrel-cli: %s\n", face.error.c_str());
    return kExitFailed;
  }
  return kExitOk;
}

std::string FourCC(const std::uint8_t* p) {
  std::string s;
  for (int i = 0; i < 4; ++i) s += std::isprint(p[i]) ? static_cast<char>(p[i]) : '?';
  return s;
}

const char* WavTagName(int tag) {
  switch (tag) {
    case LWavTagPCM: return "PCM";
    case LWavTagADPCM: return "MS ADPCM";
    case LWavTagFloat: return "IEEE float";
    case LWavTagALaw: return "A-law";
    case LWavTagULaw: return "mu-law";
    case LWavTagIMAADPCM: return "IMA ADPCM";
    case LWavTagGSM610: return "GSM 6.10";
    case LWavTagMPEGLayer3: return "MPEG Layer 3";
    default: return "unknown codec";
  }
}

// What a WAV file says of itself: its codec, and every chunk of its RIFF body.
void PrintWavDetails(const std::string& path, std::FILE* out) {
  LFile file;
  if (!file.OpenRead(path)) return;
  LWavHeader header;
  if (LWavReadHeader(file, header, false) != 0) return;
  std::fprintf(out, "Codec:     %s (tag %d), %d bits, block align %d\n", WavTagName(header.iTag), header.iTag,
               header.iBits, header.iBlockAlign);
  const std::int64_t size = file.Size();
  std::int64_t at = header.iRiffBody;
  std::string list;
  int shown = 0;
  // A hostile file may claim any sizes; the walk stays inside the file and ends.
  while (at + 8 <= size && shown < 256) {
    std::uint8_t head[8];
    if (!file.ReadExactAt(head, 8, at)) break;
    std::uint32_t chunkSize = LReadLE32(head + 4);
    if (!list.empty()) list += ", ";
    list += FourCC(head) + " (" + std::to_string(chunkSize) + ")";
    ++shown;
    at += 8 + static_cast<std::int64_t>(chunkSize) + (chunkSize & 1);
  }
  std::fprintf(out, "Chunks:    %s\n", list.c_str());
}

const char* KindOf(const std::string& ext) {
  if (ext == ".wav" || ext == ".wave" || ext == ".bwf") return "WAV";
  if (ext == ".aif" || ext == ".aiff") return "AIFF";
  if (ext == ".aifc" || ext == ".afc") return "AIFF/AIFC";
  if (ext == ".au" || ext == ".snd") return "Sun/NeXT audio (AU)";
  if (ext == ".gsm") return "GSM 06.10";
  if (ext == ".mp3") return "MPEG Layer 3";
  if (IsRawExtension(ext)) return "headerless";
  return nullptr;
}

// What FFmpeg calls the container and the codec of a file it reads.
std::string FFmpegKindOf(const std::string& path) {
  LFFMPEGSourceManager manager(path);
  char codec[128] = "";
  manager.GetSoundStreamComponent(0, codec, sizeof codec, true);
  return manager.GetFormatName() + ", " + codec + " (through FFmpeg)";
}

int CmdInfo(const Options& o, std::FILE* out, std::FILE* err, LProcessInterface& progress) {
  if (o.positional.size() != 1) {
    std::fprintf(err, "tandrel-cli: info takes one file\n");
    return kExitUsage;
  }
  const std::string& path = o.positional[0];
  LSoundSource source;
  if (int const code = OpenNamedInput(path, o, err, progress, source); code != kExitOk) return code;
  const std::string ext = ExtensionOf(path);
  const int rate = source->GetSampleRate();
  const int frames = source->GetEndSample();
  std::fprintf(out, "File:      %s\n", path.c_str());
  char const* kind = KindOf(ext);
  std::fprintf(out, "Format:    %s\n", kind ? kind : FFmpegKindOf(path).c_str());
  if (IsRawExtension(ext)) std::fprintf(out, "Body:      %s\n", RawCodecName(o.raw.iCodec));
  std::fprintf(out, "Rate:      %d Hz\n", rate);
  std::fprintf(out, "Channels:  %d\n", source->GetChannels());
  if (source->IsStreaming())
    std::fprintf(out, "Frames:    unknown (the file is still being written)\n");
  else
    std::fprintf(out, "Frames:    %d\nDuration:  %s\n", frames,
                 _GetTextHMMSSFFF(LFramesToSoundTime(frames, rate)).c_str());
  if (ext == ".wav" || ext == ".wave" || ext == ".bwf") PrintWavDetails(path, out);
  return kExitOk;
}

// Opens the sink that OUT's extension and the options name, or says why not.
bool OpenOutput(const std::string& path, const Options& o, int rate, int channels, std::FILE* err, LSoundSink& sink) {
  const std::string ext = ExtensionOf(path);
  std::string format = o.format;
  if (format.empty()) format = o.isFloat ? "float" : "pcm";
  const int bits = o.bits ? o.bits : 16;
  auto refuse = [&](const char* why) {
    std::fprintf(err, "tandrel-cli: cannot write %s: %s\n", path.c_str(), why);
    return false;
  };
  if (o.isFloat && format != "float") return refuse("--float and --format disagree");
  if (ext == ".wav") {
    if (format == "pcm") sink = LWaveFile::OpenSinkPCM(path, rate, channels, bits);
    else if (format == "float") sink = LWaveFile::OpenSinkFloat(path, rate, channels);
    else if (format == "ulaw") sink = LWaveFile::OpenSinkG711(path, rate, channels, LWavTagULaw);
    else if (format == "alaw") sink = LWaveFile::OpenSinkG711(path, rate, channels, LWavTagALaw);
    else if (format == "gsm") sink = LGSMWaveOpenSink(path, rate, channels);
    else return refuse("WAV files take pcm, float, ulaw, alaw or gsm");
  } else if (ext == ".aif" || ext == ".aiff") {
    if (format != "pcm") return refuse("AIFF holds integer samples only; use .aifc for other bodies");
    sink = bits == 8 ? LAifFile::OpenSinkPCM8(path, rate, channels)
           : bits == 24 ? LAifFile::OpenSinkPCM24(path, rate, channels)
           : bits == 32 ? LAifFile::OpenSinkPCM32(path, rate, channels)
                        : LAifFile::OpenSinkPCM16(path, rate, channels);
  } else if (ext == ".aifc" || ext == ".afc") {
    if (format == "pcm")
      sink = bits == 8 ? LAifFile::OpenSinkPCM8AIFC(path, rate, channels)
             : bits == 24 ? LAifFile::OpenSinkPCM24AIFC(path, rate, channels)
             : bits == 32 ? LAifFile::OpenSinkPCM32AIFC(path, rate, channels)
                          : LAifFile::OpenSinkPCM16AIFC(path, rate, channels);
    else if (format == "sowt") sink = LAifFile::OpenSinkPCM16AIFCLE(path, rate, channels);
    else if (format == "ulaw") sink = LAifFile::OpenSinkULawAIFC(path, rate, channels);
    else if (format == "alaw") sink = LAifFile::OpenSinkALawAIFC(path, rate, channels);
    else return refuse("AIFC files here take pcm, sowt, ulaw or alaw");
  } else if (ext == ".au" || ext == ".snd") {
    if (format == "pcm") {
      if (bits != 8 && bits != 16) return refuse("AU files here take 8 or 16 bits");
      sink = bits == 8 ? LAuFile::OpenSinkPCM8(path, rate, channels) : LAuFile::OpenSinkPCM16(path, rate, channels);
    } else if (format == "ulaw") sink = LAuFile::OpenSinkULaw(path, rate, channels);
    else if (format == "alaw") sink = LAuFile::OpenSinkALaw(path, rate, channels);
    else return refuse("AU files take pcm, ulaw or alaw");
  } else if (ext == ".gsm") {
    if (rate != 8000 || channels != 1) return refuse(".gsm files hold 8000 Hz mono: add --rate 8000 --channels 1");
    sink = LGSMFile::OpenSink(path);
  } else if (IsRawExtension(ext)) {
    LRawSettings raw;
    raw.iSampleRate = rate;
    raw.iChannels = channels;
    raw.iCodec = o.hasRawCodec ? o.rawCodec : LRawCodec::PCM16LE;
    sink = LRawFile::OpenSink(path, raw);
  } else {
    return refuse("unknown kind of file (use .wav, .aif, .aifc, .au, .gsm or .raw)");
  }
  if (sink->GetErrorFlags() & 1) {
    std::fprintf(err, "tandrel-cli: cannot write %s: check the folder exists and you have write access\n",
                 path.c_str());
    return false;
  }
  return true;
}

int CmdConvert(const Options& o, std::FILE* err, LProcessInterface& progress) {
  if (o.positional.size() != 2) {
    std::fprintf(err, "tandrel-cli: convert takes an input file and an output file\n");
    return kExitUsage;
  }
  const std::string& in = o.positional[0];
  const std::string& outPath = o.positional[1];
  LSoundSource source;
  if (int const code = OpenNamedInput(in, o, err, progress, source); code != kExitOk) return code;
  if (source->IsStreaming()) {
    std::fprintf(err, "tandrel-cli: \"%s\" is still being written; convert it when it is finished\n", in.c_str());
    return kExitFailed;
  }
  const int rate = o.rate ? o.rate : source->GetSampleRate();
  const int channels = o.channels ? o.channels : source->GetChannels();
  LSoundSink sink;
  if (!OpenOutput(outPath, o, rate, channels, err, sink)) return kExitFailed;

  LPRSourceToSink job;
  job.szTitle = "Converting";
  job.lssSource = source;
  job.lsnkSink = sink;
  LProcessResult result = Process(progress, job);
  job.lsnkSink.Close();  // finishes the header
  sink.Close();
  if (result == 0) return kExitOk;
  // A half-written file is worse than none: it would look finished to another program.
  LFile::Remove(outPath);
  if (result == 1) {
    std::fprintf(err, "tandrel-cli: stopped; %s was not written\n", outPath.c_str());
    return kExitStopped;
  }
  std::fprintf(err, "tandrel-cli: writing %s failed; is the disk full?\n", outPath.c_str());
  return kExitFailed;
}

// The project mixed down as an export does it: the mix of what is heard, in
// stereo at the project's rate, through the copy job (progress, Ctrl-C) into OUT.
int CmdRender(const Options& o, std::FILE* err, LProcessInterface& progress) {
  if (o.positional.size() != 2 || ExtensionOf(o.positional[0]) != ".tdpj") {
    std::fprintf(err, "tandrel-cli: render takes a project file (.tdpj) and an output file\n");
    return kExitUsage;
  }
  const std::string& outPath = o.positional[1];
  TDProject project;
  if (!TDCliLoadProject(o.positional[0], project, err)) return kExitFailed;
  const int projectRate = project.PreferSampleRate.GetPreferredSampleRate();
  LSoundSource mix = project.OpenSourceForExport(projectRate, 2, nullptr, false);
  if (!mix.IsGood()) {
    std::fprintf(err, "tandrel-cli: the project's mix could not be opened\n");
    return kExitFailed;
  }
  if (mix->GetEndSample() <= mix->GetPositionSample()) {
    std::fprintf(err, "tandrel-cli: nothing in the project is heard; %s was not written\n", outPath.c_str());
    return kExitFailed;
  }
  LSoundSink sink;
  if (!OpenOutput(outPath, o, o.rate ? o.rate : projectRate, o.channels ? o.channels : 2, err, sink)) {
    return kExitFailed;
  }
  LPRSourceToSink job;
  job.szTitle = "Mixing down file...";
  job.lssSource = mix;
  job.lsnkSink = sink;
  const LProcessResult result = Process(progress, job);
  job.lsnkSink.Close();  // finishes the header
  sink.Close();
  if (result == LProcessFinished) return kExitOk;
  LFile::Remove(outPath);
  std::fprintf(err, result == LProcessStopped ? "tandrel-cli: stopped; %s was not written\n"
                                              : "tandrel-cli: writing %s failed; is the disk full?\n",
               outPath.c_str());
  return result == LProcessStopped ? kExitStopped : kExitFailed;
}

void PrintDeviceList(const LSoundDeviceList& list, const char* what, std::FILE* out) {
  std::fprintf(out, "%s devices:\n", list.IsOutputList() ? "Playback" : "Recording");
  for (int i = 0; i < list.GetCount(); ++i) {
    const LSoundDeviceEntry& e = list.GetEntry(i);
    const int channels = list.GetChannels(i);
    if (i == 0) {
      if (e.iApi == LSoundServiceNone)
        std::fprintf(out, "  %s (no device found)\n", e.szName.c_str());
      else
        std::fprintf(out, "  %s (now %s)\n", e.szName.c_str(),
                     (e.szServiceName + " (" + LSoundServiceApiName(e.iApi) + ")").c_str());
      continue;
    }
    std::fprintf(out, "  %s: %d %s%s", e.szName.c_str(), channels, what, channels == 1 ? "" : "s");
    if (e.bFixedRate && e.iPreferredRate > 0) std::fprintf(out, ", %d Hz", e.iPreferredRate);
    std::fputc('\n', out);
  }
}

int CmdDevices(std::FILE* out) {
  PrintDeviceList(*LSoundPlayDeviceList::Get(), "output", out);
  PrintDeviceList(*LSoundRecordDeviceList::Get(), "input", out);
  return kExitOk;
}

// Hears of the end of play on the main thread, which the command pumps.
class CliPlayNotify : public LSoundPlayerNotify {
 public:
  void spntfStop(long) override { bStopped = true; }
  void spntfTime(LSoundTime time, long) override { stTime = time; }
  bool bStopped = false;
  LSoundTime stTime = 0;
};

int CmdPlay(const Options& o, std::FILE* out, std::FILE* err, LProcessInterface& progress) {
  if (o.positional.size() != 1) {
    std::fprintf(err, "tandrel-cli: play takes one file\n");
    return kExitUsage;
  }
  const std::string& path = o.positional[0];
  LSoundSource source;
  if (int const code = OpenNamedInput(path, o, err, progress, source); code != kExitOk) return code;
  std::shared_ptr<const LSoundPlayDeviceList> list = LSoundPlayDeviceList::Get();
  LSoundPlayDevice device;
  if (!o.device.empty()) {
    device.no = list->FindByName(o.device);
    if (device.no < 0) {
      std::fprintf(err, "tandrel-cli: there is no playback device \"%s\"; 'tandrel-cli devices' lists them\n",
                   o.device.c_str());
      return kExitFailed;
    }
  }

  // The player tells of time and of the end through the main thread's queue, which
  // this command runs while it waits.
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration(queue);
  if (auto* console = dynamic_cast<TDConsoleProgress*>(&progress)) console->SetQueue(&queue);
  CliPlayNotify notify;
  LSoundPlayerTemplate<LSoundPlayerLLCA> player;
  player.SetNotify(&notify, 0);
  player.GetDeviceLayer().SetDevice(device);
  const LSoundTime length = LFramesToSoundTime(source->GetEndSample(), source->GetSampleRate());
  if (!player.Start(source)) {
    std::fprintf(err, "tandrel-cli: Cannot open sound device for playing.\n");
    if (auto* console = dynamic_cast<TDConsoleProgress*>(&progress)) console->SetQueue(nullptr);
    return kExitFailed;
  }
  std::fprintf(out, "Playing %s on %s\n", path.c_str(), list->GetName(device.no).c_str());
  std::fflush(out);
  progress.SetStatus(("Playing " + path).c_str(), 0);
  int code = kExitOk;
  while (!notify.bStopped) {
    if (progress.ProcessWait(50) == LProcessWaitStopped || progress.IsToStop()) {
      player.Stop();
      std::fprintf(err, "tandrel-cli: stopped at %s\n", _GetTextHMMSSF(notify.stTime).c_str());
      code = kExitStopped;
      break;
    }
    queue.RunPending();
    if (length > 0) progress.SetProgress(static_cast<double>(notify.stTime) / length);
  }
  if (auto* console = dynamic_cast<TDConsoleProgress*>(&progress)) console->SetQueue(nullptr);
  return code;
}

// The export job's face: its failure is kept for the message, the rest goes on to
// the progress.
struct CliExportFace : LProcessInterfaceNested {
  using LProcessInterfaceNested::LProcessInterfaceNested;
  void SetError(char const* text) override { error = text ? text : ""; }
  std::string error;
};

int CmdExport(const Options& o, std::FILE* err, LProcessInterface& progress) {
  if (o.positional.size() != 2) {
    std::fprintf(err, "tandrel-cli: export takes an input file and an output file\n");
    return kExitUsage;
  }
  if (o.bits || o.isFloat || !o.format.empty() || o.hasRawCodec) {
    std::fprintf(err, "tandrel-cli: export takes the format's settings from Tandrel's preferences; "
                      "--bits, --float, --format and --raw-codec are for convert\n");
    return kExitUsage;
  }
  const std::string& in = o.positional[0];
  const std::string& outPath = o.positional[1];
  const std::string ext = ExtensionOf(outPath);
  const bool isProject = ExtensionOf(in) == ".tdpj";
  if (!isProject && o.selectionTo >= 0) {
    std::fprintf(err, "tandrel-cli: --selection is for a project's mix; a file exports whole\n");
    return kExitUsage;
  }
  if (isProject && o.channels != 0 && o.channels != 2) {
    std::fprintf(err, "tandrel-cli: a project exports in stereo; --channels is for files\n");
    return kExitUsage;
  }
  if (!LGenSinkIsSupported(ext) || LGenSinkIsPlaylist(ext)) {
    std::string list;
    for (const std::string& e : LGenSinkGetExtensions(false)) list += (list.empty() ? "" : " ") + e;
    std::fprintf(err, "tandrel-cli: cannot export to %s: unknown kind of file (use %s or .caf)\n", outPath.c_str(),
                 list.c_str());
    return kExitFailed;
  }
  CliExportFace face(progress);
  LProcessResult result = LProcessFailed;
  // A file that was there stays whole until the new one is complete.
  std::string const writing = TDExportWritingPath(outPath);
  if (isProject) {
    TDProject project;
    if (!TDCliLoadProject(in, project, err)) return kExitFailed;
    TDExportProjectNormal job;
    job.pProject = &project;
    job.szPath = writing;
    job.iSampleRate = o.rate;
    if (o.selectionTo >= 0) {
      // A stretch wholly past the project's end would export nothing but silence.
      if (o.selectionFrom >= project.GetEnd()) {
        std::fprintf(err, "tandrel-cli: the selection starts after the project's end, at %.3f s\n",
                     project.GetEnd() / 1000.0);
        return kExitFailed;
      }
      project.WorkRegion.Set(o.selectionFrom, o.selectionTo);
      project.WorkRegion.ClampToLimits();
      job.bSelectionOnly = true;
    }
    result = Process(face, job);
  } else {
    LSoundSource source;
    if (int const code = OpenNamedInput(in, o, err, progress, source); code != kExitOk) return code;
    TDExportSource job;
    job.lssSource = source;
    job.szPath = writing;
    job.iSampleRate = o.rate;
    job.iChannels = o.channels;
    job.szTitle = "Exporting";
    result = Process(face, job);
  }
  // No half-made file stays: it would look finished to another program.
  if (TDExportSettle(writing, outPath, result == LProcessFinished)) return kExitOk;
  if (result == LProcessFinished) result = LProcessFailed;
  if (ext == ".rss") LFile::Remove(LRSSMp3PathFor(outPath));
  if (result == LProcessStopped) {
    std::fprintf(err, "tandrel-cli: stopped; %s was not written\n", outPath.c_str());
    return kExitStopped;
  }
  std::fprintf(err, "tandrel-cli: %s\n",
               face.error.empty() ? TDExportFailedText(outPath).c_str()
                                  : TDExportNameForUser(face.error, writing, outPath).c_str());
  return kExitFailed;
}

}  // namespace

int TDCliMain(const std::vector<std::string>& args, std::FILE* out, std::FILE* err, LProcessInterface& progress) {
  if (args.empty()) {
    std::fputs(kUsage, err);
    return kExitUsage;
  }
  const std::string& command = args[0];
  if (command == "--help" || command == "-h" || command == "help") {
    std::fputs(kUsage, out);
    return kExitOk;
  }
  if (command == "--version" || command == "-V") {
    std::fprintf(out, "tandrel-cli %s\n", TANDREL_VERSION);
    return kExitOk;
  }
  if (command == "new") return TDCliNewProject(args, err, progress);
  if (command == "info" && args.size() == 2 && ExtensionOf(args[1]) == ".tdpj") {
    return TDCliProjectInfo(args[1], out, err);
  }
  if (command == "devices") return CmdDevices(out);
  Options o;
  if (command == "play") {
    if (!ParseOptions(args, 1, o, err)) return kExitUsage;
    return CmdPlay(o, out, err, progress);
  }
  if (command == "info" || command == "convert" || command == "export") {
    if (!ParseOptions(args, 1, o, err)) return kExitUsage;
    if (command == "info") return CmdInfo(o, out, err, progress);
    return command == "convert" ? CmdConvert(o, err, progress) : CmdExport(o, err, progress);
  }
  if (command == "render") {
    if (!ParseOptions(args, 1, o, err)) return kExitUsage;
    return CmdRender(o, err, progress);
  }
  std::fprintf(err, "tandrel-cli: unknown command '%s'. Try 'tandrel-cli --help'.\n", command.c_str());
  return kExitUsage;
}
