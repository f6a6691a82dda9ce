#include "faces/content.h"

#include <cstdio>
#include <memory>

#include "sysservices/file_system.h"

namespace faces {
namespace {

struct StreamCloser {
  void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};

}  // namespace

bool readContent(const std::string& file, std::size_t most, std::string& bytes) {
  bytes.clear();
  if (!ossIsFile(file.c_str())) return false;
  const std::unique_ptr<std::FILE, StreamCloser> stream(ossFileOpenToRead(file.c_str()));
  if (stream == nullptr) return false;
  char block[8192];
  while (bytes.size() < most) {
    const std::size_t count = std::fread(block, 1, sizeof block, stream.get());
    if (count == 0) break;
    bytes.append(block, count);
  }
  if (bytes.size() > most) bytes.resize(most);
  return std::ferror(stream.get()) == 0;
}

}  // namespace faces
