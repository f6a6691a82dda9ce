// Notifications about the directory: the file itself is renamed over by every commit.
#include "platform/tool/file_watch.h"

#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace platform {
namespace {

constexpr int pollMilliseconds = 1000;
// A file counts as written when its writer closes it: what is half written is nobody's content.
constexpr std::uint32_t watchedEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                        IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t directoryEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) (void)::close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

// What of a file shows that it is another one or was written to.
struct Look {
  bool isThere = false;
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  timespec changed{};

  explicit Look(const std::string& path) {
    struct stat status {};
    isThere = ::stat(path.c_str(), &status) == 0;
    if (!isThere) return;
    device = status.st_dev;
    number = status.st_ino;
    size = status.st_size;
    changed = status.st_ctim;
  }
  bool operator==(const Look& other) const {
    return isThere == other.isThere && device == other.device && number == other.number &&
           size == other.size && changed.tv_sec == other.changed.tv_sec &&
           changed.tv_nsec == other.changed.tv_nsec;
  }
};

// The signals that end the watch, but for those that are ignored.
sigset_t stoppingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
      sigaddset(&signals, number);
    }
  }
  return signals;
}

}  // namespace

struct FileWatch::State {
  explicit State(const std::string& watched)
      : path(watched),
        directory(watched, 0, watched.rfind('/') == std::string::npos ? 0 : watched.rfind('/') + 1),
        name(watched.substr(directory.size())),
        notices(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
        stopping(stoppingSignals()),
        signals(::signalfd(-1, &stopping, SFD_NONBLOCK | SFD_CLOEXEC)),
        seen(watched) {
    if (directory.empty()) directory = "./";
    if (signals.get() >= 0) (void)::sigprocmask(SIG_BLOCK, &stopping, &before);
    begin();
  }
  ~State() {
    if (signals.get() < 0) return;
    signalfd_siginfo ignored;
    while (::read(signals.get(), &ignored, sizeof ignored) > 0) {
    }
    (void)::sigprocmask(SIG_SETMASK, &before, nullptr);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  bool begin() {
    if (notices.get() < 0) return false;
    watch = ::inotify_add_watch(notices.get(), directory.c_str(), watchedEvents);
    return watch >= 0;
  }

  // Takes every notice that is there; whether one is about the file.
  bool takeNotices() {
    bool touched = false;
    alignas(inotify_event) std::array<char, 4096> bytes;
    for (;;) {
      const ssize_t count = ::read(notices.get(), bytes.data(), bytes.size());
      if (count <= 0) return touched;
      for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
        inotify_event event;
        std::memcpy(&event, bytes.data() + at, sizeof event);
        const char* const about = bytes.data() + at + sizeof event;
        touched = take(event, event.len == 0 ? "" : about) || touched;
        at += sizeof event + event.len;
      }
    }
  }

  bool take(const inotify_event& event, const char* about) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) return true;
    if (event.wd != watch) return false;
    if ((event.mask & directoryEvents) != 0) (void)::inotify_rm_watch(notices.get(), watch);
    if ((event.mask & (directoryEvents | IN_IGNORED)) == 0) return name == about;
    watch = -1;
    return true;
  }

  // Without notices: whether the file looks different, or there are notices again.
  bool look() {
    const Look now(path);
    const bool same = now == seen;
    seen = now;
    return begin() || !same;
  }

  std::string path;
  std::string directory;
  std::string name;
  Descriptor notices;
  int watch = -1;
  sigset_t stopping;
  sigset_t before{};
  Descriptor signals;
  Look seen;
};

FileWatch::FileWatch(const std::string& path) : state_(std::make_unique<State>(path)) {}
FileWatch::~FileWatch() = default;

FileWatch::Event FileWatch::wait() {
  for (;;) {
    // Of the output only that its reader is gone is reported.
    std::array<pollfd, 3> asked{{{state_->signals.get(), POLLIN, 0},
                                 {STDOUT_FILENO, 0, 0},
                                 {state_->notices.get(), POLLIN, 0}}};
    const bool looks = state_->watch < 0;
    const int count = ::poll(asked.data(), asked.size(), looks ? pollMilliseconds : -1);
    if (count < 0 && errno != EINTR) return Event::Stopped;
    if (count > 0 && (asked[0].revents != 0 || asked[1].revents != 0)) return Event::Stopped;
    if (count > 0 && asked[2].revents != 0 && state_->takeNotices()) return Event::Touched;
    if (looks && state_->look()) return Event::Touched;
  }
}

}  // namespace platform
