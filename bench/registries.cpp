// The four flavours of registries, used as their callers use them: a fresh handle per operation, or
// one handle that keeps what it has read between its reads.
#include <type_traits>

#include "bench/flavours.h"

namespace {

using flavours::Verb;

template <typename Flavour, bool Cached>
class Registry final : public Subject {
 public:
  Registry(const std::string& directory, std::size_t count) : access_(directory + "/registry") {
    flavours::writeAll<Flavour>(directory + "/registry", count);
  }

  bool get(const Entry& key) override {
    return access_.with([&](Handle& handle) {
      return handle.run(Verb::Get, key) == 0 && handle.value() == key.value;
    });
  }
  bool getByPort(const Entry& key) override {
    if constexpr (std::is_same_v<Flavour, flavours::Services>) {
      return access_.with([&](Handle& handle) {
        return handle.get(SERVICES_PORT | SERVICES_PROTOCOL, key) == 0 &&
               handle.found().name == key.name;
      });
    }
    return false;
  }
  std::size_t scan() override {
    std::size_t records = 0;
    const auto work = [&](Handle& handle) { return handle.scan(&records); };
    return access_.with(work) == 0 ? records : 0;
  }
  bool add(const Entry& entry) override { return run(Verb::Add, entry); }
  bool change(const Entry& entry) override { return run(Verb::Change, entry); }
  bool remove(const Entry& key) override { return run(Verb::Delete, key); }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    constexpr Verb verbs[] = {Verb::Add, Verb::Change, Verb::Delete};
    const Verb verb = verbs[static_cast<std::size_t>(kind)];
    const auto all = [&](Handle& handle) {
      return handle.inOneUpdate([&] {
        unsigned int code = 0;
        for (std::size_t i = 0; code == 0 && i < entries.size(); ++i) {
          code = handle.run(verb, entries[i]);
        }
        return code;
      });
    };
    return access_.with(all) == 0;
  }

 private:
  struct Handle final : flavours::HandleOf<Flavour> {
    explicit Handle(const std::string& path) : flavours::HandleOf<Flavour>(path) {
      if (Cached) this->keepReads();
    }
  };

  bool run(Verb verb, const Entry& entry) {
    return access_.with([&](Handle& handle) { return handle.run(verb, entry); }) == 0;
  }

  Access<Handle, Cached> access_;
};

constexpr unsigned all = Reads | Updates | ManyChanges;

}  // namespace

SubjectRows registrySubjects() {
  using namespace flavours;
  return {{"binary", make<Registry<BinaryVariables, false>>, Role::Registry, all | Contention},
          {"global", make<Registry<GlobalRegistry, false>>, Role::Registry, all},
          {"profile", make<Registry<ProfileVariables, false>>, Role::Registry, all},
          {"services", make<Registry<Services, false>>, Role::Registry, all | ByPort},
          {"binary-cached", make<Registry<BinaryVariables, true>>, Role::KeptOpen, Reads},
          {"global-cached", make<Registry<GlobalRegistry, true>>, Role::KeptOpen, Reads},
          {"profile-cached", make<Registry<ProfileVariables, true>>, Role::KeptOpen, Reads},
          {"services-cached", make<Registry<Services, true>>, Role::KeptOpen, Reads | ByPort}};
}
