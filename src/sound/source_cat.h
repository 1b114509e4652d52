#pragma once
#include <vector>

#include "foundation/sound_time.h"
#include "sound/sound_source.h"

// The description of a concatenation: sources played one after another, with
// silences between them.
class LSoundSourceCat {
 public:
  struct Item {
    LSoundSource lss;        // an error source marks a silence
    LSoundTime silence = 0;  // length of the silence, for a marker
  };

  void AddSource(LSoundSource const& source) { items.push_back(Item{source, 0}); }
  void AddSilence(LSoundTime time) { items.push_back(Item{LSoundSource(), time}); }
  std::vector<Item> const& GetItems() const { return items; }

  // At the greatest rate and channel count among the good sources (8000 Hz, mono if
  // there is none).
  LSoundSource OpenSource() const;
  LSoundSource OpenSource(int rate, int channels) const;

 private:
  std::vector<Item> items;
};

// Plays an LSoundSourceCat. Every source is brought to the result's format when the
// concatenation is built, so that moving on to the next one in Read allocates
// nothing. A source that cannot be brought to the format gives error state 2.
// The sources are shared with the description: do not play two concatenations of
// one description at the same time.
class LSSRCCat : public LSoundSourceBase {
 public:
  LSSRCCat(LSoundSourceCat const& cat, int rate, int channels);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override;
  // A position before 0 plays zeros up to the first item; a position past the last
  // item leaves one second of silence to play.
  void Seek(int frame) override;
  bool IsStreaming() const override;
  void WaitForStreamingData(int ms) override;

 private:
  struct Piece {
    LSoundSource lss;
    int silentFrames = 0;
    bool bSilence = false;
  };

  // Moves to the piece under the cursor; false at the end of the list.
  bool Open();
  int PieceLength(Piece const& piece) const;
  std::int64_t LeftInCurrent() const;

  std::vector<Piece> pieces;
  std::size_t uCursor = 0;  // the next piece to open
  int iCurrent = -1;        // the source piece being played, or -1
  int sSilentLeft = 0;
  int sPosition = 0;
};
