#include "services_command.h"

#include <charconv>
#include <memory>
#include <optional>
#include <vector>

#include "faithful_text.h"
#include "output.h"
#include "registry_use.h"
#include "report.h"

namespace zorreg {
namespace {

// The words of one command line.
struct Arguments {
  std::string file;
  std::string name;  // for find also a port
  std::string port;  // PORT/PROTOCOL
  std::vector<std::string> aliases;
  std::optional<std::string> comment;
  bool json = false;
};

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
  return text == "tcp" || text == "udp" || text == "ddp" || text == "divert";
}

// Why an entry cannot stand in a line and be read back; empty when it can.
std::string complaint(const Arguments& arguments, const std::optional<Endpoint>& endpoint) {
  if (!isWord(arguments.name)) return "'" + printable(arguments.name) + "': a name is one word";
  if (!endpoint || !isProtocol(endpoint->protocol)) {
    return "'" + printable(arguments.port) +
           "': a port from 1 to 65535, a slash and tcp, udp, ddp or divert";
  }
  for (const std::string& alias : arguments.aliases) {
    if (!isWord(alias)) return "'" + printable(alias) + "': an alias is one word";
  }
  if (arguments.aliases.size() >= SERVICES_ALIAS_SLOTS) return "a line has at most 127 aliases";
  if (arguments.comment && arguments.comment->find_first_of("\r\n") != std::string::npos) {
    return "'" + printable(*arguments.comment) + "': a comment is one line";
  }
  return {};
}

std::string joinedAliases(const ServiceEntryRecord& record) {
  std::string joined;
  for (const char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
    joined += (joined.empty() ? "" : " ") + std::string(*alias);
  }
  return joined;
}

// Collects entries and prints them in the end.
class Listing {
 public:
  void add(const ServiceEntryRecord& record) {
    const bool odd = (record.Contains & SERVICES_BAD_PORT) != 0 || record.protocol == nullptr;
    const std::string protocol = record.protocol == nullptr ? "" : record.protocol;
    const std::string comment = bareComment(record.comment);
    table_.add({printable(record.name),
                std::to_string(portOf(record)) + "/" + printable(protocol) + (odd ? " ?" : ""),
                printable(joinedAliases(record)), printable(comment)});
    Json row{{"name", record.name}, {"port", portOf(record)}, {"protocol", protocol}};
    row["aliases"] = Json::array();
    for (const char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
      row["aliases"].push_back(*alias);
    }
    if (record.comment != nullptr) row["comment"] = comment;
    if (odd) row["understood"] = false;
    all_.push_back(row);
  }
  bool empty() const { return all_.empty(); }
  int print(bool json) const {
    json ? printJson(all_) : table_.print();
    return exitDone;
  }

 private:
  Table table_;
  Json all_ = Json::array();
};

bool namesService(const ServiceEntryRecord& record) {
  return (record.Contains & SERVICES_HAS_SERVICE) != 0;
}

int list(FaithfulServices& registry, const Arguments& arguments) {
  Listing listing;
  const int status = forEachRecord<ServiceEntryRecord>(registry, arguments.file,
                                                       [&](const ServiceEntryRecord& record) {
                                                         if (namesService(record))
                                                           listing.add(record);
                                                       });
  return status == exitDone ? listing.print(arguments.json) : status;
}

bool hasName(const ServiceEntryRecord& record, const std::string& name) {
  if (name == record.name) return true;
  for (const char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
    if (name == *alias) return true;
  }
  return false;
}

// By name or alias or port, each also with a protocol behind a slash.
int find(FaithfulServices& registry, const Arguments& arguments) {
  const std::string& word = arguments.name;
  const std::size_t slash = word.rfind('/');
  std::string protocol = slash == std::string::npos ? "" : word.substr(slash + 1);
  if (!isProtocol(protocol)) protocol.clear();
  const std::string name = protocol.empty() ? word : word.substr(0, slash);
  const std::optional<Endpoint> endpoint = parseEndpoint(name);
  Listing listing;
  const int status = forEachRecord<ServiceEntryRecord>(
      registry, arguments.file, [&](const ServiceEntryRecord& record) {
        if (!namesService(record)) return;
        if (!(endpoint ? portOf(record) == endpoint->port : hasName(record, name))) return;
        const bool wanted =
            protocol.empty() || (record.protocol != nullptr && protocol == record.protocol);
        if (wanted) listing.add(record);
      });
  if (status != exitDone) return status;
  if (listing.empty()) return reportCode(GENREG_RC_NOT_FOUND, arguments.file);
  return listing.print(arguments.json);
}

// An entry as the command line gives it; `words` keeps what its alias list points to.
ServiceEntryRecord entryOf(const Arguments& arguments, const Endpoint& endpoint,
                           std::vector<const char*>& words) {
  ServiceEntryRecord record{};
  record.Contains = SERVICES_HAS_SERVICE;
  record.name = arguments.name.c_str();
  record.port = swapped(endpoint.port);
  record.protocol = endpoint.protocol.c_str();
  for (const std::string& alias : arguments.aliases) words.push_back(alias.c_str());
  words.push_back(nullptr);
  if (!arguments.aliases.empty()) record.aliases = words.data();
  if (arguments.comment) {
    record.Contains |= SERVICES_HAS_COMMENT;
    record.comment = arguments.comment->c_str();
  }
  return record;
}

int add(FaithfulServices& registry, const Arguments& arguments) {
  const std::optional<Endpoint> endpoint = parseEndpoint(arguments.port);
  if (const std::string wrong = complaint(arguments, endpoint); !wrong.empty()) {
    return reportUsage(wrong);
  }
  std::vector<const char*> words;
  ServiceEntryRecord record = entryOf(arguments, *endpoint, words);
  const unsigned int code = registry.Add(SERVICES_NAME | SERVICES_PROTOCOL, &record);
  return code == 0 ? exitDone : reportCode(code, arguments.file);
}

// The entry of that name and protocol gets the port, and the aliases and the comment that are
// given.
int change(FaithfulServices& registry, const Arguments& arguments) {
  const std::optional<Endpoint> endpoint = parseEndpoint(arguments.port);
  if (const std::string wrong = complaint(arguments, endpoint); !wrong.empty()) {
    return reportUsage(wrong);
  }
  constexpr std::uint64_t mask = SERVICES_NAME | SERVICES_PROTOCOL;
  std::vector<const char*> words;
  ServiceEntryRecord record = entryOf(arguments, *endpoint, words);
  ServiceEntryRecord key = record;
  ServiceEntryRecord found;
  unsigned int code = registry.Get(mask, &key, &found);
  if (code != 0) return reportCode(code, arguments.file);
  if (arguments.aliases.empty()) record.aliases = found.aliases;
  const std::string comment = bareComment(found.comment);
  if (!arguments.comment && found.comment != nullptr) {
    record.Contains |= SERVICES_HAS_COMMENT;
    record.comment = comment.c_str();
  }
  code = registry.Change(mask, &key, &record);
  return code == 0 || code == GENREG_RC_UNCHANGED ? exitDone : reportCode(code, arguments.file);
}

int remove(FaithfulServices& registry, const Arguments& arguments) {
  ServiceEntryRecord key{};
  key.Contains = SERVICES_HAS_SERVICE;
  key.name = arguments.name.c_str();
  std::uint64_t mask = SERVICES_NAME;
  std::optional<Endpoint> endpoint;
  if (!arguments.port.empty()) {
    endpoint = parseEndpoint(arguments.port);
    if (!endpoint) return reportUsage("'" + printable(arguments.port) + "': PORT or PORT/PROTOCOL");
    key.port = swapped(endpoint->port);
    mask |= SERVICES_PORT;
    if (!endpoint->protocol.empty()) {
      key.protocol = endpoint->protocol.c_str();
      mask |= SERVICES_PROTOCOL;
    }
  }
  const unsigned int code = registry.Delete(mask, &key);
  return code == 0 ? exitDone : reportCode(code, arguments.file);
}

int dump(FaithfulServices& registry, const Arguments& arguments) {
  return forEachRecord<ServiceEntryRecord>(
      registry, arguments.file,
      [](ServiceEntryRecord& record) { (void)GenRegServices::PrintRecord(&record); });
}

enum class Port { None, Optional, Required };

struct Verb {
  const char* name;
  const char* help;
  const char* subject;  // the first argument, or null
  Port port;
  bool takesEntry;  // aliases and a comment
  bool takesJson;
  int (*run)(FaithfulServices& registry, const Arguments& arguments);
};

constexpr Verb verbs[] = {
    {"list", "print every service: name, port, aliases, comment", nullptr, Port::None, false, true,
     list},
    {"find", "print the services of a name, an alias or a port", "NAME|PORT[/PROTOCOL]", Port::None,
     false, true, find},
    {"add", "add a service; one of that name and protocol must not be there", "NAME",
     Port::Required, true, false, add},
    {"change", "give the service of that name and protocol another port, aliases or comment",
     "NAME", Port::Required, true, false, change},
    {"remove", "delete the one service of that name (and port and protocol)", "NAME",
     Port::Optional, false, false, remove},
    {"dump", "print every line's record, field by field", nullptr, Port::None, false, false, dump},
};

int runVerb(const Verb& verb, const Arguments& arguments) {
  unsigned int code = 0;
  FaithfulServices registry(arguments.file.c_str(), &code);
  return code == 0 ? verb.run(registry, arguments) : reportCode(code, arguments.file);
}

}  // namespace

void addServicesCommand(CLI::App& app, int& status) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* group = app.add_subcommand("services", "a text registry of network services");
  group->add_option("FILE", arguments->file, "the registry file")->required();
  group->require_subcommand(1);
  for (const Verb& verb : verbs) {
    CLI::App* command = group->add_subcommand(verb.name, verb.help);
    if (verb.subject != nullptr) {
      command->add_option(verb.subject, arguments->name, "the service")->required();
    }
    if (verb.port != Port::None) {
      command->add_option("PORT/PROTOCOL", arguments->port, "for example 8080/tcp")
          ->required(verb.port == Port::Required);
    }
    if (verb.takesEntry) {
      command->add_option("ALIAS", arguments->aliases,
                          "other names; without any the old ones stay");
      command->add_option("--comment", arguments->comment,
                          "the line's comment; without it the old one stays");
    }
    if (verb.takesJson) command->add_flag("--json", arguments->json, "print JSON");
    command->callback([&verb, arguments, &status] { status = runVerb(verb, *arguments); });
  }
}

}  // namespace zorreg
