#include "shell/gen_source_open.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>

#include "codecs/mp3_file.h"
#include "foundation/app_paths.h"
#include "foundation/external_process.h"
#include "foundation/file.h"
#include "foundation/sound_time.h"
#include "shell/main_window_view.h"
#include "shell/user_settings.h"
#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/components.h"
#include "sound/compressed_wave.h"
#include "sound/ffmpeg_source.h"
#include "sound/pcm_file.h"
#include "sound/source_to_sink.h"
#include "sound/wave_file.h"

namespace {

// Where the messages send a user for more.
constexpr char kFormatsPage[] = " For the formats Tandrel reads, see https://www.orvanesoftware.com/tandrel/formats";
constexpr char kPluginPage[] = " See https://www.orvanesoftware.com/tandrel/plugins";
constexpr char kDictationPage[] = " Open it with the dictation player it came with: https://www.orvanesoftware.com/dictation";

std::string Format(char const* pattern, char const* a, char const* b = "") {
  int const n = std::snprintf(nullptr, 0, pattern, a, b);
  std::string out(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
  std::snprintf(out.data(), out.size() + 1, pattern, a, b);
  return out;
}

bool IsOneOf(std::string const& ext, std::initializer_list<char const*> list) {
  for (char const* e : list) {
    if (ext == e) return true;
  }
  return false;
}

// A WAV file whose body is MPEG Layer 3 (tag 85) is an MP3 stream in a RIFF
// wrapper, which the MP3 reader opens, stepping over the RIFF head in its search for
// the first frame.
LSoundSource OpenWave(std::string const& path, int& tag) {
  tag = 0;
  LSoundSource source = LWaveFile::OpenSource(path);
  if (source->GetErrorState() != LSoundErrorNoDecoder) return source;
  LFile file;
  LWavHeader header;
  if (file.OpenRead(path) && LWavReadHeader(file, header, false) == 0) {
    tag = header.iTag;
    if (header.iTag == LWavTagMPEGLayer3) return LMP3File::OpenSource(path.c_str(), true);
  }
  return source;
}

LRawSettings StoredRawSettings(char const* section, int rate, int channels, int codec) {
  LRawSettings raw;
  raw.iSampleRate = LUserSettingGet(section, "SampleRate", rate);
  raw.iChannels = LUserSettingGet(section, "Channels", channels);
  raw.iCodec = LUserSettingGet(section, "Codec", codec);
  return raw;
}

// A temporary file of the pattern "0XXXXXX.wav" in the temporary folder, created
// empty; empty when none could be made.
std::string MakeTemporaryWav() {
  std::string name = LAppPaths::TemporaryFolder() + "/0XXXXXX.wav";
  int const fd = ::mkstemps(name.data(), 4);
  if (fd < 0) return std::string();
  ::close(fd);
  return name;
}

// The decoder programs that stand behind FFmpeg for the formats they were made for
// (flac decodes through damage with -F), with their command lines.
std::string DecoderCommand(std::string const& ext, std::string const& program, std::string const& source,
                           std::string const& target) {
  std::string const p = LQuoteArgument(program), s = LQuoteArgument(source), t = LQuoteArgument(target);
  if (ext == ".flac") return p + " --silent -f -d -o " + t + " -F " + s;
  if (ext == ".ogg" || ext == ".oga") return p + " -Q -o " + t + " " + s;
  return p + " " + s + " " + t;  // mpcdec and speexdec: source, then target
}

char const* DecoderComponent(std::string const& ext) {
  if (ext == ".flac") return "flaccodec";
  if (ext == ".ogg" || ext == ".oga") return "oggdec";
  if (ext == ".mpc") return "mpcdec";
  if (ext == ".spx") return "speexdec";
  return nullptr;
}

// Runs the decoder program into a temporary WAV file and opens that. 0, 1 (stopped)
// or 2 (the program failed); the temporary file never outlives the source.
LProcessResult DecodeWithProgram(LSoundSource& out, std::string const& path, std::string const& ext,
                                 std::string const& program, LProcessInterface& pi) {
  pi.SetStatus("Decoding Audio File", 1);
  pi.SetProgressIndeterminateOn();
  std::string const temp = MakeTemporaryWav();
  if (temp.empty()) return LProcessFailed;
  LProcessRunExternalExeData run(DecoderCommand(ext, program, path, temp).c_str(), true);
  LProcessResult const r = Process(pi, run);
  pi.SetProgressIndeterminateOff();
  if (r != LProcessFinished) {
    LFile::Remove(temp);
    return r;
  }
  out = LWaveFile::OpenSourceDeletingFileWhenClosed(temp);
  return out.IsGood() ? LProcessFinished : LProcessFailed;
}

// A stream FFmpeg cannot tell the length of is decoded to a temporary WAV file, as
// far as it goes, so that what the caller gets has an exact length and seeks like a
// file.
LProcessResult DecodeStreamToWav(LSoundSource& out, LSoundSource const& stream, LProcessInterface& pi) {
  std::string const temp = MakeTemporaryWav();
  if (temp.empty()) return LProcessFailed;
  LProcessResult r;
  {
    LPRSourceToSinkStreaming copy;
    copy.szTitle = "Decoding Audio File";
    copy.lssSource = stream;
    copy.lsnkSink = LWaveFile::OpenSinkFloat(temp, stream->GetSampleRate(), stream->GetChannels());
    LProcessInterfaceSubProcess sub(pi, 0.0, 1.0);
    r = Process(sub, copy);
    if (r == LProcessFinished && !copy.lsnkSink->Finish()) r = LProcessFailed;
  }
  if (r != LProcessFinished) {
    LFile::Remove(temp);
    return r;
  }
  pi.SetStatus("Opening source file...", 1);
  out = LWaveFile::OpenSourceDeletingFileWhenClosed(temp);
  return out.IsGood() ? LProcessFinished : LProcessFailed;
}

LProcessResult OpenThroughFFmpeg(LSoundSource& out, std::string const& path, std::string const& ext,
                                 LProcessInterface& pi) {
  LSoundSource source = LFFMPEGSourceManager::GetSoundSource(path);
  if (source.IsGood()) {
    if (!source->IsStreaming()) {
      out = source;
      return LProcessFinished;
    }
    LProcessResult const r = DecodeStreamToWav(out, source, pi);
    if (r != LProcessFailed) return r;
  }
  out = source;
  if (source->GetErrorState() == LSoundErrorCannotOpen) return LProcessFailed;

  // FFmpeg gave up; the format's own decoder may still get through.
  std::string program;
  char const* component = DecoderComponent(ext);
  if (component == nullptr || !LComponentGetPath(component, program)) return LProcessFailed;
  LSoundSource decoded;
  LProcessResult const r = DecodeWithProgram(decoded, path, ext, program, pi);
  if (r == LProcessFinished) {
    out = decoded;
    return r;
  }
  if (r == LProcessStopped) return r;
  // What FFmpeg found says more about a damaged file than the program's failure.
  if (source->GetErrorState() != LSoundErrorParameters) out = LMakeErrorSource(LSoundErrorDecoderProcess);
  return LProcessFailed;
}

}  // namespace

std::string TDLowerExtension(std::string const& path) {
  std::size_t const dot = path.find_last_of('.');
  std::size_t const slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
  std::string ext = path.substr(dot);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

void LGenSourceOpenInterfaceGUI::SetError(char const* text) { view.Alert(text ? text : "", ""); }

LProcessResult ProcessGenSourceOpenSourceWith(LSoundSource& out, char const* pathText, LGenSourceOpenInterface& face,
                                              LGenSourceOpenOptions const& options) {
  out.Close();
  std::string const path = pathText ? pathText : "";
  std::string const ext = TDLowerExtension(path);
  LProcessResult result = LProcessFinished;

  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode) || ::access(path.c_str(), R_OK) != 0) {
    out = LMakeErrorSource(LSoundErrorCannotOpen);
  } else if (IsOneOf(ext, {".wav", ".wave", ".bwf"})) {
    int tag = 0;
    out = OpenWave(path, tag);
    if (out->GetErrorState() == LSoundErrorNoDecoder) {
      // A codec we do not decode ourselves may be one FFmpeg does (MS ADPCM, ...).
      LSoundSource other;
      if (OpenThroughFFmpeg(other, path, ext, face) == LProcessFinished) out = other;
    }
  } else if (ext == ".mp3") {
    // The whole file is walked once, so that a VBR file without a tag has its exact
    // length before anything is copied.
    out = LMP3File::OpenSource(path.c_str(), true);
  } else if (IsOneOf(ext, {".aif", ".aiff", ".aifc", ".afc"})) {
    out = LAifFile::OpenSource(path);
  } else if (ext == ".au" || ext == ".snd") {
    out = LAuFile::OpenSource(path);
  } else if (ext == ".gsm") {
    out = LGSMFile::OpenSource(path);
  } else if (ext == ".vox") {
    out = LRawFile::OpenSource(path, StoredRawSettings("VoxAudio", 8000, 1, LRawCodec::DialogicADPCM));
  } else if (ext == ".raw" || ext == ".pcm") {
    LRawSettings const raw = options.pRawSettings ? *options.pRawSettings
                                                  : StoredRawSettings("RawAudio", 44100, 2, LRawCodec::PCM16LE);
    out = LRawFile::OpenSource(path, raw);
  } else if (ext == ".mid" || ext == ".smf") {
    // MIDI files become sound through the synthesiser's renderer, which this
    // version does not have.
    out = LMakeErrorSource(LSoundErrorNoDecoder);
  } else {
    result = OpenThroughFFmpeg(out, path, ext, face);
    if (result == LProcessStopped) {
      out.Close();
      return result;
    }
  }

  if (out.IsGood()) return LProcessFinished;
  ProcessGenSourceGetError(face, out, path.c_str(), ext.c_str());
  return LProcessFailed;
}

std::string LGenSourceGetErrorText(LSoundSource const& source, char const* pathText, char const* extText) {
  char const* path = pathText ? pathText : "";
  std::string const ext = extText ? extText : "";
  int const state = source->GetErrorState();
  if (state == LSoundErrorParameters) return Format("Cannot open the file \"%s\" because it is corrupt.", path);
  if (state == LSoundErrorCannotOpen) {
    return Format("Cannot open the file \"%s\". Check it exists and you have read access.", path);
  }
  if (IsOneOf(ext, {".wav", ".wave", ".bwf"}) && state == LSoundErrorNoDecoder) {
    LFile file;
    LWavHeader header;
    std::string codec;
    if (file.OpenRead(path) && LWavReadHeader(file, header, false) == 0) codec = LFFMPEGWavCodecName(header.iTag);
    if (!codec.empty()) {
      return Format("Cannot open the file \"%s\" because the required codec (\"%s\") is not installed.", path,
                    codec.c_str()) +
             kFormatsPage;
    }
    return Format("Cannot open the file \"%s\" because it is using an unknown codec or is possibly not a real wave file.",
                  path);
  }
  if (ext == ".mp3") {
    return Format("Cannot open the file \"%s\". It is possibly either corrupt or not a true layer-3 MPEG file.", path);
  }
  if (ext == ".mid" || ext == ".smf") return "MIDI decoding is not currently supported in our products on Linux.";
  if (IsOneOf(ext, {".ogg", ".oga", ".flac"}) && state == LSoundErrorDecoderProcess) {
    return Format("The decoder process failed when decompressing the file \"%s\" to wave format. It is possible your "
                  "logon account does not have write access to the folder \"%s\"",
                  path, LAppPaths::TemporaryFolder().c_str());
  }
  if (IsOneOf(ext, {".wma", ".act", ".rec"})) {
    return Format("Cannot open file \"%s\". It is possible that the file is protected with Digital Rights Management "
                  "(DRM)",
                  path) +
           "." + kPluginPage;
  }
  if (IsOneOf(ext, {".aac", ".m4a", ".mp4"})) {
    return Format("FFmpeg was unable to decode the file \"%s\". Please load the file into the Quicktime Player and "
                  "verify it plays correctly.",
                  path);
  }
  if (IsOneOf(ext, {".dss", ".msv", ".dvf"})) {
    return Format("Cannot open the file \"%s\" because this format is not supported on Linux.", path);
  }
  if (state == 6) return Format("Cannot open the file \"%s\" because it is encrypted.", path) + kDictationPage;
  return Format("Cannot open the file \"%s\". It is possible the file format is not supported by this program.",
                path) +
         kFormatsPage;
}

void ProcessGenSourceGetError(LProcessInterface& pi, LSoundSource& source, char const* path, char const* extension) {
  pi.SetError(LGenSourceGetErrorText(source, path, extension).c_str());
}
