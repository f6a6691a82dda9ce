#include "file_content.h"

#include "genreg.h"
#include "sysservices/file_system.h"

namespace tool {
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

}  // namespace

RegistryFiles::RegistryFiles(const std::string& file) : registry(file) {
  const Named named(file.c_str(), &code);
  if (code == 0) named.giveNames(*this);
}

const std::string& RegistryFiles::content() const {
  const bool crashed = !ossPathExists(registry.c_str()) && ossPathExists(backup.c_str());
  return crashed ? backup : registry;
}

bool TextLine::isTooLong() const { return bytes.size() > GENREG_LINE_SIZE - 2; }

}  // namespace tool
