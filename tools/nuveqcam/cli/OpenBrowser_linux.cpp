#include "cli/OpenBrowser.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nuveqcam {
namespace {

class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawn_file_actions_init(&m_actions);
    posix_spawnattr_init(&m_attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&m_actions);
    posix_spawnattr_destroy(&m_attributes);
  }

  // The browser may outlive this program: it must not keep the program's sockets, camera and pipes open,
  // print to its terminal, or end with Ctrl-C. It starts with the default actions of the signals that
  // StandardStreams ignores.
  bool Detach() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (posix_spawn_file_actions_addopen(&m_actions, descriptor, "/dev/null", O_RDWR, 0) != 0) {
        return false;
      }
    }
    sigset_t defaults{};
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    // May be ignored by the program that started this one. The browser waits for its own processes.
    sigaddset(&defaults, SIGCHLD);
    return posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1) == 0 &&
           posix_spawnattr_setsigdefault(&m_attributes, &defaults) == 0 &&
           posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID) == 0;
  }

  const posix_spawn_file_actions_t* Actions() const { return &m_actions; }
  const posix_spawnattr_t* Attributes() const { return &m_attributes; }

 private:
  posix_spawn_file_actions_t m_actions{};
  posix_spawnattr_t m_attributes{};
};

// True once the process has ended without success. xdg-open may run as long as the browser.
class FailureCheck {
 public:
  explicit FailureCheck(pid_t process) : m_process(process) {}

  bool operator()() {
    if (m_process == 0) {
      return m_hasFailed;
    }
    int status = 0;
    const pid_t ended = waitpid(m_process, &status, WNOHANG);
    if (ended == m_process) {
      m_process = 0;
      m_hasFailed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    } else if (ended < 0 && errno == ECHILD) {
      // This program was started with SIGCHLD ignored: the system does not keep the exit status.
      m_process = 0;
    }
    return m_hasFailed;
  }

 private:
  pid_t m_process;  // 0: it has ended
  bool m_hasFailed = false;
};

}  // namespace

std::function<bool()> OpenBrowser(const std::string& address) {
  std::string program = "xdg-open";
  std::string argument = address;
  const std::array<char*, 3> words{program.data(), argument.data(), nullptr};
  SpawnSettings settings;
  pid_t process = 0;
  if (!settings.Detach() || posix_spawnp(&process, program.c_str(), settings.Actions(), settings.Attributes(),
                                         words.data(), environ) != 0) {
    return [] { return true; };
  }
  return FailureCheck(process);
}

}  // namespace nuveqcam
