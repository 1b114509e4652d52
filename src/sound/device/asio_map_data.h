#pragma once
#include <string>
#include <vector>

#include "sound/device/sound_devices.h"

// In a surround project, which device output each speaker plays on. A device of
// more than two outputs can take the speakers in any order; the user picks an
// output per speaker, and the player routes channel i (speaker i) to it.
class LASIOMapData {
 public:
  static constexpr int MaxSpeakers = 30;

  LASIOMapData() { ResetMapping(); }

  // Speaker i on output i.
  void ResetMapping();
  // Out-of-range speakers are ignored; a negative output silences the speaker.
  void SetSpeakerOutput(int speaker, int output);
  int GetSpeakerOutput(int speaker) const;
  // The outputs of the first `iNumberSpeakers` speakers, for the player.
  std::vector<int> GetOutputs() const;

  // The map as text, "output,output,...", for the settings store, and back. Text
  // that is not such a list leaves the map as it is and gives false.
  std::string ToText() const;
  bool FromText(std::string const& text);

  int SpeakerToOutput[MaxSpeakers];
  int iNumberSpeakers = 2;
  int iSpeakerSelected = 0;
  LSoundPlayDevice spd;
};
