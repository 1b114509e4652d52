#include "sound/ima_adpcm.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

constexpr int kMaxChannels = 255;
constexpr int kMaxStepIndex = 88;

constexpr std::array<std::int16_t, kMaxStepIndex + 1> kStepTable = {
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

// How the step index moves after each code: small magnitudes shrink the step, large
// ones grow it faster the larger they are. The sign bit does not matter.
constexpr std::array<int, 8> kIndexAdjust = {-1, -1, -1, -1, 2, 4, 6, 8};

// The running state of one channel, the same on both sides of the codec.
struct ChannelState {
  int predictor;
  int index;

  // Applies one 4-bit code; the encoder calls this too, so its reconstruction can never
  // drift from what a decoder will compute.
  std::int16_t Apply(unsigned code) {
    int const step = kStepTable[static_cast<std::size_t>(index)];
    int diff = step >> 3;
    if (code & 4) diff += step;
    if (code & 2) diff += step >> 1;
    if (code & 1) diff += step >> 2;
    predictor = std::clamp(code & 8 ? predictor - diff : predictor + diff, -32768, 32767);
    index = std::clamp(index + kIndexAdjust[code & 7], 0, kMaxStepIndex);
    return static_cast<std::int16_t>(predictor);
  }

  // The code whose reconstruction comes nearest to `sample` from the current state.
  unsigned Quantize(int sample) const {
    int step = kStepTable[static_cast<std::size_t>(index)];
    int diff = sample - predictor;
    unsigned code = 0;
    if (diff < 0) {
      code = 8;
      diff = -diff;
    }
    // Successive approximation over the same step fractions Apply adds back.
    if (diff >= step) {
      code |= 4;
      diff -= step;
    }
    step >>= 1;
    if (diff >= step) {
      code |= 2;
      diff -= step;
    }
    step >>= 1;
    if (diff >= step) code |= 1;
    return code;
  }
};

bool ChannelsOk(int channels) {
  return channels >= 1 && channels <= kMaxChannels;
}

// A starting step near the size of the first sample-to-sample changes, so the block
// does not spend its first samples growing the step from the bottom.
int InitialIndex(const std::int16_t* in, int frames, int channels, int channel) {
  int largest = 0;
  for (int f = 1; f < std::min(frames, 9); ++f) {
    int const d = std::abs(in[f * channels + channel] - in[(f - 1) * channels + channel]);
    largest = std::max(largest, d);
  }
  int index = 0;
  while (index < kMaxStepIndex && kStepTable[static_cast<std::size_t>(index)] * 2 < largest) ++index;
  return index;
}

}  // namespace

int LImaAdpcmFramesPerBlock(int blockAlign, int channels) {
  if (!ChannelsOk(channels) || blockAlign < 4 * channels) return 0;
  return (blockAlign - 4 * channels) * 8 / (4 * channels) + 1;
}

int LImaAdpcmDecodeBlock(const std::uint8_t* block, int blockBytes, int channels, std::int16_t* out) {
  if (!ChannelsOk(channels) || blockBytes < 4 * channels) return 0;

  ChannelState state[kMaxChannels];
  for (int c = 0; c < channels; ++c) {
    std::uint8_t const* h = block + 4 * c;
    state[c].predictor = static_cast<std::int16_t>(h[0] | (h[1] << 8));
    // A corrupt index would read past the step table: clamp it and decode on.
    state[c].index = std::min<int>(h[2], kMaxStepIndex);
    out[c] = static_cast<std::int16_t>(state[c].predictor);
  }

  int const groupBytes = 4 * channels;
  int const dataBytes = blockBytes - groupBytes;
  int const groups = dataBytes / groupBytes;
  // In a cut-off last group the later channels run short first: only the frames every
  // channel has are whole.
  int const tailFrames = 2 * std::clamp(dataBytes % groupBytes - 4 * (channels - 1), 0, 4);
  int const frames = 1 + 8 * groups + tailFrames;

  std::uint8_t const* data = block + groupBytes;
  for (int g = 0; g <= groups; ++g) {
    int const groupFrames = g < groups ? 8 : tailFrames;
    for (int c = 0; c < channels; ++c) {
      std::uint8_t const* word = data + g * groupBytes + 4 * c;
      std::int16_t* o = out + (1 + 8 * g) * channels + c;
      for (int i = 0; i < groupFrames; ++i) {
        unsigned const code = (word[i >> 1] >> ((i & 1) * 4)) & 0xF;
        o[i * channels] = state[c].Apply(code);
      }
    }
  }
  return frames;
}

int LImaAdpcmEncodeBlock(const std::int16_t* in, int frames, int channels, int blockAlign, std::uint8_t* out) {
  int const perBlock = LImaAdpcmFramesPerBlock(blockAlign, channels);
  int const groupBytes = 4 * channels;
  // With more than one channel the data must be whole groups, or a decoder would find
  // some channels shorter than the frame count promises.
  if (perBlock == 0 || frames < 1 || (channels > 1 && (blockAlign - groupBytes) % groupBytes != 0)) return 0;
  frames = std::min(frames, perBlock);

  ChannelState state[kMaxChannels];
  for (int c = 0; c < channels; ++c) {
    state[c].predictor = in[c];
    state[c].index = InitialIndex(in, frames, channels, c);
    std::uint8_t* h = out + 4 * c;
    h[0] = static_cast<std::uint8_t>(in[c] & 0xFF);
    h[1] = static_cast<std::uint8_t>((in[c] >> 8) & 0xFF);
    h[2] = static_cast<std::uint8_t>(state[c].index);
    h[3] = 0;
  }

  std::fill(out + groupBytes, out + blockAlign, std::uint8_t{0});
  for (int f = 1; f < perBlock; ++f) {
    // Past the input, repeating the last frame keeps the codes small and the padding quiet.
    std::int16_t const* frame = in + (std::min(f, frames - 1)) * channels;
    int const n = f - 1;  // sample number within the data
    for (int c = 0; c < channels; ++c) {
      unsigned const code = state[c].Quantize(frame[c]);
      state[c].Apply(code);
      // 8 samples per channel word; for mono this is simply one run of nibbles.
      int const byte = (n / 8) * groupBytes + 4 * c + (n % 8) / 2;
      out[groupBytes + byte] |= static_cast<std::uint8_t>(code << ((n & 1) * 4));
    }
  }
  return blockAlign;
}
