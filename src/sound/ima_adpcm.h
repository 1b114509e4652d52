#pragma once
#include <cstdint>

// IMA ADPCM in the block layout of WAVE format tag 0x11: 4 bits a sample, blocks that
// each start from a stored predictor, so any block decodes on its own and a reader can
// seek by whole blocks.
//
// A block holds, for each channel, a 4-byte header (predictor as little-endian int16,
// step index 0..88, one reserved byte); the header's predictor is the block's first
// frame. Then come groups of 4 bytes per channel in channel order, each carrying the
// next 8 samples of its channel, low nibble first.
//
// Channel counts outside 1..255 are refused (0 frames, 0 bytes).

// Frames in one IMA ADPCM WAV block: (blockAlign - 4*channels) * 8 / (4*channels) + 1;
// 0 if the block is too small.
int LImaAdpcmFramesPerBlock(int blockAlign, int channels);

// Decodes one block of `blockBytes` bytes (a short last block is allowed: decode what is
// whole) into interleaved int16 `out` (room for
// LImaAdpcmFramesPerBlock(blockBytes, channels) * channels samples). Returns the frames
// written. Clamps bad step indices instead of reading tables out of bounds.
int LImaAdpcmDecodeBlock(const std::uint8_t* block, int blockBytes, int channels, std::int16_t* out);

// Encodes `frames` interleaved frames into one block of `blockAlign` bytes. Frames
// beyond LImaAdpcmFramesPerBlock(blockAlign, channels) are ignored; a block that gets
// fewer (the last of a file) is filled up by repeating the last frame. Returns the bytes
// written, which is blockAlign, or 0 for parameters that make no block.
int LImaAdpcmEncodeBlock(const std::int16_t* in, int frames, int channels, int blockAlign, std::uint8_t* out);
