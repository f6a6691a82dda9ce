// tdb: the value's bytes and the comment's under the name; every update is a transaction. Opened
// anew for each operation or kept open; with the waiting for the disk or without.
#include <fcntl.h>
#include <sys/types.h>
#include <tdb.h>

#include <cstring>

#include "bench/subject.h"

namespace {

struct Database {
  Database(const std::string& path, int flags, int kind, int buckets = 0)
      : context(::tdb_open(path.c_str(), buckets, kind, flags, 0644), ::tdb_close) {}
  template <typename Work>
  bool update(Work work) {
    if (context == nullptr || ::tdb_transaction_start(context.get()) != 0) return false;
    if (work(context.get())) return ::tdb_transaction_commit(context.get()) == 0;
    (void)::tdb_transaction_cancel(context.get());
    return false;
  }

  std::unique_ptr<tdb_context, int (*)(tdb_context*)> context;
};

template <int Kind, bool Kept>
class Tdb final : public Subject {
 public:
  Tdb(const std::string& directory, std::size_t count) : access_(directory + "/entries.tdb") {
    const auto buckets = static_cast<int>(count / 2 + 131);  // about two entries in each
    Database made(directory + "/entries.tdb", O_RDWR | O_CREAT | O_TRUNC, Kind, buckets);
    (void)made.update([count](tdb_context* database) {
      bool stored = true;
      for (std::size_t i = 0; stored && i < count; ++i) {
        stored = store(database, entryAt(i), TDB_INSERT);
      }
      return stored;
    });
  }

  bool get(const Entry& key) override {
    return read([&](tdb_context* in) {
      return ::tdb_parse_record(in, view(key.name), take, &found_) == 0 &&
             found_.value == key.value;
    });
  }
  std::size_t scan() override {
    const auto each = [](tdb_context*, TDB_DATA key, TDB_DATA value, void* entry) {
      static_cast<Entry*>(entry)->name.assign(reinterpret_cast<char*>(key.dptr), key.dsize);
      return take(key, value, entry);
    };
    return read([&](tdb_context* in) {  // one lock for all records, not one for each
      if (::tdb_lockall_read(in) != 0) return std::size_t{0};
      const int count = ::tdb_traverse_read(in, each, &found_);
      return ::tdb_unlockall_read(in) == 0 ? static_cast<std::size_t>(count) : 0;
    });
  }
  bool add(const Entry& entry) override {
    return update([&](tdb_context* to) { return store(to, entry, TDB_INSERT); });
  }
  bool change(const Entry& entry) override {
    return update([&](tdb_context* to) { return store(to, entry, TDB_MODIFY); });
  }
  bool remove(const Entry& key) override {
    return update([&](tdb_context* in) { return ::tdb_delete(in, view(key.name)) == 0; });
  }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    return update([&](tdb_context* in) {
      for (const Entry& entry : entries) {
        const int how = kind == Many::Add ? TDB_INSERT : TDB_MODIFY;
        const bool done =
            kind == Many::Remove ? ::tdb_delete(in, view(entry.name)) == 0 : store(in, entry, how);
        if (!done) return false;
      }
      return true;
    });
  }

 private:
  // A database that is opened for reading alone is read without a lock, so that an update at the
  // same time tears what is read.
  template <typename Work>
  auto read(Work work) {
    return access_.with([&](Database& from) { return work(from.context.get()); }, O_RDWR, Kind);
  }
  template <typename Work>
  bool update(Work work) {
    return access_.with([&](Database& to) { return to.update(work); }, O_RDWR, Kind);
  }

  static TDB_DATA view(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())), text.size()};
  }
  static bool store(tdb_context* database, const Entry& entry, int how) {
    std::string value(sizeof entry.value, '\0');
    std::memcpy(value.data(), &entry.value, sizeof entry.value);
    return ::tdb_store(database, view(entry.name), view(value + entry.comment), how) == 0;
  }
  static int take(TDB_DATA, TDB_DATA value, void* found) {
    auto& entry = *static_cast<Entry*>(found);
    std::memcpy(&entry.value, value.dptr, sizeof entry.value);
    entry.comment.assign(reinterpret_cast<char*>(value.dptr) + sizeof entry.value,
                         value.dsize - sizeof entry.value);
    return 0;
  }

  Access<Database, Kept> access_;
  Entry found_;
};

}  // namespace

SubjectRows tdbSubjects() {
  constexpr bool kept = true;
  return {{"tdb", make<Tdb<TDB_DEFAULT, !kept>>, Role::Peer, Reads | Updates | ManyChanges},
          {"tdb-nosync", make<Tdb<TDB_NOSYNC, !kept>>, Role::Peer, Updates},
          {"tdb-kept", make<Tdb<TDB_DEFAULT, kept>>, Role::KeptOpen, Reads | Contention}};
}
