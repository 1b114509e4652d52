#include "shell/single_instance.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>

namespace fs = std::filesystem;

namespace {

// Collects what a primary receives on its listener thread.
struct Received {
  std::mutex mtx;
  std::condition_variable cv;
  std::vector<std::vector<std::string>> sets;

  void Add(std::vector<std::string> args) {
    std::lock_guard lock(mtx);
    sets.push_back(std::move(args));
    cv.notify_all();
  }
  bool WaitFor(std::size_t count) {
    std::unique_lock lock(mtx);
    return cv.wait_for(lock, std::chrono::seconds(5), [&] { return sets.size() >= count; });
  }
};

class SingleInstanceTest : public ::testing::Test {
 protected:
  // Socket paths are limited to 107 bytes, which a build folder can pass.
  void SetUp() override {
    char name[] = "/tmp/tandrel-si-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    folder = name;
  }
  void TearDown() override { fs::remove_all(folder); }
  fs::path folder;
};

TEST_F(SingleInstanceTest, SecondStartHandsItsArgumentsToTheFirst) {
  Received got;
  LSingleInstance first("tandrel", folder.string());
  ASSERT_EQ(first.Start({"tandrel"}, [&](std::vector<std::string> a) { got.Add(std::move(a)); }),
            LSingleInstance::Role::Primary);

  LSingleInstance second("tandrel", folder.string());
  const std::vector<std::string> args = {"tandrel", "/music/song one.tdpj", "", "-psn_0_1", std::string(70000, 'a')};
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(second.Start(args, nullptr), LSingleInstance::Role::Secondary);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2));

  ASSERT_TRUE(got.WaitFor(1));
  EXPECT_EQ(got.sets[0], args);
}

TEST_F(SingleInstanceTest, AStaleSocketFromADeadProcessIsTakenOver) {
  // A socket file with nobody listening, as a crashed Tandrel leaves it.
  std::string path;
  {
    LSingleInstance probe("tandrel", folder.string());
    path = probe.SocketPath();
  }
  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ::close(fd);
  ASSERT_TRUE(fs::exists(path));

  Received got;
  LSingleInstance first("tandrel", folder.string());
  EXPECT_EQ(first.Start({"tandrel"}, [&](std::vector<std::string> a) { got.Add(std::move(a)); }, 500),
            LSingleInstance::Role::Primary);
  LSingleInstance second("tandrel", folder.string());
  EXPECT_EQ(second.Start({"tandrel", "x"}, nullptr), LSingleInstance::Role::Secondary);
  ASSERT_TRUE(got.WaitFor(1));
}

TEST_F(SingleInstanceTest, StoppingRemovesTheSocketAndTheNextStartIsPrimary) {
  std::string path;
  {
    LSingleInstance first("tandrel", folder.string());
    ASSERT_EQ(first.Start({"tandrel"}, [](std::vector<std::string>) {}), LSingleInstance::Role::Primary);
    path = first.SocketPath();
    EXPECT_TRUE(fs::exists(path));
  }
  EXPECT_FALSE(fs::exists(path));
  LSingleInstance again("tandrel", folder.string());
  EXPECT_EQ(again.Start({"tandrel"}, [](std::vector<std::string>) {}, 500), LSingleInstance::Role::Primary);
}

TEST_F(SingleInstanceTest, GarbageOnTheSocketIsIgnoredAndTheListenerGoesOn) {
  Received got;
  LSingleInstance first("tandrel", folder.string());
  ASSERT_EQ(first.Start({"tandrel"}, [&](std::vector<std::string> a) { got.Add(std::move(a)); }),
            LSingleInstance::Role::Primary);

  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", first.SocketPath().c_str());
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  const char junk[] = "GET / HTTP/1.0\r\n\r\n";
  ASSERT_GT(::write(fd, junk, sizeof junk), 0);
  ::shutdown(fd, SHUT_WR);
  char reply = 0;
  EXPECT_EQ(::read(fd, &reply, 1), 0);  // closed without an acknowledgement
  ::close(fd);

  LSingleInstance second("tandrel", folder.string());
  EXPECT_EQ(second.Start({"tandrel", "after"}, nullptr), LSingleInstance::Role::Secondary);
  ASSERT_TRUE(got.WaitFor(1));
  EXPECT_EQ(got.sets.size(), 1u);
  EXPECT_EQ(got.sets[0].back(), "after");
}

TEST(SingleInstanceWire, DecodeRejectsTruncatedAndOversizedMessages) {
  std::string good = LSingleInstanceEncode({"a", "bc"});
  std::vector<std::string> out;
  ASSERT_TRUE(LSingleInstanceDecode(good, out));
  EXPECT_EQ(out, (std::vector<std::string>{"a", "bc"}));
  for (std::size_t cut = 0; cut < good.size(); ++cut)
    EXPECT_FALSE(LSingleInstanceDecode(good.substr(0, cut), out)) << "cut at " << cut;
  EXPECT_FALSE(LSingleInstanceDecode(good + "x", out));

  // A length that points far past the end must not be believed.
  std::string lying = LSingleInstanceEncode({"abc"});
  lying[12] = '\xFF';
  lying[13] = '\xFF';
  EXPECT_FALSE(LSingleInstanceDecode(lying, out));
  EXPECT_TRUE(out.empty());
}

}  // namespace

namespace {

TEST(SingleInstanceLimits, AFolderTooDeepForASocketMeansRunningAlone) {
  LSingleInstance instance("tandrel", "/tmp/" + std::string(120, 'd'));
  EXPECT_EQ(instance.Start({"tandrel"}, [](std::vector<std::string>) {}, 200), LSingleInstance::Role::Failed);
}

}  // namespace
