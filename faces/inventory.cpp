#include "faces/inventory.h"

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "faces/versions.h"
#include "ossinstall.h"
#include "platform/path_text.h"

namespace faces {
namespace {

template <std::size_t size>
std::string textOf(const char (&field)[size]) {
  return platform::utf8FromSystem(std::string(field, ::strnlen(field, size)).c_str());
}

std::string flagsOf(const OSSInstanceInfo_t& info) {
  std::string words;
  for (const OSSInstanceFlag& row : ossInstanceFlags) {
    if ((info.flags & row.bit) != 0) words += (words.empty() ? "" : " ") + std::string(row.name);
  }
  return words;
}

void setVersion(std::uint64_t code, NamedFields& fields) {
  fields.set("version", versionText(code));
  fields.set("versionCode", versionHexadecimal(code));
}

// As the tool shows them. Of an entry that cannot be read nothing but its names is to be used.
NamedFields fieldsOf(const OSSServiceInfo_t& info, bool isRead) {
  NamedFields fields;
  if (isRead) {
    fields.set("service", textOf(info.service));
    setVersion(info.versionCode, fields);
    fields.set("level", std::to_string(info.level));
  }
  fields.set("copyName", textOf(info.copyName));
  if (isRead) fields.set("installPath", textOf(info.installPath));
  return fields;
}
NamedFields fieldsOf(const OSSInstanceInfo_t& info, bool isRead) {
  NamedFields fields;
  if (isRead) fields.set("kind", textOf(info.service));
  fields.set("instanceName", textOf(info.instanceName));
  if (isRead) setVersion(info.versionCode, fields);
  fields.set("copyName", textOf(info.copyName));
  if (!isRead) return fields;
  fields.set("installPath", textOf(info.installPath));
  fields.set("instancePath", textOf(info.instancePath));
  fields.set("flags", flagsOf(info));
  fields.set("hostName", textOf(info.hostName));
  return fields;
}

// The same instance may fail for ever: the third time in a row ends the list. Copies that fail may
// well look alike, and never come again.
template <typename Info>
class ListOf final : public Inventory {
 public:
  using Next = unsigned int (*)(void*, Info*) noexcept;
  using Close = unsigned int (*)(void*) noexcept;

  ListOf(Next step, Close close) noexcept : next_(step), close_(close) {}
  ListOf(const ListOf&) = delete;
  ListOf& operator=(const ListOf&) = delete;
  ~ListOf() override {
    if (list_ != nullptr) (void)close_(list_);
  }

  // Where the list is opened, once: what closes it needs no more memory then.
  void** place() noexcept { return &list_; }

  unsigned int next(NamedFields& found) override {
    const bool isOver = list_ == nullptr || (mayStick && alike_ == 3);
    const unsigned int code = isOver ? GENREG_RC_END : next_(list_, &info_);
    if (code == GENREG_RC_END) return code;
    NamedFields fields = fieldsOf(info_, code == 0);
    if (code == 0) {
      alike_ = 0;
    } else {
      alike_ = alike_ > 0 && fields.all() == failed_.all() ? alike_ + 1 : 1;
      failed_ = fields;
    }
    found = std::move(fields);
    return code;
  }

 private:
  static constexpr bool mayStick = std::is_same_v<Info, OSSInstanceInfo_t>;

  void* list_ = nullptr;
  Next next_;
  Close close_;
  Info info_{};
  NamedFields failed_;
  int alike_ = 0;
};

}  // namespace

unsigned int openCopies(std::unique_ptr<Inventory>& list) {
  auto made = std::make_unique<ListOf<OSSServiceInfo_t>>(ossGetNextService, ossCloseServiceList);
  const unsigned int code = ossOpenServiceList(made->place());
  if (code == 0) list = std::move(made);
  return code;
}

unsigned int openInstances(const char* kind, std::unique_ptr<Inventory>& list) {
  auto made = std::make_unique<ListOf<OSSInstanceInfo_t>>(ossGetNextInstance, ossCloseInstanceList);
  const unsigned int code = ossOpenInstanceList(kind, made->place());
  if (code != 0 && code != GENREG_RC_KEY_NOT_FOUND) return code;
  list = std::move(made);
  return 0;
}

}  // namespace faces
