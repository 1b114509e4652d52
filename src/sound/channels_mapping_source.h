#pragma once
#include <memory>
#include <span>
#include <vector>

#include "sound/sound_source.h"

// Routes each input channel onto an output channel; inputs routed to one output are
// summed, outputs that nothing reaches are silent.
class LChannelsMappingSourceBase : public LSoundProcessBase {
 public:
  // `mapping[c]` is the output of input channel c, or negative for none. Inputs past
  // the end of `mapping` go nowhere. An output index outside the output count is
  // invalid: it gives error state 3 and the entry is dropped.
  LChannelsMappingSourceBase(LSoundSource const& source, int channels, std::span<int const> mapping);

  void Read(float* buffer, int frames) override;

  int GetOutputOf(int inputChannel) const { return iMapping[static_cast<std::size_t>(inputChannel)]; }

 private:
  std::vector<int> iMapping;  // one entry per input channel
  std::unique_ptr<float[]> pBuffer;
};
