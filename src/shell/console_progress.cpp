#include "shell/console_progress.h"

#include <errno.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>

namespace {

constexpr int kBarWidth = 30;
constexpr int kSpinnerWidth = 3;

// The state the SIGINT handler may touch: lock-free atomics only.
std::atomic<int> gStopFd{-1};
std::atomic<int> gInterrupts{0};
struct sigaction gFormerAction;
std::atomic<bool> gCatching{false};

extern "C" void OnInterrupt(int) {
  int const saved = errno;
  if (gInterrupts.fetch_add(1) >= 1) {
    // A second Ctrl-C: the user does not want to wait for the job to stop.
    ::signal(SIGINT, SIG_DFL);
    ::raise(SIGINT);
  }
  int const fd = gStopFd.load();
  if (fd >= 0) {
    char const byte = 1;
    [[maybe_unused]] ssize_t const n = ::write(fd, &byte, 1);
  }
  errno = saved;
}

int TerminalWidth(std::FILE* out) {
  winsize ws{};
  if (::ioctl(::fileno(out), TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
  return 80;
}

}  // namespace

TDConsoleProgress::TDConsoleProgress(std::FILE* out) : TDConsoleProgress(out, ::isatty(::fileno(out)) != 0) {}

TDConsoleProgress::TDConsoleProgress(std::FILE* out, bool terminal) : fOut(out), bTerminal(terminal) {}

TDConsoleProgress::~TDConsoleProgress() {
  Finish();
  if (bCatching) {
    ::sigaction(SIGINT, &gFormerAction, nullptr);
    gStopFd.store(-1);
    gCatching.store(false);
  }
}

bool TDConsoleProgress::CatchInterrupt() {
  if (bCatching) return true;
  if (gCatching.exchange(true)) return false;
  gInterrupts.store(0);
  gStopFd.store(soStop.GetWriteFd());
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  if (::sigaction(SIGINT, &sa, &gFormerAction) != 0) {
    gStopFd.store(-1);
    gCatching.store(false);
    return false;
  }
  bCatching = true;
  return true;
}

void TDConsoleProgress::Finish() {
  if (bTerminal && bBarShown) {
    std::fputc('\n', fOut);
    std::fflush(fOut);
  }
  bBarShown = false;
  szShownLine.clear();
}

bool TDConsoleProgress::IsToStop() {
  // A job polls here often: the place to run what its thread posted, and to turn the
  // spinner of a job that cannot tell how far it is.
  if (pQueue) pQueue->RunPending();
  if (bTerminal && bIndeterminate) {
    auto const now = std::chrono::steady_clock::now();
    if (now - tLastTurn >= std::chrono::milliseconds(100)) {
      tLastTurn = now;
      ++iSpin;
      Draw();
    }
  }
  return soStop.IsSignaled();
}

int TDConsoleProgress::ProcessWait(unsigned int ms) {
  return ProcessWaitSignal(LSignalObjectRef(), ms);
}

int TDConsoleProgress::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  if (pQueue) return pQueue->WaitPumping(signal, soStop, ms);
  return LProcessWaitSignalOrStop(signal, soStop, ms);
}

int TDConsoleProgress::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  if (!pQueue) return LProcessWaitGroupOrStop(group, soStop, ms);
  using Clock = std::chrono::steady_clock;
  bool const forever = ms == LSignalWaitForever;
  auto const deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : ms);
  LSignalObjectGroup all = group;
  all.Add(soStop.GetRef());
  all.Add(pQueue->GetPostedSignal());
  for (;;) {
    bool const signaled = group.IsSignaled();
    bool const stopped = !signaled && soStop.IsSignaled();
    pQueue->RunPending();
    if (signaled) return LProcessWaitSignaled;
    if (stopped) return LProcessWaitStopped;
    unsigned int wait = LSignalWaitForever;
    if (!forever) {
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return LProcessWaitTimedOut;
      wait = static_cast<unsigned int>(left);
    }
    all.Select(wait);
  }
}

void TDConsoleProgress::SetError(char const* text) {
  PrintLine(text ? text : "");
}

void TDConsoleProgress::SetStatus(char const* text, int line) {
  if (line < 0 || line > 1) return;
  std::string const s = text ? text : "";
  if (line == 0) {
    if (s == szStatus[0]) return;
    szStatus[0] = s;
    // A new title starts a new stage; its first detail is news even if it repeats.
    szStatus[1].clear();
    PrintLine(s);
    return;
  }
  if (s == szStatus[1]) return;
  szStatus[1] = s;
  if (bTerminal) {
    Draw();
  } else {
    PrintLine("  " + s);
  }
}

void TDConsoleProgress::SetProgress(double done) {
  double const p = std::clamp(std::isnan(done) ? 0.0 : done, 0.0, 1.0);
  int const decile = static_cast<int>(std::floor(p * 10.0 + 1e-9));
  // Going back means a new job or stage: its tens are counted afresh.
  if (p < dProgress) iLastDecile = decile;
  dProgress = p;
  if (bTerminal) {
    Draw();
  } else if (decile > iLastDecile) {
    iLastDecile = decile;
    PrintLine("  " + std::to_string(decile * 10) + "%");
  }
}

void TDConsoleProgress::SetProgressIndeterminateOn() {
  bIndeterminate = true;
  if (bTerminal) Draw();
}

void TDConsoleProgress::SetProgressIndeterminateOff() {
  bIndeterminate = false;
  if (bTerminal) Draw();
}

void TDConsoleProgress::Draw() {
  std::string bar(kBarWidth, '-');
  char percent[8] = "    ";
  if (bIndeterminate) {
    bar.assign(kBarWidth, ' ');
    // Back and forth across the bar.
    int const span = kBarWidth - kSpinnerWidth;
    int const step = iSpin % (2 * span);
    int const at = step < span ? step : 2 * span - step;
    bar.replace(static_cast<std::size_t>(at), kSpinnerWidth, "<=>");
  } else {
    int const filled = static_cast<int>(std::lround(dProgress * kBarWidth));
    std::fill_n(bar.begin(), filled, '#');
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(std::floor(dProgress * 100.0 + 1e-9)));
  }
  std::string line = "[" + bar + "] " + percent;
  if (!szStatus[1].empty()) line += "  " + szStatus[1];
  std::size_t const width = static_cast<std::size_t>(TerminalWidth(fOut));
  if (line.size() >= width) line.resize(width - 1);
  if (bBarShown && line == szShownLine) return;
  // Back to the start of the line, the new text, and the rest of the old one erased.
  std::fprintf(fOut, "\r%s\033[K", line.c_str());
  std::fflush(fOut);
  szShownLine = line;
  bBarShown = true;
}

void TDConsoleProgress::ClearBar() {
  if (bTerminal && bBarShown) {
    std::fputs("\r\033[K", fOut);
    bBarShown = false;
    szShownLine.clear();
  }
}

void TDConsoleProgress::PrintLine(std::string const& text) {
  bool const redraw = bTerminal && bBarShown;
  ClearBar();
  std::fputs(text.c_str(), fOut);
  std::fputc('\n', fOut);
  if (redraw) {
    Draw();
  } else {
    std::fflush(fOut);
  }
}
