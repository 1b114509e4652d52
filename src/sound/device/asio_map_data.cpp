#include "sound/device/asio_map_data.h"

#include <cerrno>
#include <cstdlib>

void LASIOMapData::ResetMapping() {
  for (int i = 0; i < MaxSpeakers; ++i) SpeakerToOutput[i] = i;
}

void LASIOMapData::SetSpeakerOutput(int speaker, int output) {
  if (speaker < 0 || speaker >= MaxSpeakers) return;
  SpeakerToOutput[speaker] = output < 0 ? -1 : output;
}

int LASIOMapData::GetSpeakerOutput(int speaker) const {
  if (speaker < 0 || speaker >= MaxSpeakers) return -1;
  return SpeakerToOutput[speaker];
}

std::vector<int> LASIOMapData::GetOutputs() const {
  int const n = iNumberSpeakers < 0 ? 0 : (iNumberSpeakers > MaxSpeakers ? MaxSpeakers : iNumberSpeakers);
  return std::vector<int>(SpeakerToOutput, SpeakerToOutput + n);
}

std::string LASIOMapData::ToText() const {
  std::string text;
  for (int i = 0; i < MaxSpeakers; ++i) {
    if (i) text += ',';
    text += std::to_string(SpeakerToOutput[i]);
  }
  return text;
}

bool LASIOMapData::FromText(std::string const& text) {
  int parsed[MaxSpeakers];
  int count = 0;
  char const* p = text.c_str();
  while (*p) {
    if (count == MaxSpeakers) return false;
    char* end = nullptr;
    errno = 0;
    long const v = std::strtol(p, &end, 10);
    if (end == p || errno != 0 || v < -1 || v > 1023) return false;
    parsed[count++] = static_cast<int>(v);
    p = end;
    if (*p == ',') {
      ++p;
      if (!*p) return false;
    } else if (*p) {
      return false;
    }
  }
  if (count == 0) return false;
  // Speakers the text does not name keep the plain order.
  for (int i = 0; i < MaxSpeakers; ++i) SpeakerToOutput[i] = i < count ? parsed[i] : i;
  return true;
}
