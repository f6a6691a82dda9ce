// The C interface: null arguments, and nothing that is thrown gets out.
#include "zorreg.h"

#include <new>
#include <string_view>

#include "faces/inventory.h"
#include "faces/registry.h"

struct zorreg {
  std::unique_ptr<faces::Registry> face;
};

struct zorreg_record {
  faces::NamedFields fields;
};

struct zorreg_list {
  std::unique_ptr<faces::Inventory> face;
};

namespace {

// Why the thread's last registry or list was not opened; such memory needs nothing when a thread
// ends.
thread_local char openCause[512] = "";

void setOpenCause(std::string_view cause) noexcept {
  openCause[cause.copy(openCause, sizeof openCause - 1)] = '\0';
}

// Runs `work`, which gives a code. Whatever else is thrown than a lack of memory is a text that
// grew too long, for which there is no memory either.
template <typename Work>
unsigned int guarded(Work work) noexcept {
  try {
    return work();
  } catch (...) {
    return OSS_RC_NO_MEMORY;
  }
}

// The same for an operation on a registry; `arguments` are the records that it takes.
template <typename Work, typename... Records>
unsigned int operate(zorreg* registry, Work work, const Records*... arguments) noexcept {
  if (registry == nullptr) return OSS_RC_NULL_ARGUMENT;
  faces::Registry& face = *registry->face;
  const bool isComplete = (true && ... && (arguments != nullptr));
  const unsigned int code =
      !isComplete ? OSS_RC_NULL_ARGUMENT : guarded([&] { return work(face); });
  // Short enough to need no memory.
  if (code == OSS_RC_NULL_ARGUMENT) face.setCause("a null record");
  if (code == OSS_RC_NO_MEMORY) face.setCause("out of memory");
  return code;
}

// Makes a list of what `open` gives; `isComplete`: no argument beside `list` is null.
template <typename Open>
unsigned int openList(zorreg_list** list, bool isComplete, Open open) noexcept {
  if (list != nullptr) *list = nullptr;
  if (list == nullptr || !isComplete) {
    setOpenCause(list == nullptr ? "a null place for the list" : "a null kind");
    return OSS_RC_NULL_ARGUMENT;
  }
  setOpenCause("out of memory");
  return guarded([&] {
    auto opened = std::make_unique<zorreg_list>();
    const unsigned int code = open(opened->face);
    setOpenCause(code == 0 ? "" : zorreg_code_meaning(code));
    if (code == 0) *list = opened.release();
    return code;
  });
}

}  // namespace

unsigned zorreg_open(const char* kind, const char* path, zorreg** registry) {
  if (registry != nullptr) *registry = nullptr;
  const std::string_view named = kind == nullptr ? "" : kind;
  const bool needsPath = named.substr(0, named.find(',')) != "global";
  if (registry == nullptr || kind == nullptr || (path == nullptr && needsPath)) {
    setOpenCause(registry == nullptr ? "a null place for the registry"
                 : kind == nullptr   ? "a null kind"
                                     : "a null path");
    return OSS_RC_NULL_ARGUMENT;
  }
  setOpenCause("out of memory");
  return guarded([&] {
    std::string cause;
    auto opened = std::make_unique<zorreg>();
    const unsigned int code = faces::openRegistry(kind, path, opened->face, cause);
    setOpenCause(cause);
    if (code == 0) *registry = opened.release();
    return code;
  });
}

void zorreg_close(zorreg* registry) { delete registry; }

zorreg_record* zorreg_record_new(void) { return new (std::nothrow) zorreg_record(); }

void zorreg_record_free(zorreg_record* record) { delete record; }

unsigned zorreg_record_set(zorreg_record* record, const char* field, const char* value) {
  if (record == nullptr || field == nullptr) return OSS_RC_NULL_ARGUMENT;
  if (*field == '\0') return GENREG_RC_UNKNOWN_FIELD;
  return guarded([&] {
    if (value == nullptr) {
      record->fields.remove(field);
    } else {
      record->fields.set(field, value);
    }
    return 0U;
  });
}

const char* zorreg_record_get(const zorreg_record* record, const char* field) {
  const std::string* value =
      record == nullptr || field == nullptr ? nullptr : record->fields.find(field);
  return value == nullptr ? nullptr : value->c_str();
}

const char* zorreg_record_field(const zorreg_record* record, size_t index) {
  const bool isThere = record != nullptr && index < record->fields.all().size();
  return isThere ? record->fields.all()[index].first.c_str() : nullptr;
}

unsigned zorreg_get(zorreg* registry, const zorreg_record* key, zorreg_record* found) {
  return operate(
      registry, [&](faces::Registry& face) { return face.get(key->fields, found->fields); }, key,
      found);
}

unsigned zorreg_add(zorreg* registry, const zorreg_record* record) {
  return operate(
      registry, [&](faces::Registry& face) { return face.add(record->fields); }, record);
}

unsigned zorreg_change(zorreg* registry, const zorreg_record* key, const zorreg_record* record) {
  return operate(
      registry, [&](faces::Registry& face) { return face.change(key->fields, record->fields); },
      key, record);
}

unsigned zorreg_set(zorreg* registry, const zorreg_record* record) {
  return operate(
      registry, [&](faces::Registry& face) { return face.set(record->fields); }, record);
}

unsigned zorreg_delete(zorreg* registry, const zorreg_record* key) {
  return operate(
      registry, [&](faces::Registry& face) { return face.remove(key->fields); }, key);
}

unsigned zorreg_scan(zorreg* registry) {
  return operate(registry, [](faces::Registry& face) { return face.scan(); });
}

unsigned zorreg_next(zorreg* registry, zorreg_record* found) {
  return operate(
      registry, [&](faces::Registry& face) { return face.next(found->fields); }, found);
}

unsigned zorreg_scan_end(zorreg* registry) {
  return operate(registry, [](faces::Registry& face) { return face.endScan(); });
}

unsigned zorreg_begin(zorreg* registry) {
  return operate(registry, [](faces::Registry& face) { return face.begin(); });
}

unsigned zorreg_commit(zorreg* registry) {
  return operate(registry, [](faces::Registry& face) { return face.commit(); });
}

unsigned zorreg_abandon(zorreg* registry) {
  return operate(registry, [](faces::Registry& face) { return face.abandon(); });
}

void zorreg_set_lock_timeout(zorreg* registry, uint64_t milliseconds) {
  if (registry != nullptr) registry->face->setLockTimeout(milliseconds);
}

void zorreg_set_cached_reads(zorreg* registry, int on) {
  if (registry != nullptr) registry->face->setCachedReads(on != 0);
}

const char* zorreg_path(const zorreg* registry) {
  return registry == nullptr ? "" : registry->face->path().c_str();
}

int zorreg_committed(const zorreg* registry) {
  return registry != nullptr && registry->face->isCommitted() ? 1 : 0;
}

const char* zorreg_cause(const zorreg* registry) {
  return registry == nullptr ? openCause : registry->face->cause().c_str();
}

unsigned zorreg_copies(zorreg_list** list) { return openList(list, true, faces::openCopies); }

unsigned zorreg_instances(const char* kind, zorreg_list** list) {
  return openList(list, kind != nullptr,
                  [&](auto& face) { return faces::openInstances(kind, face); });
}

unsigned zorreg_list_next(zorreg_list* list, zorreg_record* found) {
  if (list == nullptr || found == nullptr) return OSS_RC_NULL_ARGUMENT;
  return guarded([&] { return list->face->next(found->fields); });
}

void zorreg_list_close(zorreg_list* list) { delete list; }

const char* zorreg_code_name(unsigned code) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  if (row != nullptr) return row->name;
  return code == 0 ? "GENREG_RC_OK" : "unknown code";
}

const char* zorreg_code_meaning(unsigned code) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  if (row != nullptr) return row->meaning;
  return code == 0 ? "success" : "no meaning is known";
}
