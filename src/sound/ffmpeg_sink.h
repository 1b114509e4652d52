#pragma once
#include <string>
#include <utility>
#include <vector>

#include "sound/encoder_sinks.h"
#include "sound/sound_sink.h"

struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwrContext;

// The writers that the platform's encoders served elsewhere (AAC, ALAC in M4A and
// CAF, AMR, QuickTime movies): FFmpeg's encoders and muxers, linked.

struct LFFMPEGEncodeSettings {
  std::string szFormat;  // the muxer: "adts", "ipod", "mov", "caf", "amr"
  std::string szCodec;   // the encoder: "aac", "alac", "libopencore_amrnb", "pcm_s16be"
  int iBitRate = 0;      // bits a second; 0 leaves the encoder's own
  int iBitDepth = 16;    // of an integer codec that offers several (ALAC: 16 or 24)
  // Private options of the encoder and of the muxer, by name.
  std::vector<std::pair<std::string, std::string>> vCodecOptions;
  std::vector<std::pair<std::string, std::string>> vFormatOptions;
};

// Encodes into a container. The sink takes the rate and channel count it is asked
// for when the encoder can, else the nearest rate the encoder offers and stereo (or
// mono); callers read them back and convert. Frames are gathered to the encoder's
// frame size; Finish encodes the rest, drains the encoder and writes the trailer.
class LFFMPEGEncodeSink : public LSoundSinkBase {
 public:
  LFFMPEGEncodeSink(std::string const& path, int rate, int channels, LFFMPEGEncodeSettings const& settings,
                    LSoundTags const* tags);
  ~LFFMPEGEncodeSink() override;

  void Write(float const* buffer, int frames) override;
  bool Finish() override;

 private:
  bool Open(std::string const& path, int rate, int channels, LFFMPEGEncodeSettings const& settings,
            LSoundTags const* tags);
  // Converts the gathered frames into one encoder frame and encodes it.
  bool EncodeGathered();
  // Writes every packet the encoder has ready.
  bool Drain();
  // The container's head, written when the first sound or the end comes: a QuickTime
  // family muxer leaves a track without samples out of the file altogether, so a
  // sink that was given nothing asks it for an empty index that keeps the track.
  bool WriteHeader(bool empty);
  void Fail() { uErrorFlags |= LSoundSinkErrorFailed; }
  void Close();

  AVFormatContext* pFormat = nullptr;
  AVCodecContext* pCodec = nullptr;
  AVFrame* pFrame = nullptr;
  AVPacket* pPacket = nullptr;
  SwrContext* pSwr = nullptr;
  int iStream = 0;
  int iFrameSize = 0;
  bool bSmallLastFrame = false;
  std::vector<float> vGather;  // one encoder frame, interleaved
  int iGathered = 0;
  std::int64_t iNextPts = 0;
  std::vector<std::pair<std::string, std::string>> vFormatOptions;
  bool bOpened = false;
  bool bHeaderWritten = false;
  bool bFinished = false;
  bool bResult = false;
};

// The AAC settings of the "AACEncoder" section.
struct LAACEncodeSettings {
  bool bAverageBitRate = false;  // else the quality scale
  int iABRBitRate = 128;         // kbit/s
  int iVBRQuality = 100;         // 10 to 500, 100 about 128 kbit/s in stereo
  bool bForceMPEG2 = false;      // an ADTS stream marked MPEG-2
  bool bDisableTNS = false;      // no temporal noise shaping
};

// ".aac": ADTS. ".m4a", ".m4r": `container` "ipod".
LSoundSink OpenAACSink(std::string const& path, int rate, int channels, LAACEncodeSettings const& settings,
                       LSoundTags const* tags, char const* container = "adts");
// Apple Lossless in an M4A file, 16 or 24 bits.
LSoundSink OpenM4AALACSink(std::string const& path, int rate, int channels, int bitDepth, LSoundTags const* tags);
// Apple Lossless in a CAF file.
LSoundSink OpenALACSink(std::string const& path, int rate, int channels, int bitDepth);
// AMR narrow band, 8000 Hz mono; `mode` 0 to 7 is 4.75 to 12.2 kbit/s.
LSoundSink OpenAMRSink(std::string const& path, int mode);

namespace LQTMovEncode {
// A QuickTime movie of 16-bit big-endian PCM sound.
LSoundSink OpenSink(std::string const& path, int rate, int channels, LSoundTags const* tags);
}  // namespace LQTMovEncode
