#include "registry.h"

#include <new>

#include "platform/path_text.h"

namespace tool {

using faces::NamedFields;

Registry::Registry(const std::string& kind, const std::string& file) : found_(zorreg_record_new()) {
  ::zorreg* registry = nullptr;
  const std::string path = platform::utf8FromSystem(file.c_str());
  opened_ = zorreg_open(kind.c_str(), path.c_str(), &registry);
  registry_.reset(registry);
  if (found_ == nullptr) throw std::bad_alloc();
}

Registry::Record Registry::recordOf(const NamedFields& fields) {
  Record record(zorreg_record_new());
  if (record == nullptr) throw std::bad_alloc();
  for (const auto& [name, value] : fields.all()) {
    // A name that no kind has is refused where the record is used.
    const unsigned int code = zorreg_record_set(record.get(), name.c_str(), value.c_str());
    if (code == OSS_RC_NO_MEMORY) throw std::bad_alloc();
  }
  return record;
}

void Registry::take(const zorreg_record& record, NamedFields& fields) {
  fields = NamedFields();
  for (std::size_t i = 0;; ++i) {
    const char* name = zorreg_record_field(&record, i);
    if (name == nullptr) return;
    fields.set(name, zorreg_record_get(&record, name));
  }
}

unsigned int Registry::get(const NamedFields& key, NamedFields& found) {
  const unsigned int code = zorreg_get(registry_.get(), recordOf(key).get(), found_.get());
  if (code == 0) take(*found_, found);
  return code;
}

unsigned int Registry::add(const NamedFields& record) {
  return zorreg_add(registry_.get(), recordOf(record).get());
}

unsigned int Registry::change(const NamedFields& key, const NamedFields& record) {
  return zorreg_change(registry_.get(), recordOf(key).get(), recordOf(record).get());
}

unsigned int Registry::set(const NamedFields& record) {
  return zorreg_set(registry_.get(), recordOf(record).get());
}

unsigned int Registry::remove(const NamedFields& key) {
  return zorreg_delete(registry_.get(), recordOf(key).get());
}

unsigned int Registry::next(NamedFields& found) {
  const unsigned int code = zorreg_next(registry_.get(), found_.get());
  if (code == 0) take(*found_, found);
  return code;
}

}  // namespace tool
