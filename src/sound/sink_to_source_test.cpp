#include "sound/sink_to_source.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

float RampValue(std::size_t sampleIndex) { return static_cast<float>(sampleIndex); }

constexpr int kChannels = 2;
constexpr int kFrames = 150000;

}  // namespace

TEST(SinkToSource, RampCrossesTwoThreadsIntact) {
  // A small ring forces both sides to wait and both indices to wrap many times.
  auto bridge = LSinkToSourceBase::Create(48000, kChannels, 1000);
  LSoundSource source = bridge->OpenSource();
  LSoundSink sink = bridge->OpenSink();
  EXPECT_EQ(source->GetChannels(), kChannels);
  EXPECT_EQ(sink->GetSampleRate(), 48000);

  std::thread writer([sink]() mutable {
    std::vector<float> block(1000 * kChannels);
    std::size_t next = 0;
    int done = 0;
    for (int i = 0; done < kFrames; ++i) {
      int const n = std::min(1 + (i * 37) % 300, kFrames - done);
      for (int k = 0; k < n * kChannels; ++k) block[static_cast<std::size_t>(k)] = RampValue(next++);
      sink->Write(block.data(), n);
      done += n;
    }
    EXPECT_EQ(sink->GetPositionSample(), kFrames);
    sink.Close();  // the last handle of the writing face
  });
  sink.Close();

  std::vector<float> block(700 * kChannels);
  std::size_t expected = 0;
  int done = 0;
  bool allMatch = true;
  for (int i = 0; done < kFrames; ++i) {
    int const n = std::min(1 + (i * 53) % 257, kFrames - done);
    source->Read(block.data(), n);
    for (int k = 0; k < n * kChannels; ++k) {
      if (block[static_cast<std::size_t>(k)] != RampValue(expected)) {
        allMatch = false;
        ADD_FAILURE() << "sample " << expected << " read as " << block[static_cast<std::size_t>(k)];
        break;
      }
      ++expected;
    }
    if (!allMatch) break;
    done += n;
  }
  writer.join();
  EXPECT_TRUE(allMatch);
  EXPECT_FALSE(source->IsStreaming());
  std::fill(block.begin(), block.end(), 1.0f);
  source->Read(block.data(), 10);
  for (int k = 0; k < 10 * kChannels; ++k) EXPECT_EQ(block[static_cast<std::size_t>(k)], 0.0f);
}

TEST(SinkToSource, WithTheWriterGoneTheRestComesThenZeros) {
  auto bridge = LSinkToSourceBase::Create(44100, 1, 4096);
  LSoundSource source = bridge->OpenSource();
  LSoundSink sink = bridge->OpenSink();
  std::vector<float> data(100);
  for (int i = 0; i < 100; ++i) data[static_cast<std::size_t>(i)] = static_cast<float>(i + 1);
  sink->Write(data.data(), 100);
  EXPECT_TRUE(source->IsStreaming());
  EXPECT_EQ(source->GetEndSample(), 100);
  EXPECT_EQ(source->GetPositionSample(), 0);
  sink.Close();
  EXPECT_FALSE(source->IsStreaming());

  std::vector<float> out(150, -1.0f);
  auto t0 = std::chrono::steady_clock::now();
  source->Read(out.data(), 150);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 500ms);  // no wait for a writer that is gone
  for (int i = 0; i < 100; ++i) EXPECT_EQ(out[static_cast<std::size_t>(i)], static_cast<float>(i + 1));
  for (int i = 100; i < 150; ++i) EXPECT_EQ(out[static_cast<std::size_t>(i)], 0.0f);
  EXPECT_EQ(source->GetEndSample(), 0);
}

TEST(SinkToSource, AWaitingReaderWakesWhenTheWriterCloses) {
  auto bridge = LSinkToSourceBase::Create(44100, 2, 4096);
  LSoundSource source = bridge->OpenSource();
  LSoundSink sink = bridge->OpenSink();
  auto reader = std::async(std::launch::async, [source] {
    std::vector<float> out(20, -1.0f);
    source->Read(out.data(), 10);
    return out;
  });
  EXPECT_EQ(reader.wait_for(100ms), std::future_status::timeout);  // blocked: nothing written
  float const two[4] = {1, 2, 3, 4};
  sink->Write(two, 2);
  // The reader takes those two frames and waits again for the other eight.
  for (int i = 0; i < 100 && bridge->GetFilledFrames() > 0; ++i) std::this_thread::sleep_for(5ms);
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(reader.wait_for(0ms), std::future_status::timeout);
  auto const closed = std::chrono::steady_clock::now();
  sink.Close();
  // Woken by the close, well before its own 1000 ms time-out would let it look again.
  ASSERT_EQ(reader.wait_for(2s), std::future_status::ready);
  EXPECT_LT(std::chrono::steady_clock::now() - closed, 700ms);
  std::vector<float> out = reader.get();
  EXPECT_EQ(out[0], 1.0f);
  EXPECT_EQ(out[3], 4.0f);
  for (std::size_t i = 4; i < out.size(); ++i) EXPECT_EQ(out[i], 0.0f);
}

TEST(SinkToSource, AWriterDoesNotStayBlockedAfterTheReaderCloses) {
  auto bridge = LSinkToSourceBase::Create(44100, 2, 800);  // 100 frames
  EXPECT_EQ(bridge->GetCapacityFrames(), 99);
  LSoundSource source = bridge->OpenSource();
  LSoundSink sink = bridge->OpenSink();
  auto writer = std::async(std::launch::async, [sink] {
    std::vector<float> data(1000 * 2, 0.5f);
    sink->Write(data.data(), 1000);
    return sink->GetPositionSample();
  });
  EXPECT_EQ(writer.wait_for(100ms), std::future_status::timeout);  // blocked: the ring is full
  EXPECT_EQ(bridge->GetFilledFrames(), 99);
  source.Close();
  EXPECT_FALSE(bridge->IsSourceOpen());
  ASSERT_EQ(writer.wait_for(1s), std::future_status::ready);
  EXPECT_EQ(writer.get(), 1000);

  // With nobody reading, a full ring drops writes at once.
  auto t0 = std::chrono::steady_clock::now();
  float more[2] = {};
  sink->Write(more, 1);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 100ms);
}

TEST(SinkToSource, StreamingDataWaitWakesOnWrite) {
  auto bridge = LSinkToSourceBase::Create(44100, 1, 4096);
  LSoundSource source = bridge->OpenSource();
  LSoundSink sink = bridge->OpenSink();
  EXPECT_EQ(source->GetEndSample(), 0);  // also clears the data signal
  std::thread writer([sink] {
    std::this_thread::sleep_for(30ms);
    float one = 1.0f;
    sink->Write(&one, 1);
  });
  auto t0 = std::chrono::steady_clock::now();
  source->WaitForStreamingData(2000);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 1500ms);
  EXPECT_EQ(source->GetEndSample(), 1);
  writer.join();
}
