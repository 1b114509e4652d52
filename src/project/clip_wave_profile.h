#pragma once
#include <cstdint>

#include "project/cut_list_audio.h"

// The outline of a clip as drawn: per pixel the highest positive and the deepest
// negative sample over all channels, as bytes 0..255 of full scale.
//
// Zoomed in, fewer than this many frames fall on a pixel and the samples are read;
// zoomed out, the .grf summaries are, at a 512th of the cost, since one record
// then covers about a pixel.
inline constexpr int TDProfileHighResThreshold = 257;
inline constexpr int TDProfileMaxPixels = 4096;

// Both fill `upper` and `lower` for `pixels` pixels over frames [startFrame,
// endFrame) of the list; pixel i covers frames floor(i x spp) to floor((i + 1) x
// spp) from the start, spp being the frames per pixel. A pixel with no frames is 0.
void TDProfileHighRes(LCutListAudio const& list, std::int64_t startFrame, std::int64_t endFrame, int pixels,
                      std::uint8_t* upper, std::uint8_t* lower);
// From the .grf files: whole records of 256 frames, each peak byte times the
// segment's gain (silence has none), capped at 255.
void TDProfileLowRes(LCutListAudio const& list, std::int64_t startFrame, std::int64_t endFrame, int pixels,
                     std::uint8_t* upper, std::uint8_t* lower);
