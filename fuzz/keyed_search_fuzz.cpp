// The bytes are a text registry: a byte of choices, a key up to a newline, and the file. What the
// library knows of lines as they stand must be what parsing them shows: a handle whose UnpackRecord
// is somebody else's function looks at every line in full, and must find, refuse and keep the same.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "genreg.h"
#include "sysservices/diagnostics.h"
#include "targets.h"

namespace {

template <typename Flavour>
class Searched : public Flavour {
 public:
  Searched(const std::string& path, bool join, bool full) : Flavour(path.c_str(), nullptr) {
    own = this->UnpackRecord;
    if (full) this->UnpackRecord = [](void* record, char* line) { return own.text(record, line); };
    if (join) this->features |= GENREG_JOIN_CONTINUED_LINES;
    this->features &= ~GENREG_ALLOW_DUPLICATES;
  }

 private:
  static inline GenRegUnpackHook own;
};

const std::string newName = "made";

VarValRecord keyOf(const GenRegVarVal*, const std::string& key) {
  VarValRecord record{};
  record.Contains = VARVAL_HAS_VARIABLE;
  record.Variable = record.Value = key.c_str();
  return record;
}
ServiceEntryRecord keyOf(const GenRegServices*, const std::string& key) {
  ServiceEntryRecord record{};
  record.Contains = SERVICES_HAS_SERVICE;
  record.name = key.c_str();
  record.port = 0x5000;
  record.protocol = "tcp";
  return record;
}
std::string show(const VarValRecord& record) {
  return record.Variable == nullptr ? "-" : record.Variable;
}
std::string show(const ServiceEntryRecord& record) {
  return record.name == nullptr ? "-" : record.name;
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The codes and records of a scan for the key, and what each kind of update leaves in the file,
// with everything that is logged on the way.
template <typename Flavour>
std::string outcome(const std::string& path, std::uint64_t mask, const std::string& key, bool join,
                    bool full) {
  std::string seen;
  ossSetDiagnosticCallback(
      [](const OSSDiagnosticRecord& record, void* context) {
        *static_cast<std::string*>(context) += " " + std::to_string(record.code);
      },
      &seen);
  Searched<Flavour> handle(path, join, full);
  auto wanted = keyOf(static_cast<Flavour*>(nullptr), key);
  decltype(wanted) found{};
  (void)handle.OpenScan();
  while (handle.GetNext(mask, &wanted, &found) == 0) seen += " =" + show(found);
  (void)handle.CloseScan();
  const std::string before = readFile(path);
  auto made = keyOf(static_cast<Flavour*>(nullptr), newName);
  for (const char operation : {'a', 'c', 'd'}) {
    seen += " " + std::to_string(operation == 'a'   ? handle.Add(mask, &wanted)
                                 : operation == 'c' ? handle.Change(mask, &wanted, &made)
                                                    : handle.Delete(mask, &wanted));
    seen += readFile(path);
    std::ofstream(path, std::ios::binary) << before;
  }
  ossSetDiagnosticCallback(nullptr, nullptr);
  return seen;
}

struct ScratchFile {
  ScratchFile() {
    const std::filesystem::path memory = "/dev/shm";
    const auto folder =
        std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
    path = (folder / ("keyed-search-" + std::to_string(std::random_device{}()))).string();
  }
  ~ScratchFile() {
    for (const char* suffix : {"", ".tmp", ".cor"}) (void)std::remove((path + suffix).c_str());
  }
  std::string path;
};

}  // namespace

int fuzzKeyedSearch(const std::uint8_t* data, std::size_t size) {
  static const ScratchFile file;
  if (size < 2) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t keyEnd = bytes.find('\n');
  if (keyEnd == std::string::npos) return 0;
  std::ofstream(file.path, std::ios::binary) << bytes.substr(keyEnd + 1);
  const std::string key = bytes.substr(0, keyEnd);
  const bool join = (data[0] & 1) != 0;
  const auto search = (data[0] & 2) != 0 ? outcome<GenRegVarVal> : outcome<GenRegServices>;
  const std::uint64_t mask = 1 + (data[0] >> 2) % 7;
  if (search(file.path, mask, key, join, false) != search(file.path, mask, key, join, true)) {
    std::abort();
  }
  return 0;
}
