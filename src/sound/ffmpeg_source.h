#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "foundation/counted.h"
#include "sound/sound_source.h"

struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwrContext;

// Foreign formats through the linked FFmpeg libraries: every container FFmpeg
// demuxes (Ogg, FLAC, MP4/M4A, ADTS, AMR, Matroska, AVI, MOV, ...) and every sound
// codec it decodes, the sound of video files included.
//
// Since FFmpeg 4 the codec and format calls need no lock manager of ours: opening
// and closing codecs is thread-safe, and each source owns its contexts.

// The name FFmpeg gives the codec of WAV format tag `tag` ("adpcm_ms"), or empty
// when it knows no such tag.
std::string LFFMPEGWavCodecName(int tag);

// A media file opened by FFmpeg's demuxer: what it holds, and its sound streams.
class LFFMPEGSourceManagerBase : public LCountedObject {
 public:
  explicit LFFMPEGSourceManagerBase(std::string const& path);
  ~LFFMPEGSourceManagerBase() override;

  // 0 when the file is open; else the state a source made of it carries: 4 cannot be
  // read, 1 FFmpeg knows no format of it, 3 the format is known but the file is
  // damaged or truncated.
  std::uint8_t GetErrorState() const { return uErrorState; }

  int GetSoundStreamCount() const { return static_cast<int>(vSoundStreams.size()); }
  // The container's index of the `n`-th sound stream, or -1. With `decodableOnly`
  // the count skips streams whose codec this FFmpeg cannot decode.
  int GetSoundStreamIndex(int n, bool decodableOnly) const;
  // The name of the codec of the `n`-th sound stream (at most `size` bytes with the
  // terminator); false when there is no such stream. With `longName`, the
  // descriptive name ("FLAC (Free Lossless Audio Codec)").
  bool GetSoundStreamComponent(int n, char* name, int size, bool longName) const;
  // The format's short name ("ogg", "mov,mp4,m4a,3gp,3g2,mj2"), or empty.
  std::string GetFormatName() const;

  AVFormatContext* GetFormatContext() const { return pFormat; }

 protected:
  AVFormatContext* pFormat = nullptr;
  std::uint8_t uErrorState = 0;
  std::vector<int> vSoundStreams;
};

// Adds the demuxing, shared: every consumer (a sound source, a video source of the
// same file) claims its stream and asks for its packets; packets of another claimed
// stream wait in that stream's queue, those of unclaimed streams are never read.
// Consumers hold the manager by counted pointer, so the file stays open while any
// of them lives.
class LFFMPEGSourceManager : public LFFMPEGSourceManagerBase {
 public:
  explicit LFFMPEGSourceManager(std::string const& path);
  ~LFFMPEGSourceManager() override;

  // The one function that makes sources of files: the source over the `n`-th
  // decodable sound stream, or an error source with the state that tells why.
  static LSoundSource GetSoundSource(std::string const& path, int n = 0);

  void ClaimStream(int index);
  // The next packet of stream `index` into `packet` (which the caller unrefs).
  // 0, or a negative FFmpeg code at the end of the file or on a read error.
  int ReadPacket(int index, AVPacket* packet);
  // Seeks the demuxer so that stream `index` continues at or before `timestamp` (in
  // the stream's time base); every queue is emptied, since all consumers move.
  bool SeekStream(int index, std::int64_t timestamp);

 private:
  struct Queue {
    int iIndex;
    std::deque<AVPacket*> packets;
  };
  Queue* FindQueue(int index);
  void ClearQueues();

  std::vector<Queue> vQueues;
};

// A sound stream of a media file as a seekable source of float frames at the
// stream's own rate and channel count; swresample turns every sample format and
// channel layout into interleaved float, and a stream whose rate changes on the way
// is brought back to the rate it began with.
//
// The length is the container's when the container states it exactly. When the
// container only estimates it (a raw ADTS or AMR stream, a stream without an
// index), IsStreaming is true and the end is what has been decoded so far, until
// the decoder reaches the file's end; WaitForStreamingData decodes ahead.
//
// A seek is sample-accurate where the stream has timestamps: the demuxer is put
// somewhat before the target, enough for a lossy decoder to warm up, and frames are
// decoded and dropped up to the target; a demuxer that lands late is asked again
// further back. Without timestamps the stream is decoded from its start.
//
// Buffers (packet, frame, the converted frames waiting) are made when the source
// opens and Read allocates nothing of its own; libavformat and libavcodec keep
// pools of their own for packet payloads. A damaged packet is dropped and decoding
// goes on with the next.
class LFFMPEGSoundSourceBase : public LSoundSourceBase {
 public:
  // `streamIndex` is the container's index of a sound stream of `manager`.
  LFFMPEGSoundSourceBase(LCountedPtr<LFFMPEGSourceManager> manager, int streamIndex);
  ~LFFMPEGSoundSourceBase() override;

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override;
  int GetEndSample() const override;
  void Seek(int frame) override;
  bool IsStreaming() const override { return iEnd < 0; }
  // Decodes ahead instead of sleeping: the data comes from this thread's work.
  void WaitForStreamingData(int ms) override;

  // Frames skipped because packets were damaged, for tests and the info command.
  int GetDamagedPackets() const { return iDamagedPackets; }

 private:
  bool InitConverter(AVFrame const* frame);
  // Gets the next decoded frame into pFrame; false at the end of the stream.
  bool ReceiveFrame();
  // Converts more of the pending frame (decoding one when none is pending) into the
  // queue of converted frames; false when the stream has ended.
  bool DecodeMore();
  // The sample index of pFrame's first sample by its timestamp, or -1.
  std::int64_t FrameSampleIndex() const;
  void ResetDecoding();
  bool SeekTo(std::int64_t target);
  // Brings the queue's first frame to the position, by decoding forward or by a
  // seek; false when the stream ends before it.
  bool Align();
  void DropQueued(std::int64_t frames);

  LCountedPtr<LFFMPEGSourceManager> pManager;
  int iStream;
  AVCodecContext* pCodec = nullptr;
  AVPacket* pPacket = nullptr;
  AVFrame* pFrame = nullptr;
  SwrContext* pSwr = nullptr;
  // What the converter was set up for, so a change in the stream is noticed.
  int iSwrInRate = 0;
  int iSwrInFormat = -1;
  int iSwrInChannels = 0;
  std::uint64_t uSwrInMask = 0;

  // Converted frames waiting to be read: a ring of iQueueCapacity frames.
  std::vector<float> vQueue;
  std::vector<std::uint8_t const*> vPlanes;  // input planes of one conversion
  int iQueueCapacity = 0;
  int iQueueStart = 0;
  int iQueueCount = 0;

  int iPendingOffset = 0;  // samples of pFrame already converted
  bool bPending = false;   // pFrame holds a frame not yet fully converted
  bool bInputEnded = false;
  bool bDecoderEnded = false;
  int iDamagedPackets = 0;

  std::int64_t iPosition = 0;     // the next frame Read gives
  std::int64_t iQueueFirst = 0;   // the frame index of the queue's first frame
  std::int64_t iEnd = -1;         // known end, or -1 while streaming
  std::int64_t iOriginPts = 0;    // timestamp of the stream's first sample
  bool bHasOriginPts = false;
  bool bTimestamps = true;        // frames carry timestamps seeks can rely on
  int iPreroll = 0;               // frames decoded before a seek target
  double dTimeBase = 0;           // seconds per timestamp unit
};
