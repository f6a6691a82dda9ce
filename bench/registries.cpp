// The four flavours of registries, used as their callers use them: a fresh handle per operation.
#include "bench/flavours.h"

namespace {

template <typename Flavour>
class Registry final : public Subject {
 public:
  Registry(const std::string& directory, std::size_t count) : path_(directory + "/registry") {
    flavours::writeAll<Flavour>(path_, count);
  }

  bool get(const Entry& key) override { return run(Verb::Get, key); }
  std::size_t scan() override {
    std::size_t records = 0;
    return flavours::HandleOf<Flavour>(path_).scan(&records) == 0 ? records : 0;
  }
  bool add(const Entry& entry) override { return run(Verb::Add, entry); }
  bool change(const Entry& entry) override { return run(Verb::Change, entry); }
  bool remove(const Entry& key) override { return run(Verb::Delete, key); }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    constexpr Verb verbs[] = {Verb::Add, Verb::Change, Verb::Delete};
    flavours::HandleOf<Flavour> handle(path_);
    const Verb verb = verbs[static_cast<std::size_t>(kind)];
    return handle.inOneUpdate([&] {
      unsigned int code = 0;
      for (std::size_t i = 0; code == 0 && i < entries.size(); ++i) {
        code = handle.run(verb, entries[i]);
      }
      return code;
    }) == 0;
  }

 private:
  using Verb = flavours::Verb;
  bool run(Verb verb, const Entry& entry) const {
    return flavours::HandleOf<Flavour>(path_).run(verb, entry) == 0;
  }

  std::string path_;
};

}  // namespace

SubjectRows registrySubjects() {
  return {{"binary", make<Registry<flavours::BinaryVariables>>, anySize, true, true},
          {"global", make<Registry<flavours::GlobalRegistry>>, anySize, true, true},
          {"profile", make<Registry<flavours::ProfileVariables>>, anySize, true, true},
          {"services", make<Registry<flavours::Services>>, anySize, true, true}};
}
