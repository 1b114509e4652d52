#pragma once
#include <cstdint>

#include "codecs/mp3_bitstream.h"
#include "codecs/mp3_header.h"
#include "codecs/mp3_synthesis.h"

// Side information of one granule of one channel.
struct LMP3GranuleInfo {
  int iPart23Length = 0;
  int iBigValues = 0;
  int iGlobalGain = 0;
  int iScalefacCompress = 0;
  bool bWindowSwitching = false;
  int iBlockType = 0;
  bool bMixedBlock = false;
  int aTableSelect[3] = {};
  int aSubblockGain[3] = {};
  int iRegion1Start = 0;  // spectral lines
  int iRegion2Start = 0;
  bool bPreflag = false;
  bool bScalefacScale = false;
  int iCount1Table = 0;
};

struct LMP3SideInfo {
  int iMainDataBegin = 0;
  int aScfsi[2][4] = {};
  LMP3GranuleInfo aGranule[2][2];  // [granule][channel]
};

// Decodes Layer III frames to integer samples. It keeps what runs from frame to
// frame: the bit reservoir, the scale factors a second granule may reuse, the IMDCT
// overlap and the filter bank history. Nothing is allocated after construction.
class LMP3Layer3Decoder {
 public:
  LMP3Layer3Decoder();

  // Forgets everything carried between frames, as after a jump in the stream.
  void Reset();

  // Reads the side information that follows the header (and its CRC) and tests that
  // it can be decoded: `mainBytes` is what the frame holds after it. False for side
  // information no encoder writes; the frame is then not to be decoded.
  bool DecodeSideInformation(LMP3Header const& header, std::uint8_t const* side, int mainBytes);

  // Decodes the frame whose side information was read last; `main` holds the
  // frame's bytes after the side information. Writes frame samples * channels
  // interleaved integers, or as floats those integers times 2^-27. A frame whose main
  // data begins in bytes the reservoir does not hold (the first frames after a jump)
  // gives silence.
  void DecodeFrame(LMP3Header const& header, std::uint8_t const* main, int mainBytes, std::int32_t* out);
  void DecodeFrame(LMP3Header const& header, std::uint8_t const* main, int mainBytes, float* out);

  LMP3SideInfo const& GetSideInfo() const { return side; }

  // Main data bytes the reservoir keeps at most.
  static constexpr int kReservoirBytes = 4096;

 private:
  struct Channel;
  // Decodes the frame into aPcm; gives the samples per channel.
  int DecodeToPcm(LMP3Header const& header, std::uint8_t const* main, int mainBytes);
  void DecodeGranule(LMP3Header const& header, int gr);
  void DecodeScaleFactors(LMP3Header const& header, int gr, int ch);
  // Huffman decoding and requantisation in one pass, in stream order.
  void DecodeSpectrum(LMP3Header const& header, int gr, int ch, std::size_t end);
  // The gain of each scale factor band (or band-window of a short block) in stream
  // order, with the line each ends at; gives their count.
  static constexpr int kMaxBands = 40;
  int BandGains(LMP3Header const& header, int gr, int ch, int* ends, float* gains) const;
  void JointStereoProcessing(LMP3Header const& header, int gr);
  void AliasReduction(int gr, int ch);
  void InverseMdct(int gr, int ch);

  struct Channel {
    int aScaleLong[22];
    int aScaleShort[13][3];
    // The largest intensity position the scale factor's length allows; a band at
    // it is not intensity coded (MPEG-2).
    int aMaxLong[22];
    int aMaxShort[13][3];
    float aSpectrum[576];  // requantised in stream order, then reordered
    int iNonZero = 0;      // lines from this one on are zero
    float aOverlap[18][32];  // the second half of the last IMDCT, by time slot and sub-band
    alignas(16) float aSlots[32][LMP3SlotStride];  // the frame's IMDCT output by sub-band and time slot
  };

  LMP3SideInfo side;
  Channel aChannel[2];
  LMP3PolyphaseSynth aSynth[2];
  alignas(16) float aPcm[2][LMP3SlotStride * 32];  // the frame's samples, channel by channel
  std::uint8_t aMain[kReservoirBytes + 2048 + LMP3BitReader::kPadBytes];
  int iMainBytes = 0;   // bytes held in aMain
  int iMainStart = 0;   // where the current frame's main data starts, or -1 if not held
  LMP3BitReader bits;
  int iChannels = 1;
};
