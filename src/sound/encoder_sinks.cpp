#include "sound/encoder_sinks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <random>

#include "foundation/external_process.h"
#include "foundation/file.h"
#include "sound/components.h"
#include "sound/pipe_sink.h"

namespace {

std::string Quote(std::string const& s) { return LQuoteArgument(s); }

std::string FolderOf(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string NameOf(std::string const& path) {
  std::size_t const slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string WithoutExtension(std::string const& path) {
  std::size_t const dot = path.find_last_of('.');
  std::size_t const slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path;
  return path.substr(0, dot);
}

std::string Number(int v) { return std::to_string(v); }

void AddTag(std::string& cmd, char const* flag, std::string const& value) {
  if (!value.empty()) cmd += std::string(" ") + flag + " " + Quote(value);
}

}  // namespace

int LMp3SinkRate(int rate) {
  static constexpr int kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
  for (int r : kRates) {
    if (r == rate) return rate;
  }
  return rate > 48000 ? 48000 : 44100;
}

int LMPCSinkRate(int rate) {
  if (rate == 32000 || rate == 37800 || rate == 44100 || rate == 48000) return rate;
  if (rate < 32000) return 32000;
  return rate < 44100 ? 44100 : 48000;
}

int LSpeexSinkRate(int rate) {
  // Narrow, wide and ultra-wide band: the three rates the codec is made for.
  if (rate <= 8000) return 8000;
  return rate <= 16000 ? 16000 : 32000;
}

bool LProbeTargetFolder(std::string const& targetPath) {
  std::string const folder = FolderOf(targetPath);
  std::random_device rd;
  std::mt19937 gen(rd());
  for (int attempt = 0; attempt < 8; ++attempt) {
    std::string const probe = folder + "/" + std::to_string(gen() % 1000000000u) + ".__wt";
    int const fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      ::close(fd);
      ::unlink(probe.c_str());
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

// ---------------------------------------------------------------------------
// MP3 through lame. Its "-x" would swap the bytes of the input, which only a
// big-endian writer wants; our samples are little-endian, and lame is told so.

namespace {

std::string Mp3CommandLine(std::string const& program, std::string const& target, int rate, int channels,
                           LMp3EncodeSettings const& s) {
  std::string cmd = Quote(program);
  if (!s.szExtraFlags.empty()) cmd += " " + s.szExtraFlags;
  char const mode = channels == 1 ? 'm' : (std::string("jsfd").find(s.cStereoMode) != std::string::npos ? s.cStereoMode : 'j');
  cmd += std::string(" -m ") + mode;
  int const q = std::clamp(s.iQuality, 0, 9);
  int const v = std::clamp(s.iVBRQuality, 0, 9);
  int const b = std::clamp(s.iBitRate, 8, 320);
  switch (s.iMode) {
    case 1: cmd += " --abr " + Number(b) + " -V " + Number(v) + " -q " + Number(q); break;
    case 2: cmd += " -b " + Number(b) + " -V " + Number(v) + " -q " + Number(q); break;
    default: cmd += " --cbr -b " + Number(b); break;
  }
  char khz[32];
  std::snprintf(khz, sizeof khz, "%d.%.3d", rate / 1000, rate % 1000);
  cmd += " -r --signed --bitwidth 16 --little-endian -s " + std::string(khz) + " -S \"-\" " + Quote(target);
  return cmd;
}

}  // namespace

LSoundSink OpenMp3Sink(std::string const& path, int rate, int channels, LMp3EncodeSettings const& settings) {
  std::string program;
  if (!LComponentGetPath("mp3el2", program) || !LProbeTargetFolder(path)) return LSoundSink();
  int const r = LMp3SinkRate(rate);
  int const c = channels == 1 ? 1 : 2;
  LSoundSink inner = LSoundSink::Make<LPipe16Sink>(Mp3CommandLine(program, path, r, c, settings), r, c);
  return LSoundSink::Make<LMp3EncodeSinkPipe>(inner, path);
}

// ---------------------------------------------------------------------------

LSoundSink OpenOggSink(std::string const& path, int rate, int channels, LOggEncodeSettings const& s,
                       LSoundTags const* tags) {
  std::string program;
  if (!LComponentGetPath("oggenc2", program)) return LSoundSink();
  std::string cmd = Quote(program) + " -Q -r -B 16 -C " + Number(channels) + " -R " + Number(rate) +
                    " --raw-endianness 0";
  switch (s.iMode) {
    case 0: cmd += " -b " + Number(std::clamp(s.iBitRate, 32, 500)); break;
    case 2:
      cmd += " -m " + Number(std::clamp(s.iVBRMinBitRate, 32, 500)) + " -M " +
             Number(std::clamp(s.iVBRMaxBitRate, 32, 500));
      break;
    default: cmd += " -q " + Number(std::clamp(s.iVBRQuality, -1, 10)); break;
  }
  if (s.iChannels == 1 && channels == 2) cmd += " --downmix";
  if (s.bStripComments) cmd += " --discard-comments";
  if (tags) {
    AddTag(cmd, "--title", tags->szTitle);
    AddTag(cmd, "--artist", tags->szArtist);
    AddTag(cmd, "--date", tags->szDate);
    AddTag(cmd, "--album", tags->szAlbum);
    AddTag(cmd, "--genre", tags->szGenre);
    AddTag(cmd, "--tracknum", tags->szTrack);
    if (!tags->szComment.empty()) AddTag(cmd, "--comment", "COMMENT=" + tags->szComment);
  }
  cmd += " - -o " + Quote(path);
  return LSoundSink::Make<LPipe16Sink>(cmd, rate, channels);
}

// ---------------------------------------------------------------------------
// FLAC reads raw samples from standard input only when told the format is raw.

LSoundSink OpenFlacSink(std::string const& path, int rate, int channels, LFlacEncodeSettings const& s,
                        LSoundTags const* tags) {
  std::string program;
  if (!LComponentGetPath("flaccodec", program)) return LSoundSink();
  int const c = std::clamp(channels, 1, 8);
  std::string cmd = Quote(program) + " --silent --force-raw-format --channels=" + Number(c) +
                    " --sample-rate=" + Number(rate) + " --compression-level-" +
                    Number(std::clamp(s.iCompression, 0, 8)) + " --endian=little --bps=16 --sign=signed";
  if (tags) {
    auto tag = [&](char const* key, std::string const& v) {
      if (!v.empty()) cmd += " --tag " + Quote(std::string(key) + "=" + v);
    };
    tag("TITLE", tags->szTitle);
    tag("DATE", tags->szDate);
    tag("ALBUM", tags->szAlbum);
    tag("ARTIST", tags->szArtist);
    tag("GENRE", tags->szGenre);
    tag("TRACKNUMBER", tags->szTrack);
    tag("COMMENT", tags->szComment);
  }
  cmd += " -f - -o " + Quote(path);
  return LSoundSink::Make<LPipe16Sink>(cmd, rate, c);
}

// ---------------------------------------------------------------------------
// mpcenc reads only WAV from standard input: a head with unknown sizes goes first.

LSoundSink OpenMPCSink(std::string const& path, int rate, int channels, LMPCEncodeSettings const& s,
                       LSoundTags const* tags) {
  std::string program;
  if (!LComponentGetPath("mpcenc2", program)) return LSoundSink();
  int const r = LMPCSinkRate(rate);
  int const c = std::clamp(channels, 1, 8);
  std::string cmd = Quote(program) + " --silent --overwrite --quality " + Number(std::clamp(s.iQuality, 0, 10));
  if (tags) {
    AddTag(cmd, "--title", tags->szTitle);
    AddTag(cmd, "--artist", tags->szArtist);
    AddTag(cmd, "--album", tags->szAlbum);
    AddTag(cmd, "--genre", tags->szGenre);
    AddTag(cmd, "--year", tags->szDate);
    AddTag(cmd, "--track", tags->szTrack);
    AddTag(cmd, "--comment", tags->szComment);
  }
  cmd += " - " + Quote(path);
  return LSoundSink::Make<LPipe16Sink>(cmd, r, c, LMakeStreamingWavHead(r, c));
}

// ---------------------------------------------------------------------------
// speexenc writes the Ogg stream to its standard output, which we put in the file.
// On bare samples it first reads a dozen bytes to look for a WAV head, and with
// fewer than that (an empty project) it fails with "short file" instead of making
// an empty stream. So a sink that was given nothing hands it a WAV head of no
// sound at the end; one that was given sound keeps the bare input, which has no
// length limit.

namespace {

class LSpeexSink : public LSoundEncoderPipeSink {
 public:
  LSpeexSink(std::string const& commandLine, std::string const& targetPath, int rate, int channels)
      : LSoundEncoderPipeSink(commandLine, targetPath, rate, channels) {}
  ~LSpeexSink() override { Finish(); }

  bool Finish() override {
    if (!bEnded && !IsError() && GetPositionSample() == 0) {
      std::vector<std::uint8_t> head = LMakeStreamingWavHead(GetSampleRate(), GetChannels());
      for (std::size_t i = 0; i < 4; ++i) {
        head[4 + i] = static_cast<std::uint8_t>(i == 0 ? 36 : 0);  // RIFF: the rest of the head
        head[40 + i] = 0;                                           // data: none
      }
      if (!GetPipe().WriteSound(head.data(), head.size())) uErrorFlags |= LSoundSinkErrorFailed;
    }
    bEnded = true;
    return LSoundEncoderPipeSink::Finish();
  }

 private:
  bool bEnded = false;
};

}  // namespace

LSoundSink OpenSpeexSink(std::string const& path, int rate, int channels, LSoundTags const* tags) {
  std::string program;
  if (!LComponentGetPath("speexenc2", program)) return LSoundSink();
  int const r = LSpeexSinkRate(rate);
  int const c = channels >= 2 ? 2 : 1;
  std::string cmd = Quote(program) + " --rate " + Number(r) + (c == 2 ? " --stereo" : "") + " --le --16bit";
  if (tags) {
    AddTag(cmd, "--title", tags->szTitle);
    AddTag(cmd, "--author", tags->szArtist);
    if (!tags->szComment.empty()) AddTag(cmd, "--comment", "COMMENT=" + tags->szComment);
  }
  cmd += " - -";
  return LSoundSink::Make<LSpeexSink>(cmd, path, r, c);
}

// ---------------------------------------------------------------------------
// A podcast: the MP3 and a feed of one item pointing at it.

namespace {

std::string XmlEscape(std::string const& s) {
  std::string out;
  for (char const c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

class LRSSSink : public LMp3EncodeSinkPipe {
 public:
  LRSSSink(LSoundSink inner, std::string mp3Path, std::string feedPath, std::string rootUrl, LSoundTags tags)
      : LMp3EncodeSinkPipe(std::move(inner), std::move(mp3Path)),
        szFeedPath(std::move(feedPath)),
        szRootURL(std::move(rootUrl)),
        tags(std::move(tags)) {}
  ~LRSSSink() override { Finish(); }

 protected:
  bool AfterFinish() override {
    struct stat st {};
    if (::stat(GetTargetPath().c_str(), &st) != 0) return false;
    std::string url = szRootURL;
    if (!url.empty() && url.back() != '/') url += '/';
    url += NameOf(GetTargetPath());
    std::string const title = tags.szTitle.empty() ? NameOf(WithoutExtension(GetTargetPath())) : tags.szTitle;
    std::string const description = tags.szComment.empty() ? title : tags.szComment;

    char date[64] = "";
    std::time_t const now = std::time(nullptr);
    std::tm gm{};
    gmtime_r(&now, &gm);
    std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", &gm);

    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rss version=\"2.0\">\n<channel>\n";
    xml += "<title>" + XmlEscape(tags.szAlbum.empty() ? title : tags.szAlbum) + "</title>\n";
    xml += "<link>" + XmlEscape(szRootURL) + "</link>\n";
    xml += "<description>" + XmlEscape(description) + "</description>\n";
    xml += "<item>\n<title>" + XmlEscape(title) + "</title>\n";
    xml += "<description>" + XmlEscape(description) + "</description>\n";
    xml += "<pubDate>" + std::string(date) + "</pubDate>\n";
    char enclosure[64];
    std::snprintf(enclosure, sizeof enclosure, "\" length=\"%lld\" type=\"audio/mpeg\" />\n",
                  static_cast<long long>(st.st_size));
    xml += "<enclosure url=\"" + XmlEscape(url) + enclosure;
    xml += "</item>\n</channel>\n</rss>\n";

    LFile feed;
    if (!feed.OpenCreate(szFeedPath)) return false;
    return feed.Write(xml.data(), xml.size()) == static_cast<std::int64_t>(xml.size());
  }

 private:
  std::string szFeedPath;
  std::string szRootURL;
  LSoundTags tags;
};

}  // namespace

std::string LRSSMp3PathFor(std::string const& feedPath) { return WithoutExtension(feedPath) + ".mp3"; }

LSoundSink OpenRSSSink(std::string const& feedPath, int rate, int channels, LRSSEncodeSettings const& settings,
                       LSoundTags const* tags) {
  std::string program;
  std::string const mp3 = LRSSMp3PathFor(feedPath);
  if (mp3 == feedPath || !LComponentGetPath("mp3el2", program) || !LProbeTargetFolder(feedPath)) return LSoundSink();
  int const r = LMp3SinkRate(rate);
  int const c = channels == 1 ? 1 : 2;
  LSoundSink inner = LSoundSink::Make<LPipe16Sink>(Mp3CommandLine(program, mp3, r, c, settings.mp3), r, c);
  return LSoundSink::Make<LRSSSink>(inner, mp3, feedPath, settings.szRootURL, tags ? *tags : LSoundTags{});
}
