#pragma once
#include <sys/types.h>

#include <string>
#include <vector>

#include "foundation/process_interface.h"
#include "foundation/process_run_data.h"

// Encoder and decoder programs are run from one command string with the paths in
// double quotes, as the user could type it. No shell reads it: LSplitCommandLine
// cuts it into arguments itself, so a file name holding "$", "`" or ";" is only a
// name.
//
// Blanks (space, tab) separate arguments; a double-quoted stretch belongs to the
// argument it stands in, blanks and all; inside quotes a backslash makes the next
// '"' or '\' literal (any other backslash stands as it is). An unclosed quote runs
// to the end.
std::vector<std::string> LSplitCommandLine(std::string const& line);
// `text` in double quotes, escaped so that LSplitCommandLine gives it back whole.
std::string LQuoteArgument(std::string const& text);

// A write into a pipe whose reader has gone must fail with EPIPE, so that the
// writer sees the error and a job fails instead of the whole program being killed
// by SIGPIPE. Called before any pipe to a child is made; children get the default
// action back when they start.
void LIgnoreBrokenPipeSignal();

// A child program and the pipes to those of its standard streams that were asked
// for; the other streams read /dev/null or write to it, so a chatty program can never
// block on a stream nobody reads. The child runs in a process group of its own: a
// Ctrl-C at the terminal reaches this program, which decides what to do with it.
class LChildProcess {
 public:
  enum : unsigned { kPipeIn = 1, kPipeOut = 2, kPipeErr = 4 };

  LChildProcess() = default;
  // A child still running is killed and reaped: nothing outlives its owner.
  ~LChildProcess();
  LChildProcess(LChildProcess const&) = delete;
  LChildProcess& operator=(LChildProcess const&) = delete;

  // argv[0] is the program, a path or a name looked up on PATH. False when it could
  // not be started (no such program, no descriptors).
  bool Start(std::vector<std::string> const& argv, unsigned pipes);

  pid_t GetPid() const { return iPid; }
  int InFd() const { return fdIn; }
  int OutFd() const { return fdOut; }
  int ErrFd() const { return fdErr; }
  // Closing the child's standard input is its end of stream.
  void CloseIn();
  void CloseOut();
  void CloseErr();
  // Sizes the kernel buffer of a pipe (F_SETPIPE_SZ); a refusal leaves the default.
  static void SetPipeSize(int fd, int bytes);

  // Waits up to `ms` (negative: no limit) for the child to end. Its exit status,
  // 128 + the signal for one killed by a signal, or -1 while it still runs.
  int Wait(int ms);
  bool IsRunning();
  // SIGKILL and reap.
  void Kill();

 private:
  pid_t iPid = -1;
  bool bReaped = false;
  int iStatus = -1;
  int fdIn = -1;
  int fdOut = -1;
  int fdErr = -1;
};

// Pipes to encoders and decoders, by direction seen from this program.
// LPipeOut: we write the child's standard input. LPipeIn: we read its standard
// output. LPipeInOut: both, with the kernel buffers sized as asked.
class LPipeOut : public LChildProcess {
 public:
  bool _Open(std::string const& commandLine);
};

class LPipeIn : public LChildProcess {
 public:
  bool _Open(std::string const& commandLine);
};

class LPipeInOut : public LChildProcess {
 public:
  // The child's standard error comes through a pipe too, for the caller to drain.
  bool _Open(std::string const& commandLine, int inBufferBytes, int outBufferBytes);
};

// Writes all of `bytes` to a pipe, retrying after EINTR and short writes. False when
// the reader has gone (EPIPE) or another error stopped it.
bool LPipeWriteAll(int fd, void const* data, std::size_t bytes);

// A job that runs one external program to its end, for decoders that turn a file
// into a WAV file. Process starts the command on a thread of its own that waits for
// the child, polls for a stop meanwhile, and kills the child when a stop comes.
struct LProcessRunExternalExeData {
  // `quiet`: the program's standard output and error go to /dev/null; otherwise
  // its standard error is this program's.
  LProcessRunExternalExeData(char const* commandLine, bool quiet);

  std::string szCommandLine;
  bool bQuiet;
  // What the watching thread tells: pid, exit status, signals. Filled by Process.
  mutable ProcessRunData rdRun;
};

// 0 when the program ran and exited with status 0; 1 after a stop (the child is
// killed); 2 when it could not start or ended with another status (rdRun.iExitCode
// tells which).
LProcessResult Process(LProcessInterface& pi, LProcessRunExternalExeData const& job);
