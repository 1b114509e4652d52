#include "sound/source_to_sink.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "foundation/main_thread_queue.h"
#include "foundation/process_thread.h"
#include "foundation/testing_process.h"
#include "sound/cross_mix.h"
#include "sound/sink_limit.h"
#include "sound/testing_sources.h"

using Kind = LTestProcessRecorder::Kind;

namespace {

// Keeps what it is given. It can fail once a write would pass a frame, and it can
// stop at a frame: it sets `reached` and holds the writing thread until `release`.
class TestSink : public LSoundSinkBase {
 public:
  TestSink(int rate, int channels) : LSoundSinkBase(rate, channels) {}

  void Write(float const* buffer, int frames) override {
    writes.push_back(frames);
    if (iFailAt >= 0 && sPosition + frames > iFailAt) {
      uErrorFlags |= LSoundSinkErrorFailed;
      return;
    }
    if (uErrorFlags) return;
    data.insert(data.end(), buffer, buffer + static_cast<std::size_t>(frames) * nChans);
    sPosition += frames;
    if (iGateAt >= 0 && sPosition >= iGateAt) {
      iGateAt = -1;
      reached.Set();
      release.WaitSignal(LSignalWaitForever);
    }
  }

  std::vector<float> data;
  std::vector<int> writes;
  int iFailAt = -1;
  int iGateAt = -1;
  LSignalObjectRef reached, release;
};

struct Fixture {
  Fixture(int rate, int channels, int frames, int sinkChannels = 0)
      : source(new LTestFunctionSource(rate, channels, frames, TestRamp)),
        sink(new TestSink(rate, sinkChannels ? sinkChannels : channels)) {
    job.szTitle = "Copying";
    job.lssSource = LSoundSource(source);
    job.lsnkSink = LSoundSink(sink);
  }
  LTestFunctionSource* source;
  TestSink* sink;
  LPRSourceToSink job;
};

// The ramp of frames [from, to) in `channels` channels.
std::vector<float> Ramp(int from, int to, int channels) {
  std::vector<float> out;
  for (int f = from; f < to; ++f)
    for (int c = 0; c < channels; ++c) out.push_back(TestRamp(f, c));
  return out;
}

// A streaming source that grows by `grow` frames at each wait for data and stops
// streaming after `rounds` waits. With bSleep the wait also takes its time.
class GrowingSource : public LTestFunctionSource {
 public:
  GrowingSource(int rate, int channels, int grow, int rounds)
      : LTestFunctionSource(rate, channels, 0, TestRamp), iGrow(grow), iRounds(rounds) {
    bStreaming = rounds > 0;
  }
  void WaitForStreamingData(int ms) override {
    waits.push_back(ms);
    if (bSleep) LSoundSourceBase::WaitForStreamingData(ms);
    if (iRounds > 0) {
      sEnd += iGrow;
      if (--iRounds == 0) bStreaming = false;
    }
  }
  int iGrow;
  int iRounds;
  bool bSleep = false;
  std::vector<int> waits;
};

}  // namespace

TEST(SourceToSink, EveryFrameArrivesInOrderInBurstsOfBlocks) {
  // Two whole bursts and a piece of a third.
  int const frames = 2 * LPRCopyBurstBlocks * LPRCopyBlockFrames + 1234;
  Fixture f(44100, 2, frames);
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, f.job), LProcessFinished);
  EXPECT_EQ(f.sink->data, Ramp(0, frames, 2));
  for (int n : f.sink->writes) EXPECT_LE(n, LPRCopyBlockFrames);
  EXPECT_EQ(f.sink->writes.size(), 2u * LPRCopyBurstBlocks + 1);

  EXPECT_EQ(pi.Statuses(0), std::vector<std::string>{"Copying"});
  EXPECT_EQ(pi.Statuses(1), std::vector<std::string>{"Please wait..."});
  // 0 at the start, then once per burst, rising to exactly 1.
  std::vector<double> const progress = pi.Progress();
  ASSERT_EQ(progress.size(), 4u);
  EXPECT_EQ(progress[0], 0.0);
  EXPECT_LT(progress[1], progress[2]);
  EXPECT_DOUBLE_EQ(progress[2], 2.0 * LPRCopyBurstBlocks * LPRCopyBlockFrames / frames);
  EXPECT_EQ(progress[3], 1.0);
  // The bar is indeterminate until the first burst is through.
  EXPECT_EQ(pi.reports[3].kind, Kind::IndeterminateOn);
  EXPECT_EQ(pi.reports[4].kind, Kind::IndeterminateOff);
  EXPECT_EQ(pi.Count(Kind::IndeterminateOn), 1u);
}

TEST(SourceToSink, CopiesFromWhereTheSourceStandsAndInTheSinksChannels) {
  Fixture f(48000, 1, 5000, 2);
  f.source->Seek(1000);
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, f.job), LProcessFinished);
  std::vector<float> expected;
  for (int frame = 1000; frame < 5000; ++frame) expected.insert(expected.end(), 2, TestRamp(frame, 0));
  EXPECT_EQ(f.sink->data, expected);
  EXPECT_EQ(pi.Progress().back(), 1.0);
}

TEST(SourceToSink, FailuresGiveTwo) {
  {
    // The sink fails in the middle of the second burst: nothing more is written.
    int const frames = 3 * LPRCopyBurstBlocks * LPRCopyBlockFrames;
    Fixture f(44100, 1, frames);
    f.sink->iFailAt = LPRCopyBurstBlocks * LPRCopyBlockFrames + 100;
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, f.job), LProcessFailed);
    EXPECT_EQ(f.sink->data, Ramp(0, LPRCopyBurstBlocks * LPRCopyBlockFrames, 1));
    EXPECT_EQ(f.sink->writes.size(), LPRCopyBurstBlocks + 1u);
  }
  {
    Fixture f(44100, 1, 100);
    f.job.lssSource = LSoundSource();  // the error source
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, f.job), LProcessFailed);
    EXPECT_TRUE(f.sink->writes.empty());
  }
  {
    Fixture f(44100, 1, 100);
    f.job.lsnkSink = LSoundSink();  // the error sink
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, f.job), LProcessFailed);
    EXPECT_EQ(f.source->GetPositionSample(), 0);
  }
}

TEST(SourceToSink, NoFramesFinishAndAnEarlyStopWritesNothing) {
  {
    Fixture f(44100, 2, 0);
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, f.job), LProcessFinished);
    EXPECT_TRUE(f.sink->writes.empty());
  }
  {
    Fixture f(44100, 2, 1000);
    LTestProcessRecorder pi;
    pi.soStop.Set();
    EXPECT_EQ(Process(pi, f.job), LProcessStopped);
    EXPECT_TRUE(f.sink->writes.empty());
  }
}

TEST(SourceToSink, NoSampleAboveTheCeilingEverReachesTheSink) {
  // A source that says it may exceed full scale, and does.
  auto* loud = new LTestFunctionSource(
      44100, 2, 20000, [](int frame, int) { return frame % 100 == 0 ? 1.5f : 0.25f; }, 2.0f);
  auto* sink = new TestSink(44100, 2);
  LPRSourceToSink job;
  job.szTitle = "Loud";
  job.lssSource = LSoundSource(loud);
  job.lsnkSink = LSoundSink(sink);
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, job), LProcessFinished);
  float peak = 0;
  for (float s : sink->data) peak = std::max(peak, std::fabs(s));
  EXPECT_LE(peak, LPRSinkCeiling);
  EXPECT_GT(peak, 0.9f);  // limited, not merely scaled down
  EXPECT_EQ(sink->data.size(), 40000u);
}

// The cross-mix fades the last tenth of a second (at most a tenth of the copy) of
// the source into the start of the second source, weights adding up to one.
TEST(SourceToSink, ACrossMixFadesTheEndIntoTheSecondSource) {
  auto* first = new LTestFunctionSource(44100, 2, 10000, [](int, int) { return 0.5f; }, LSoundPeakInRange);
  auto* second = new LTestFunctionSource(
      44100, 2, 50000, [](int frame, int channel) { return channel == 0 ? -0.25f : frame * 1e-5f; },
      LSoundPeakInRange);
  auto* sink = new TestSink(44100, 2);
  LPRSourceToSink job;
  job.lssSource = LSoundSource(first);
  job.lsnkSink = LSoundSink(sink);
  job.lssCrossMix = LSoundSource(second);
  job.bCrossMix = true;
  LTestProcessRecorder pi;
  ASSERT_EQ(Process(pi, job), LProcessFinished);
  ASSERT_EQ(sink->data.size(), 20000u);
  int const length = 1000;  // rate / 10 = 4410, clamped to a tenth of 10000 frames
  for (int f = 0; f < 10000; ++f) {
    float const w = f < 10000 - length ? 0.0f : static_cast<float>(f - (10000 - length)) / length;
    int const k = f - (10000 - length);
    float const left = 0.5f * (1.0f - w) + (k >= 0 ? -0.25f : 0.0f) * w;
    float const right = 0.5f * (1.0f - w) + (k >= 0 ? k * 1e-5f : 0.0f) * w;
    ASSERT_NEAR(sink->data[static_cast<std::size_t>(f) * 2], left, 1e-6f) << f;
    ASSERT_NEAR(sink->data[static_cast<std::size_t>(f) * 2 + 1], right, 1e-6f) << f;
  }
}

TEST(CrossMix, PastTheEndTheSecondSourcePlaysOnAndSeeksLandInTheFade) {
  LSoundSource first = LSoundSource::Make<LTestFunctionSource>(8000, 1, 100, [](int, int) { return 1.0f; },
                                                                LSoundPeakInRange);
  LSoundSource second = LSoundSource::Make<LTestFunctionSource>(
      8000, 1, 1000, [](int frame, int) { return -static_cast<float>(frame); }, LSoundPeakInRange);
  LSoundSource mix = LSPCrossMix(10, second).OpenSource(first);
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetEndSample(), 100);
  std::vector<float> out(30);
  mix->Seek(95);  // half way through the fade: five frames into the second source
  mix->Read(out.data(), 10);
  EXPECT_FLOAT_EQ(out[0], 0.5f * 1.0f + 0.5f * -5.0f);
  EXPECT_FLOAT_EQ(out[5], -10.0f);  // frame 100: the second source alone
  EXPECT_FLOAT_EQ(out[9], -14.0f);
  EXPECT_EQ(mix->GetPositionSample(), 105);

  LSoundSource other = LSoundSource::Make<LTestFunctionSource>(44100, 1, 10, [](int, int) { return 0.0f; },
                                                                LSoundPeakInRange);
  EXPECT_FALSE(LSPCrossMix(10, other).OpenSource(first).IsGood());
}

namespace {

class ThreadedCopyTest : public ::testing::Test {
 protected:
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
};

}  // namespace

TEST_F(ThreadedCopyTest, AStopMidwayKeepsWhatWasWrittenAndNoReportComesLate) {
  int const frames = 3 * LPRCopyBurstBlocks * LPRCopyBlockFrames;
  int const stopAt = 3 * LPRCopyBlockFrames;  // inside the first burst
  Fixture f(44100, 2, frames);
  LTestProcessRecorder outer(&queue);
  LSignalObject release;
  // The sink holds the job at `stopAt` and presses the outer stop; the job goes on only
  // once the caller, waiting for it to stop, polls the outer interface.
  f.sink->iGateAt = stopAt;
  f.sink->reached = outer.soStop.GetRef();
  f.sink->release = release.GetRef();
  outer.onIsToStop = [&release] { release.Set(); };

  LProcessThreadData<LPRSourceToSink> data(f.job);
  EXPECT_EQ(Process(outer, data), LProcessStopped);
  EXPECT_EQ(f.sink->data, Ramp(0, stopAt, 2));

  // Everything the job said before the stop, in order, on this thread; then the
  // caller's own line. Nothing of the job's after the stop.
  auto const me = std::this_thread::get_id();
  for (auto const& r : outer.reports) EXPECT_EQ(r.thread, me);
  ASSERT_EQ(outer.reports.size(), 5u);
  EXPECT_EQ(outer.reports[0].text, "Copying");
  EXPECT_EQ(outer.reports[1].text, "Please wait...");
  EXPECT_EQ(outer.reports[2].kind, Kind::Progress);
  EXPECT_EQ(outer.reports[3].kind, Kind::IndeterminateOn);
  EXPECT_EQ(outer.reports[4].text, "Waiting for the process to stop");
  EXPECT_EQ(outer.reports[4].line, 0);

  queue.RunPending();
  EXPECT_EQ(outer.reports.size(), 5u);
}

TEST_F(ThreadedCopyTest, ACompleteCopyReportsToTheEndAndNothingAfterTheOwnerIsGone) {
  int const frames = 2 * LPRCopyBurstBlocks * LPRCopyBlockFrames + 10;
  {
    Fixture f(44100, 1, frames);
    LTestProcessRecorder outer(&queue);
    LProcessThreadData<LPRSourceToSink> data(f.job);
    EXPECT_EQ(Process(outer, data), LProcessFinished);
    EXPECT_EQ(f.sink->data, Ramp(0, frames, 1));
    EXPECT_EQ(outer.Progress(),
              (std::vector<double>{0.0, double(LPRCopyBurstBlocks * LPRCopyBlockFrames) / frames,
                                   double(2 * LPRCopyBurstBlocks * LPRCopyBlockFrames) / frames, 1.0}));
    for (auto const& r : outer.reports) EXPECT_EQ(r.thread, std::this_thread::get_id());
  }
  {
    // A caller that does not run the queue while it waits: the job's reports are
    // still queued when it ends, and the end of the job flushes them.
    Fixture f(44100, 1, frames);
    LTestProcessRecorder outer;
    LProcessThreadData<LPRSourceToSink> data(f.job);
    EXPECT_EQ(Process(outer, data), LProcessFinished);
    EXPECT_GT(queue.GetPendingCount(), 0u);
    queue.RunPending();
    EXPECT_TRUE(outer.reports.empty());
    EXPECT_EQ(f.sink->data.size(), static_cast<std::size_t>(frames));
  }
}

TEST(SourceToSinkStreaming, ASourceThatEndsAtOnceGivesAnEmptySink) {
  auto* source = new GrowingSource(44100, 2, 0, 0);
  auto* sink = new TestSink(44100, 2);
  LPRSourceToSinkStreaming job{"Decoding", LSoundSource(source), LSoundSink(sink), 0};
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, job), LProcessFinished);
  EXPECT_TRUE(sink->writes.empty());
  EXPECT_TRUE(source->waits.empty());
  // The indeterminate bar goes off again at the end.
  EXPECT_EQ(pi.reports.back().kind, Kind::IndeterminateOff);
}

TEST(SourceToSinkStreaming, FollowsAGrowingSourceUntilItStopsStreaming) {
  // Grows by more than a block each time, so reads come in whole blocks and a rest.
  auto* source = new GrowingSource(1000, 2, LPRCopyBlockFrames + 500, 3);
  auto* sink = new TestSink(1000, 2);
  int const frames = 3 * (LPRCopyBlockFrames + 500);
  LSoundTime const total = frames;  // milliseconds at 1000 frames a second
  LPRSourceToSinkStreaming job{"Decoding", LSoundSource(source), LSoundSink(sink), total};
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, job), LProcessFinished);
  EXPECT_EQ(sink->data, Ramp(0, frames, 2));
  EXPECT_EQ(source->waits, (std::vector<int>{150, 150, 150}));
  for (int n : sink->writes) EXPECT_LE(n, LPRCopyBlockFrames);
  // With a known total the bar shows the written time against it.
  std::vector<double> const progress = pi.Progress();
  EXPECT_EQ(progress.back(), 1.0);
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  EXPECT_EQ(pi.reports.back().kind, Kind::Progress);
}

TEST(SourceToSinkStreaming, TellsTheTimeReadWhileItWaits) {
  // Two real waits of 150 ms: the 200 ms status comes between them.
  auto* source = new GrowingSource(1000, 1, 1500, 2);
  source->bSleep = true;
  auto* sink = new TestSink(1000, 1);
  LPRSourceToSinkStreaming job{"song.mp3", LSoundSource(source), LSoundSink(sink), 0};
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, job), LProcessFinished);
  std::vector<std::string> const titles = pi.Statuses(0);
  ASSERT_GE(titles.size(), 2u);
  EXPECT_EQ(titles[0], "song.mp3");
  // When exactly it comes depends on the clock; what it says does not.
  for (std::size_t i = 1; i < titles.size(); ++i)
    EXPECT_TRUE(titles[i] == "Read 0:00:00 of song.mp3" || titles[i] == "Read 0:00:01 of song.mp3") << titles[i];
  EXPECT_EQ(titles.back(), "Read 0:00:01 of song.mp3");
}

TEST(SourceToSinkStreaming, StopsAndFails) {
  {
    auto* source = new GrowingSource(1000, 1, 100, 1000000);
    auto* sink = new TestSink(1000, 1);
    LPRSourceToSinkStreaming job{"Decoding", LSoundSource(source), LSoundSink(sink), 0};
    LTestProcessRecorder pi;
    // The user stops while the job waits for more data.
    pi.onIsToStop = [&] {
      if (source->waits.size() == 5) pi.soStop.Set();
    };
    EXPECT_EQ(Process(pi, job), LProcessStopped);
    // Four rounds were written; the stop came with the fifth.
    EXPECT_EQ(sink->data, Ramp(0, 400, 1));
  }
  {
    auto* source = new GrowingSource(1000, 1, 100, 10);
    auto* sink = new TestSink(1000, 1);
    sink->iFailAt = 250;
    LPRSourceToSinkStreaming job{"Decoding", LSoundSource(source), LSoundSink(sink), 0};
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, job), LProcessFailed);
    EXPECT_EQ(sink->data.size(), 200u);
  }
  {
    auto* sink = new TestSink(1000, 1);
    LPRSourceToSinkStreaming job{"Decoding", LSoundSource(), LSoundSink(sink), 0};
    LTestProcessRecorder pi;
    EXPECT_EQ(Process(pi, job), LProcessFailed);
  }
}
