#include "sound/source_format.h"

#include "sound/channel_converters.h"
#include "sound/convert_rate.h"

void LSPConvertSourceRate(int rate, LSoundSource& source) {
  source = LSPConvertRate(rate).OpenSource(source);
}

void LSPConvertSourceRateChannels(int rate, int channels, LSoundSource& source) {
  if (source->IsError()) return;
  if (channels > 0 && source->GetChannels() > channels) source = LSPConvChannels(channels).OpenSource(source);
  LSPConvertSourceRate(rate, source);
  if (channels > 0 && source->GetChannels() != channels) source = LSPConvChannels(channels).OpenSource(source);
}
