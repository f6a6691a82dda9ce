// zorreg services FILE ...: text registries of network services.
#include <algorithm>
#include <charconv>
#include <sstream>
#include <utility>

#include "commands.h"
#include "exact_registry.h"
#include "faces/record_fields.h"
#include "field_json.h"
#include "registry_use.h"

namespace zorreg {
namespace {

constexpr const char* protocols[] = {"tcp", "udp", "ddp", "divert"};

// A port number and a protocol, as one word of the command line gives them.
struct Endpoint {
  std::uint16_t port = 0;
  std::string protocol;
};

std::uint16_t swapped(std::uint16_t host) {
  const unsigned char bytes[] = {static_cast<unsigned char>(host >> 8),
                                 static_cast<unsigned char>(host)};
  std::uint16_t network;
  std::memcpy(&network, bytes, sizeof network);
  return network;
}

unsigned int portOf(const ServiceEntryRecord& record) { return swapped(record.port); }

std::vector<std::string> aliasesOf(const ServiceEntryRecord& record) {
  std::vector<std::string> aliases;
  for (const char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
    aliases.emplace_back(*alias);
  }
  return aliases;
}

constexpr JsonMember members[] = {{"name", "Name", JsonMember::Text, true},
                                  {"port", "Port", JsonMember::Number, true},
                                  {"protocol", "Protocol", JsonMember::Text, true},
                                  {"aliases", "Aliases", JsonMember::Words, true},
                                  {"comment", "Comment", JsonMember::Text, false}};

class Services : public Exact<GenRegServices, ServiceEntryRecord> {
 public:
  static constexpr Kind kind = Kind::Services;
  using Exact::Exact;
  static bool holdsEntry(const Record& record) {
    return (record.Contains & SERVICES_HAS_SERVICE) != 0;
  }
  static Row rowOf(const Record& record) {
    const bool odd = (record.Contains & SERVICES_BAD_PORT) != 0 || record.protocol == nullptr;
    const std::string protocol = record.protocol == nullptr ? "" : record.protocol;
    const faces::NamedFields fields = faces::fieldsOf(record);
    const std::string* const aliases = fields.find("Aliases");
    Json json = jsonOf(fields, members);
    if (odd) json["understood"] = false;
    return {{printable(record.name),
             std::to_string(portOf(record)) + "/" + printable(protocol) + (odd ? " ?" : ""),
             aliases == nullptr ? "" : printable(*aliases), printable(bareComment(record.comment))},
            json};
  }
};

// PORT or PORT/PROTOCOL.
std::optional<Endpoint> parseEndpoint(const std::string& word) {
  Endpoint endpoint;
  const std::size_t slash = word.find('/');
  const char* end = word.data() + std::min(slash, word.size());
  const auto [stop, error] = std::from_chars(word.data(), end, endpoint.port);
  if (error != std::errc() || stop != end || endpoint.port == 0) return {};
  if (slash != std::string::npos) endpoint.protocol = word.substr(slash + 1);
  return endpoint;
}

bool isWord(const std::string& text) {
  return !text.empty() && text.find_first_of(" \t\r\n#\"") == std::string::npos;
}

bool isProtocol(const std::string& text) {
  return std::find(std::begin(protocols), std::end(protocols), text) != std::end(protocols);
}

// Why an entry cannot stand in a line and be read back; empty when it can.
std::string complaint(const Words& words, const std::optional<Endpoint>& endpoint) {
  if (!isWord(words.name)) return "'" + printable(words.name) + "': a name is one word";
  if (!endpoint || !isProtocol(endpoint->protocol)) {
    std::string wrong =
        "'" + printable(words.port) + "': a port from 1 to 65535, a slash and one of";
    const char* separator = " ";
    for (const char* protocol : protocols)
      wrong += std::exchange(separator, ", ") + std::string(protocol);
    return wrong;
  }
  for (const std::string& alias : words.aliases) {
    if (!isWord(alias)) return "'" + printable(alias) + "': an alias is one word";
  }
  if (words.aliases.size() >= SERVICES_ALIAS_SLOTS) return "a line has at most 127 aliases";
  if (words.comment && words.comment->find_first_of("\r\n") != std::string::npos) {
    return "'" + printable(*words.comment) + "': a comment is one line";
  }
  return {};
}

bool hasName(const ServiceEntryRecord& record, const std::string& name) {
  const std::vector<std::string> aliases = aliasesOf(record);
  return name == record.name || std::find(aliases.begin(), aliases.end(), name) != aliases.end();
}

// By name or alias or port, each also with a protocol behind a slash.
int find(Services& registry, const Words& words) {
  const std::size_t slash = words.name.rfind('/');
  std::string protocol = slash == std::string::npos ? "" : words.name.substr(slash + 1);
  if (!isProtocol(protocol)) protocol.clear();
  const std::string name = protocol.empty() ? words.name : words.name.substr(0, slash);
  const std::optional<Endpoint> endpoint = parseEndpoint(name);
  Listing found;
  const int status = listWhere(registry, words, found, [&](const ServiceEntryRecord& record) {
    if (!(endpoint ? portOf(record) == endpoint->port : hasName(record, name))) return false;
    return protocol.empty() || (record.protocol != nullptr && protocol == record.protocol);
  });
  if (status != exitDone || !found.empty()) return status;
  return reportCode(GENREG_RC_NOT_FOUND, words.file);
}

// An entry as the command line gives it; `aliases` keeps what its alias list points to.
ServiceEntryRecord entryOf(const Words& words, const Endpoint& endpoint,
                           std::vector<const char*>& aliases) {
  ServiceEntryRecord record{};
  record.Contains = SERVICES_HAS_SERVICE;
  record.name = words.name.c_str();
  record.port = swapped(endpoint.port);
  record.protocol = endpoint.protocol.c_str();
  for (const std::string& alias : words.aliases) aliases.push_back(alias.c_str());
  aliases.push_back(nullptr);
  if (!words.aliases.empty()) record.aliases = aliases.data();
  if (words.comment) {
    record.Contains |= SERVICES_HAS_COMMENT;
    record.comment = words.comment->c_str();
  }
  return record;
}

// Runs `work` with the entry that the words describe, or reports what is wrong with them.
template <typename Work>
int withEntry(const Words& words, Work work) {
  const std::optional<Endpoint> endpoint = parseEndpoint(words.port);
  if (const std::string wrong = complaint(words, endpoint); !wrong.empty()) {
    return reportUsage(wrong);
  }
  std::vector<const char*> aliases;
  ServiceEntryRecord record = entryOf(words, *endpoint, aliases);
  return work(record);
}

int add(Services& registry, const Words& words) {
  return withEntry(words, [&](ServiceEntryRecord& record) {
    return update(registry, words, true, [&] {
      return outcome(registry, registry.Add(SERVICES_IDENTITY, &record), words);
    });
  });
}

// What an entry is changed to: the port that is given, and the aliases and the comment, or what it
// had. `comment` keeps the text of that.
ServiceEntryRecord mergedWith(const Words& words, const ServiceEntryRecord& given,
                              const ServiceEntryRecord& found, std::string& comment) {
  ServiceEntryRecord merged = given;
  if (words.aliases.empty()) merged.aliases = found.aliases;
  if (!words.comment && found.comment != nullptr) {
    comment = bareComment(found.comment);
    merged.Contains |= SERVICES_HAS_COMMENT;
    merged.comment = comment.c_str();
  }
  return merged;
}

// The one entry of that name and protocol.
int change(Services& registry, const Words& words) {
  return withEntry(words, [&](ServiceEntryRecord& given) {
    return update(registry, words, false, [&] {
      std::string comment;
      const unsigned int code =
          changeOnly(registry, SERVICES_IDENTITY, given, [&](const auto& found, auto& merged) {
            merged = mergedWith(words, given, found, comment);
            return 0U;
          });
      return outcome(registry, code, words);
    });
  });
}

int remove(Services& registry, const Words& words) {
  ServiceEntryRecord key{};
  key.Contains = SERVICES_HAS_SERVICE;
  key.name = words.name.c_str();
  std::uint64_t mask = SERVICES_NAME;
  std::optional<Endpoint> endpoint;
  if (!words.port.empty()) {
    endpoint = parseEndpoint(words.port);
    if (!endpoint) return reportUsage("'" + printable(words.port) + "': PORT or PORT/PROTOCOL");
    key.port = swapped(endpoint->port);
    mask |= SERVICES_PORT;
    if (!endpoint->protocol.empty()) {
      key.protocol = endpoint->protocol.c_str();
      mask |= SERVICES_PROTOCOL;
    }
  }
  return update(registry, words, false,
                [&] { return outcome(registry, registry.Delete(mask, &key), words); });
}

// Lines as they stand in such a file.
int import(Services& registry, const Words& given) {
  const bool single = isWithoutRepeats(registry, [](const ServiceEntryRecord& record) {
    return std::string(record.name) + "/" + (record.protocol == nullptr ? "" : record.protocol);
  });
  return importLines(given, [&](const std::string& line, Words& words, std::string& wrong) {
    const std::size_t hash = line.find('#');
    std::istringstream parts(line.substr(0, hash));
    parts >> words.name >> words.port;
    for (std::string alias; parts >> alias;) words.aliases.push_back(alias);
    if (hash != std::string::npos) words.comment = bareComment(line.substr(hash + 1).c_str());
    const std::optional<Endpoint> endpoint = parseEndpoint(words.port);
    wrong = complaint(words, endpoint);
    if (!wrong.empty()) return int{exitUsage};
    std::vector<const char*> aliases;
    ServiceEntryRecord record = entryOf(words, *endpoint, aliases);
    std::string comment;
    return setRecord(
        registry, words, single, SERVICES_IDENTITY, record,
        [](const ServiceEntryRecord& found) { return std::to_string(portOf(found)); },
        [&](const ServiceEntryRecord* found) {
          return found == nullptr ? record : mergedWith(words, record, *found, comment);
        });
  });
}

constexpr Argument wanted{"NAME|PORT[/PROTOCOL]", "the service", &Words::name, Need::MustFilled};
constexpr Argument name{"NAME", "the service", &Words::name, Need::MustFilled};
constexpr const char* portHelp = "for example 8080/tcp";
constexpr Argument port{"PORT/PROTOCOL", portHelp, &Words::port, Need::MustFilled};
constexpr Argument somePort{"PORT/PROTOCOL", portHelp, &Words::port, Need::MayFilled};
constexpr Argument aliases{"ALIAS", "other names; without any the old ones stay", &Words::aliases};
constexpr Argument comment{"--comment", "the line's comment; without it the old one stays",
                           &Words::comment};

constexpr Verb verbs[] = {
    {"list",
     "print every service: name, port, aliases, comment",
     on<Services, list>,
     {&jsonArgument}},
    {"find",
     "print the services of a name, an alias or a port",
     on<Services, find>,
     {&wanted, &jsonArgument}},
    {"add",
     "add a service; one of that name and protocol must not be there",
     on<Services, add>,
     {&name, &port, &aliases, &comment},
     true},
    {"change",
     "give the service of that name and protocol another port, aliases or comment",
     on<Services, change>,
     {&name, &port, &aliases, &comment},
     true},
    {"remove",
     "delete the one service of that name (and port and protocol)",
     on<Services, remove>,
     {&name, &somePort},
     true},
    {"import",
     "set services from lines as they stand in such a file on standard input, all or none",
     on<Services, updating<Services, import, true>>,
     {},
     true},
    {"dump", "print every line's record, field by field", on<Services, dump>},
    {"repair", repairHelp, on<Services, repair>, {&dropArgument, &jsonArgument}, true},
};

}  // namespace

void addServicesCommand(CLI::App& app, int& status) {
  addGroup(app, status,
           {"services", "a text registry of network services", {&fileArgument, nullptr}}, verbs);
}

}  // namespace zorreg
