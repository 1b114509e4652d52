#include "sound/dialogic_adpcm.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kSteps[49] = {16,  17,  19,  21,  23,  25,  28,  31,  34,  37,  41,  45,   50,   55,   60,   66,   73,
                            80,  88,  97,  107, 118, 130, 143, 157, 173, 190, 209, 230,  253,  279,  307,  337,  371,
                            408, 449, 494, 544, 598, 658, 724, 796, 876, 963, 1060, 1166, 1282, 1411, 1552};
constexpr int kIndexMove[8] = {-1, -1, -1, -1, 2, 4, 6, 8};

// The 12-bit scale of the codec against float full scale.
constexpr float kScale = 2048.0f;
constexpr int kReadBytes = 4096;

}  // namespace

int LDialogicADPCMDecode(LDialogicADPCMState& state, int nibble) {
  int const step = kSteps[std::clamp(state.iStepIndex, 0, 48)];
  int diff = step >> 3;
  if (nibble & 1) diff += step >> 2;
  if (nibble & 2) diff += step >> 1;
  if (nibble & 4) diff += step;
  if (nibble & 8) diff = -diff;
  state.iPredictor = std::clamp(state.iPredictor + diff, -2048, 2047);
  state.iStepIndex = std::clamp(state.iStepIndex + kIndexMove[nibble & 7], 0, 48);
  return state.iPredictor;
}

int LDialogicADPCMEncode(LDialogicADPCMState& state, int sample) {
  int const step = kSteps[std::clamp(state.iStepIndex, 0, 48)];
  int d = std::clamp(sample, -2048, 2047) - state.iPredictor;
  int nibble = 0;
  if (d < 0) {
    nibble = 8;
    d = -d;
  }
  if (d >= step) {
    nibble |= 4;
    d -= step;
  }
  if (d >= step >> 1) {
    nibble |= 2;
    d -= step >> 1;
  }
  if (d >= step >> 2) nibble |= 1;
  LDialogicADPCMDecode(state, nibble);
  return nibble;
}

// ---------------------------------------------------------------------------

LSRCDialogicADPCM::LSRCDialogicADPCM(LFile file, int rate, int channels, std::int64_t dataStart,
                                     std::int64_t dataBytes)
    : LSoundSourceBase(rate, channels, LSoundPeakInRange),
      lfFile(std::move(file)),
      iDataStart(dataStart),
      iDataBytes(std::max<std::int64_t>(dataBytes, 0)),
      vStates(nChans),
      vBytes(kReadBytes) {
  if (!lfFile.IsOpen()) {
    uErrorState = 4;
    return;
  }
  sEnd = static_cast<int>(std::min<std::int64_t>(iDataBytes * 2 / nChans, 0x7FFFFFFF));
}

void LSRCDialogicADPCM::Restart() {
  std::fill(vStates.begin(), vStates.end(), LDialogicADPCMState{});
  iDecoded = 0;
  iNibble = 0;
}

void LSRCDialogicADPCM::Decode(float* out, int frames) {
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < nChans; ++c, ++iNibble) {
      std::int64_t const byte = iNibble >> 1;
      if (byte < iBytesStart || byte >= iBytesStart + iBytesValid) {
        iBytesStart = byte;
        std::int64_t const got = lfFile.ReadAt(vBytes.data(), vBytes.size(), iDataStart + byte);
        iBytesValid = static_cast<int>(std::clamp<std::int64_t>(got, 0, std::min<std::int64_t>(kReadBytes, iDataBytes - byte)));
      }
      int sample = 0;
      if (byte - iBytesStart < iBytesValid) {
        std::uint8_t const b = vBytes[static_cast<std::size_t>(byte - iBytesStart)];
        sample = LDialogicADPCMDecode(vStates[static_cast<std::size_t>(c)], (iNibble & 1) ? (b & 15) : (b >> 4));
      }
      if (out) *out++ = static_cast<float>(sample) / kScale;
    }
  }
  iDecoded += frames;
}

void LSRCDialogicADPCM::Read(float* buffer, int frames) {
  while (frames > 0) {
    if (IsError() || sPosition >= sEnd || sPosition < 0) {
      int n = frames;
      if (sPosition < 0 && !IsError()) n = static_cast<int>(std::min<std::int64_t>(frames, -static_cast<std::int64_t>(sPosition)));
      std::fill(buffer, buffer + static_cast<std::size_t>(n) * nChans, 0.0f);
      buffer += static_cast<std::size_t>(n) * nChans;
      frames -= n;
      sPosition += n;
      continue;
    }
    if (sPosition < iDecoded) Restart();
    while (iDecoded < sPosition) {
      int const skip = static_cast<int>(std::min<std::int64_t>(sPosition - iDecoded, LSoundMaxReadFrames));
      Decode(nullptr, skip);
    }
    int const n = std::min(frames, sEnd - sPosition);
    Decode(buffer, n);
    buffer += static_cast<std::size_t>(n) * nChans;
    frames -= n;
    sPosition += n;
  }
}

// ---------------------------------------------------------------------------

LSNKDialogicADPCM::LSNKDialogicADPCM(std::string const& path, int rate, int channels)
    : LSoundSinkBase(rate, channels), vStates(nChans), vBytes(kReadBytes) {
  if (IsError()) return;
  if (!lfFile.OpenCreate(path)) uErrorFlags |= LSoundSinkErrorFailed;
}

LSNKDialogicADPCM::~LSNKDialogicADPCM() { Finish(); }

void LSNKDialogicADPCM::Flush() {
  if (iBytes > 0 && lfFile.Write(vBytes.data(), static_cast<std::size_t>(iBytes)) != iBytes) {
    uErrorFlags |= LSoundSinkErrorFailed;
  }
  iBytes = 0;
}

void LSNKDialogicADPCM::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError() || bFinished) return;
  sPosition += frames;
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < nChans; ++c) {
      int const sample = static_cast<int>(std::lround(std::clamp(*buffer++, -1.0f, 1.0f) * kScale));
      int const nibble = LDialogicADPCMEncode(vStates[static_cast<std::size_t>(c)], sample);
      if (iHalf < 0) {
        iHalf = nibble;
        continue;
      }
      vBytes[static_cast<std::size_t>(iBytes++)] = static_cast<std::uint8_t>((iHalf << 4) | nibble);
      iHalf = -1;
      if (iBytes == kReadBytes) Flush();
    }
  }
}

bool LSNKDialogicADPCM::Finish() {
  if (bFinished) return !IsError();
  bFinished = true;
  if (IsError()) return false;
  if (iHalf >= 0) {
    vBytes[static_cast<std::size_t>(iBytes++)] = static_cast<std::uint8_t>(iHalf << 4);
    iHalf = -1;
  }
  Flush();
  lfFile.Close();
  return !IsError();
}
