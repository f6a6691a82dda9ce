// Newer systems have the texts of this program in UTF-8 as its manifest says; older ones do not
// read that, and main's words have lost there what the code page lacks.
#include "platform/tool/utf8_process.h"

// The second header needs the first.
// clang-format off
#include <windows.h>
#include <shellapi.h>
// clang-format on

#include <cwchar>
#include <stdexcept>

namespace platform {
namespace {

std::string utf8Of(const wchar_t* wide) {
  const auto convert = [wide](char* text, int size) {
    return ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, -1, text, size, nullptr,
                                 nullptr);
  };
  const int size = convert(nullptr, 0);
  if (size <= 0) throw std::invalid_argument("a word holds half a character: it is no text");
  std::string text(static_cast<std::size_t>(size), '\0');
  (void)convert(text.data(), size);
  text.pop_back();
  return text;
}

std::wstring wideOf(const std::string& text) {
  std::wstring wide(text.size() + 1, L'\0');
  (void)::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, wide.data(),
                              static_cast<int>(wide.size()));
  wide.resize(std::wcslen(wide.c_str()));
  return wide;
}

}  // namespace

Utf8Process::Utf8Process(int, char**) {
  ossUseUtf8();
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (wide == nullptr) throw std::bad_alloc();
  const struct Words {
    wchar_t** first;
    ~Words() { (void)::LocalFree(first); }
  } owned{wide};
  for (int i = 1; i < count; ++i) words_.push_back(utf8Of(owned.first[i]));
  consoleBefore_ = ::GetConsoleOutputCP();  // 0 without a console
  if (consoleBefore_ != 0 && ::SetConsoleOutputCP(CP_UTF8) == 0) consoleBefore_ = 0;
}

Utf8Process::~Utf8Process() {
  if (consoleBefore_ != 0) (void)::SetConsoleOutputCP(consoleBefore_);
}

bool runCommand(const std::string& command) { return ::_wsystem(wideOf(command).c_str()) == 0; }

}  // namespace platform
