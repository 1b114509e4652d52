#include "foundation/external_process.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <thread>

extern char** environ;

std::vector<std::string> LSplitCommandLine(std::string const& line) {
  std::vector<std::string> args;
  std::string current;
  bool inArgument = false;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char const c = line[i];
    if (quoted) {
      if (c == '"') {
        quoted = false;
      } else if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
        current += line[++i];
      } else {
        current += c;
      }
      continue;
    }
    if (c == ' ' || c == '\t') {
      if (inArgument) args.push_back(current);
      current.clear();
      inArgument = false;
    } else if (c == '"') {
      quoted = true;
      inArgument = true;  // "" is an empty argument
    } else {
      current += c;
      inArgument = true;
    }
  }
  if (inArgument) args.push_back(current);
  return args;
}

std::string LQuoteArgument(std::string const& text) {
  std::string out = "\"";
  for (char const c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
  return out;
}

void LIgnoreBrokenPipeSignal() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction sa {};
    sa.sa_handler = SIG_IGN;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGPIPE, &sa, nullptr);
  });
}

namespace {

void CloseFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

int DecodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

}  // namespace

LChildProcess::~LChildProcess() {
  if (iPid > 0 && !bReaped) Kill();
  CloseIn();
  CloseOut();
  CloseErr();
}

bool LChildProcess::Start(std::vector<std::string> const& argv, unsigned pipes) {
  if (argv.empty() || iPid > 0) return false;
  LIgnoreBrokenPipeSignal();

  // [0] is the read end, [1] the write end; ours keep close-on-exec.
  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  auto closeAll = [&] {
    for (int* p : {in, out, err}) {
      CloseFd(p[0]);
      CloseFd(p[1]);
    }
  };
  if (((pipes & kPipeIn) && ::pipe2(in, O_CLOEXEC) != 0) || ((pipes & kPipeOut) && ::pipe2(out, O_CLOEXEC) != 0) ||
      ((pipes & kPipeErr) && ::pipe2(err, O_CLOEXEC) != 0)) {
    closeAll();
    return false;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (pipes & kPipeIn) {
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  if (pipes & kPipeOut) {
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  }
  if (pipes & kPipeErr) {
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  } else {
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  }

  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t defaults;
  sigemptyset(&defaults);
  // SIG_IGN survives exec; the child must die of a broken pipe like any program.
  sigaddset(&defaults, SIGPIPE);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGTERM);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (std::string const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  pid_t pid = -1;
  int const r = ::posix_spawnp(&pid, args[0], &actions, &attr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  // The child's ends are the child's now.
  CloseFd(in[0]);
  CloseFd(out[1]);
  CloseFd(err[1]);
  if (r != 0) {
    closeAll();
    return false;
  }
  iPid = pid;
  bReaped = false;
  iStatus = -1;
  fdIn = in[1];
  fdOut = out[0];
  fdErr = err[0];
  return true;
}

void LChildProcess::CloseIn() { CloseFd(fdIn); }
void LChildProcess::CloseOut() { CloseFd(fdOut); }
void LChildProcess::CloseErr() { CloseFd(fdErr); }

void LChildProcess::SetPipeSize(int fd, int bytes) {
  if (fd >= 0 && bytes > 0) ::fcntl(fd, F_SETPIPE_SZ, bytes);
}

int LChildProcess::Wait(int ms) {
  if (iPid <= 0) return -1;
  if (bReaped) return iStatus;
  timespec const step{0, 5 * 1000000L};
  int waited = 0;
  for (;;) {
    int status = 0;
    pid_t const r = ::waitpid(iPid, &status, WNOHANG);
    if (r == iPid) {
      bReaped = true;
      iStatus = DecodeStatus(status);
      return iStatus;
    }
    if (r < 0 && errno != EINTR) {
      // Someone else reaped it; its status is lost.
      bReaped = true;
      iStatus = -1;
      return iStatus;
    }
    if (ms >= 0 && waited >= ms) return -1;
    ::nanosleep(&step, nullptr);
    waited += 5;
  }
}

bool LChildProcess::IsRunning() { return iPid > 0 && !bReaped && Wait(0) < 0 && !bReaped; }

void LChildProcess::Kill() {
  if (iPid <= 0 || bReaped) return;
  // The whole group: a program that started helpers of its own takes them along.
  ::kill(-iPid, SIGKILL);
  ::kill(iPid, SIGKILL);
  int status = 0;
  while (::waitpid(iPid, &status, 0) < 0 && errno == EINTR) {
  }
  bReaped = true;
  iStatus = DecodeStatus(status);
}

bool LPipeOut::_Open(std::string const& commandLine) { return Start(LSplitCommandLine(commandLine), kPipeIn); }

bool LPipeIn::_Open(std::string const& commandLine) { return Start(LSplitCommandLine(commandLine), kPipeOut); }

bool LPipeInOut::_Open(std::string const& commandLine, int inBufferBytes, int outBufferBytes) {
  if (!Start(LSplitCommandLine(commandLine), kPipeIn | kPipeOut | kPipeErr)) return false;
  SetPipeSize(InFd(), inBufferBytes);
  SetPipeSize(OutFd(), outBufferBytes);
  return true;
}

bool LPipeWriteAll(int fd, void const* data, std::size_t bytes) {
  if (fd < 0) return false;
  auto const* p = static_cast<char const*>(data);
  while (bytes > 0) {
    ssize_t const n = ::write(fd, p, bytes);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;  // EPIPE: the reader has gone
    }
    p += n;
    bytes -= static_cast<std::size_t>(n);
  }
  return true;
}

LProcessRunExternalExeData::LProcessRunExternalExeData(char const* commandLine, bool quiet)
    : szCommandLine(commandLine ? commandLine : ""), bQuiet(quiet) {}

LProcessResult Process(LProcessInterface& pi, LProcessRunExternalExeData const& job) {
  ProcessRunData& run = job.rdRun;
  run.soStarted.Reset();
  run.soExited.Reset();
  run.iRunning.store(1);
  run.iExitCode.store(-1);
  run.pid = 0;

  std::vector<std::string> const argv = LSplitCommandLine(job.szCommandLine);
  if (argv.empty()) return LProcessFailed;

  LChildProcess child;
  // Without the quiet flag the program may talk on our standard error.
  unsigned const pipes = job.bQuiet ? 0u : LChildProcess::kPipeErr;
  if (!child.Start(argv, pipes)) {
    run.iRunning.store(0);
    run.soStarted.Set();
    run.soExited.Set();
    return LProcessFailed;
  }
  run.pid = child.GetPid();
  run.soStarted.Set();

  // The watcher waits for the exit so that this thread can wait for a signal, which
  // lets a stop through at once.
  int const errFd = child.ErrFd();
  std::thread watcher([&run, &child, errFd] {
    if (errFd >= 0) {
      char buf[4096];
      for (;;) {
        ssize_t const n = ::read(errFd, buf, sizeof buf);
        if (n > 0) {
          ssize_t const w = ::write(2, buf, static_cast<std::size_t>(n));
          (void)w;
          continue;
        }
        if (n < 0 && errno == EINTR) continue;
        break;
      }
    }
    int const code = child.Wait(-1);
    run.iExitCode.store(code);
    run.iRunning.store(0);
    run.soExited.Set();
  });

  bool stopped = false;
  for (;;) {
    int const w = pi.ProcessWaitSignal(run.soExited.GetRef(), 100);
    if (w == LProcessWaitSignaled) break;
    if (w == LProcessWaitStopped || pi.IsToStop()) {
      stopped = true;
      // Killing the group ends the child; the watcher then reaps it. One that has
      // been reaped already is left alone, since its number may be someone else's.
      if (run.iRunning.load() != 0) {
        ::kill(-child.GetPid(), SIGKILL);
        ::kill(child.GetPid(), SIGKILL);
      }
      break;
    }
  }
  watcher.join();
  if (stopped) {
    run.iExitCode.store(-1);
    return LProcessStopped;
  }
  return run.iExitCode.load() == 0 ? LProcessFinished : LProcessFailed;
}
