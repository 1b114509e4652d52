#pragma once
// Chains to and from chunk files in memory, for this folder's tests.
#include <gtest/gtest.h>

#include <vector>

#include "effects/sound_process_multi.h"

inline std::vector<unsigned char> SaveChainToMemory(LSoundProcessMulti const& chain) {
  LOutputStreamMemory out;
  LSDFWriter<LOutputStreamMemory> writer;
  EXPECT_TRUE(writer.Open(out, LSPChainFileType, LSPChainFileVersion));
  EXPECT_TRUE(chain.SaveToSDF(writer));
  EXPECT_TRUE(writer.Close());
  return out.TakeData();
}

inline LSoundProcessMulti LoadChainFromMemory(std::vector<unsigned char> const& bytes) {
  LInputStreamMemory in(bytes);
  LSDFReader<LInputStreamMemory> reader;
  LSoundProcessMulti chain;
  EXPECT_TRUE(reader.Open(in, LSPChainFileType));
  LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
  EXPECT_TRUE(chain.LoadFromSDF(reader, it));
  return chain;
}

// The effect after a save and a load of a chain holding it alone.
inline std::unique_ptr<LSoundProcess> SavedAndLoaded(LSoundProcess const& process) {
  LSoundProcessMulti chain;
  chain.Append(process.GetNewCopy());
  LSoundProcessMulti back = LoadChainFromMemory(SaveChainToMemory(chain));
  EXPECT_EQ(back.GetCount(), 1);
  return back.Detach(0);
}
