#include "sound/ffmpeg_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "sound/pcm_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

// The most packets a claimed stream's queue keeps for a consumer that does not
// read; beyond it the oldest go, as a player would drop late video frames.
constexpr std::size_t kMaxQueuedPackets = 512;

// Frames a seek may reach by decoding forward instead of moving the demuxer.
constexpr std::int64_t kDecodeForwardSeconds = 2;

// Frames decoded before a seek target for a lossy codec, whose first frames after a
// jump lack the overlap (and, for MP3, the bit reservoir) of the frames before.
constexpr int kLossyPreroll = 8192;

// The containers whose stated length is exact to the sample: FLAC's sample count,
// Ogg's granule positions, the sizes of PCM bodies, MP4's edit lists.
bool IsLengthExact(std::string const& format) {
  for (char const* exact : {"flac", "ogg", "wav", "w64", "aiff", "au", "mov,mp4,m4a,3gp,3g2,mj2"}) {
    if (format == exact) return true;
  }
  return false;
}

}  // namespace

std::string LFFMPEGWavCodecName(int tag) {
  AVCodecTag const* const tables[] = {avformat_get_riff_audio_tags(), nullptr};
  AVCodecID const id = av_codec_get_id(tables, static_cast<unsigned>(tag));
  if (id == AV_CODEC_ID_NONE) return std::string();
  char const* name = avcodec_get_name(id);
  return name ? name : "";
}

// ---------------------------------------------------------------------------
// LFFMPEGSourceManagerBase

LFFMPEGSourceManagerBase::LFFMPEGSourceManagerBase(std::string const& path) {
  av_log_set_level(AV_LOG_QUIET);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || S_ISDIR(st.st_mode) || ::access(path.c_str(), R_OK) != 0) {
    uErrorState = LSoundErrorCannotOpen;
    return;
  }
  if (st.st_size == 0) {
    uErrorState = LSoundErrorParameters;
    return;
  }

  // Probing apart from opening tells "FFmpeg knows no such format" from "the format
  // is known and the file is damaged". The content is asked first; a format guessed
  // from the extension alone that then fails to open is not known either.
  AVIOContext* io = nullptr;
  if (avio_open(&io, path.c_str(), AVIO_FLAG_READ) < 0) {
    uErrorState = LSoundErrorCannotOpen;
    return;
  }
  AVInputFormat const* format = nullptr;
  bool byContent = av_probe_input_buffer2(io, &format, "", nullptr, 0, 0) >= 0 && format != nullptr;
  if (!byContent) {
    format = nullptr;
    avio_seek(io, 0, SEEK_SET);
    if (av_probe_input_buffer2(io, &format, path.c_str(), nullptr, 0, 0) < 0) format = nullptr;
  }
  avio_closep(&io);
  if (format == nullptr) {
    uErrorState = LSoundErrorFailed;
    return;
  }

  if (avformat_open_input(&pFormat, path.c_str(), format, nullptr) < 0) {
    pFormat = nullptr;
    uErrorState = byContent ? LSoundErrorParameters : LSoundErrorFailed;
    return;
  }
  if (avformat_find_stream_info(pFormat, nullptr) < 0) {
    uErrorState = LSoundErrorParameters;
    return;
  }
  for (unsigned i = 0; i < pFormat->nb_streams; ++i) {
    AVStream* s = pFormat->streams[i];
    // Nothing is read for a stream until a consumer claims it.
    s->discard = AVDISCARD_ALL;
    if (s->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) vSoundStreams.push_back(static_cast<int>(i));
  }
}

LFFMPEGSourceManagerBase::~LFFMPEGSourceManagerBase() {
  if (pFormat) avformat_close_input(&pFormat);
}

int LFFMPEGSourceManagerBase::GetSoundStreamIndex(int n, bool decodableOnly) const {
  if (n < 0) return -1;
  for (int index : vSoundStreams) {
    if (decodableOnly && avcodec_find_decoder(pFormat->streams[index]->codecpar->codec_id) == nullptr) continue;
    if (n-- == 0) return index;
  }
  return -1;
}

bool LFFMPEGSourceManagerBase::GetSoundStreamComponent(int n, char* name, int size, bool longName) const {
  if (n < 0 || n >= GetSoundStreamCount() || name == nullptr || size < 1) return false;
  AVCodecID const id = pFormat->streams[vSoundStreams[static_cast<std::size_t>(n)]]->codecpar->codec_id;
  AVCodecDescriptor const* d = avcodec_descriptor_get(id);
  char const* text = d ? (longName && d->long_name ? d->long_name : d->name) : avcodec_get_name(id);
  std::snprintf(name, static_cast<std::size_t>(size), "%s", text ? text : "");
  return true;
}

std::string LFFMPEGSourceManagerBase::GetFormatName() const {
  return pFormat && pFormat->iformat && pFormat->iformat->name ? pFormat->iformat->name : "";
}

// ---------------------------------------------------------------------------
// LFFMPEGSourceManager

LFFMPEGSourceManager::LFFMPEGSourceManager(std::string const& path) : LFFMPEGSourceManagerBase(path) {}

LFFMPEGSourceManager::~LFFMPEGSourceManager() { ClearQueues(); }

LSoundSource LFFMPEGSourceManager::GetSoundSource(std::string const& path, int n) {
  LCountedPtr<LFFMPEGSourceManager> manager(new LFFMPEGSourceManager(path));
  if (manager->GetErrorState() != 0) return LMakeErrorSource(manager->GetErrorState());
  int const index = manager->GetSoundStreamIndex(n, true);
  if (index < 0) {
    // Sound that this FFmpeg has no decoder for, or no sound at all.
    return LMakeErrorSource(manager->GetSoundStreamCount() > n ? LSoundErrorNoDecoder : LSoundErrorFailed);
  }
  return LSoundSource(new LFFMPEGSoundSourceBase(manager, index));
}

void LFFMPEGSourceManager::ClaimStream(int index) {
  if (pFormat == nullptr || index < 0 || index >= static_cast<int>(pFormat->nb_streams) || FindQueue(index)) return;
  pFormat->streams[index]->discard = AVDISCARD_DEFAULT;
  vQueues.push_back(Queue{index, {}});
}

LFFMPEGSourceManager::Queue* LFFMPEGSourceManager::FindQueue(int index) {
  for (Queue& q : vQueues) {
    if (q.iIndex == index) return &q;
  }
  return nullptr;
}

void LFFMPEGSourceManager::ClearQueues() {
  for (Queue& q : vQueues) {
    for (AVPacket* p : q.packets) av_packet_free(&p);
    q.packets.clear();
  }
}

int LFFMPEGSourceManager::ReadPacket(int index, AVPacket* packet) {
  if (pFormat == nullptr) return AVERROR_EOF;
  Queue* own = FindQueue(index);
  if (own && !own->packets.empty()) {
    AVPacket* front = own->packets.front();
    own->packets.pop_front();
    av_packet_move_ref(packet, front);
    av_packet_free(&front);
    return 0;
  }
  for (;;) {
    int const r = av_read_frame(pFormat, packet);
    // A read error ends the stream as the end of the file does: a demuxer that
    // cannot go on would report it again at every call.
    if (r < 0) return r;
    if (packet->stream_index == index) return 0;
    Queue* other = FindQueue(packet->stream_index);
    if (other == nullptr) {
      av_packet_unref(packet);
      continue;
    }
    if (other->packets.size() >= kMaxQueuedPackets) {
      AVPacket* old = other->packets.front();
      other->packets.pop_front();
      av_packet_free(&old);
    }
    AVPacket* keep = av_packet_alloc();
    if (keep == nullptr) {
      av_packet_unref(packet);
      continue;
    }
    av_packet_move_ref(keep, packet);
    other->packets.push_back(keep);
  }
}

bool LFFMPEGSourceManager::SeekStream(int index, std::int64_t timestamp) {
  if (pFormat == nullptr) return false;
  ClearQueues();
  if (avformat_seek_file(pFormat, index, INT64_MIN, timestamp, timestamp, 0) >= 0) return true;
  return av_seek_frame(pFormat, index, timestamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

// ---------------------------------------------------------------------------
// LFFMPEGSoundSourceBase

LFFMPEGSoundSourceBase::LFFMPEGSoundSourceBase(LCountedPtr<LFFMPEGSourceManager> manager, int streamIndex)
    : LSoundSourceBase(44100, 2, LSoundPeakUnknown), pManager(std::move(manager)), iStream(streamIndex) {
  AVFormatContext* format = pManager ? pManager->GetFormatContext() : nullptr;
  if (format == nullptr || streamIndex < 0 || streamIndex >= static_cast<int>(format->nb_streams)) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  AVStream* stream = format->streams[streamIndex];
  AVCodec const* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
  if (decoder == nullptr) {
    uErrorState = LSoundErrorNoDecoder;
    return;
  }
  pCodec = avcodec_alloc_context3(decoder);
  pPacket = av_packet_alloc();
  pFrame = av_frame_alloc();
  if (pCodec == nullptr || pPacket == nullptr || pFrame == nullptr ||
      avcodec_parameters_to_context(pCodec, stream->codecpar) < 0) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  pCodec->pkt_timebase = stream->time_base;
  pCodec->thread_count = 1;
  if (avcodec_open2(pCodec, decoder, nullptr) < 0) {
    uErrorState = LSoundErrorNoDecoder;
    return;
  }
  pManager->ClaimStream(streamIndex);
  dTimeBase = av_q2d(stream->time_base);

  // The first frame tells the true rate and channels (an HE-AAC stream states half
  // its rate in the container) and where the stream's time begins.
  if (!ReceiveFrame()) {
    // A stream that ends cleanly before its first frame holds no sound at all (an
    // export of an empty project): it opens, empty, in the container's format.
    AVCodecParameters const* stated = stream->codecpar;
    if (bDecoderEnded && iDamagedPackets == 0 && stated->sample_rate >= 1 && stated->sample_rate <= 1000000 &&
        stated->ch_layout.nb_channels >= 1 && stated->ch_layout.nb_channels <= 255) {
      sSampleRate = stated->sample_rate;
      nChans = static_cast<std::uint8_t>(stated->ch_layout.nb_channels);
      iEnd = 0;
      return;
    }
    uErrorState = LSoundErrorParameters;
    return;
  }
  int const rate = pFrame->sample_rate;
  int const channels = pFrame->ch_layout.nb_channels;
  if (rate < 1 || rate > 1000000 || channels < 1 || channels > 255) {
    uErrorState = LSoundErrorParameters;
    return;
  }
  sSampleRate = rate;
  nChans = static_cast<std::uint8_t>(channels);
  bool const integer = !(pCodec->sample_fmt == AV_SAMPLE_FMT_FLT || pCodec->sample_fmt == AV_SAMPLE_FMT_FLTP ||
                         pCodec->sample_fmt == AV_SAMPLE_FMT_DBL || pCodec->sample_fmt == AV_SAMPLE_FMT_DBLP);
  fPeakBound = integer ? LSoundPeakInRange : LSoundPeakUnknown;

  AVCodecDescriptor const* d = avcodec_descriptor_get(pCodec->codec_id);
  bool const lossless = d && (d->props & AV_CODEC_PROP_LOSSLESS) && !(d->props & AV_CODEC_PROP_LOSSY);
  iPreroll = lossless ? 0 : std::max(kLossyPreroll, stream->codecpar->seek_preroll);

  if (pFrame->best_effort_timestamp != AV_NOPTS_VALUE) {
    iOriginPts = pFrame->best_effort_timestamp;
    bHasOriginPts = true;
  } else {
    bTimestamps = false;
  }

  iQueueCapacity = 2 * LSoundMaxReadFrames;
  // A frame has at most as many planes as FFmpeg allows channels.
  vPlanes.assign(std::max<std::size_t>(256, static_cast<std::size_t>(pFrame->ch_layout.nb_channels)), nullptr);
  vQueue.assign(static_cast<std::size_t>(iQueueCapacity) * nChans, 0.0f);
  if (!InitConverter(pFrame)) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  bPending = true;
  iPendingOffset = 0;

  // A length only where the container states it to the sample. Elsewhere (a length
  // estimated from the bit rate, kept in milliseconds, or counted in whole packets
  // as CAF and Musepack do) the source streams until the decoder has seen the end.
  if (IsLengthExact(pManager->GetFormatName()) && stream->duration != AV_NOPTS_VALUE && stream->duration > 0 &&
      format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE) {
    std::int64_t endTs = stream->duration;
    if (stream->start_time != AV_NOPTS_VALUE && bHasOriginPts) endTs += stream->start_time - iOriginPts;
    iEnd = std::max<std::int64_t>(0, av_rescale_q(endTs, stream->time_base, AVRational{1, rate}));
  }
  // The source's frames are numbered in an int.
  if (iEnd > 0x7FFFFFFF) iEnd = 0x7FFFFFFF;
}

LFFMPEGSoundSourceBase::~LFFMPEGSoundSourceBase() {
  if (pSwr) swr_free(&pSwr);
  if (pFrame) av_frame_free(&pFrame);
  if (pPacket) av_packet_free(&pPacket);
  if (pCodec) avcodec_free_context(&pCodec);
}

bool LFFMPEGSoundSourceBase::InitConverter(AVFrame const* frame) {
  AVChannelLayout in{};
  if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&in, frame->ch_layout.nb_channels);
  } else {
    av_channel_layout_copy(&in, &frame->ch_layout);
  }
  // The same count of channels passes through as it stands, whatever its layout; only
  // a stream that changes its count on the way is remixed to the count it began with.
  AVChannelLayout out{};
  if (in.nb_channels == nChans) {
    av_channel_layout_copy(&out, &in);
  } else {
    av_channel_layout_default(&out, nChans);
  }
  if (pSwr) swr_free(&pSwr);
  int r = swr_alloc_set_opts2(&pSwr, &out, AV_SAMPLE_FMT_FLT, sSampleRate, &in,
                              static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
  if (r >= 0) r = swr_init(pSwr);
  av_channel_layout_uninit(&in);
  av_channel_layout_uninit(&out);
  if (r < 0) {
    if (pSwr) swr_free(&pSwr);
    return false;
  }
  iSwrInRate = frame->sample_rate;
  iSwrInFormat = frame->format;
  iSwrInChannels = frame->ch_layout.nb_channels;
  uSwrInMask = frame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? frame->ch_layout.u.mask : 0;
  return true;
}

bool LFFMPEGSoundSourceBase::ReceiveFrame() {
  for (;;) {
    int r = avcodec_receive_frame(pCodec, pFrame);
    if (r == 0) {
      if (pFrame->nb_samples > 0) return true;
      av_frame_unref(pFrame);
      continue;
    }
    if (r == AVERROR_EOF) {
      bDecoderEnded = true;
      return false;
    }
    if (r != AVERROR(EAGAIN)) {
      ++iDamagedPackets;
      if (bInputEnded) {
        bDecoderEnded = true;
        return false;
      }
    }
    if (bInputEnded) {
      // Drained after the last packet without an end report: nothing more will come.
      bDecoderEnded = true;
      return false;
    }
    r = pManager->ReadPacket(iStream, pPacket);
    if (r < 0) {
      avcodec_send_packet(pCodec, nullptr);
      bInputEnded = true;
      continue;
    }
    r = avcodec_send_packet(pCodec, pPacket);
    av_packet_unref(pPacket);
    if (r < 0 && r != AVERROR(EAGAIN)) ++iDamagedPackets;  // the packet is dropped
  }
}

std::int64_t LFFMPEGSoundSourceBase::FrameSampleIndex() const {
  if (!bTimestamps || pFrame->best_effort_timestamp == AV_NOPTS_VALUE) return -1;
  AVStream const* stream = pManager->GetFormatContext()->streams[iStream];
  return av_rescale_q(pFrame->best_effort_timestamp - iOriginPts, stream->time_base, AVRational{1, sSampleRate});
}

bool LFFMPEGSoundSourceBase::DecodeMore() {
  if (pCodec == nullptr || pSwr == nullptr) return false;
  if (!bPending) {
    if (bDecoderEnded || !ReceiveFrame()) return false;
    bPending = true;
    iPendingOffset = 0;
    std::uint64_t const mask = pFrame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? pFrame->ch_layout.u.mask : 0;
    if (pFrame->sample_rate != iSwrInRate || pFrame->format != iSwrInFormat ||
        pFrame->ch_layout.nb_channels != iSwrInChannels || mask != uSwrInMask) {
      if (pFrame->sample_rate < 1 || !InitConverter(pFrame)) {
        // A frame that cannot be converted is dropped like a damaged packet.
        ++iDamagedPackets;
        av_frame_unref(pFrame);
        bPending = false;
        return true;
      }
    }
  }
  int const free = iQueueCapacity - iQueueCount;
  if (free <= 0) return true;
  int const tail = (iQueueStart + iQueueCount) % iQueueCapacity;
  int room = std::min(free, iQueueCapacity - tail);
  int n = pFrame->nb_samples - iPendingOffset;
  bool const resampling = iSwrInRate != sSampleRate;
  if (resampling) {
    // Output may run ahead of input by the converter's delay: feed less.
    n = std::min(n, std::max(1, room / 2));
  } else {
    n = std::min(n, room);
  }

  int const bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(pFrame->format));
  bool const planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(pFrame->format)) != 0;
  int const inChannels = pFrame->ch_layout.nb_channels;
  std::uint8_t const** inPtr = vPlanes.data();
  if (planar) {
    for (int c = 0; c < inChannels; ++c) {
      inPtr[c] = pFrame->extended_data[c] + static_cast<std::size_t>(iPendingOffset) * bytes;
    }
  } else {
    inPtr[0] = pFrame->extended_data[0] + static_cast<std::size_t>(iPendingOffset) * bytes * inChannels;
  }
  std::uint8_t* out = reinterpret_cast<std::uint8_t*>(vQueue.data() + static_cast<std::size_t>(tail) * nChans);
  int const got = swr_convert(pSwr, &out, room, inPtr, n);
  if (got < 0) {
    ++iDamagedPackets;
    av_frame_unref(pFrame);
    bPending = false;
    return true;
  }
  iQueueCount += got;
  iPendingOffset += n;
  if (iPendingOffset >= pFrame->nb_samples) {
    av_frame_unref(pFrame);
    bPending = false;
  }
  return true;
}

void LFFMPEGSoundSourceBase::ResetDecoding() {
  avcodec_flush_buffers(pCodec);
  av_frame_unref(pFrame);
  bPending = false;
  iPendingOffset = 0;
  bInputEnded = false;
  bDecoderEnded = false;
  iQueueStart = 0;
  iQueueCount = 0;
  // A resampler holds samples back; a plain conversion holds none.
  if (pSwr && iSwrInRate != sSampleRate) swr_init(pSwr);
}

void LFFMPEGSoundSourceBase::DropQueued(std::int64_t frames) {
  while (frames > 0) {
    if (iQueueCount == 0 && !DecodeMore()) return;
    int const n = static_cast<int>(std::min<std::int64_t>(frames, iQueueCount));
    iQueueStart = (iQueueStart + n) % iQueueCapacity;
    iQueueCount -= n;
    iQueueFirst += n;
    frames -= n;
  }
}

bool LFFMPEGSoundSourceBase::SeekTo(std::int64_t target) {
  AVStream const* stream = pManager->GetFormatContext()->streams[iStream];
  AVRational const frameBase{1, sSampleRate};
  auto fromStart = [&] {
    pManager->SeekStream(iStream, bHasOriginPts ? iOriginPts : 0);
    ResetDecoding();
    iQueueFirst = 0;
    DropQueued(target);
    return true;
  };
  if (!bTimestamps) return fromStart();

  std::int64_t back = iPreroll;
  for (int attempt = 0; attempt < 8; ++attempt) {
    std::int64_t const at = target - back;
    if (at <= 0) return fromStart();
    std::int64_t const ts = iOriginPts + av_rescale_q(at, frameBase, stream->time_base);
    if (!pManager->SeekStream(iStream, ts)) return fromStart();
    ResetDecoding();
    if (!ReceiveFrame()) return fromStart();  // landed behind the end: count from the start
    std::int64_t const first = FrameSampleIndex();
    if (first < 0) {
      bTimestamps = false;
      return fromStart();
    }
    if (first > at) {
      // The demuxer put us late: ask again further back.
      back += (first - at) * 2 + sSampleRate;
      continue;
    }
    bPending = true;
    iPendingOffset = 0;
    std::uint64_t const mask = pFrame->ch_layout.order == AV_CHANNEL_ORDER_NATIVE ? pFrame->ch_layout.u.mask : 0;
    if (pFrame->sample_rate != iSwrInRate || pFrame->format != iSwrInFormat ||
        pFrame->ch_layout.nb_channels != iSwrInChannels || mask != uSwrInMask) {
      if (!InitConverter(pFrame)) return fromStart();
    }
    iQueueFirst = first;
    DropQueued(target - first);
    return true;
  }
  return fromStart();
}

bool LFFMPEGSoundSourceBase::Align() {
  if (iPosition < 0 || iQueueFirst == iPosition) return true;
  std::int64_t const ahead = iPosition - iQueueFirst;
  if (ahead > 0 && ahead <= kDecodeForwardSeconds * sSampleRate) {
    DropQueued(ahead);
  } else {
    SeekTo(iPosition);
  }
  return iQueueFirst == iPosition;
}

void LFFMPEGSoundSourceBase::Read(float* buffer, int frames) {
  std::size_t const channels = nChans;
  auto silence = [&](std::int64_t n) {
    std::fill(buffer, buffer + static_cast<std::size_t>(n) * channels, 0.0f);
    buffer += static_cast<std::size_t>(n) * channels;
    frames -= static_cast<int>(n);
    iPosition += n;
  };
  while (frames > 0) {
    if (IsError() || (iEnd >= 0 && iPosition >= iEnd)) {
      silence(frames);
      return;
    }
    if (iPosition < 0) {
      silence(std::min<std::int64_t>(frames, -iPosition));
      continue;
    }
    if (!Align() || (iQueueCount == 0 && !DecodeMore())) {
      // The stream has ended before the position or the end it stated: silence from
      // here, and the end is known now if it was not.
      if (iEnd < 0) {
        iEnd = std::min(iPosition, iQueueFirst + iQueueCount);
        continue;
      }
      silence(frames);
      iQueueFirst = iPosition;
      iQueueStart = 0;
      iQueueCount = 0;
      return;
    }
    if (iQueueCount == 0) continue;  // a frame was dropped; decode the next
    int n = std::min(frames, std::min(iQueueCount, iQueueCapacity - iQueueStart));
    if (iEnd >= 0) n = static_cast<int>(std::min<std::int64_t>(n, iEnd - iPosition));
    std::copy_n(vQueue.data() + static_cast<std::size_t>(iQueueStart) * channels, static_cast<std::size_t>(n) * channels,
                buffer);
    buffer += static_cast<std::size_t>(n) * channels;
    frames -= n;
    iPosition += n;
    iQueueFirst += n;
    iQueueStart = (iQueueStart + n) % iQueueCapacity;
    iQueueCount -= n;
  }
}

int LFFMPEGSoundSourceBase::GetPositionSample() const {
  return static_cast<int>(std::clamp<std::int64_t>(iPosition, INT32_MIN, INT32_MAX));
}

int LFFMPEGSoundSourceBase::GetEndSample() const {
  if (IsError()) return 0;
  std::int64_t const end = iEnd >= 0 ? iEnd : iQueueFirst + iQueueCount;
  return static_cast<int>(std::min<std::int64_t>(end, INT32_MAX));
}

void LFFMPEGSoundSourceBase::Seek(int frame) {
  // The decoder follows at the next Read, so a seek that is followed by another
  // costs nothing.
  iPosition = frame;
}

void LFFMPEGSoundSourceBase::WaitForStreamingData(int) {
  if (IsError() || iEnd >= 0) return;
  if (!Align()) {
    iEnd = std::min(iPosition, iQueueFirst + iQueueCount);
    return;
  }
  // Enough for a few reads at once, not just one frame of the codec.
  while (iQueueCount < iQueueCapacity / 2) {
    if (!DecodeMore()) {
      iEnd = iQueueFirst + iQueueCount;
      return;
    }
  }
}
