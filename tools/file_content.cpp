#include "file_content.h"

#include <cstdio>
#include <memory>

#include "genreg.h"
#include "sysservices/file_system.h"

namespace zorreg {
namespace {

// Only to reach the names, which are the same for every flavour.
class Named : public GenRegBinVarVal {
 public:
  using GenRegBinVarVal::GenRegBinVarVal;
  void giveNames(RegistryFiles& files) const {
    files.temporary = temporaryPath;
    files.corrupt = corruptPath;
    files.lock = lockPath;
    files.backup = backupPath;
  }
};

struct StreamCloser {
  void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};

}  // namespace

RegistryFiles::RegistryFiles(const std::string& file) : registry(file) {
  const Named named(file.c_str(), &code);
  if (code == 0) named.giveNames(*this);
}

const std::string& RegistryFiles::content() const {
  const bool crashed = !ossPathExists(registry.c_str()) && ossPathExists(backup.c_str());
  return crashed ? backup : registry;
}

bool readContent(const std::string& file, std::size_t most, std::string& bytes) {
  // A pipe or device would be emptied by a look, or never end.
  if (!ossIsFile(file.c_str())) return false;
  const std::unique_ptr<std::FILE, StreamCloser> stream(ossFileOpenToRead(file.c_str()));
  if (stream == nullptr) return false;
  char block[8192];
  bytes.clear();
  while (bytes.size() < most) {
    const std::size_t count = std::fread(block, 1, sizeof block, stream.get());
    if (count == 0) break;
    bytes.append(block, count);
  }
  if (bytes.size() > most) bytes.resize(most);
  return std::ferror(stream.get()) == 0;
}

bool TextLine::isTooLong() const { return bytes.size() > GENREG_LINE_SIZE - 2; }

}  // namespace zorreg
