#include "foundation/external_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "foundation/testing_process.h"

namespace {

bool ProcessExists(pid_t pid) { return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

TEST(CommandLine, SplitsOnBlanksAndKeepsQuotedStretchesWhole) {
  using V = std::vector<std::string>;
  EXPECT_EQ(LSplitCommandLine("  lame  -m j\t-b 128 "), (V{"lame", "-m", "j", "-b", "128"}));
  EXPECT_EQ(LSplitCommandLine("\"/usr/bin/flac\" -o \"my song.flac\" -"), (V{"/usr/bin/flac", "-o", "my song.flac", "-"}));
  // A quote inside an argument joins the stretches; "" is an empty argument.
  EXPECT_EQ(LSplitCommandLine("--tag \"TITLE=a b\"x \"\""), (V{"--tag", "TITLE=a bx", ""}));
  // An unclosed quote runs to the end; a backslash outside quotes is a character.
  EXPECT_EQ(LSplitCommandLine("a \"b c"), (V{"a", "b c"}));
  EXPECT_EQ(LSplitCommandLine("C:\\dir\\x"), (V{"C:\\dir\\x"}));
  EXPECT_TRUE(LSplitCommandLine("   ").empty());
}

TEST(CommandLine, AQuotedArgumentComesBackWhateverItHolds) {
  for (std::string const& text : {std::string("plain"), std::string("two words"), std::string("say \"hi\""),
                                  std::string("back\\slash\\"), std::string("$(rm -rf x); `id` & | > <"),
                                  std::string(""), std::string("\\\""), std::string("tab\there")}) {
    std::vector<std::string> const args = LSplitCommandLine("prog " + LQuoteArgument(text) + " end");
    ASSERT_EQ(args.size(), 3u) << text;
    EXPECT_EQ(args[1], text);
    EXPECT_EQ(args[2], "end");
  }
}

TEST(ExternalProcess, ExitStatusDecidesTheResult) {
  LTestProcessRecorder pi;
  LProcessRunExternalExeData ok("true", true);
  EXPECT_EQ(Process(pi, ok), LProcessFinished);
  EXPECT_EQ(ok.rdRun.iExitCode.load(), 0);
  EXPECT_EQ(ok.rdRun.iRunning.load(), 0);

  LProcessRunExternalExeData failing("sh -c \"exit 7\"", true);
  EXPECT_EQ(Process(pi, failing), LProcessFailed);
  EXPECT_EQ(failing.rdRun.iExitCode.load(), 7);

  LProcessRunExternalExeData missing("/no/such/program --flag", true);
  EXPECT_EQ(Process(pi, missing), LProcessFailed);
  LProcessRunExternalExeData empty("", true);
  EXPECT_EQ(Process(pi, empty), LProcessFailed);
}

TEST(ExternalProcess, AStopKillsTheChildAtOnce) {
  LTestProcessRecorder pi;
  LProcessRunExternalExeData sleeper("sleep 30", true);
  std::thread stopper([&] {
    sleeper.rdRun.soStarted.WaitSignal(5000);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pi.soStop.Set();
  });
  auto const start = std::chrono::steady_clock::now();
  LProcessResult const r = Process(pi, sleeper);
  stopper.join();
  EXPECT_EQ(r, LProcessStopped);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  pid_t const pid = sleeper.rdRun.pid;
  ASSERT_GT(pid, 0);
  EXPECT_FALSE(ProcessExists(pid));  // killed and reaped
}

TEST(ExternalProcess, ChildRunsInAGroupOfItsOwnAndDiesWithItsOwner) {
  pid_t pid = 0;
  {
    LPipeOut pipe;
    ASSERT_TRUE(pipe._Open("sleep 30"));
    pid = pipe.GetPid();
    // Ctrl-C at the terminal goes to the terminal's group, not to the encoder.
    EXPECT_EQ(::getpgid(pid), pid);
    EXPECT_TRUE(pipe.IsRunning());
  }
  EXPECT_FALSE(ProcessExists(pid));
}

TEST(ExternalProcess, WritingToAProgramThatHasGoneFailsInsteadOfKillingUs) {
  LPipeOut pipe;
  ASSERT_TRUE(pipe._Open("true"));
  EXPECT_EQ(pipe.Wait(5000), 0);
  std::vector<char> data(1 << 16, 'x');
  // The reader has gone: EPIPE, not SIGPIPE.
  EXPECT_FALSE(LPipeWriteAll(pipe.InFd(), data.data(), data.size()));

  LPipeInOut echo;
  ASSERT_TRUE(echo._Open("cat", 1 << 16, 1 << 16));
  ASSERT_TRUE(LPipeWriteAll(echo.InFd(), "abc", 3));
  echo.CloseIn();
  char buf[8] = {};
  EXPECT_EQ(::read(echo.OutFd(), buf, sizeof buf), 3);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(echo.Wait(5000), 0);
}

}  // namespace
