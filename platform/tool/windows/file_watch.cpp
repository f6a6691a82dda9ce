// Change notifications of the directory, which report that something has changed in it, not what.
#include "platform/tool/file_watch.h"

#include <windows.h>

#include "sysservices/windows/wide_text.h"

namespace platform {
namespace {

constexpr DWORD lookMilliseconds = 1000;

HANDLE stopEvent = nullptr;  // of the one watch of the process

BOOL WINAPI stop(DWORD) {
  (void)::SetEvent(stopEvent);
  return TRUE;
}

// What of a file shows that it is another one or was written to.
struct Look {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  bool isThere = false;

  explicit Look(const std::string& path)
      : isThere(::GetFileAttributesExW(oss::WidePath(path.c_str()).get(), GetFileExInfoStandard,
                                       &data) != 0) {}
  bool operator==(const Look& other) const {
    if (!isThere || !other.isThere) return isThere == other.isThere;
    return data.nFileSizeHigh == other.data.nFileSizeHigh &&
           data.nFileSizeLow == other.data.nFileSizeLow &&
           ::CompareFileTime(&data.ftLastWriteTime, &other.data.ftLastWriteTime) == 0 &&
           ::CompareFileTime(&data.ftCreationTime, &other.data.ftCreationTime) == 0;
  }
};

std::string directoryOf(const std::string& path) {
  const std::size_t separator = path.find_last_of("/\\:");
  return separator == std::string::npos ? "." : path.substr(0, separator + 1);
}

}  // namespace

struct FileWatch::State {
  explicit State(const std::string& watched) : path(watched), seen(watched) {
    stopEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    (void)::SetConsoleCtrlHandler(stop, TRUE);
    begin();
  }
  ~State() {
    end();
    (void)::SetConsoleCtrlHandler(stop, FALSE);
    (void)::CloseHandle(stopEvent);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  bool begin() {
    notices = ::FindFirstChangeNotificationW(
        oss::WidePath(directoryOf(path).c_str()).get(), FALSE,
        FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE);
    return notices != INVALID_HANDLE_VALUE;
  }
  void end() {
    if (notices != INVALID_HANDLE_VALUE) (void)::FindCloseChangeNotification(notices);
    notices = INVALID_HANDLE_VALUE;
  }

  std::string path;
  Look seen;
  HANDLE notices = INVALID_HANDLE_VALUE;
};

FileWatch::FileWatch(const std::string& path) : state_(std::make_unique<State>(path)) {}
FileWatch::~FileWatch() = default;

// Notices may be late where a file is kept open, and its last look shows that it is unchanged.
FileWatch::Event FileWatch::wait() {
  for (;;) {
    const HANDLE asked[] = {stopEvent, state_->notices};
    const DWORD count = state_->notices == INVALID_HANDLE_VALUE ? 1 : 2;
    const DWORD answer = ::WaitForMultipleObjects(count, asked, FALSE, lookMilliseconds);
    if (answer == WAIT_OBJECT_0 || answer == WAIT_FAILED) return Event::Stopped;
    bool touched = answer == WAIT_OBJECT_0 + 1;
    if (touched && ::FindNextChangeNotification(state_->notices) == 0) state_->end();
    if (count == 1) touched = state_->begin() || touched;
    const Look now(state_->path);
    touched = touched || !(now == state_->seen);
    state_->seen = now;
    if (touched) return Event::Touched;
  }
}

}  // namespace platform
