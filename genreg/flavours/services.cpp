// GenRegServices: the hooks of services lines.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "genreg/core/registry_handle.h"
#include "genreg/flavours/line_writer.h"
#include "genreg/line_text.h"
#include "genreg/stored_form.h"
#include "genreg_services.h"

using genreg::Function;
using genreg::Likeness;
using genreg::LineWriter;
using genreg::Routine;

namespace {

constexpr unsigned int oddLineSeverity = 3;  // a line that is kept but not understood
constexpr std::size_t tabColumn = 8;         // characters that a tab replaces
constexpr unsigned int wideningPort = 1000;  // from here on a port field reaches the next tab stop

bool has(const ServiceEntryRecord& record, std::uint8_t what) {
  return (record.Contains & what) != 0;
}

// A 16-bit number in the other byte order: network order is the high byte first.
std::uint16_t networkOrder(unsigned int number) {
  const unsigned char bytes[] = {static_cast<unsigned char>(number >> 8),
                                 static_cast<unsigned char>(number)};
  std::uint16_t ordered;
  std::memcpy(&ordered, bytes, sizeof ordered);
  return ordered;
}
unsigned int hostOrder(std::uint16_t ordered) {
  unsigned char bytes[sizeof ordered];
  std::memcpy(bytes, &ordered, sizeof ordered);
  return (static_cast<unsigned int>(bytes[0]) << 8) | bytes[1];
}

bool equalTexts(const char* left, const char* right) {
  if (left == nullptr || right == nullptr) return left == right;
  return std::strcmp(left, right) == 0;
}

unsigned int validateKey(std::uint64_t mask, void* key) {
  Routine routine(Function::servicesValidateKey);
  if (key == nullptr) return routine.exit(routine.fail(GENREG_RC_NO_ARGUMENT, 10));
  const auto& fields = *static_cast<const ServiceEntryRecord*>(key);
  if (fields.Contains == 0) return routine.exit(routine.fail(GENREG_RC_KEY_EMPTY, 20));
  const struct {
    std::uint64_t bit;
    bool there;
    unsigned int absent;
  } rows[] = {{SERVICES_NAME, fields.name != nullptr, GENREG_RC_SERVICES_NO_NAME},
              {SERVICES_PORT, fields.port != 0, GENREG_RC_SERVICES_NO_PORT_KEY},
              {SERVICES_PROTOCOL, fields.protocol != nullptr, GENREG_RC_SERVICES_NO_PROTOCOL_KEY}};
  for (const auto& row : rows) {
    if ((mask & row.bit) != 0 && !row.there) return routine.exit(routine.fail(row.absent, 30));
  }
  return routine.exit(GENREG_RC_OK);
}

unsigned int compareRecord(std::uint64_t mask, void* record, void* key) {
  Routine routine(Function::servicesCompareRecord);
  if (record == nullptr || key == nullptr) return routine.exit(0);
  const auto& left = *static_cast<const ServiceEntryRecord*>(record);
  const auto& right = *static_cast<const ServiceEntryRecord*>(key);
  if (left.Contains == SERVICES_HAS_COMMENT && right.Contains == SERVICES_HAS_COMMENT) {
    return routine.exit(equalTexts(left.comment, right.comment) ? 1 : 0);
  }
  const bool matches =
      has(left, SERVICES_HAS_SERVICE) && has(right, SERVICES_HAS_SERVICE) &&
      ((mask & SERVICES_NAME) == 0 || equalTexts(left.name, right.name)) &&
      ((mask & SERVICES_PORT) == 0 || left.port == right.port) &&
      ((mask & SERVICES_PROTOCOL) == 0 || equalTexts(left.protocol, right.protocol));
  return routine.exit(matches ? 1 : 0);
}

bool isWord(const char* begin, const char* end, const char* word) {
  while (begin < end && *begin == *word) ++begin, ++word;
  return begin == end && *word == '\0';
}

bool isProtocol(const char* begin, const char* end) {
  static constexpr const char* known[] = {"tcp", "udp", "ddp", "divert"};
  for (const char* protocol : known) {
    if (isWord(begin, end, protocol)) return true;
  }
  return false;
}

// As strtol reads it; the five digits that a port has are read here in half the time.
std::uint16_t portOf(const char* text) {
  unsigned int port = 0;
  const char* at = text;
  for (; at - text < 5 && *at >= '0' && *at <= '9'; ++at) {
    port = 10 * port + static_cast<unsigned int>(*at - '0');
  }
  const bool plain = at > text && *at == '\0';
  return static_cast<std::uint16_t>(plain ? port : std::strtol(text, nullptr, 10));
}

// Port, protocol and aliases, from behind the name on. An alias too many is refused rather than
// dropped: a caller that changed the record would lose it.
unsigned int unpackService(const Routine& routine, ServiceEntryRecord& record, char* cursor) {
  char* token = nullptr;
  if (genreg::GenRegNextToken(&token, &cursor) != 0) {
    return routine.fail(GENREG_RC_SERVICES_NO_PORT, 40, genreg::text(record.name));
  }
  char* slash = std::strchr(token, '/');
  if (slash == nullptr) {
    record.Contains |= SERVICES_BAD_PORT;
    routine.note(GENREG_RC_SERVICES_NO_SLASH, 50, oddLineSeverity, genreg::text(token));
    return GENREG_RC_OK;
  }
  *slash = '\0';
  record.port = networkOrder(portOf(token));
  record.protocol = slash + 1;
  if (!isProtocol(record.protocol, record.protocol + std::strlen(record.protocol))) {
    record.Contains |= SERVICES_BAD_PORT;
    routine.note(GENREG_RC_SERVICES_BAD_PROTOCOL, 60, oddLineSeverity,
                 genreg::text(record.protocol));
    return GENREG_RC_OK;
  }
  std::size_t count = 0;
  while (genreg::GenRegNextToken(&token, &cursor) == 0) {
    if (count + 1 == SERVICES_ALIAS_SLOTS) {
      return routine.fail(OSS_RC_BUFFER_TOO_SMALL, 70, genreg::text(record.name));
    }
    record.aliases = record.aliasList;
    record.aliasList[count++] = token;
    record.aliasList[count] = nullptr;
  }
  return GENREG_RC_OK;
}

unsigned int unpackRecord(void* record, char* line) {
  Routine routine(Function::servicesUnpackRecord);
  if (record == nullptr) return routine.exit(routine.fail(GENREG_RC_NO_ARGUMENT, 10));
  auto& fields = *static_cast<ServiceEntryRecord*>(record);
  // Behind the fields, only what they point to is ever looked at.
  std::memset(static_cast<void*>(&fields), 0, offsetof(ServiceEntryRecord, text));
  fields.comment = genreg::takeLine(fields.text, line);
  if (fields.comment != nullptr) fields.Contains = SERVICES_HAS_COMMENT;
  // Words are told apart at any run of blanks, so only other white space must become a blank.
  if (std::strchr(fields.text, '\r') != nullptr) {
    if (const unsigned int code = genreg::GenRegNormalizeLine(fields.text); code != 0) {
      return routine.exit(routine.failFrom(Function::normalizeLine, code, code, 20));
    }
  }
  char* cursor = fields.text;
  char* token = nullptr;
  if (genreg::GenRegNextToken(&token, &cursor) != 0) {
    if (std::strcmp(line, "\n") == 0) fields.Contains = SERVICES_HAS_COMMENT;
    return routine.exit(GENREG_RC_OK);
  }
  fields.Contains |= SERVICES_HAS_SERVICE;
  fields.name = token;
  return routine.exit(unpackService(routine, fields, cursor));
}

constexpr bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }

// How the bytes of a plain line "NAME PORT/PROTOCOL ..." are told apart from a key without parsing
// them. A line that is odd in any way is not plain: parsing it would say so in the log.
Likeness liken(std::uint64_t mask, const char* line, std::size_t length, const void* key) noexcept {
  constexpr std::size_t longestPlain =
      2 * SERVICES_ALIAS_SLOTS - 2;  // no room for too many aliases
  const auto& wanted = *static_cast<const ServiceEntryRecord*>(key);
  if (!has(wanted, SERVICES_HAS_SERVICE) || length == 0 || length > longestPlain) {
    return Likeness::Unclear;
  }
  if (line[0] == '#') return Likeness::Differs;
  const char* const end = line + length;
  const char* const name = genreg::skipWord(line, end, '\0');
  const char* port = name;
  while (port < end && isBlank(*port)) ++port;
  const char* slash = port;
  while (slash < end && *slash >= '0' && *slash <= '9') ++slash;
  if (name == line || port == name || slash == port || slash == end || *slash != '/') {
    return Likeness::Unclear;
  }
  const char* protocol = slash + 1;
  const char* const rest = genreg::skipWord(protocol, end, '\0');
  const bool ends = rest == end || isBlank(*rest) || *rest == '#';
  if (!ends || !isProtocol(protocol, rest)) return Likeness::Unclear;
  const bool differs =
      ((mask & SERVICES_NAME) != 0 && wanted.name != nullptr && !isWord(line, name, wanted.name)) ||
      ((mask & SERVICES_PROTOCOL) != 0 && wanted.protocol != nullptr &&
       !isWord(protocol, rest, wanted.protocol));
  return differs ? Likeness::Differs : Likeness::Unclear;
}

bool isOdd(const void* record) noexcept {
  return has(*static_cast<const ServiceEntryRecord*>(record), SERVICES_BAD_PORT);
}

const genreg::StoredForm ownForm{compareRecord, unpackRecord, sizeof(ServiceEntryRecord),
                                 liken,         nullptr,      isOdd};

// One tab when a text reaches the next tab stop by itself, else two.
void addTabs(LineWriter& out, bool reaches) { out.add("\t\t", reaches ? 1 : 2); }

unsigned int writeService(LineWriter& out, const ServiceEntryRecord& record, bool hasAliases) {
  if (record.name == nullptr) return GENREG_RC_SERVICES_PACK_NO_NAME;
  if (record.port == 0) return GENREG_RC_SERVICES_PACK_NO_PORT;
  if (record.protocol == nullptr) return GENREG_RC_SERVICES_PACK_NO_PROTOCOL;
  const unsigned int port = hostOrder(record.port);
  char number[16];
  (void)std::snprintf(number, sizeof number, "%u/", port);
  out.add(record.name);
  addTabs(out, std::strlen(record.name) >= tabColumn);
  out.add(number);
  out.add(record.protocol);
  if (!hasAliases) return GENREG_RC_OK;
  addTabs(out, port >= wideningPort);
  for (const char** alias = record.aliases; *alias != nullptr; ++alias) {
    out.add(" ", alias == record.aliases ? 0 : 1);
    out.add(*alias);
  }
  return GENREG_RC_OK;
}

void writeComment(LineWriter& out, const ServiceEntryRecord& record, bool hasAliases) {
  // The record of an empty line: there is nothing to mark as a comment.
  if (record.comment == nullptr) return;
  if (hasAliases) {
    addTabs(out, std::strlen(record.aliases[0]) >= tabColumn);
  } else {
    out.add("\t\t\t\t", hostOrder(record.port) < wideningPort ? 4 : 3);
  }
  out.add("# ");
  out.add(record.comment);
}

unsigned int packRecord(void* record, char* text) {
  Routine routine(Function::servicesPackRecord);
  const auto& fields = *static_cast<const ServiceEntryRecord*>(record);
  // A list without an entry is no list.
  const bool hasAliases = fields.aliases != nullptr && fields.aliases[0] != nullptr;
  LineWriter out;
  if (has(fields, SERVICES_HAS_SERVICE)) {
    if (const unsigned int code = writeService(out, fields, hasAliases); code != 0) {
      return routine.exit(routine.fail(code, 10));
    }
  }
  if (has(fields, SERVICES_HAS_COMMENT)) writeComment(out, fields, hasAliases);
  const unsigned int code = out.finish(text, OSS_RC_BUFFER_TOO_SMALL);
  return routine.exit(code == 0 ? code : routine.fail(code, 20));
}

unsigned int getRecordSize(std::uint64_t* size) {
  Routine routine(Function::servicesGetRecordSize);
  *size = sizeof(ServiceEntryRecord);
  return routine.exit(GENREG_RC_OK);
}

unsigned int getRecordLength(const void*, std::uint64_t* length) {
  Routine routine(Function::servicesGetRecordLength);
  *length = sizeof(ServiceEntryRecord);
  return routine.exit(GENREG_RC_OK);
}

void printText(const char* label, const char* text) {
  if (text == nullptr) {
    std::printf("   %s = NULL\n", label);
  } else {
    std::printf("   %s = |%s|\n", label, text);
  }
}

}  // namespace

GenRegServices::GenRegServices(const char* path, unsigned int* rc) noexcept {
  Routine routine(Function::servicesConstructor);
  const FlavourHooks hooks{compareRecord, validateKey,   PrintRecord,     unpackRecord,
                           packRecord,    getRecordSize, getRecordLength, &ownForm};
  if (routine.exit(RegistryHandle::setUp(*this, routine, path, hooks, rc)) != 0) return;
  (void)setFeature(GENREG_VERIFY_UPDATES);
}

GenRegServices::~GenRegServices() { Routine routine(Function::servicesDestructor); }

unsigned int GenRegServices::PrintRecord(void* record) noexcept {
  if (record == nullptr) return GENREG_RC_OK;
  const auto& fields = *static_cast<const ServiceEntryRecord*>(record);
  printText("name    ", fields.name);
  std::printf("   port     = %u\n", hostOrder(fields.port));
  printText("protocol", fields.protocol);
  printText("comment ", fields.comment);
  return GENREG_RC_OK;
}
