#include "sound/ffmpeg_sink.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

// The rate the encoder offers nearest to `rate`, or `rate` when it lists none.
int NearestRate(AVCodec const* codec, int rate) {
  if (codec->supported_samplerates == nullptr) return rate;
  int best = 0;
  for (int const* r = codec->supported_samplerates; *r; ++r) {
    if (*r == rate) return rate;
    if (best == 0 || std::abs(*r - rate) < std::abs(best - rate)) best = *r;
  }
  return best ? best : rate;
}

// The layout for `channels` when the encoder takes it; else stereo, else its first.
void ChooseLayout(AVCodec const* codec, int channels, AVChannelLayout& out) {
  if (codec->ch_layouts == nullptr) {
    av_channel_layout_default(&out, channels);
    return;
  }
  for (int want : {channels, 2, 1}) {
    for (AVChannelLayout const* l = codec->ch_layouts; l->nb_channels; ++l) {
      if (l->nb_channels == want) {
        av_channel_layout_copy(&out, l);
        return;
      }
    }
  }
  av_channel_layout_copy(&out, codec->ch_layouts);
}

AVSampleFormat ChooseFormat(AVCodec const* codec, int bitDepth) {
  if (codec->sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
  if (bitDepth > 16) {
    for (AVSampleFormat const* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f) {
      if (*f == AV_SAMPLE_FMT_S32P || *f == AV_SAMPLE_FMT_S32) return *f;
    }
  }
  return codec->sample_fmts[0];
}

void SetTags(AVDictionary** dict, LSoundTags const* tags) {
  if (tags == nullptr) return;
  auto set = [&](char const* key, std::string const& v) {
    if (!v.empty()) av_dict_set(dict, key, v.c_str(), 0);
  };
  set("title", tags->szTitle);
  set("artist", tags->szArtist);
  set("album", tags->szAlbum);
  set("date", tags->szDate);
  set("genre", tags->szGenre);
  set("track", tags->szTrack);
  set("comment", tags->szComment);
}

}  // namespace

LFFMPEGEncodeSink::LFFMPEGEncodeSink(std::string const& path, int rate, int channels,
                                     LFFMPEGEncodeSettings const& settings, LSoundTags const* tags)
    : LSoundSinkBase(rate, channels) {
  if (IsError()) return;
  if (!Open(path, rate, channels, settings, tags)) {
    Fail();
    bool const created = pFormat && pFormat->pb;
    Close();
    // A half-made file is no file; nothing of it is left behind.
    if (created) std::remove(path.c_str());
  }
}

LFFMPEGEncodeSink::~LFFMPEGEncodeSink() {
  Finish();
  Close();
}

bool LFFMPEGEncodeSink::Open(std::string const& path, int rate, int channels, LFFMPEGEncodeSettings const& settings,
                             LSoundTags const* tags) {
  av_log_set_level(AV_LOG_QUIET);
  AVCodec const* codec = avcodec_find_encoder_by_name(settings.szCodec.c_str());
  if (codec == nullptr) return false;
  if (avformat_alloc_output_context2(&pFormat, nullptr, settings.szFormat.c_str(), path.c_str()) < 0 ||
      pFormat == nullptr) {
    pFormat = nullptr;
    return false;
  }
  AVStream* stream = avformat_new_stream(pFormat, nullptr);
  pCodec = avcodec_alloc_context3(codec);
  pFrame = av_frame_alloc();
  pPacket = av_packet_alloc();
  if (stream == nullptr || pCodec == nullptr || pFrame == nullptr || pPacket == nullptr) return false;
  iStream = stream->index;

  int const encRate = NearestRate(codec, rate);
  ChooseLayout(codec, channels, pCodec->ch_layout);
  pCodec->sample_rate = encRate;
  pCodec->sample_fmt = ChooseFormat(codec, settings.iBitDepth);
  if (settings.iBitDepth > 16 && (pCodec->sample_fmt == AV_SAMPLE_FMT_S32P || pCodec->sample_fmt == AV_SAMPLE_FMT_S32)) {
    pCodec->bits_per_raw_sample = settings.iBitDepth;
  }
  if (settings.iBitRate > 0) pCodec->bit_rate = settings.iBitRate;
  pCodec->time_base = AVRational{1, encRate};
  pCodec->thread_count = 1;
  if (pFormat->oformat->flags & AVFMT_GLOBALHEADER) pCodec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* codecOptions = nullptr;
  for (auto const& [k, v] : settings.vCodecOptions) av_dict_set(&codecOptions, k.c_str(), v.c_str(), 0);
  int r = avcodec_open2(pCodec, codec, &codecOptions);
  av_dict_free(&codecOptions);
  if (r < 0) return false;
  if (avcodec_parameters_from_context(stream->codecpar, pCodec) < 0) return false;
  stream->time_base = pCodec->time_base;

  // What the sink takes is what the encoder takes; the copy job converts to it.
  sSampleRate = encRate;
  nChans = static_cast<std::uint8_t>(pCodec->ch_layout.nb_channels);

  bool const variable = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0 || pCodec->frame_size <= 0;
  iFrameSize = variable ? 4096 : pCodec->frame_size;
  bSmallLastFrame = variable || (codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME) != 0;
  vGather.assign(static_cast<std::size_t>(iFrameSize) * nChans, 0.0f);

  pFrame->nb_samples = iFrameSize;
  pFrame->format = pCodec->sample_fmt;
  pFrame->sample_rate = encRate;
  if (av_channel_layout_copy(&pFrame->ch_layout, &pCodec->ch_layout) < 0 || av_frame_get_buffer(pFrame, 0) < 0) {
    return false;
  }
  AVChannelLayout in{};
  av_channel_layout_copy(&in, &pCodec->ch_layout);
  r = swr_alloc_set_opts2(&pSwr, &pCodec->ch_layout, pCodec->sample_fmt, encRate, &in, AV_SAMPLE_FMT_FLT, encRate, 0,
                          nullptr);
  av_channel_layout_uninit(&in);
  if (r < 0 || swr_init(pSwr) < 0) return false;

  SetTags(&pFormat->metadata, tags);
  if (!(pFormat->oformat->flags & AVFMT_NOFILE) && avio_open(&pFormat->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) {
    return false;
  }
  vFormatOptions = settings.vFormatOptions;
  bOpened = true;
  return true;
}

bool LFFMPEGEncodeSink::WriteHeader(bool empty) {
  AVDictionary* formatOptions = nullptr;
  for (auto const& [k, v] : vFormatOptions) av_dict_set(&formatOptions, k.c_str(), v.c_str(), 0);
  std::string const muxer = pFormat->oformat->name;
  if (empty && (muxer == "mov" || muxer == "mp4" || muxer == "ipod")) {
    av_dict_set(&formatOptions, "movflags", "+empty_moov", 0);
  }
  int const r = avformat_write_header(pFormat, &formatOptions);
  av_dict_free(&formatOptions);
  bHeaderWritten = r >= 0;
  return bHeaderWritten;
}

void LFFMPEGEncodeSink::Close() {
  if (pFormat) {
    if (pFormat->pb && !(pFormat->oformat->flags & AVFMT_NOFILE)) avio_closep(&pFormat->pb);
    avformat_free_context(pFormat);
    pFormat = nullptr;
  }
  if (pSwr) swr_free(&pSwr);
  if (pFrame) av_frame_free(&pFrame);
  if (pPacket) av_packet_free(&pPacket);
  if (pCodec) avcodec_free_context(&pCodec);
}

bool LFFMPEGEncodeSink::Drain() {
  for (;;) {
    int const r = avcodec_receive_packet(pCodec, pPacket);
    if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return true;
    if (r < 0) return false;
    pPacket->stream_index = iStream;
    av_packet_rescale_ts(pPacket, pCodec->time_base, pFormat->streams[iStream]->time_base);
    if (av_interleaved_write_frame(pFormat, pPacket) < 0) return false;
  }
}

bool LFFMPEGEncodeSink::EncodeGathered() {
  if (iGathered == 0) return true;
  int samples = iGathered;
  if (!bSmallLastFrame && samples < iFrameSize) {
    // An encoder of fixed frames gets its last one filled with silence.
    std::fill(vGather.begin() + static_cast<std::ptrdiff_t>(samples) * nChans, vGather.end(), 0.0f);
    samples = iFrameSize;
  }
  if (av_frame_make_writable(pFrame) < 0) return false;
  pFrame->nb_samples = samples;
  std::uint8_t const* in[1] = {reinterpret_cast<std::uint8_t const*>(vGather.data())};
  if (swr_convert(pSwr, pFrame->data, samples, in, samples) != samples) return false;
  pFrame->pts = iNextPts;
  iNextPts += samples;
  iGathered = 0;
  if (avcodec_send_frame(pCodec, pFrame) < 0) return false;
  return Drain();
}

void LFFMPEGEncodeSink::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError() || bFinished || !bOpened) return;
  if (!bHeaderWritten && !WriteHeader(false)) {
    Fail();
    return;
  }
  sPosition += frames;
  while (frames > 0) {
    int const n = std::min(frames, iFrameSize - iGathered);
    std::copy_n(buffer, static_cast<std::size_t>(n) * nChans,
                vGather.begin() + static_cast<std::ptrdiff_t>(iGathered) * nChans);
    iGathered += n;
    buffer += static_cast<std::size_t>(n) * nChans;
    frames -= n;
    if (iGathered == iFrameSize && !EncodeGathered()) {
      Fail();
      return;
    }
  }
}

bool LFFMPEGEncodeSink::Finish() {
  if (bFinished) return bResult;
  bFinished = true;
  if (!IsError() && bOpened) {
    if (!bHeaderWritten && !WriteHeader(sPosition == 0)) {
      Fail();
      bResult = false;
      return bResult;
    }
    bool ok = EncodeGathered() && avcodec_send_frame(pCodec, nullptr) >= 0 && Drain();
    ok = av_write_trailer(pFormat) >= 0 && ok;
    if (pFormat->pb && !(pFormat->oformat->flags & AVFMT_NOFILE)) {
      avio_flush(pFormat->pb);
      ok = ok && pFormat->pb->error == 0;
      ok = avio_closep(&pFormat->pb) >= 0 && ok;
    }
    if (!ok) Fail();
  }
  bResult = !IsError();
  return bResult;
}

// ---------------------------------------------------------------------------

LSoundSink OpenAACSink(std::string const& path, int rate, int channels, LAACEncodeSettings const& s,
                       LSoundTags const* tags, char const* container) {
  LFFMPEGEncodeSettings e;
  e.szFormat = container ? container : "adts";
  e.szCodec = "aac";
  int kbps = s.iABRBitRate;
  if (!s.bAverageBitRate) {
    // The quality scale of the old encoder, 100 being about 128 kbit/s for stereo,
    // becomes a bit rate: FFmpeg's AAC encoder is at its best with one.
    kbps = std::clamp(s.iVBRQuality, 10, 500) * 128 / 100;
  }
  int const perChannel = std::clamp(kbps, 16, 512) * 1000 / 2;
  e.iBitRate = perChannel * std::clamp(channels, 1, 8);
  if (s.bDisableTNS) e.vCodecOptions.emplace_back("aac_tns", "0");
  if (s.bForceMPEG2 && e.szFormat == "adts") e.vFormatOptions.emplace_back("write_mpeg2", "1");
  return LSoundSink::Make<LFFMPEGEncodeSink>(path, rate, channels, e, tags);
}

LSoundSink OpenM4AALACSink(std::string const& path, int rate, int channels, int bitDepth, LSoundTags const* tags) {
  LFFMPEGEncodeSettings e;
  e.szFormat = "ipod";
  e.szCodec = "alac";
  e.iBitDepth = bitDepth > 16 ? 24 : 16;
  return LSoundSink::Make<LFFMPEGEncodeSink>(path, rate, channels, e, tags);
}

LSoundSink OpenALACSink(std::string const& path, int rate, int channels, int bitDepth) {
  LFFMPEGEncodeSettings e;
  e.szFormat = "caf";
  e.szCodec = "alac";
  e.iBitDepth = bitDepth > 16 ? 24 : 16;
  return LSoundSink::Make<LFFMPEGEncodeSink>(path, rate, channels, e, nullptr);
}

LSoundSink OpenAMRSink(std::string const& path, int mode) {
  static constexpr int kRates[] = {4750, 5150, 5900, 6700, 7400, 7950, 10200, 12200};
  LFFMPEGEncodeSettings e;
  e.szFormat = "amr";
  e.szCodec = "libopencore_amrnb";
  e.iBitRate = kRates[std::clamp(mode, 0, 7)];
  return LSoundSink::Make<LFFMPEGEncodeSink>(path, 8000, 1, e, nullptr);
}

namespace LQTMovEncode {
LSoundSink OpenSink(std::string const& path, int rate, int channels, LSoundTags const* tags) {
  LFFMPEGEncodeSettings e;
  e.szFormat = "mov";
  e.szCodec = "pcm_s16be";
  return LSoundSink::Make<LFFMPEGEncodeSink>(path, rate, channels, e, tags);
}
}  // namespace LQTMovEncode
