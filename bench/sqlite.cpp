// SQLite: one table with the name as its key. Opened anew for each operation or kept open; with
// the waiting for the disk that makes an update durable or without.
#include <sqlite3.h>

#include "bench/subject.h"

namespace {

enum Command { Get, GetByPort, Scan, Insert, Update, Delete, Begin, Commit, Rollback, Commands };
constexpr const char* texts[Commands] = {
    "SELECT name, value, comment FROM entries WHERE name = ?1",
    "SELECT name, value, comment FROM entries WHERE value = ?2",
    "SELECT name, value, comment FROM entries",
    "INSERT INTO entries VALUES (?1, ?2, ?3)",
    "UPDATE entries SET value = ?2, comment = ?3 WHERE name = ?1",
    "DELETE FROM entries WHERE name = ?1",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
};

constexpr int longestWait = 10000;  // milliseconds for a lock

// A connection with the commands that were used over it, prepared once each.
class Connection {
 public:
  Connection(const std::string& path, const char* settings) {
    (void)::sqlite3_open(path.c_str(), &database_);
    (void)::sqlite3_busy_timeout(database_, longestWait);
    if (settings != nullptr) execute(settings);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    for (sqlite3_stmt* statement : prepared_) (void)::sqlite3_finalize(statement);
    (void)::sqlite3_close(database_);
  }

  bool execute(const char* commands) {
    return ::sqlite3_exec(database_, commands, nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  // The rows that the command gives or changes; 0 when it fails.
  std::size_t run(Command command, const Entry& entry, Entry& found) {
    sqlite3_stmt*& statement = prepared_[command];
    if (statement == nullptr &&
        ::sqlite3_prepare_v2(database_, texts[command], -1, &statement, nullptr) != SQLITE_OK) {
      return 0;
    }
    bind(statement, entry);
    std::size_t rows = 0;
    int outcome = 0;
    for (; (outcome = ::sqlite3_step(statement)) == SQLITE_ROW; ++rows) {
      found.name = text(statement, 0);
      found.value = ::sqlite3_column_int(statement, 1);
      found.comment = text(statement, 2);
    }
    if (rows == 0 && outcome == SQLITE_DONE && ::sqlite3_stmt_readonly(statement) == 0) {
      rows = static_cast<std::size_t>(::sqlite3_changes(database_));
    }
    (void)::sqlite3_reset(statement);
    return rows;
  }
  // Whether the command changes one row for each entry; in one transaction, or nothing is changed.
  bool runAll(Command command, const std::vector<Entry>& entries) {
    Entry none;
    if (!execute(texts[Begin])) return false;
    bool done = true;
    for (std::size_t i = 0; done && i < entries.size(); ++i) {
      done = run(command, entries[i], none) == 1;
    }
    return execute(texts[done ? Commit : Rollback]) && done;
  }

 private:
  static const char* text(sqlite3_stmt* statement, int column) {
    return reinterpret_cast<const char*>(::sqlite3_column_text(statement, column));
  }
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
  sqlite3_stmt* prepared_[Commands] = {};
};

// The rollback journal with FULL is what SQLite has unless told otherwise. That the journal is the
// write-ahead log stands in the file; everything else is of the connection.
enum class Journal { Rollback, RollbackUnsynced, WriteAhead };

template <Journal journal, bool Kept>
class Sqlite final : public Subject {
 public:
  Sqlite(const std::string& directory, std::size_t count)
      : entries_(directory + "/entries.sqlite"), ports_(directory + "/ports.sqlite") {
    fill(directory + "/entries.sqlite", count, "");
    fill(directory + "/ports.sqlite", count, "CREATE INDEX by_value ON entries (value)");
  }

  bool get(const Entry& key) override {
    return run(entries_, Get, key) == 1 && found_.value == key.value;
  }
  bool getByPort(const Entry& key) override {
    return run(ports_, GetByPort, key) == 1 && found_.name == key.name;
  }
  std::size_t scan() override { return run(entries_, Scan, found_); }
  bool add(const Entry& entry) override { return run(entries_, Insert, entry) == 1; }
  bool change(const Entry& entry) override { return run(entries_, Update, entry) == 1; }
  bool remove(const Entry& key) override { return run(entries_, Delete, key) == 1; }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    constexpr Command commands[] = {Insert, Update, Delete};
    const Command command = commands[static_cast<std::size_t>(kind)];
    return entries_.with([&](Connection& to) { return to.runAll(command, entries); }, settings);
  }

 private:
  using Store = Access<Connection, Kept>;
  static constexpr const char* settings =
      journal == Journal::RollbackUnsynced ? "PRAGMA synchronous = OFF" : nullptr;

  // Only the second store has an index on the port, which would make updates of the first slower.
  static void fill(const std::string& path, std::size_t count, const char* index) {
    Connection connection(path, settings);
    if (journal == Journal::WriteAhead) connection.execute("PRAGMA journal_mode = WAL");
    connection.execute(
        "CREATE TABLE entries (name TEXT PRIMARY KEY, value INTEGER, comment TEXT) WITHOUT ROWID");
    connection.execute(index);
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i) entries.push_back(entryAt(i));
    (void)connection.runAll(Insert, entries);
  }
  std::size_t run(Store& store, Command command, const Entry& entry) {
    const auto work = [&](Connection& over) { return over.run(command, entry, found_); };
    return store.with(work, settings);
  }

  Store entries_;
  Store ports_;
  Entry found_;
};

}  // namespace

SubjectRows sqliteSubjects() {
  constexpr bool kept = true;
  return {{"sqlite", make<Sqlite<Journal::Rollback, !kept>>, Role::Peer,
           Reads | ByPort | Updates | ManyChanges},
          {"sqlite-off", make<Sqlite<Journal::RollbackUnsynced, !kept>>, Role::Peer, Updates},
          {"sqlite-kept", make<Sqlite<Journal::Rollback, kept>>, Role::KeptOpen,
           Reads | ByPort | Contention},
          {"sqlite-wal", make<Sqlite<Journal::WriteAhead, kept>>, Role::KeptOpen, Contention}};
}
