// A machine whose registry the test writes, as an export or, where the registry is the system's
// own, from the lines of one.
#pragma once

#include "ossinstall.h"
#include "support/registry_fixture.h"

// Lines of an export: a key below the product's, and copies with their version and path.
std::string productKey(const std::string& below, const std::string& values = "");
std::string versionKey(const std::string& copy, const std::string& version,
                       const std::string& release = "1");
std::string copyKeys(const std::string& name, const std::string& version = "9",
                     const std::string& path = "C:\\\\X");
std::string defaultKeys(const std::string& version);
// An instance of a copy (empty: the default entry); `profiles` is PROFILES or ZEM_PROFILES.
std::string instanceKey(const std::string& copy, const std::string& name,
                        const std::string& values = "", const std::string& profiles = "PROFILES");

// Text as the system's 8-bit encoding has it.
std::string systemText(const std::string& utf8);

// Streams that opening a machine reads and closes.
extern const unsigned long machineStreams;

// A code as it stands in an expected answer: "end", or 0x and eight digits.
std::string codeText(unsigned int code);

// One call, the code that it gives, what fails meanwhile, and the failure that the log must tell.
struct ExportCall {
  struct Fault {
    const char* operation = nullptr;
    unsigned long call = 0;  // number of its call that fails
    int error = 0;
  };

  unsigned int code;
  std::function<unsigned int()> run;
  Fault fault = {};
  unsigned int probe = 0;  // of the routine that logs; 0: none need do
  unsigned int logged = 0;
};
void expectCodes(const std::vector<ExportCall>& calls);

// The calls on one kind of list, each as a row of codes makes it.
std::string shown(const OSSServiceInfo_t& record);
std::string shown(const OSSInstanceInfo_t& record);
template <typename Record>
struct ListCalls {
  std::function<Code(void** list)> openList;
  Code (*nextOf)(void* list, Record* record);
  Code (*closeList)(void* list);

  // Opens a list and closes it again; a list that is not opened leaves the pointer alone.
  Code open() const {
    void* const unopened = const_cast<ListCalls*>(this);
    void* list = unopened;
    const Code code = openList(&list);
    if (code == 0) (void)closeList(list);
    EXPECT_EQ(list == unopened, code != 0);
    return code;
  }
  // The code of so many steps along a new list.
  std::function<Code()> next(unsigned int steps) const {
    return [this, steps] {
      void* list = nullptr;
      EXPECT_EQ(openList(&list), 0u);
      Record record;
      Code code = 0;
      for (unsigned int i = 0; i < steps; ++i) code = nextOf(list, &record);
      (void)closeList(list);
      return code;
    };
  }
  Code close() const {
    void* list = nullptr;
    EXPECT_EQ(openList(&list), 0u);
    return closeList(list);
  }
  // The whole list in one text: a record or a code and ";" for each step, up to "end;" or to the
  // last of so many failures; the code alone of a list that is not opened.
  std::string all(unsigned int failures) const {
    void* list = nullptr;
    if (const Code code = openList(&list); code != 0) return codeText(code);
    std::string answer;
    for (Code code = 0; code != GENREG_RC_END && failures > 0;) {
      Record record;
      code = nextOf(list, &record);
      if (code != 0) --failures;
      answer += (code == 0 ? shown(record) : codeText(code)) + ";";
    }
    EXPECT_EQ(closeList(list), 0u);
    return answer;
  }
};

class MachineTest : public RegistryTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Gives the machine, or another one, a registry of these lines, or of bytes as they are.
  void machine(const std::string& lines);
  void machineBytes(const std::string& bytes);
  // Gives the machine the registry of the export at `path`.
  void machineOf(const std::string& path);
  void remoteMachine(const std::string& name, const std::string& lines);

  // The calls on each kind of list, and all that a list gives: "SERVICE copy;" for each copy, "NAME
  // copy path flags host;" for each instance, "-" for an empty text, flags as a number.
  static ListCalls<OSSServiceInfo_t> copyList();
  static ListCalls<OSSInstanceInfo_t> instanceList(const char* kind);
  static std::string copies(unsigned int failures = 3) { return copyList().all(failures); }
  static std::string instances(const char* kind = "ZOR") { return instanceList(kind).all(3); }
};
