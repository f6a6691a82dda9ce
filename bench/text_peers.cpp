// What programs read or edit text files of settings with: GLib's key files, inih, which only reads,
// and Augeas for services files.
#include <augeas.h>
#include <glib.h>
#include <ini.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/flavours.h"

namespace {

constexpr char group[] = "settings";

// Loads the whole file and, after a change, writes it whole, synced and renamed into place; but
// without a lock, so that of two writers one loses its change.
class KeyFile final : public Subject {
 public:
  KeyFile(const std::string& directory, std::size_t count) : path_(directory + "/entries.ini") {
    std::ofstream file(path_);
    file << "[" << group << "]\n";
    for (std::size_t i = 0; i < count; ++i) {
      const Entry entry = entryAt(i);
      if (!entry.comment.empty()) file << "# " << entry.comment << "\n";
      file << entry.name << "=" << entry.value << "\n";
    }
  }

  // A reader does not ask for the comments, which spares loading them.
  bool get(const Entry& key) override {
    const Text value = valueOf(load(G_KEY_FILE_NONE).get(), key.name.c_str());
    return value != nullptr && std::atoi(value.get()) == key.value;
  }
  std::size_t scan() override {
    const Loaded file = load(G_KEY_FILE_NONE);
    std::size_t count = 0;
    gchar** names = ::g_key_file_get_keys(file.get(), group, nullptr, nullptr);
    for (gchar** name = names; name != nullptr && *name != nullptr; ++name) {
      if (valueOf(file.get(), *name) != nullptr) ++count;
    }
    ::g_strfreev(names);
    return count;
  }
  bool add(const Entry& entry) override { return change(entry); }
  bool change(const Entry& entry) override {
    const Loaded file = load(G_KEY_FILE_KEEP_COMMENTS);
    set(file.get(), entry);
    return save(file.get());
  }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    const Loaded file = load(G_KEY_FILE_KEEP_COMMENTS);
    for (const Entry& entry : entries) {
      if (kind != Many::Remove) {
        set(file.get(), entry);
      } else if (::g_key_file_remove_key(file.get(), group, entry.name.c_str(), nullptr) == 0) {
        return false;
      }
    }
    return save(file.get());
  }
  bool remove(const Entry& key) override {
    const Loaded file = load(G_KEY_FILE_KEEP_COMMENTS);
    return ::g_key_file_remove_key(file.get(), group, key.name.c_str(), nullptr) != 0 &&
           save(file.get());
  }

 private:
  using Text = std::unique_ptr<gchar, void (*)(gpointer)>;
  using Loaded = std::unique_ptr<GKeyFile, void (*)(GKeyFile*)>;

  Loaded load(GKeyFileFlags flags) const {
    Loaded file(::g_key_file_new(), ::g_key_file_free);
    (void)::g_key_file_load_from_file(file.get(), path_.c_str(), flags, nullptr);
    return file;
  }
  static void set(GKeyFile* file, const Entry& entry) {
    const char* name = entry.name.c_str();
    ::g_key_file_set_value(file, group, name, std::to_string(entry.value).c_str());
    if (entry.comment.empty()) return;
    const std::string comment = " " + entry.comment;
    (void)::g_key_file_set_comment(file, group, name, comment.c_str(), nullptr);
  }
  static Text valueOf(GKeyFile* file, const char* name) {
    return Text(::g_key_file_get_value(file, group, name, nullptr), ::g_free);
  }
  bool save(GKeyFile* file) const {
    gsize length = 0;
    const Text text(::g_key_file_to_data(file, &length, nullptr), ::g_free);
    constexpr auto durable = static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT |
                                                                G_FILE_SET_CONTENTS_DURABLE);
    return ::g_file_set_contents_full(path_.c_str(), text.get(), static_cast<gssize>(length),
                                      durable, 0644, nullptr) != 0;
  }

  std::string path_;
};

// Calls back for each variable of a file, to its end whatever was found. Reads without a lock.
class Inih final : public Subject {
 public:
  Inih(const std::string& directory, std::size_t count) : path_(directory + "/entries.ini") {
    std::ofstream file(path_);
    for (std::size_t i = 0; i < count; ++i) {
      const Entry entry = entryAt(i);
      file << entry.name << " = " << entry.value;
      if (!entry.comment.empty()) file << " ; " << entry.comment;
      file << "\n";
    }
  }

  bool get(const Entry& key) override {
    Search search{&key, false};
    const auto each = [](void* to, const char*, const char* name, const char* value) {
      auto& wanted = *static_cast<Search*>(to);
      if (wanted.key->name == name) wanted.found = std::atoi(value) == wanted.key->value;
      return 1;
    };
    return ::ini_parse(path_.c_str(), each, &search) == 0 && search.found;
  }
  std::size_t scan() override {
    std::size_t count = 0;
    const auto each = [](void* counter, const char*, const char*, const char*) {
      return static_cast<int>(++*static_cast<std::size_t*>(counter) > 0);
    };
    return ::ini_parse(path_.c_str(), each, &count) == 0 ? count : 0;
  }

 private:
  struct Search {
    const Entry* key;
    bool found;
  };
  std::string path_;
};

// A tree of one services file below a root of its own, with its Services lens alone.
class Augeas final : public Subject {
 public:
  Augeas(const std::string& directory, std::size_t count) : root_(directory) {
    std::filesystem::create_directories(root_ + "/etc");
    flavours::writeAll<flavours::Services>(root_ + "/etc/services", count);
  }

  bool get(const Entry& key) override {
    const Tree tree = load();
    const char* value = portOf(tree.get(), pathOf(key));
    return value != nullptr && std::atoi(value) == key.value;
  }
  std::size_t scan() override {
    const Tree tree = load();
    char** paths = nullptr;
    std::size_t count = 0;
    for (int i = ::aug_match(tree.get(), all, &paths); i-- > 0;) {
      if (portOf(tree.get(), paths[i]) != nullptr) ++count;
      std::free(paths[i]);
    }
    std::free(paths);
    return count;
  }
  bool add(const Entry& entry) override { return many(Many::Add, {entry}); }
  bool change(const Entry& entry) override { return many(Many::Change, {entry}); }
  bool remove(const Entry& key) override { return many(Many::Remove, {key}); }
  bool many(Many kind, const std::vector<Entry>& entries) override {
    const Tree tree = load();
    for (const Entry& entry : entries) {
      if (!(kind == Many::Add      ? append(tree.get(), entry)
            : kind == Many::Change ? set(tree.get(), pathOf(entry) + "/port", port(entry))
                                   : ::aug_rm(tree.get(), pathOf(entry).c_str()) > 0)) {
        return false;
      }
    }
    return ::aug_save(tree.get()) == 0;
  }

 private:
  using Tree = std::unique_ptr<augeas, void (*)(augeas*)>;
  static constexpr char all[] = "/files/etc/services/service-name";

  static std::string pathOf(const Entry& entry) {
    return std::string(all) + "[. = '" + entry.name + "']";
  }
  static std::string port(const Entry& entry) { return std::to_string(entry.value); }
  static bool append(augeas* tree, const Entry& entry) {
    const std::string last = std::string(all) + "[last()]";
    return set(tree, std::string(all) + "[last() + 1]", entry.name) &&
           set(tree, last + "/port", port(entry)) && set(tree, last + "/protocol", "tcp") &&
           (entry.comment.empty() || set(tree, last + "/#comment", entry.comment));
  }
  static bool set(augeas* tree, const std::string& path, const std::string& value) {
    return ::aug_set(tree, path.c_str(), value.c_str()) == 0;
  }
  // The port of a service whose name is there; null else.
  static const char* portOf(const augeas* tree, const std::string& path) {
    const char* name = nullptr;
    const char* port = nullptr;
    const bool found = ::aug_get(tree, path.c_str(), &name) == 1 &&
                       ::aug_get(tree, (path + "/port").c_str(), &port) == 1;
    return found ? port : nullptr;
  }
  Tree load() const {
    Tree tree(::aug_init(root_.c_str(), nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD), ::aug_close);
    (void)set(tree.get(), "/augeas/load/Services/lens", "Services.lns");
    (void)set(tree.get(), "/augeas/load/Services/incl", "/etc/services");
    (void)::aug_load(tree.get());
    return tree;
  }

  std::string root_;
};

constexpr std::size_t augeasLargest = 1000;  // with ten times as many an update takes seconds

}  // namespace

SubjectRows textPeerSubjects() {
  constexpr unsigned all = Reads | Updates | ManyChanges;
  return {{"key-file", make<KeyFile>, Role::Peer, all},
          {"inih", make<Inih>, Role::Peer, Reads},
          {"augeas", make<Augeas>, Role::Peer, all, augeasLargest}};
}
