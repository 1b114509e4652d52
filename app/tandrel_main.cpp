// tandrel: the desktop program.
#include <QApplication>
#include <QSocketNotifier>
#include <clocale>
#include <cstdlib>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

#include "foundation/log.h"
#include "shell/app_entry.h"
#include "shell/main_dialog.h"
#include "shell/project_sound_opener.h"
#include "shell/sound_engine_state.h"
#include "project/audio_cut_tank.h"
#include "shell/single_instance.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"

namespace {

// Arguments can arrive from another start before the window stands; they wait
// here until the main loop can take them.
class ArgumentInbox {
 public:
  void Deliver(std::vector<std::string> args) {
    std::lock_guard lock(mtx);
    if (target) target(std::move(args));
    else pending.push_back(std::move(args));
  }
  void Open(std::function<void(std::vector<std::string>)> to) {
    std::lock_guard lock(mtx);
    target = std::move(to);
    for (auto& args : pending) target(std::move(args));
    pending.clear();
  }
  void Close() {
    std::lock_guard lock(mtx);
    target = nullptr;
  }

 private:
  std::mutex mtx;
  std::function<void(std::vector<std::string>)> target;
  std::vector<std::vector<std::string>> pending;
};

int quitPipe[2] = {-1, -1};

void OnQuitSignal(int) {
  char b = 1;
  [[maybe_unused]] ssize_t w = ::write(quitPipe[1], &b, 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (!LUnixAppInitCommon(argc, argv)) return 0;
  std::vector<std::string> arguments(argv, argv + argc);
  // The running instance may sit in another folder: hand it whole paths.
  if (char* cwd = ::getcwd(nullptr, 0)) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
      std::string& a = arguments[i];
      if (!a.empty() && a[0] != '/' && a[0] != '-' && a.find("://") == std::string::npos) a = std::string(cwd) + "/" + a;
    }
    std::free(cwd);
  }

  // One Tandrel per user: a second start hands its arguments over and leaves
  // before it opens any window.
  ArgumentInbox inbox;
  LSingleInstance instance;
  auto role = instance.Start(arguments, [&inbox](std::vector<std::string> args) { inbox.Deliver(std::move(args)); });
  if (role == LSingleInstance::Role::Secondary) {
    LLog("handed the arguments to the running Tandrel");
    return 0;
  }
  if (role == LSingleInstance::Role::Failed)
    LLog("no single-instance socket at %s; running on its own", instance.SocketPath().c_str());
  // Only a Tandrel sure to be alone may sweep unreferenced audio from the data
  // folder when it ends; another one could still be writing there.
  LAudioCutTank::Instance().SetDeleteCachedFilesOnExit(role == LSingleInstance::Role::Primary);

  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Tandrel"));
  QApplication::setOrganizationName(QStringLiteral("Tandrel"));
  QApplication::setDesktopFileName(QStringLiteral("tandrel"));
  std::setlocale(LC_NUMERIC, "C");  // Qt took the user's locale for numbers too

  // A terminal's Ctrl+C or a session's SIGTERM closes the window the normal way.
  if (::pipe2(quitPipe, O_CLOEXEC | O_NONBLOCK) == 0) {
    auto* notifier = new QSocketNotifier(quitPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [] { QApplication::exit(0); });
    struct sigaction sa{};
    sa.sa_handler = OnQuitSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
  }

  TDQtMainWindow window;
  TDQtMainLoop loop;
  // The transport plays the project's mix through the sound devices.
  TDProjectSoundOpener opener;
  TDEngine transport(opener);
  TDSoundEngineState engine(transport);
  MainDialog controller(window, loop, engine);
  opener.SetProject(&controller.GetProject());
  // The transport's news reach the window through the controller, which acts on
  // them first (the cursor after a stop, a device that went away).
  controller.SetPlayerNotify(&window);
  window.SetTrackLevelSource([&controller] { return controller.TakeTracksDB(); });
  engine.SetPlayDevice(controller.GetSettings().szPlayDevice);
  loop.SetTimerHandler([&controller](int id) { controller.OnTimer(id); });
  window.SetController(&controller);
  window.show();
  controller.InitDialog();

  inbox.Open([&loop, &controller](std::vector<std::string> args) {
    loop.PostToMainThread([&controller, args = std::move(args)] { controller.EvRunArguments(args); });
  });
  controller.EvRunArguments(arguments);

  int result = QApplication::exec();
  inbox.Close();
  transport.Stop();
  controller.SetPlayerNotify(nullptr);
  window.SetController(nullptr);
  instance.Stop();
  return result;
}
