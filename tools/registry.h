// A registry as the C interface shows it, in C++.
#pragma once

#include <memory>
#include <string>

#include "faces/named_fields.h"
#include "zorreg.h"

namespace tool {

// Each operation returns what its function of zorreg.h returns.
class Registry {
 public:
  // `kind` with its options; `file` as the system spells it.
  Registry(const std::string& kind, const std::string& file);

  unsigned int opened() const { return opened_; }  // 0, or why nothing else may be called
  std::string cause() const { return zorreg_cause(registry_.get()); }

  unsigned int get(const faces::NamedFields& key, faces::NamedFields& found);
  unsigned int add(const faces::NamedFields& record);
  unsigned int change(const faces::NamedFields& key, const faces::NamedFields& record);
  unsigned int set(const faces::NamedFields& record);
  unsigned int remove(const faces::NamedFields& key);
  unsigned int scan() { return zorreg_scan(registry_.get()); }
  unsigned int next(faces::NamedFields& found);
  unsigned int endScan() { return zorreg_scan_end(registry_.get()); }
  unsigned int begin() { return zorreg_begin(registry_.get()); }
  unsigned int commit() { return zorreg_commit(registry_.get()); }
  unsigned int abandon() { return zorreg_abandon(registry_.get()); }
  void setLockTimeout(std::uint64_t milliseconds) {
    zorreg_set_lock_timeout(registry_.get(), milliseconds);
  }
  bool isCommitted() const { return zorreg_committed(registry_.get()) != 0; }

 private:
  struct Closer {
    void operator()(::zorreg* registry) const { zorreg_close(registry); }
    void operator()(zorreg_record* record) const { zorreg_record_free(record); }
  };
  using Record = std::unique_ptr<zorreg_record, Closer>;
  static Record recordOf(const faces::NamedFields& fields);
  static void take(const zorreg_record& record, faces::NamedFields& fields);

  std::unique_ptr<::zorreg, Closer> registry_;
  Record found_;
  unsigned int opened_;
};

}  // namespace tool
