// What programs keep settings in when they take a database: SQLite and tdb, without and with the
// waiting for the disk that makes an update durable.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/types.h>
#include <tdb.h>

#include <cstring>

#include "bench/subject.h"

namespace {

// One table with the name as its key, and the rollback journal that SQLite uses unless told
// otherwise.
template <bool Synchronous>
class Sqlite final : public Subject {
 public:
  Sqlite(const std::string& directory, std::size_t count) : path_(directory + "/entries.sqlite") {
    const Connection connection(path_);
    connection.execute(
        "CREATE TABLE entries (name TEXT PRIMARY KEY, value INTEGER, comment TEXT) WITHOUT ROWID;"
        "BEGIN");
    for (std::size_t i = 0; i < count; ++i) (void)connection.run(insert, entryAt(i), found_);
    connection.execute("COMMIT");
  }

  bool get(const Entry& key) override {
    return run("SELECT name, value, comment FROM entries WHERE name = ?1", key) == 1;
  }
  std::size_t scan() override { return run("SELECT name, value, comment FROM entries", found_); }
  bool add(const Entry& entry) override { return run(insert, entry) == 1; }
  bool change(const Entry& entry) override { return run(change_, entry) == 1; }
  bool remove(const Entry& key) override { return run(deletion, key) == 1; }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    constexpr const char* commands[] = {insert, change_, deletion};
    const Connection connection(path_);
    connection.execute("BEGIN IMMEDIATE");
    const bool done = connection.runAll(commands[static_cast<std::size_t>(kind)], entries);
    connection.execute(done ? "COMMIT" : "ROLLBACK");
    return done;
  }

 private:
  static constexpr char insert[] = "INSERT INTO entries VALUES (?1, ?2, ?3)";
  static constexpr char change_[] = "UPDATE entries SET value = ?2, comment = ?3 WHERE name = ?1";
  static constexpr char deletion[] = "DELETE FROM entries WHERE name = ?1";

  class Connection {
   public:
    explicit Connection(const std::string& path) {
      (void)::sqlite3_open(path.c_str(), &database_);
      if (!Synchronous) execute("PRAGMA synchronous = OFF");  // FULL is the default
    }
    ~Connection() { (void)::sqlite3_close(database_); }

    void execute(const char* commands) const {
      (void)::sqlite3_exec(database_, commands, nullptr, nullptr, nullptr);
    }
    // The rows that the command gives or changes; 0 when it fails.
    std::size_t run(const char* command, const Entry& entry, Entry& found) const {
      sqlite3_stmt* statement = nullptr;
      if (::sqlite3_prepare_v2(database_, command, -1, &statement, nullptr) != SQLITE_OK) return 0;
      bind(statement, entry);
      std::size_t rows = 0;
      int outcome = 0;
      for (; (outcome = ::sqlite3_step(statement)) == SQLITE_ROW; ++rows) {
        found.name = reinterpret_cast<const char*>(::sqlite3_column_text(statement, 0));
        found.value = ::sqlite3_column_int(statement, 1);
        found.comment = reinterpret_cast<const char*>(::sqlite3_column_text(statement, 2));
      }
      if (rows == 0 && outcome == SQLITE_DONE && ::sqlite3_stmt_readonly(statement) == 0) {
        rows = static_cast<std::size_t>(::sqlite3_changes(database_));
      }
      (void)::sqlite3_finalize(statement);
      return rows;
    }

    // Whether the command, prepared once, changes one row for each entry.
    bool runAll(const char* command, const std::vector<Entry>& entries) const {
      sqlite3_stmt* statement = nullptr;
      bool done = ::sqlite3_prepare_v2(database_, command, -1, &statement, nullptr) == SQLITE_OK;
      for (std::size_t i = 0; done && i < entries.size(); ++i) {
        bind(statement, entries[i]);
        done = ::sqlite3_step(statement) == SQLITE_DONE && ::sqlite3_changes(database_) == 1;
        (void)::sqlite3_reset(statement);
      }
      (void)::sqlite3_finalize(statement);
      return done;
    }

   private:
    static void bind(sqlite3_stmt* statement, const Entry& entry) {
      const int parameters = ::sqlite3_bind_parameter_count(statement);
      if (parameters > 0) bindText(statement, 1, entry.name);
      if (parameters > 1) (void)::sqlite3_bind_int(statement, 2, entry.value);
      if (parameters > 2) bindText(statement, 3, entry.comment);
    }
    static void bindText(sqlite3_stmt* statement, int position, const std::string& text) {
      (void)::sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                                SQLITE_STATIC);
    }
    sqlite3* database_ = nullptr;
  };

  std::size_t run(const char* command, const Entry& entry) {
    return Connection(path_).run(command, entry, found_);
  }

  std::string path_;
  Entry found_;
};

// The value's bytes and the comment's under the name; every update is a transaction.
template <bool Synchronous>
class Tdb final : public Subject {
 public:
  Tdb(const std::string& directory, std::size_t count) : path_(directory + "/entries.tdb") {
    const auto buckets = static_cast<int>(count / 2 + 131);  // about two entries in each
    (void)update(O_CREAT | O_TRUNC, buckets, [count](tdb_context* database) {
      bool stored = true;
      for (std::size_t i = 0; stored && i < count; ++i) {
        stored = store(database, entryAt(i), TDB_INSERT);
      }
      return stored;
    });
  }

  bool get(const Entry& key) override {
    const Database database = open(O_RDONLY);
    return ::tdb_parse_record(database.get(), view(key.name), take, &found_) == 0;
  }
  std::size_t scan() override {
    const Database database = open(O_RDONLY);
    const auto each = [](tdb_context*, TDB_DATA key, TDB_DATA value, void* entry) {
      static_cast<Entry*>(entry)->name.assign(reinterpret_cast<char*>(key.dptr), key.dsize);
      return take(key, value, entry);
    };
    return static_cast<std::size_t>(::tdb_traverse_read(database.get(), each, &found_));
  }
  bool add(const Entry& entry) override {
    return update(0, 0, [&](tdb_context* to) { return store(to, entry, TDB_INSERT); });
  }
  bool change(const Entry& entry) override {
    return update(0, 0, [&](tdb_context* to) { return store(to, entry, TDB_MODIFY); });
  }
  bool remove(const Entry& key) override {
    return update(0, 0, [&](tdb_context* in) { return ::tdb_delete(in, view(key.name)) == 0; });
  }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    return update(0, 0, [&](tdb_context* in) {
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
  using Database = std::unique_ptr<tdb_context, int (*)(tdb_context*)>;

  Database open(int flags, int buckets = 0) const {
    const int kind = Synchronous ? TDB_DEFAULT : TDB_NOSYNC;
    return Database(::tdb_open(path_.c_str(), buckets, kind, flags, 0644), ::tdb_close);
  }
  template <typename Work>
  bool update(int flags, int buckets, Work work) {
    const Database database = open(O_RDWR | flags, buckets);
    return database != nullptr && ::tdb_transaction_start(database.get()) == 0 &&
           work(database.get()) && ::tdb_transaction_commit(database.get()) == 0;
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

  std::string path_;
  Entry found_;
};

}  // namespace

SubjectRows databaseSubjects() {
  return {{"sqlite", make<Sqlite<true>>, anySize, true, true},
          {"sqlite-off", make<Sqlite<false>>, anySize, false},
          {"tdb", make<Tdb<true>>, anySize, true, true},
          {"tdb-nosync", make<Tdb<false>>, anySize, false}};
}
