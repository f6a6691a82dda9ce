// The registries of zorgenreg.hpp: Variables, Profile, Services and Global, the loops over them,
// and Update, which makes many changes one.
//
//   zor::Variables settings("settings.reg");   // opens nothing yet
//   settings.set({"Timeout", 30, "seconds"});  // is so from now on, on the disk
//   if (auto found = settings.get("Timeout")) use(found->value);
//   for (const auto& setting : settings) use(setting.name);
//
//   zor::Update update(settings);  // many changes, one commit
//   const auto retries = settings.get("Retries");
//   settings.set({"Retries", retries ? retries->value + 1 : 1});
//   settings.remove("Timeout");
//   update.commit();  // without it nothing has happened
//
// The order of calls: make a registry (Variables, Profile, Services, Global) from a path; then call
// get, set, add, change, remove and loop over it as you like. The file is created by the first
// change; until then the registry is empty. An Update makes several calls one change, and what is
// read in between nobody else changes. While a loop over a registry runs, that registry can be read
// by get, but not changed (GENREG_RC_UPDATE_IN_SCAN, GENREG_RC_OPEN_FOR_OPERATION), and has no
// second loop (GENREG_RC_SCAN_OPEN).
//
// What is asked for by a name that no record can have, one that is too long or holds a NUL for
// instance, is not there.
//
// Each operation has two forms, as in std::filesystem. Without its last argument it throws
// zor::Error. With a std::error_code there it clears it or stores what failed, and returns the
// value of "nothing"; registry.cause() has the words then. Either may throw std::bad_alloc.
//
// A registry is used by one thread at a time; several of one file, in any
// threads and processes, take turns by its locks. It can be moved, also while an Update or a loop
// uses it; what was moved from fails with GENREG_RC_NOT_READY.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>

#include "zorgenreg_records.hpp"
#ifdef ZOR_OVER_C
#include "zorgenreg_c_handle.hpp"
#else
#include "zorgenreg_handle.hpp"
#endif

namespace zor {

namespace detail {

// The end of an operation: stores its code, or throws it where `error` is throws().
inline void report(unsigned int code, const Handle* handle, std::error_code& error) {
  if (code != 0 && handle != nullptr && &error == &throws()) {
    throw Error(errorCode(code), handle->file, handle->cause, handle->isCommitted);
  }
  report(code, std::string(), error);
}

}  // namespace detail

class Update;

// A loop over the records of a registry as it was when the loop began. It closes itself at its end
// or when it is left.
template <typename Kind>
class Scan {
  struct State;

 public:
  // An input iterator over the records.
  class iterator {
   public:
    // What std::iterator_traits asks for.
    using iterator_category = std::input_iterator_tag;
    using value_type = typename Kind::Record;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    iterator() = default;
    // The record; valid until the iterator moves on.
    reference operator*() const noexcept { return state_->record; }
    pointer operator->() const noexcept { return &state_->record; }
    // The next record; throws Error, or stores the error and ends the loop in scan(error).
    iterator& operator++() {
      if (!state_->next()) state_.reset();
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(const iterator& left, const iterator& right) noexcept {
      return left.state_ == right.state_;
    }
    friend bool operator!=(const iterator& left, const iterator& right) noexcept {
      return left.state_ != right.state_;
    }

   private:
    friend class Scan;
    std::shared_ptr<State> state_;
  };

  // The first record; a scan is walked once.
  iterator begin() {
    iterator first;
    first.state_ = std::move(state_);
    if (first.state_ != nullptr) ++first;
    return first;
  }
  iterator end() const noexcept { return {}; }

  // Use a registry's begin() or scan(error).
  Scan(std::shared_ptr<detail::HandleOf<Kind>> handle, std::error_code& error) {
    unsigned int code = GENREG_RC_NOT_READY;
    if (handle != nullptr) {
      // What closes the loop is there before it is opened: nothing can throw in between.
      auto state = std::make_shared<State>(handle, error);
      code = handle->openScan(&state->isOpen);
      if (state->isOpen) state_ = std::move(state);
    }
    detail::report(code, handle.get(), error);
  }

 private:
  struct State {
    State(std::shared_ptr<detail::HandleOf<Kind>> opened, std::error_code& stored)
        : handle(std::move(opened)), error(stored) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
      if (isOpen) (void)handle->closeScan();
    }

    bool next() {
      unsigned int code = handle->next(native);
      if (code == 0) {
        record = Kind::read(native);
        return true;
      }
      isOpen = false;
      const unsigned int closed = handle->closeScan();
      if (code == GENREG_RC_END) code = handle->note(closed, false);
      detail::report(code, handle.get(), error);
      return false;
    }

    std::shared_ptr<detail::HandleOf<Kind>> handle;
    std::error_code& error;
    bool isOpen = false;
    typename Kind::Native native{};
    typename Kind::Record record{};
  };

  std::shared_ptr<State> state_;
};

// --- registries ---

// What all registries have.
template <typename Kind>
class Registry {
 public:
  // The record of this kind of registry, and the iterator of its records.
  using Record = typename Kind::Record;
  using iterator = typename Scan<Kind>::iterator;

  // Makes `record` be there as it is: adds it, or changes what has its identity to it. Returns
  // whether that was a change; when it is so already nothing is written. Safe against other
  // writers.
  bool set(const Record& record, std::error_code& error = throws()) {
    return store(record, true, error);
  }

  // Adds a record; one of its identity is an error (std::errc::file_exists).
  void add(const Record& record, std::error_code& error = throws()) {
    withRecord(record, error, [](Handle& handle, Native& native) { return handle.add(native); });
  }

  // As set, but a record of its identity must be there (std::errc::no_such_file_or_directory).
  bool change(const Record& record, std::error_code& error = throws()) {
    return store(record, false, error);
  }

  // A registry is a range of its records; comment lines and blank lines are none. In a file that
  // does not exist there are none. May throw Error, as may the step to the next record.
  iterator begin() { return Scan<Kind>(handle_, throws()).begin(); }
  iterator end() const noexcept { return {}; }
  // The same range, which ends at the first failure and stores it; `error` outlives the loop.
  Scan<Kind> scan(std::error_code& error) { return {handle_, error}; }

  // Whether the content is kept in memory between reads: the answers are the same, many reads of a
  // file that nobody changes are faster. Of a Global nothing is kept.
  void cacheReads(bool on) noexcept {
    if (handle_ != nullptr) handle_->cacheReads(on);
  }

  // How long a change waits for another writer before it fails
  // (std::errc::device_or_resource_busy); 0, as made: for ever.
  void lockTimeout(std::chrono::milliseconds limit) noexcept {
    const auto count = static_cast<std::uint64_t>(limit.count() < 0 ? 0 : limit.count());
    if (handle_ != nullptr) handle_->lockTimeout(count);
  }

  // The path as it was given.
  const std::string& file() const noexcept {
    static const std::string none;
    return handle_ == nullptr ? none : handle_->file;
  }
  // Of the last failure, as Error's members of that name.
  std::string cause() const { return handle_ == nullptr ? std::string() : handle_->cause; }
  bool committed() const noexcept { return handle_ != nullptr && handle_->isCommitted; }

 protected:
  // The handle and the record beneath.
  using Handle = detail::HandleOf<Kind>;
  using Native = typename Kind::Native;

  // Makes the handle.
  Registry(const Path& path, std::error_code& error) {
    unsigned int code = GENREG_RC_BAD_ARGUMENT;
    const bool isName = path.text.find('\0') == std::string::npos;
    if (isName) code = path.code;
    if (isName && code == 0) handle_ = std::make_shared<Handle>(path.text, &code);
    if (code != 0) handle_.reset();
    detail::report(code, path.text, error);
  }
  ~Registry() = default;
  // What was moved from fails with GENREG_RC_NOT_READY.
  Registry(Registry&&) noexcept = default;
  Registry& operator=(Registry&&) noexcept = default;

  // The first record that matches the key of `fill`(native, complaint).
  template <typename Fill>
  std::optional<Record> find(std::uint64_t mask, Fill fill, std::error_code& error) {
    std::optional<Record> result;
    withFilled(true, fill, error, [&](Handle& handle, Native& key) {
      Native found{};
      bool isThere = false;
      const unsigned int code = handle.get(mask, key, found, &isThere);
      if (isThere) result = Kind::read(found);
      return code;
    });
    return result;
  }

  // Removes the record that matches the key of `fill`(native, complaint); whether there was one.
  template <typename Fill>
  bool removeWhere(std::uint64_t mask, Fill fill, std::error_code& error) {
    bool removed = false;
    withFilled(true, fill, error,
               [&](Handle& handle, Native& key) { return handle.remove(mask, key, &removed); });
    return removed;
  }

 private:
  friend class Update;

  // `work`(handle, native) on what `fill`(native, complaint) makes; nothing, and no failure, when
  // that is a key that no record can have.
  template <typename Fill, typename Work>
  void withFilled(bool isKey, Fill fill, std::error_code& error, Work work) {
    Native native{};
    detail::Complaint complaint;
    fill(native, complaint);
    unsigned int code = 0;
    if (handle_ == nullptr) {
      code = GENREG_RC_NOT_READY;
    } else if (!isKey || !complaint.isOfBytes()) {
      code = handle_->note(complaint);
      if (code == 0) code = work(*handle_, native);
    }
    detail::report(code, handle_.get(), error);
  }

  template <typename Work>
  void withRecord(const Record& record, std::error_code& error, Work work) {
    typename Kind::Memory memory{};
    const auto fill = [&](Native& native, detail::Complaint& complaint) {
      Kind::fill(record, native, memory, complaint);
    };
    withFilled(false, fill, error, work);
  }

  bool store(const Record& record, bool mayBeNew, std::error_code& error) {
    bool changed = false;
    withRecord(record, error, [&](Handle& handle, Native& native) {
      return handle.store(native, mayBeNew, &changed);
    });
    return changed;
  }

  std::shared_ptr<Handle> handle_;
};

// A registry of records that a name identifies. Files of other programs may hold a name twice: get
// finds the first, set and change make all of them so, remove takes all away.
template <typename Kind>
class Named : public Registry<Kind> {
 public:
  using typename Registry<Kind>::Record;

  // Opens nothing; the path is looked at. A relative one is resolved now.
  explicit Named(const Path& path, std::error_code& error = throws())
      : Registry<Kind>(path, error) {}

  // The record of that name, or nothing.
  std::optional<Record> get(const std::string& name, std::error_code& error = throws()) {
    return this->find(Kind::identity, keyOf(name), error);
  }

  // Removes the record of that name. Returns whether there was one.
  bool remove(const std::string& name, std::error_code& error = throws()) {
    return this->removeWhere(Kind::identity, keyOf(name), error);
  }

 private:
  static auto keyOf(const std::string& name) {
    return [&name](typename Kind::Native& key, detail::Complaint& complaint) {
      Kind::fillKey(name, key, complaint);
    };
  }
};

// A binary registry of variables: name, number, comment.
class Variables : public Named<detail::VariablesKind> {
 public:
  using Named::Named;
};

// A text registry of profile variables: lines of NAME = VALUE # comment. Other lines stay as they
// are.
class Profile : public Named<detail::ProfileKind> {
 public:
  using Named::Named;
};

// A text registry of network services: lines of NAME PORT/PROTOCOL ALIASES # comment. Other lines
// stay as they are.
class Services : public Registry<detail::ServicesKind> {
  using Kind = detail::ServicesKind;

  static auto keyOf(const std::string& name) {
    return [&name](Native& key, detail::Complaint& complaint) {
      Kind::fillName(name, key, complaint);
    };
  }
  static auto keyOf(const std::string& name, const std::string& protocol) {
    return [&](Native& key, detail::Complaint& complaint) {
      Kind::fillName(name, key, complaint);
      Kind::fillProtocol(protocol, key, complaint);
    };
  }
  static auto keyOf(std::uint16_t port, const std::string& protocol) {
    return [port, &protocol](Native& key, detail::Complaint& complaint) {
      Kind::fillPort(port, key, complaint);
      Kind::fillProtocol(protocol, key, complaint);
    };
  }

 public:
  // As Variables'.
  explicit Services(const Path& path, std::error_code& error = throws()) : Registry(path, error) {}

  // The first service of that name, whatever its protocol; an alias is not looked for.
  std::optional<Service> get(const std::string& name, std::error_code& error = throws()) {
    return find(Kind::byName, keyOf(name), error);
  }
  // The service of that name and protocol.
  std::optional<Service> get(const std::string& name, const std::string& protocol,
                             std::error_code& error = throws()) {
    return find(Kind::identity, keyOf(name, protocol), error);
  }
  // The first service of that port, in host byte order, and protocol.
  std::optional<Service> get(std::uint16_t port, const std::string& protocol,
                             std::error_code& error = throws()) {
    return find(Kind::byPort, keyOf(port, protocol), error);
  }

  // Removes the service of that name and protocol, or of that port and protocol, of which there
  // must not be several (GENREG_RC_AMBIGUOUS). Returns whether there was one.
  bool remove(const std::string& name, const std::string& protocol,
              std::error_code& error = throws()) {
    return removeWhere(Kind::identity, keyOf(name, protocol), error);
  }
  bool remove(std::uint16_t port, const std::string& protocol, std::error_code& error = throws()) {
    return removeWhere(Kind::byPort, keyOf(port, protocol), error);
  }
};

// The global registry: records of three types. One of them is asked for by its type and what
// identifies it:
//
//   global.get<zor::GlobalInstance>("one");
//   global.get<zor::GlobalServices>("ZOR");
//   global.get<zor::GlobalVariable>("ZOR", "Trace");   // service, variable
class Global : public Registry<detail::GlobalKind> {
  using Kind = detail::GlobalKind;

 public:
  // At the global registry's own path: that of ZOR_GLOBAL_REG_PATHNAME, else "global.reg".
  Global() : Global(throws()) {}
  explicit Global(std::error_code& error) : Global(Path(detail::ownGlobalPath()), error) {}
  // As Variables'.
  explicit Global(const Path& path, std::error_code& error = throws()) : Registry(path, error) {}

  // The record of that type and identity, or nothing.
  template <typename Type>
  std::optional<Type> get(const std::string& name, std::error_code& error = throws()) {
    return only<Type>(keyOf<Type>(name), error);
  }
  template <typename Type>
  std::optional<Type> get(const std::string& service, const std::string& variable,
                          std::error_code& error = throws()) {
    return only<Type>(keyOf<Type>(service, variable), error);
  }

  // Removes the record of that type and identity. Returns whether there was one.
  template <typename Type>
  bool remove(const std::string& name, std::error_code& error = throws()) {
    return removeKey(keyOf<Type>(name), error);
  }
  template <typename Type>
  bool remove(const std::string& service, const std::string& variable,
              std::error_code& error = throws()) {
    return removeKey(keyOf<Type>(service, variable), error);
  }

 private:
  template <typename Type>
  static Type keyOf(const std::string& name) {
    static_assert(!std::is_same_v<Type, GlobalVariable>, "a variable has a service and a name");
    Type key{};
    if constexpr (std::is_same_v<Type, GlobalInstance>) {
      key.instanceName = name;
    } else {
      key.service = name;
    }
    return key;
  }
  template <typename Type>
  static Type keyOf(const std::string& service, const std::string& variable) {
    static_assert(std::is_same_v<Type, GlobalVariable>, "one name identifies such a record");
    Type key{};
    key.service = service;
    key.variable = variable;
    return key;
  }
  template <typename Type>
  static auto filling(const Type& fields) {
    return [&fields](Native& key, detail::Complaint& complaint) {
      detail::GlobalKind::fillFields(fields, key, complaint);
    };
  }
  template <typename Type>
  std::optional<Type> only(const Type& key, std::error_code& error) {
    const std::optional<GlobalRecord> found = find(Kind::identityOf<Type>(), filling(key), error);
    if (!found) return {};
    return std::get<Type>(*found);
  }
  template <typename Type>
  bool removeKey(const Type& key, std::error_code& error) {
    return removeWhere(Kind::identityOf<Type>(), filling(key), error);
  }
};

// --- many changes, one commit ---

// From its making to commit() or its end, what is done with the registry is one change, which
// nobody else sees before. Whoever else wants to change the registry waits meanwhile. Without a
// commit() nothing has happened. It fails while a loop over the registry runs
// (GENREG_RC_UPDATE_IN_SCAN), and in another Update of it (GENREG_RC_UPDATE_OPEN).
class Update {
 public:
  // Begins the update.
  template <typename Kind>
  explicit Update(Registry<Kind>& registry, std::error_code& error = throws())
      : handle_(registry.handle_) {
    const unsigned int code = handle_ == nullptr ? GENREG_RC_NOT_READY : handle_->begin();
    if (code != 0) handle_ = nullptr;
    detail::report(code, registry.handle_.get(), error);
  }
  ~Update() {
    if (handle_ != nullptr) (void)handle_->abandon();
  }
  Update(const Update&) = delete;
  Update& operator=(const Update&) = delete;

  // Commits everything, or nothing, and ends the update either way. Nothing is written when nothing
  // changed. Once the update has ended: GENREG_RC_NO_UPDATE.
  void commit(std::error_code& error = throws()) {
    const std::shared_ptr<detail::Handle> handle = std::move(handle_);
    handle_ = nullptr;
    const unsigned int code = handle == nullptr ? GENREG_RC_NO_UPDATE : handle->commit();
    detail::report(code, handle.get(), error);
  }

  // Ends the update before its time; the registry is as it was.
  void abandon() noexcept {
    if (handle_ != nullptr) (void)handle_->abandon();
    handle_ = nullptr;
  }

 private:
  std::shared_ptr<detail::Handle> handle_;
};

}  // namespace zor
