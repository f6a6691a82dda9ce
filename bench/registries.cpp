// The four flavours of registries, used as their callers use them: a fresh handle per operation.
#include "bench/flavours.h"

namespace {

template <typename Flavour>
class Registry final : public Subject {
 public:
  Registry(const std::string& directory, std::size_t count) : path_(directory + "/registry") {
    flavours::writeAll<Flavour>(path_, count);
  }

  bool get(const Entry& key) override {
    auto registry = Flavour::open(path_);
    Flavour::fill(key_, key);
    return registry.Get(Flavour::mask, &key_, &found_) == 0;
  }
  std::size_t scan() override {
    auto registry = Flavour::open(path_);
    const Entry any;
    Flavour::fill(key_, any);
    if (registry.OpenScan() != 0) return 0;
    std::size_t records = 0;
    while (registry.GetNext(0, &key_, &found_) == 0) ++records;
    return registry.CloseScan() == 0 ? records : 0;
  }
  bool add(const Entry& entry) override {
    auto registry = Flavour::open(path_);
    Flavour::fill(record_, entry);
    return registry.Add(Flavour::mask, &record_) == 0;
  }
  bool change(const Entry& entry) override {
    auto registry = Flavour::open(path_);
    Flavour::fill(key_, entry);
    Flavour::fill(record_, entry);
    return registry.Change(Flavour::mask, &key_, &record_) == 0;
  }
  bool remove(const Entry& key) override {
    auto registry = Flavour::open(path_);
    Flavour::fill(key_, key);
    return registry.Delete(Flavour::mask, &key_) == 0;
  }

 private:
  std::string path_;
  typename Flavour::Record key_{};
  typename Flavour::Record record_{};
  typename Flavour::Record found_{};
};

}  // namespace

SubjectRows registrySubjects() {
  return {{"binary", make<Registry<flavours::BinaryVariables>>},
          {"global", make<Registry<flavours::GlobalRegistry>>},
          {"profile", make<Registry<flavours::ProfileVariables>>},
          {"services", make<Registry<flavours::Services>>}};
}
