#pragma once
#include <cstdint>

#include "foundation/process_interface.h"
#include "foundation/sdf.h"
#include "project/cut_list_audio.h"
#include "sound/sound_source.h"

// Fills a cut list from any source: the source is copied into a new file pair of
// the data folder and the list becomes one segment over it. This is how every
// import, recording rescue and render enters a project.
struct LCutListAudioLoadSource {
  char const* szTitle = "";
  LCutListAudio* pList = nullptr;
  LSoundSource lssSource;
};

inline constexpr char LCutListNoSpaceText[] = "Insufficient hard drive space to store the audio.";
inline constexpr char LCutListNoAccessText[] =
    "Accessed to working folder denied. Please check the permissions on your working folder.";

// 0 done, 1 stopped, 2 failed; a failure of its own goes into the list's error
// text. After a stop the list holds what was written, for the caller to drop.
LProcessResult Process(LProcessInterface& pi, LCutListAudioLoadSource& job);

// Free bytes for an unprivileged writer on the volume of `path`, or -1.
std::int64_t LFreeSpaceOfVolume(char const* path);

// Chunk ids of a cut list inside its container in a saved structure.
namespace LCutListChunk {
inline constexpr std::uint16_t Segment = 0x1000;  // container, one per segment
inline constexpr std::uint16_t SampleRate = 0x2000;
inline constexpr std::uint16_t Channels = 0x2001;
inline constexpr std::uint16_t Cut = 0x2002;
inline constexpr std::uint16_t Start = 0x2003;
inline constexpr std::uint16_t Length = 0x2004;
inline constexpr std::uint16_t GainFixed = 0x2005;  // gain x 2^24, all that old files have
inline constexpr std::uint16_t Gain = 0x2006;
}  // namespace LCutListChunk

// Writes the list as container `id` of the chunk open in `writer`, with the
// list's and its segments' foreign chunks back in their places. 1 when stopped,
// 2 when the writer failed.
template <class Stream>
LProcessResult ProcessSaveCutListAudioLink(LProcessInterface& pi, LSDFWriter<Stream>& writer, std::uint16_t id,
                                           LCutListAudio const& list);

// Reads a list from its container chunk; chunks it does not know are kept. `list`
// is replaced. 2 on damage, 1 when stopped.
template <class Stream>
LProcessResult ProcessLoadCutListAudioLink(LProcessInterface& pi, LSDFReader<Stream>& reader,
                                           LSDFReaderChunk<Stream> const& container, LCutListAudio& list);

// The older layout, plain ints in a row from the iterator on: rate, channels,
// segment count, then cut, start, length and fixed gain per segment. The iterator
// ends on the chunk after the last one read.
template <class Stream>
LProcessResult ProcessLoadCutListAudioLink(LProcessInterface& pi, LSDFReaderChunkIterator<Stream>& it,
                                           LCutListAudio& list);

// Audio stored inside a project file of the oldest kind: int rate, one byte of
// channels, int frame count, then the float frames, which go to a new file pair.
template <class Stream>
LProcessResult ProcessLoadCutListAudio(LProcessInterface& pi, Stream& stream, LCutListAudio& list);
// The same with 32-bit integer frames.
template <class Stream>
LProcessResult ProcessLoadCutListAudioFromLegacyInt(LProcessInterface& pi, Stream& stream, LCutListAudio& list);
