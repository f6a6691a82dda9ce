// The four flavours of registries, used as their callers use them: a fresh handle per operation.
#include "bench/flavours.h"
#include "bench/subjects.h"

namespace {

template <typename Flavour>
class Registry final : public Subject {
 public:
  void attach(const std::string& directory, std::size_t count) override {
    path_ = directory + "/registry";
    count_ = count;
  }

  // Written by hand: adding the records one by one would take as many updates.
  bool prepare() override { return flavours::writeAll<Flavour>(path_, count_); }

  bool get(const Entry& key) override {
    auto registry = Flavour::open(path_);
    Flavour::fill(key_, key);
    return registry.Get(Flavour::mask, &key_, &found_) == 0;
  }
  std::size_t scan() override {
    auto registry = Flavour::open(path_);
    if (registry.OpenScan() != 0) return 0;
    const Entry any{};
    Flavour::fill(key_, any);
    std::size_t records = 0;
    unsigned int code = 0;
    while ((code = registry.GetNext(0, &key_, &found_)) == 0) ++records;
    return registry.CloseScan() == 0 && code == GENREG_RC_END ? records : 0;
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
  std::size_t count_ = 0;
  typename Flavour::Record key_{};
  typename Flavour::Record record_{};
  typename Flavour::Record found_{};
};

}  // namespace

std::vector<SubjectRow> registrySubjects() {
  return {{"binary", makeSubject<Registry<flavours::BinaryVariables>>, anySize, true},
          {"global", makeSubject<Registry<flavours::GlobalRegistry>>, anySize, true},
          {"profile", makeSubject<Registry<flavours::ProfileVariables>>, anySize, true},
          {"services", makeSubject<Registry<flavours::Services>>, anySize, true}};
}
