#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "foundation/sdf.h"
#include "project/audio_cut_tank.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// One stretch of a cut list: `iLength` frames of audio file `cut` from frame
// `iStart`, times `fGain`. A segment holds one reference on its file in the tank
// for as long as it exists: a copy takes another, destruction gives it back, so
// no file a segment names can leave the disk.
class LCutListSegment {
 public:
  // Silence of no length.
  LCutListSegment() = default;
  // Takes a reference of its own on `cut`.
  LCutListSegment(LAudioCutRef cut, int start, int length, float gain = 1.0f);
  // Takes over a reference the caller already holds (from CreateNewRefAndIncRef).
  static LCutListSegment Adopt(LAudioCutRef cut, int start, int length, float gain = 1.0f);

  LCutListSegment(LCutListSegment const& other);
  LCutListSegment(LCutListSegment&& other) noexcept;
  LCutListSegment& operator=(LCutListSegment const& other);
  LCutListSegment& operator=(LCutListSegment&& other) noexcept;
  ~LCutListSegment();

  LAudioCutRef GetCut() const { return cut; }
  // Takes a reference on the new file before giving back the old one.
  void SetCut(LAudioCutRef number);
  bool IsSilence() const { return cut == LAudioCutRefNull; }

  int iStart = 0;
  int iLength = 0;
  float fGain = 1.0f;
  LSDFUnknownChunkList lUnknown;

 private:
  LAudioCutRef cut = LAudioCutRefNull;
};

// Audio as an ordered list of segments over the immutable files of the data
// folder. Every edit rearranges segments and never touches a file, so cut, paste
// and silence are instant and a copy of a list (an undo snapshot) costs only
// references.
//
// Positions are sample frames of the list. The segments are kept in a balanced
// tree ordered by position and summed by length, so finding a frame and every
// edit cost the logarithm of the segment count plus the segments actually added
// or removed, however long the list or the audio.
class LCutListAudio {
 public:
  LCutListAudio() = default;
  virtual ~LCutListAudio();
  LCutListAudio(LCutListAudio const& other);
  LCutListAudio& operator=(LCutListAudio const& other);
  LCutListAudio(LCutListAudio&& other) noexcept;
  LCutListAudio& operator=(LCutListAudio&& other) noexcept;

  int GetSampleRate() const { return iSampleRate; }
  void SetSampleRate(int rate) { iSampleRate = rate; }
  int GetChannels() const { return nChannels; }
  void SetChannels(int channels) { nChannels = static_cast<unsigned char>(channels); }
  std::uint8_t GetFlag() const { return bFlag; }
  void SetFlag(std::uint8_t flag) { bFlag = flag; }
  // Why the last fill of the list failed, in the program's words.
  std::string const& GetErrorText() const { return szErrorText; }
  void SetErrorText(std::string text) { szErrorText = std::move(text); }
  LSDFUnknownChunkList& GetUnknownChunks() { return lUnknown; }
  LSDFUnknownChunkList const& GetUnknownChunks() const { return lUnknown; }

  // The frame count: the sum of the segments' lengths (at most INT32_MAX).
  int GetEndSample() const;
  int GetSegmentCount() const;
  bool IsEmpty() const { return pRoot == nullptr; }

  // Calls `f(segment)` for each segment in order.
  template <class F>
  void ForEachSegment(F&& f) const;
  // Copies of the segments in order (each with its own reference).
  std::vector<LCutListSegment> GetSegments() const;

  // Removes every segment, keeping rate, channels and the rest.
  void Clear();
  // Adds a segment at the end, as loaders do.
  void AppendSegment(LCutListSegment segment);
  // Replaces all segments with a copy of `segment` and sets the format.
  void SetSingleCutListSegment(LCutListSegment const& segment, int rate, int channels);

  // The edits. Each keeps exactly one reference per segment.
  void EfInsert(int position, LCutListAudio const& list);
  void EfInsertSilence(int position, int length);
  void EfDelete(int start, int end);
  void EfSilence(int start, int end);
  void EfPasteOver(int start, int end, LCutListAudio const& list);
  void EfCopy(int start, int end, LCutListAudio& out) const;
  void EfTrimEnd(int position);
  void EfTrimStart(int position);
  void EfGainAll(float gain);
  void EfAmplifyAll(float percent);

  // Marks every file the list names as preserved.
  void DisallowCacheDelete() const;

  // A sink that writes a new file pair and, when its last handle goes, makes this
  // list that one file. The list must outlive the sink. Test the sink's error flag.
  LSoundSink OpenSink(int rate, int channels);
  // A source over a private copy of the list, so later edits leave it alone. An
  // empty list gives a source in error.
  LSoundSource OpenSource() const;

  struct Node;

 private:
  void CopyAttributesFrom(LCutListAudio const& other);

  LSDFUnknownChunkList lUnknown;
  int iSampleRate = 44100;
  unsigned char nChannels = 1;
  std::uint8_t bFlag = 0;
  std::string szErrorText;
  Node* pRoot = nullptr;
};

struct LCutListAudio::Node {
  LCutListSegment seg;
  Node* pLeft = nullptr;
  Node* pRight = nullptr;
  std::uint32_t uPriority = 0;
  std::int64_t iTotal = 0;  // frames of this subtree
  int iCount = 1;           // segments of this subtree
};

template <class F>
void LCutListAudio::ForEachSegment(F&& f) const {
  // In order without recursion; the stack needs the tree's height, which stays
  // near twice the logarithm of the segment count.
  std::vector<Node const*> stack;
  Node const* n = pRoot;
  while (n != nullptr || !stack.empty()) {
    while (n != nullptr) {
      stack.push_back(n);
      n = n->pLeft;
    }
    n = stack.back();
    stack.pop_back();
    f(n->seg);
    n = n->pRight;
  }
}
