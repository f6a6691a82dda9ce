// The bytes are a text registry: a byte of choices, a key up to a newline, and the file. What the
// library knows of lines as they stand must be what parsing them shows: a handle whose UnpackRecord
// is somebody else's function looks at every line in full, and must find, refuse and keep the same.
#include <string>

#include "genreg.h"
#include "scratch_directory.h"
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

void fill(VarValRecord& record, const char* name) {
  record.Contains = VARVAL_HAS_VARIABLE;
  record.Variable = record.Value = name;
}
void fill(ServiceEntryRecord& record, const char* name) {
  record.Contains = SERVICES_HAS_SERVICE;
  record.name = name;
  record.port = 0x5000;
  record.protocol = "tcp";
}

// The codes and names of a scan for the key, and what each kind of update leaves in the file, with
// everything that is logged on the way.
template <typename Flavour, typename Record, const char* Record::*name>
std::string outcome(const std::string& path, std::uint64_t mask, const std::string& key, bool join,
                    bool full) {
  std::string seen;
  ossSetDiagnosticCallback(
      [](const OSSDiagnosticRecord& record, void* context) {
        *static_cast<std::string*>(context) += " " + std::to_string(record.code);
      },
      &seen);
  Searched<Flavour> handle(path, join, full);
  Record wanted{}, made{}, found{};
  fill(wanted, key.c_str());
  fill(made, "made");
  (void)handle.OpenScan();
  while (handle.GetNext(mask, &wanted, &found) == 0) {
    seen += std::string(" =") + (found.*name == nullptr ? "-" : found.*name);
  }
  (void)handle.CloseScan();
  const std::string before = contentOf(path);
  for (const char operation : {'a', 'c', 'd'}) {
    seen += " " + std::to_string(operation == 'a'   ? handle.Add(mask, &wanted)
                                 : operation == 'c' ? handle.Change(mask, &wanted, &made)
                                                    : handle.Delete(mask, &wanted));
    seen += contentOf(path);
    writeContent(path, before);
  }
  ossSetDiagnosticCallback(nullptr, nullptr);
  return seen;
}

}  // namespace

int fuzzKeyedSearch(const std::uint8_t* data, std::size_t size) {
  static const ScratchDirectory directory;
  if (size < 2) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t keyEnd = bytes.find('\n');
  if (keyEnd == std::string::npos) return 0;
  writeContent(directory.registry, bytes.substr(keyEnd + 1));
  const std::string key = bytes.substr(0, keyEnd);
  const bool join = (data[0] & 1) != 0;
  const auto search = (data[0] & 2) != 0
                          ? outcome<GenRegVarVal, VarValRecord, &VarValRecord::Variable>
                          : outcome<GenRegServices, ServiceEntryRecord, &ServiceEntryRecord::name>;
  const std::uint64_t mask = 1 + (data[0] >> 2) % 7;
  const std::string seen = search(directory.registry, mask, key, join, false);
  require(seen == search(directory.registry, mask, key, join, true));
  return 0;
}
