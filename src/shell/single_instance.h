#pragma once
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Keeps Tandrel to one process per user. The first process listens on a Unix
// domain socket; a later start connects, hands over its arguments and leaves,
// so that "tandrel song.tdpj" from a file manager opens in the running window.
class LSingleInstance {
 public:
  using ArgumentsHandler = std::function<void(std::vector<std::string>)>;

  // The socket "<RuntimeFolder>/<application>-<user>.sock"; `folder` overrides
  // the runtime folder (tests use a scratch folder).
  explicit LSingleInstance(std::string application = "tandrel", std::string folder = {});
  ~LSingleInstance();
  LSingleInstance(const LSingleInstance&) = delete;
  LSingleInstance& operator=(const LSingleInstance&) = delete;

  const std::string& SocketPath() const { return szSocketPath; }

  enum class Role { Primary, Secondary, Failed };

  // Decides which process this is. A secondary hands `arguments` to the primary
  // and waits for its acknowledgement at most `timeoutMs`; it reports Secondary
  // only when the primary confirmed. A primary starts its listener, which calls
  // `handler` on the listener's thread with each set of arguments received.
  // Failed: no socket could be made; the caller runs as a lone instance.
  Role Start(const std::vector<std::string>& arguments, ArgumentsHandler handler, unsigned timeoutMs = 10000);

  // Stops the listener and removes the socket. Called by the destructor too.
  void Stop();

  // The two halves of Start, for callers that need only one.
  bool SendToPrimary(const std::vector<std::string>& arguments, unsigned timeoutMs);
  bool Listen(ArgumentsHandler handler);

 private:
  void ListenerFunction();
  void ServeClient(int fd);

  std::string szSocketPath;
  int iListenFd = -1;
  int iStopPipe[2] = {-1, -1};
  ArgumentsHandler handler;
  std::thread listener;
};

// The wire form of a set of arguments: "TDARGS1\n", a 32-bit count, then each
// argument as a 32-bit length and its bytes (little-endian). Exposed for tests.
std::string LSingleInstanceEncode(const std::vector<std::string>& arguments);
// False for anything malformed, truncated, or past the size limits.
bool LSingleInstanceDecode(const std::string& data, std::vector<std::string>& arguments);
