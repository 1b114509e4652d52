#include "shell/console_progress.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/process_thread.h"
#include "sound/source_to_sink.h"

namespace {

// Collects what the console writes.
class Captured {
 public:
  Captured() : f(::open_memstream(&buffer, &size)) {}
  ~Captured() {
    std::fclose(f);
    std::free(buffer);
  }
  std::FILE* File() { return f; }
  std::string Text() {
    std::fflush(f);
    return std::string(buffer, size);
  }

 private:
  char* buffer = nullptr;
  std::size_t size = 0;
  std::FILE* f;
};

}  // namespace

TEST(ConsoleProgress, WithoutATerminalWritesStatusLinesAndOneLinePerTenPerCent) {
  Captured out;
  {
    TDConsoleProgress progress(out.File(), false);
    EXPECT_FALSE(progress.IsTerminal());
    progress.SetStatus("Exporting", 0);
    progress.SetStatus("Please wait...", 1);
    progress.SetStatus("Please wait...", 1);  // unchanged: not repeated
    progress.SetStatus("ignored", 2);
    progress.SetProgressIndeterminateOn();
    for (int i = 0; i <= 100; ++i) progress.SetProgress(i / 100.0);
    progress.SetProgress(1.0);
    // A second stage starts again from the bottom and skips what it jumps over.
    progress.SetStatus("Writing", 0);
    progress.SetProgress(0.05);
    progress.SetProgress(0.35);
    progress.SetProgress(0.36);
    progress.SetError("The disk is full.");
  }
  EXPECT_EQ(out.Text(),
            "Exporting\n"
            "  Please wait...\n"
            "  10%\n  20%\n  30%\n  40%\n  50%\n  60%\n  70%\n  80%\n  90%\n  100%\n"
            "Writing\n"
            "  30%\n"
            "The disk is full.\n");
}

TEST(ConsoleProgress, OnATerminalRedrawsOneLine) {
  Captured out;
  {
    TDConsoleProgress progress(out.File(), true);
    progress.SetStatus("Exporting", 0);
    progress.SetStatus("Mixing", 1);
    progress.SetProgress(0.5);
    progress.SetProgress(0.5001);  // the same drawing: nothing written
    std::string const half = out.Text();
    EXPECT_EQ(half.find('\n'), half.rfind('\n'));  // only the title's line has ended
    EXPECT_NE(half.find("\r[###############---------------]  50%  Mixing\033[K"), std::string::npos);
    progress.SetProgress(1.0);
    EXPECT_EQ(out.Text().size(),
              half.size() + std::string("\r[##############################] 100%  Mixing\033[K").size());
  }
  // The bar's line is ended when the progress goes away.
  EXPECT_EQ(out.Text().back(), '\n');
  EXPECT_EQ(out.Text().rfind("Exporting\n", 0), 0u);
}

namespace {

int gFormerHandlerCalls = 0;
void FormerHandler(int) {
  ++gFormerHandlerCalls;
}

}  // namespace

TEST(ConsoleProgress, CtrlCIsAStopWhileCaught) {
  gFormerHandlerCalls = 0;
  struct sigaction before {
  }, now{};
  before.sa_handler = FormerHandler;
  sigemptyset(&before.sa_mask);
  ASSERT_EQ(::sigaction(SIGINT, &before, nullptr), 0);
  {
    Captured out;
    TDConsoleProgress progress(out.File(), false);
    ASSERT_TRUE(progress.CatchInterrupt());
    TDConsoleProgress other(out.File(), false);
    EXPECT_FALSE(other.CatchInterrupt());  // one catcher at a time
    EXPECT_FALSE(progress.IsToStop());
    LSignalObject never;
    EXPECT_EQ(progress.ProcessWaitSignal(never, 0), LProcessWaitTimedOut);
    ::raise(SIGINT);
    EXPECT_TRUE(progress.IsToStop());
    EXPECT_EQ(progress.ProcessWaitSignal(never, LSignalWaitForever), LProcessWaitStopped);
    EXPECT_EQ(gFormerHandlerCalls, 0);
  }
  // Gone with the progress: the former handling is back.
  ASSERT_EQ(::sigaction(SIGINT, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, &FormerHandler);
  ::raise(SIGINT);
  EXPECT_EQ(gFormerHandlerCalls, 1);
  ::signal(SIGINT, SIG_DFL);
}

namespace {

class Ramp : public LSoundSourceBase {
 public:
  explicit Ramp(int frames) : LSoundSourceBase(44100, 1, LSoundPeakInRange), sEnd(frames) {}
  void Read(float* buffer, int frames) override {
    for (int i = 0; i < frames; ++i, ++sPos) buffer[i] = sPos < sEnd ? 0.5f : 0.0f;
  }
  int GetPositionSample() const override { return sPos; }
  int GetEndSample() const override { return sEnd; }

 private:
  int sPos = 0;
  int sEnd;
};

}  // namespace

TEST(ConsoleProgress, ShowsACopyRunningOnAThread) {
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration(queue);
  Captured out;
  // Ten bursts: a progress report at every tenth.
  int const frames = 10 * LPRCopyBurstBlocks * LPRCopyBlockFrames;
  auto* sink = new LSoundSinkStubBase(44100, 1);
  LPRSourceToSink job;
  job.szTitle = "Copying";
  job.lssSource = LSoundSource(new Ramp(frames));
  job.lsnkSink = LSoundSink(sink);
  {
    TDConsoleProgress progress(out.File(), false);
    progress.SetQueue(&queue);
    LProcessThreadData<LPRSourceToSink> data(job);
    EXPECT_EQ(Process(progress, data), LProcessFinished);
  }
  EXPECT_EQ(sink->GetPositionSample(), frames);
  EXPECT_EQ(out.Text(),
            "Copying\n"
            "  Please wait...\n"
            "  10%\n  20%\n  30%\n  40%\n  50%\n  60%\n  70%\n  80%\n  90%\n  100%\n");
}
