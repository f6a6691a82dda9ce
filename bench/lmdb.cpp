// LMDB: the value's bytes and the comment's under the name, and a second store with the name under
// the port. Opened anew for each operation or kept open; a transaction per operation.
#include <lmdb.h>

#include <cstring>

#include "bench/subject.h"

namespace {

constexpr std::size_t mapSize = std::size_t{256} * 1024 * 1024;  // bytes a store may grow to

// An open environment; `flags` is MDB_RDONLY or 0.
class Environment {
 public:
  Environment(const std::string& path, unsigned int flags) {
    if (::mdb_env_create(&environment_) != 0) return;
    (void)::mdb_env_set_mapsize(environment_, mapSize);
    (void)::mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR | flags, 0644);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() { ::mdb_env_close(environment_); }

  // Work(transaction, entries) says whether it was done; only then an update is committed.
  template <typename Work>
  bool transact(unsigned int flags, Work work) {
    MDB_txn* transaction = nullptr;
    MDB_dbi entries = 0;
    if (::mdb_txn_begin(environment_, nullptr, flags, &transaction) != 0) return false;
    const bool done =
        ::mdb_dbi_open(transaction, nullptr, 0, &entries) == 0 && work(transaction, entries);
    if (done && flags == 0) return ::mdb_txn_commit(transaction) == 0;
    ::mdb_txn_abort(transaction);
    return done;
  }

 private:
  MDB_env* environment_ = nullptr;
};

template <bool Kept>
class Lmdb final : public Subject {
 public:
  Lmdb(const std::string& directory, std::size_t count)
      : entries_(directory + "/entries.lmdb"), ports_(directory + "/ports.lmdb") {
    Environment entries(directory + "/entries.lmdb", 0);
    (void)entries.transact(0, [count](MDB_txn* in, MDB_dbi store) {
      for (std::size_t i = 0; i < count; ++i) {
        if (!put(in, store, entryAt(i), MDB_NOOVERWRITE)) return false;
      }
      return true;
    });
    Environment ports(directory + "/ports.lmdb", 0);
    (void)ports.transact(0, [count](MDB_txn* in, MDB_dbi store) {
      for (std::size_t i = 0; i < count; ++i) {
        const Entry entry = entryAt(i);
        MDB_val key = view(entry.value);
        MDB_val name = view(entry.name);
        (void)::mdb_put(in, store, &key, &name, MDB_NOOVERWRITE);  // the first of equal ports
      }
      return true;
    });
  }

  bool get(const Entry& key) override {
    return read(entries_, [&](MDB_txn* in, MDB_dbi store) {
      MDB_val name = view(key.name);
      MDB_val value;
      if (::mdb_get(in, store, &name, &value) != 0) return false;
      take(value);
      return found_.value == key.value;
    });
  }
  bool getByPort(const Entry& key) override {
    return read(ports_, [&](MDB_txn* in, MDB_dbi store) {
      MDB_val port = view(key.value);
      MDB_val name;
      if (::mdb_get(in, store, &port, &name) != 0) return false;
      found_.name.assign(static_cast<char*>(name.mv_data), name.mv_size);
      return found_.name == key.name;
    });
  }
  std::size_t scan() override {
    std::size_t count = 0;
    (void)read(entries_, [&](MDB_txn* in, MDB_dbi store) {
      MDB_cursor* cursor = nullptr;
      if (::mdb_cursor_open(in, store, &cursor) != 0) return false;
      MDB_val name;
      MDB_val value;
      for (; ::mdb_cursor_get(cursor, &name, &value, MDB_NEXT) == 0; ++count) {
        found_.name.assign(static_cast<char*>(name.mv_data), name.mv_size);
        take(value);
      }
      ::mdb_cursor_close(cursor);
      return true;
    });
    return count;
  }
  bool add(const Entry& entry) override { return many(Many::Add, {entry}); }
  bool change(const Entry& entry) override { return many(Many::Change, {entry}); }
  bool remove(const Entry& key) override { return many(Many::Remove, {key}); }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    const auto all = [&](MDB_txn* in, MDB_dbi store) {
      for (const Entry& entry : entries) {
        MDB_val name = view(entry.name);
        const bool done = kind == Many::Remove
                              ? ::mdb_del(in, store, &name, nullptr) == 0
                              : put(in, store, entry, kind == Many::Add ? MDB_NOOVERWRITE : 0);
        if (!done) return false;
      }
      return true;
    };
    return entries_.with([&](Environment& to) { return to.transact(0, all); }, 0u);
  }

 private:
  using Store = Access<Environment, Kept>;
  static constexpr unsigned int readOnly = MDB_RDONLY;

  template <typename Work>
  bool read(Store& store, Work work) {
    return store.with([&](Environment& from) { return from.transact(readOnly, work); }, readOnly);
  }
  static MDB_val view(const std::string& text) {
    return {text.size(), const_cast<char*>(text.data())};
  }
  static MDB_val view(const std::int32_t& number) {
    return {sizeof number, const_cast<std::int32_t*>(&number)};
  }
  static bool put(MDB_txn* in, MDB_dbi store, const Entry& entry, unsigned int how) {
    std::string bytes(sizeof entry.value, '\0');
    std::memcpy(bytes.data(), &entry.value, sizeof entry.value);
    bytes += entry.comment;
    MDB_val name = view(entry.name);
    MDB_val value = view(bytes);
    return ::mdb_put(in, store, &name, &value, how) == 0;
  }
  void take(const MDB_val& value) {
    const char* const bytes = static_cast<char*>(value.mv_data);
    std::memcpy(&found_.value, bytes, sizeof found_.value);
    found_.comment.assign(bytes + sizeof found_.value, value.mv_size - sizeof found_.value);
  }

  Store entries_;
  Store ports_;
  Entry found_;
};

}  // namespace

SubjectRows lmdbSubjects() {
  return {{"lmdb", make<Lmdb<false>>, Role::Peer, Reads | ByPort | Updates | ManyChanges},
          {"lmdb-kept", make<Lmdb<true>>, Role::KeptOpen, Reads | ByPort | Contention}};
}
