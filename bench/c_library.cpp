// The C library's look-ups of services, which search the system's services file. It is measured
// with a file of the subject's own, mounted there for this process alone.
#include <arpa/inet.h>
#include <netdb.h>
#include <nss.h>
#include <sched.h>
#include <sys/mount.h>

#include <stdexcept>

#include "bench/flavours.h"

namespace {

constexpr char systemFile[] = "/etc/services";

void mountOver(const std::string& path) {
  static bool mounted = false;
  if (mounted) (void)::umount2(systemFile, MNT_DETACH);
  mounted = ::mount(path.c_str(), systemFile, nullptr, MS_BIND, nullptr) == 0;
  if (!mounted) throw std::runtime_error("cannot mount " + path);
}

// A look-up opens the file anew each time, by itself.
class CLibrary final : public Subject {
 public:
  CLibrary(const std::string& directory, std::size_t count) : path_(directory + "/services") {
    flavours::writeAll<flavours::Services>(path_, count);
    mountOver(path_);
  }

  void prepare() override { mountOver(path_); }
  bool get(const Entry& key) override {
    const servent* found = ::getservbyname(key.name.c_str(), "tcp");
    return found != nullptr && ntohs(static_cast<std::uint16_t>(found->s_port)) == key.value;
  }
  bool getByPort(const Entry& key) override {
    const servent* found = ::getservbyport(htons(static_cast<std::uint16_t>(key.value)), "tcp");
    return found != nullptr && found->s_name == key.name;
  }
  std::size_t scan() override {
    std::size_t count = 0;
    ::setservent(0);
    while (::getservent() != nullptr) ++count;
    ::endservent();
    return count;
  }

 private:
  std::string path_;
};

}  // namespace

SubjectRows cLibrarySubjects() {
  static const bool possible =
      ::unshare(CLONE_NEWNS) == 0 &&
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      ::__nss_configure_lookup("services", "files") == 0;  // and nothing before
  if (!possible) return {};
  return {{"c-library", make<CLibrary>, Role::Peer, Reads | ByPort}};
}
