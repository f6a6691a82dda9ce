// The exported members of the two engines.
#include "genreg.h"
#include "genreg/binary_store.h"
#include "genreg/core/handle.h"
#include "genreg/core/many_changes.h"
#include "genreg/core/repair.h"
#include "genreg/core/search.h"
#include "genreg/core/update.h"
#include "genreg/text_store.h"

using genreg::BinaryStore;
using genreg::Function;
using genreg::ManyChanges;
using genreg::Operation;
using genreg::Routine;
using genreg::TextStore;
using genreg::Update;

unsigned int sqlzThisIsAZORLibrary = 0;

namespace {

template <typename Store, typename Work>
unsigned int operate(GenRegFile& handle, Work work) {
  const Operation operation(handle);
  Store store(handle);
  return operation.end(work(store));
}

template <typename Store>
unsigned int update(GenRegFile& handle, const genreg::UpdateKind& kind, std::uint64_t mask,
                    void* record, void* key) {
  return operate<Store>(handle,
                        [&](Store& store) { return Update(store, kind, mask, record, key).run(); });
}

template <typename Store>
unsigned int get(GenRegFile& handle, std::uint64_t mask, void* key, void* record) {
  return operate<Store>(handle,
                        [&](Store& store) { return genreg::get(store, mask, key, record); });
}

// A scan reads too many records for each to be an operation.
template <typename Store>
unsigned int getNext(GenRegFile& handle, std::uint64_t mask, void* key, void* record) {
  Store store(handle);
  return genreg::getNext(store, mask, key, record);
}

// What both engines do alike.
template <typename Work>
unsigned int operateAlike(GenRegFile& handle, std::uint64_t engine, Work work) {
  return engine == GENREG_ENGINE_TEXT ? operate<TextStore>(handle, work)
                                      : operate<BinaryStore>(handle, work);
}

// For a flavour of somebody else's, which fills its hooks itself.
void nameFiles(GenRegFile& handle, Function name, const char* path, unsigned int* rc) {
  Routine routine(name);
  (void)genreg::HandleAccess::setUp(handle, routine, path, nullptr, rc);
}

}  // namespace

GenRegBin::GenRegBin() noexcept { engineKind = GENREG_ENGINE_BINARY; }
GenRegBin::GenRegBin(const char* path, unsigned int* rc) noexcept : GenRegBin() {
  nameFiles(*this, Function::fileConstructor, path, rc);
}
GenRegBin::~GenRegBin() = default;

unsigned int GenRegBin::Add(std::uint64_t mask, void* record) noexcept {
  return update<BinaryStore>(*this, genreg::addUpdate, mask, record, nullptr);
}
unsigned int GenRegBin::Change(std::uint64_t mask, void* key, void* newRecord) noexcept {
  return update<BinaryStore>(*this, genreg::changeUpdate, mask, newRecord, key);
}
unsigned int GenRegBin::Delete(std::uint64_t mask, void* key) noexcept {
  return update<BinaryStore>(*this, genreg::deleteUpdate, mask, nullptr, key);
}
unsigned int GenRegBin::Get(std::uint64_t mask, void* key, void* record) noexcept {
  return get<BinaryStore>(*this, mask, key, record);
}
unsigned int GenRegBin::GetNext(std::uint64_t mask, void* key, void* record) noexcept {
  return getNext<BinaryStore>(*this, mask, key, record);
}

GenRegText::GenRegText() noexcept {
  const Routine routine(Function::textConstructor);
  engineKind = GENREG_ENGINE_TEXT;
}
GenRegText::GenRegText(const char* path, unsigned int* rc) noexcept : GenRegText() {
  nameFiles(*this, Function::textConstructor, path, rc);
}
GenRegText::~GenRegText() { const Routine routine(Function::textDestructor); }

unsigned int GenRegText::Add(std::uint64_t mask, void* record) noexcept {
  return update<TextStore>(*this, genreg::addUpdate, mask, record, nullptr);
}
unsigned int GenRegText::Change(std::uint64_t mask, void* key, void* newRecord) noexcept {
  return update<TextStore>(*this, genreg::changeUpdate, mask, newRecord, key);
}
unsigned int GenRegText::Delete(std::uint64_t mask, void* key) noexcept {
  return update<TextStore>(*this, genreg::deleteUpdate, mask, nullptr, key);
}
unsigned int GenRegText::Get(std::uint64_t mask, void* key, void* record) noexcept {
  return get<TextStore>(*this, mask, key, record);
}
unsigned int GenRegText::GetNext(std::uint64_t mask, void* key, void* record) noexcept {
  return getNext<TextStore>(*this, mask, key, record);
}

unsigned int GenRegFile::RepairRegistry(bool dropUnreadable, GenRegRepairReport* report) noexcept {
  GenRegRepairReport ignored{};
  GenRegRepairReport& filled = report == nullptr ? ignored : *report;
  filled = {};
  return operateAlike(*this, engineKind, [&](auto& store) {
    return genreg::Repair(store, dropUnreadable, filled).run();
  });
}

unsigned int GenRegFile::BeginUpdate(std::uint64_t request) noexcept {
  return operateAlike(*this, engineKind, [&](auto& store) {
    return ManyChanges(store, Function::beginMany).begin(request);
  });
}

unsigned int GenRegFile::CommitUpdate() noexcept {
  return operateAlike(*this, engineKind, [&](auto& store) {
    return ManyChanges(store, Function::commitMany).commit();
  });
}

unsigned int GenRegFile::AbandonUpdate() noexcept {
  return operateAlike(*this, engineKind, [&](auto& store) {
    return ManyChanges(store, Function::abandonMany).abandon();
  });
}

unsigned int GenRegFile::setLockTimeout(std::uint64_t milliseconds) noexcept {
  if (session != nullptr) session->setLockLimit(milliseconds);
  return session == nullptr ? OSS_RC_NO_MEMORY : GENREG_RC_OK;
}

void GenRegFile::setCachedReads(bool on) noexcept {
  if (session != nullptr) session->setCachedReads(on);
}

const char* GenRegFile::getLastCause() const noexcept {
  return session == nullptr ? "memory cannot be allocated" : session->cause().text();
}
