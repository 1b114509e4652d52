#include "shell/single_instance.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "foundation/app_paths.h"

namespace {

constexpr char kMagic[] = "TDARGS1\n";
constexpr std::size_t kMagicLen = sizeof(kMagic) - 1;
// A hand-over carries a few paths; anything larger is not from Tandrel.
constexpr std::size_t kMaxMessage = 1 << 20;
constexpr std::uint32_t kMaxArguments = 4096;
constexpr char kAck = 'K';

void PutU32(std::string& out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
}

bool GetU32(const std::string& in, std::size_t& pos, std::uint32_t& v) {
  if (in.size() - pos < 4) return false;
  v = 0;
  for (int i = 0; i < 4; ++i) v |= static_cast<std::uint32_t>(static_cast<unsigned char>(in[pos + i])) << (8 * i);
  pos += 4;
  return true;
}

long long NowMs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Waits for `events` on fd until the deadline; false on time-out or error.
bool WaitFd(int fd, short events, long long deadline) {
  for (;;) {
    long long left = deadline - NowMs();
    if (left <= 0) return false;
    pollfd p{fd, events, 0};
    int r = ::poll(&p, 1, static_cast<int>(left));
    if (r > 0) return true;
    if (r == 0) return false;
    if (errno != EINTR) return false;
  }
}

bool SendAll(int fd, const char* p, std::size_t n, long long deadline) {
  while (n > 0) {
    if (!WaitFd(fd, POLLOUT, deadline)) return false;
    ssize_t w = ::send(fd, p, n, MSG_NOSIGNAL);
    if (w < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return false;
    }
    p += w;
    n -= static_cast<std::size_t>(w);
  }
  return true;
}

bool MakeAddress(const std::string& path, sockaddr_un& addr) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  return true;
}

int NewSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

}  // namespace

std::string LSingleInstanceEncode(const std::vector<std::string>& arguments) {
  std::string out(kMagic, kMagicLen);
  PutU32(out, static_cast<std::uint32_t>(arguments.size()));
  for (const auto& a : arguments) {
    PutU32(out, static_cast<std::uint32_t>(a.size()));
    out += a;
  }
  return out;
}

bool LSingleInstanceDecode(const std::string& data, std::vector<std::string>& arguments) {
  arguments.clear();
  if (data.size() > kMaxMessage || data.size() < kMagicLen || data.compare(0, kMagicLen, kMagic) != 0) return false;
  std::size_t pos = kMagicLen;
  std::uint32_t count = 0;
  if (!GetU32(data, pos, count) || count > kMaxArguments) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint32_t len = 0;
    if (!GetU32(data, pos, len) || len > data.size() - pos) {
      arguments.clear();
      return false;
    }
    arguments.emplace_back(data, pos, len);
    pos += len;
  }
  if (pos != data.size()) {
    arguments.clear();
    return false;
  }
  return true;
}

LSingleInstance::LSingleInstance(std::string application, std::string folder) {
  if (folder.empty()) folder = LAppPaths::RuntimeFolder();
  szSocketPath = folder + "/" + application + "-" + LAppPaths::UserName() + ".sock";
}

LSingleInstance::~LSingleInstance() { Stop(); }

LSingleInstance::Role LSingleInstance::Start(const std::vector<std::string>& arguments, ArgumentsHandler h,
                                             unsigned timeoutMs) {
  // Two starts at the same moment may both find no listener; the one that
  // loses the bind tries the hand-over once more.
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (SendToPrimary(arguments, timeoutMs)) return Role::Secondary;
    if (Listen(h)) return Role::Primary;
    if (errno != EADDRINUSE) return Role::Failed;
    struct timespec pause{0, 50 * 1000 * 1000};
    nanosleep(&pause, nullptr);
  }
  return Role::Failed;
}

bool LSingleInstance::SendToPrimary(const std::vector<std::string>& arguments, unsigned timeoutMs) {
  sockaddr_un addr{};
  if (!MakeAddress(szSocketPath, addr)) return false;
  int fd = NewSocket();
  if (fd < 0) return false;
  long long deadline = NowMs() + timeoutMs;
  bool ok = false;
  int r = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  if (r == 0 || errno == EINPROGRESS || errno == EAGAIN) {
    if (r != 0) {
      int err = 0;
      socklen_t len = sizeof err;
      ok = WaitFd(fd, POLLOUT, deadline) && getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0;
    } else {
      ok = true;
    }
  }
  if (ok) {
    std::string msg = LSingleInstanceEncode(arguments);
    ok = SendAll(fd, msg.data(), msg.size(), deadline);
    ::shutdown(fd, SHUT_WR);  // tells the primary the message is complete
    char ack = 0;
    ok = ok && WaitFd(fd, POLLIN, deadline) && ::recv(fd, &ack, 1, 0) == 1 && ack == kAck;
  }
  ::close(fd);
  return ok;
}

bool LSingleInstance::Listen(ArgumentsHandler h) {
  if (iListenFd >= 0) return true;
  sockaddr_un addr{};
  if (!MakeAddress(szSocketPath, addr)) {
    errno = ENAMETOOLONG;
    return false;
  }
  int fd = NewSocket();
  if (fd < 0) return false;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    int err = errno;
    if (err == EADDRINUSE) {
      // A socket file that nobody accepts on was left by a process that died.
      // Only then is it safe to take its place.
      int probe = NewSocket();
      bool alive = false;
      if (probe >= 0) {
        alive = ::connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 || errno == EAGAIN ||
                errno == EINPROGRESS;
        ::close(probe);
      }
      if (!alive && ::unlink(szSocketPath.c_str()) == 0 &&
          ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
        err = 0;
      }
    }
    if (err != 0) {
      ::close(fd);
      errno = err;
      return false;
    }
  }
  ::chmod(szSocketPath.c_str(), 0600);
  if (::listen(fd, 8) != 0 || ::pipe2(iStopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    int err = errno;
    ::close(fd);
    ::unlink(szSocketPath.c_str());
    errno = err;
    return false;
  }
  iListenFd = fd;
  handler = std::move(h);
  listener = std::thread([this] { ListenerFunction(); });
  return true;
}

void LSingleInstance::Stop() {
  if (iListenFd < 0) return;
  char b = 1;
  [[maybe_unused]] ssize_t w = ::write(iStopPipe[1], &b, 1);
  if (listener.joinable()) listener.join();
  ::close(iListenFd);
  ::close(iStopPipe[0]);
  ::close(iStopPipe[1]);
  iListenFd = -1;
  iStopPipe[0] = iStopPipe[1] = -1;
  ::unlink(szSocketPath.c_str());
}

void LSingleInstance::ListenerFunction() {
  for (;;) {
    pollfd fds[2] = {{iStopPipe[0], POLLIN, 0}, {iListenFd, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents) return;
    if (!(fds[1].revents & POLLIN)) continue;
    int client = ::accept4(iListenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) continue;
    ServeClient(client);
    ::close(client);
  }
}

void LSingleInstance::ServeClient(int fd) {
  // Only the same user may hand us work, even when the socket sits in /tmp.
  ucred cred{};
  socklen_t len = sizeof cred;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || cred.uid != ::getuid()) return;

  // A client that stalls must not hold up the listener for long.
  long long deadline = NowMs() + 2000;
  std::string data;
  char buf[4096];
  for (;;) {
    if (!WaitFd(fd, POLLIN, deadline)) return;
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return;
    }
    if (n == 0) break;
    data.append(buf, static_cast<std::size_t>(n));
    if (data.size() > kMaxMessage) return;
  }
  std::vector<std::string> arguments;
  if (!LSingleInstanceDecode(data, arguments)) return;
  char ack = kAck;
  SendAll(fd, &ack, 1, deadline);
  if (handler) handler(std::move(arguments));
}
