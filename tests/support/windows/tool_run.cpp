#include <windows.h>

#include <filesystem>

#include "support/tool.h"

namespace {

// The command line of words that stand as for a shell: in single quotes where they hold blanks.
std::string commandLine(const std::string& program, const std::string& words) {
  std::string line = "\"" + program + "\" ";
  bool quoted = false;
  for (const char character : words) {
    if (character == '\'') {
      quoted = !quoted;
      line += '"';
    } else if (character == '"') {
      line += "\\\"";
    } else {
      line += character;
    }
  }
  return line;
}

class RedirectedFile {
 public:
  RedirectedFile(const std::string& path, DWORD access) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    handle_ = ::CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  ~RedirectedFile() { ::CloseHandle(handle_); }
  RedirectedFile(const RedirectedFile&) = delete;
  RedirectedFile& operator=(const RedirectedFile&) = delete;
  HANDLE handle() const { return handle_; }

 private:
  HANDLE handle_;
};

// What a program wrote, with the ends of lines that the tests are written with.
std::string readText(const std::string& path) {
  std::string text = readFile(path);
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
  return text;
}

}  // namespace

ToolRun runTool(const std::string& arguments, const std::string& input) {
  static unsigned int count = 0;
  char temporary[MAX_PATH];
  (void)::GetTempPathA(sizeof temporary, temporary);
  const std::string directory = std::string(temporary) + "zorreg-run-" +
                                std::to_string(::GetCurrentProcessId()) + "-" +
                                std::to_string(++count);
  std::filesystem::create_directory(directory);
  writeFile(directory + "\\in", input);
  std::string command = commandLine(ZORREG_PATH, arguments);
  DWORD status = 0;
  {
    const RedirectedFile in(directory + "\\in", GENERIC_READ);
    const RedirectedFile out(directory + "\\out", GENERIC_WRITE);
    const RedirectedFile error(directory + "\\err", GENERIC_WRITE);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = in.handle();
    startup.hStdOutput = out.handle();
    startup.hStdError = error.handle();
    PROCESS_INFORMATION process{};
    EXPECT_NE(::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &startup, &process),
              0)
        << command;
    (void)::WaitForSingleObject(process.hProcess, INFINITE);
    (void)::GetExitCodeProcess(process.hProcess, &status);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
  }
  ToolRun run{static_cast<int>(status), readText(directory + "\\out"),
              readText(directory + "\\err")};
  std::filesystem::remove_all(directory);
  return run;
}
