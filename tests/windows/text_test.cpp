// Text that the process's code page lacks, streams of other runtime libraries, and where the log
// goes.
#include <windows.h>

#include "ossinstall.h"
#include "support/operations.h"
#include "sysservices/environment.h"
#include "sysservices/file_system.h"
#include "sysservices/windows/system_call.h"
#include "zorreg.h"

namespace {

using oss::Spelled;

class WindowsText : public RegistryTest {
 protected:
  static std::string spelled(const std::wstring& wide, Spelled kind = Spelled::Path) {
    char text[256];
    const std::size_t length = oss::narrow(wide.data(), wide.size(), kind, text, sizeof text);
    return length > sizeof text ? "none" : std::string(text, length);
  }
  static std::wstring wideOf(const std::string& text) {
    wchar_t wide[256];
    const std::size_t length = oss::widen(text.data(), text.size(), Spelled::Path, wide, 256);
    return length == oss::noText ? L"none" : std::wstring(wide, length);
  }
};

TEST_F(WindowsText, EveryTextHasOneSpellingAndNoOlderOneChangesItsMeaning) {
  if (::GetACP() != 1252) GTEST_SKIP() << "the spellings are those of code page 1252";
  const std::pair<std::wstring, std::string> texts[] = {
      {L"", ""},
      {L"C:\\a/b.reg", "C:\\a/b.reg"},
      {L"Zo\u00EB \u20AC", "Zo\xEB \x80"},
      {L"\u65E5\u672C.reg", "\x01\xE6\x97\xA5\xE6\x9C\xAC.reg"},
      {L"\u00EB\u65E5\\\u00EB", "\x01\xC3\xAB\xE6\x97\xA5\\\xEB"},
      {L"a\U0001F600b",
       "a\x01\xF0\x9F\x98\x80"
       "b"},
      {L"\uFF21", "\x01\xEF\xBC\xA1"},  // which the code page would spell as an "A"
      {L"a\u0001b",
       "a\x01"
       "b"},
      {L"\u0001\u00EB", "\x01\x01\xC3\xAB"}};
  for (const auto& [wide, text] : texts) {
    EXPECT_EQ(spelled(wide), text);
    EXPECT_EQ(wideOf(text), wide) << text;
  }
  EXPECT_EQ(spelled(L"\xD83D"), "none") << "half a character";
  EXPECT_EQ(wideOf("\x01\xE6\x97"), L"none") << "two thirds of one";
  const std::string both = spelled(L"a\u65E5\u672C");
  const std::size_t whole[] = {0, 1, 1, 1, 1, 5, 5, 5, 8};
  for (std::size_t room = 0; room <= both.size(); ++room) {
    EXPECT_EQ(oss::wholeCharacters(both.c_str(), room), whole[room]) << room;
  }
}

TEST_F(WindowsText, TheCInterfaceOpensWhatTheCodePageLacks) {
  const std::string directory = directory_ + "/Zo\xC3\xAB";
  const std::string file = directory + "/\xE6\x97\xA5\xE6\x9C\xAC.reg";
  const std::wstring wide = wideOf(directory_) + L"/Zo\u00EB/\u65E5\u672C.reg";
  zorreg* registry = nullptr;
  ASSERT_EQ(zorreg_open("var", file.c_str(), &registry), 0u);
  zorreg_record* record = zorreg_record_new();
  (void)zorreg_record_set(record, "Variable", "N");
  EXPECT_EQ(zorreg_get(registry, record, record), GENREG_RC_NO_FILE);
  EXPECT_NE(std::string(zorreg_cause(registry)).find("\xE6\x97\xA5\xE6\x9C\xAC.reg"),
            std::string::npos)
      << zorreg_cause(registry);
  (void)zorreg_record_set(record, "Value", "\xE6\x97\xA5");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(zorreg_set(registry, record), 0u) << zorreg_cause(registry);
  zorreg_record_free(record);
  zorreg_close(registry);
  EXPECT_NE(::GetFileAttributesW(wide.c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_NE(::DeleteFileW(wide.c_str()), 0);
  EXPECT_NE(::RemoveDirectoryW((wideOf(directory_) + L"/Zo\u00EB").c_str()), 0) << "left over";
  EXPECT_EQ(zorreg_open("var", "\xC3.reg", &registry), GENREG_RC_PATH_ENCODING);
}

TEST_F(WindowsText, BothInterfacesUseTheSameFilesInADoubleByteCodePage) {
  if (::GetACP() != 932) GTEST_SKIP() << "the spellings are those of code page 932";
  const std::string folder = directory_ + "\\\x97\\\x92\xE8\x95\\";
  const std::string utf8 = directory_ + "/\xE4\xBA\x88\xE5\xAE\x9A\xE8\xA1\xA8/\xE8\xA1\xA8.reg";
  Exposed<GenRegVarVal> own(folder + "\\\x95\\.reg");
  char name[GENREG_PATH_SIZE];
  VarValRecord record = assignment("N", "1");
  EXPECT_EQ(own.Add(VARVAL_VARIABLE, &record), 0u);
  zorreg* other = nullptr;
  ASSERT_EQ(zorreg_open("var", utf8.c_str(), &other), 0u);
  zorreg_set_lock_timeout(other, 1);
  EXPECT_EQ(own.BeginUpdate(), 0u);
  EXPECT_EQ(zorreg_begin(other), GENREG_RC_BUSY);
  EXPECT_EQ(own.AbandonUpdate(), 0u);
  EXPECT_EQ(own.getBackupFilePath(name, sizeof name), 0u);  // as after a crash in a commit
  EXPECT_EQ(ossFileRename((folder + "\\\x95\\.reg").c_str(), name), 0u);
  zorreg_record* found = zorreg_record_new();
  (void)zorreg_record_set(found, "Variable", "N");
  EXPECT_EQ(zorreg_get(other, found, found), 0u) << zorreg_cause(other);
  zorreg_record_free(found);
  zorreg_close(other);
}

TEST_F(WindowsText, EveryInstanceOfTheMachineIsFoundByItsName) {
  void* list = nullptr;
  if (ossOpenInstanceList("ZOR", &list) != 0) GTEST_SKIP() << "scripts/check-windows makes some";
  OSSInstanceInfo_t listed, found;
  while (ossGetNextInstance(list, &listed) == 0) {
    EXPECT_EQ(ossGetInstanceInfo("ZOR", 0, listed.instanceName, &found), 0u);
    EXPECT_STREQ(found.instanceName, listed.instanceName);
    EXPECT_EQ(spelled(wideOf(listed.installPath)), listed.installPath) << "spelled as no path";
  }
  (void)ossCloseInstanceList(list);
}

TEST_F(WindowsText, AVariableThatIsNoTextOrLongIsSet) {
  constexpr char name[] = "ZOR_GLOBAL_REG_PATHNAME";
  const std::wstring longest(20000, L'x');
  std::string value(longest.size() + 1, '\0');
  unsigned int code = 0;
  (void)::SetEnvironmentVariableW(wideOf(name).c_str(), L"a\xD83D");  // half a character
  const GlobalReg registry(nullptr, &code);
  EXPECT_EQ(code, GENREG_RC_PATH_ENCODING);
  (void)::SetEnvironmentVariableW(wideOf(name).c_str(), longest.c_str());
  EXPECT_EQ(ossEnvironmentGet(name, value.data(), value.size()), 20000);
  EXPECT_EQ(value.find_first_not_of('x'), longest.size());
  (void)::SetEnvironmentVariableW(wideOf(name).c_str(), nullptr);
}

// The newer runtime library is in every process that loads it, whichever the program has; so is one
// of the older ones that lays its streams out as this one does.
TEST_F(WindowsText, AStreamOfAnotherRuntimeLibraryIsRefused) {
  writeFile(registry(), "abc\ndef\n");
  for (const wchar_t* library : {L"ucrtbase.dll", L"msvcr120.dll"}) {
    const HMODULE module = ::LoadLibraryW(library);
    if (module == nullptr) continue;
    const auto find = [&](const char* name) {
      return reinterpret_cast<void*>(::GetProcAddress(module, name));
    };
    const auto open = reinterpret_cast<std::FILE* (*)(const char*, const char*)>(find("fopen"));
    const auto read = reinterpret_cast<int (*)(std::FILE*)>(find("fgetc"));
    const auto close = reinterpret_cast<int (*)(std::FILE*)>(find("fclose"));
    std::FILE* const stream = open(registry().c_str(), "r+b");
    ASSERT_NE(stream, nullptr);
    for (int i = 0; i < 2; ++i) {  // without a buffer, then with one
      char raw[16];
      char line[16];
      unsigned int code = 0;
      EXPECT_EQ(GenRegReadLine(raw, line, sizeof raw, stream, &code, false), nullptr);
      EXPECT_EQ(code, GENREG_RC_BAD_ARGUMENT);
      char text[] = "x";
      EXPECT_EQ(GenRegWriteLine(text, 80, stream), GENREG_RC_BAD_ARGUMENT);
      (void)read(stream);
    }
    (void)close(stream);
  }
  EXPECT_EQ(readFile(registry()), "abc\ndef\n");
}

// As the newer library lays them out on Windows; Wine's has the older one's layout.
TEST_F(WindowsText, TheLayoutTellsAStreamOfTheNewerRuntimeLibrary) {
  struct Newer {
    const char* place;
    const char* buffer;
    int left, flags, descriptor, oneByte, size;
    char others[64];
  };
  static char buffer[4096];
  constexpr int allocated = 0x2000;
  for (const int flags : {1, 2, 4, 7}) {
    for (const bool isRead : {false, true}) {
      Newer stream{};
      stream.flags = flags | allocated;
      stream.descriptor = 3;
      if (isRead)
        stream = {buffer + 1, buffer, 9, flags | allocated | 0x40, 3, 0, sizeof buffer, {}};
      char line[8];
      EXPECT_EQ(GenRegReadLine(line, line, sizeof line, reinterpret_cast<std::FILE*>(&stream),
                               nullptr, false),
                nullptr);
    }
  }
}

TEST_F(WindowsText, EveryStreamOfThisRuntimeLibraryIsRead) {
  constexpr int count = 30;  // more than the library has in its table
  std::FILE* streams[count];
  for (std::FILE*& stream : streams) {
    stream = scratchStream();
    for (int i = 0; i < 3; ++i) std::fputs("abc\\\n", stream);
    std::rewind(stream);
    char raw[64];
    char line[64];
    for (int i = 0; i < 2; ++i) {
      EXPECT_NE(GenRegReadLine(raw, line, sizeof raw, stream, nullptr, false), nullptr);
      EXPECT_EQ(std::ungetc(std::fgetc(stream), stream), 'a');
      (void)std::fseek(stream, 0, SEEK_CUR);
    }
    EXPECT_EQ(GenRegWriteLine(line, 80, stream), 0u);
    (void)std::setvbuf(stream, nullptr, _IONBF, 0);
    std::rewind(stream);
    EXPECT_NE(GenRegReadLine(raw, line, sizeof raw, stream, nullptr, true), nullptr);
  }
  for (std::FILE* stream : streams) std::fclose(stream);
}

// As a program that shows debug output does it.
TEST_F(WindowsText, TheLogGoesToTheDebugger) {
  constexpr DWORD size = 4096;
  const HANDLE ready = ::CreateEventA(nullptr, TRUE, TRUE, "DBWIN_BUFFER_READY");
  const HANDLE written = ::CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY");
  const HANDLE memory =
      ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, "DBWIN_BUFFER");
  const auto* const shown =
      static_cast<const char*>(::MapViewOfFile(memory, FILE_MAP_READ, 0, 0, size));
  ASSERT_NE(shown, nullptr);
  (void)ossEnvironmentSet("ZOROSSE_LOG", "debugger");
  EXPECT_EQ(TestRegistry(registry()).OpenScan(), GENREG_RC_OPEN_FAILED);
  (void)ossEnvironmentSet("ZOROSSE_LOG", nullptr);
  EXPECT_EQ(::WaitForSingleObject(written, 0), WAIT_OBJECT_0);
  const std::string text = std::string(shown + sizeof(DWORD));
  EXPECT_NE(text.find("routine=GenRegFile::OpenScan"), std::string::npos) << text;
  EXPECT_EQ(files(), "") << "no file has that name";
  ::UnmapViewOfFile(shown);
  for (const HANDLE handle : {memory, written, ready}) ::CloseHandle(handle);
}

}  // namespace
