// GenRegServices: the hooks of services lines.
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "genreg/core/record_buffer.h"
#include "genreg/flavours/flavour.h"
#include "genreg/flavours/service_line.h"
#include "genreg_services.h"

using genreg::Function;
using genreg::LineWriter;
using genreg::Match;
using genreg::Routine;
using genreg::ServiceLine;

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

// Fills a cleared record. False when it has too many aliases: one that was dropped would be lost
// when the caller changes the record.
bool fillRecord(const ServiceLine& line, ServiceEntryRecord& record) {
  genreg::TextPlacer texts(record.text);
  const ServiceLine::Tail tail = line.tail();
  if (tail.hasComment) record.Contains = SERVICES_HAS_COMMENT;
  if (line.hasService) {
    record.Contains |= SERVICES_HAS_SERVICE;
    record.name = texts.place(line.name);
    record.port = networkOrder(line.port);
    if (line.protocol.data() != nullptr) record.protocol = texts.place(line.protocol);
    if (line.odd == GENREG_RC_SERVICES_NO_SLASH || line.odd == GENREG_RC_SERVICES_BAD_PROTOCOL) {
      record.Contains |= SERVICES_BAD_PORT;
    }
    std::size_t count = 0;
    std::string_view rest = line.odd == 0 ? tail.aliases : std::string_view();
    for (std::string_view word; genreg::GenRegNextToken(&word, &rest) == 0;) {
      if (count + 1 == SERVICES_ALIAS_SLOTS) return false;
      record.aliases = record.aliasList;
      record.aliasList[count++] = texts.place(word);
    }
  }
  if (tail.hasComment) record.comment = texts.placePrintable(tail.comment);
  return true;
}

// One tab when a text reaches the next tab stop by itself, else two.
void addTabs(LineWriter& out, bool reaches) { out.add(reaches ? "\t" : "\t\t"); }

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
    if (alias != record.aliases) out.add(" ");
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
    out.add(hostOrder(record.port) < wideningPort ? "\t\t\t\t" : "\t\t\t");
  }
  out.add("# ");
  out.add(record.comment);
}

struct Services {
  using Record = ServiceEntryRecord;
  static constexpr genreg::FlavourNames names{
      Function::servicesValidateKey,   Function::servicesCompareRecord,
      Function::servicesGetRecordSize, Function::servicesGetRecordLength,
      Function::servicesUnpackRecord,  Function::servicesPackRecord};
  static constexpr unsigned int tooLong = OSS_RC_BUFFER_TOO_SMALL;
  static constexpr std::uint64_t identity = SERVICES_IDENTITY;

  static bool validate(Routine& routine, std::uint64_t mask, const Record& key) {
    if (key.Contains == 0) return routine.fail(GENREG_RC_KEY_EMPTY, 20);
    const struct {
      std::uint64_t bit;
      bool there;
      unsigned int absent;
    } rows[] = {{SERVICES_NAME, key.name != nullptr, GENREG_RC_SERVICES_NO_NAME},
                {SERVICES_PORT, key.port != 0, GENREG_RC_SERVICES_NO_PORT_KEY},
                {SERVICES_PROTOCOL, key.protocol != nullptr, GENREG_RC_SERVICES_NO_PROTOCOL_KEY}};
    unsigned int point = 30;
    for (const auto& row : rows) {
      if ((mask & row.bit) != 0 && !row.there) return routine.fail(row.absent, point);
      point += 10;
    }
    return true;
  }

  static bool matches(std::uint64_t mask, const Record& record, const Record& key) {
    if (record.Contains == SERVICES_HAS_COMMENT && key.Contains == SERVICES_HAS_COMMENT) {
      return equalTexts(record.comment, key.comment);
    }
    return has(record, SERVICES_HAS_SERVICE) && has(key, SERVICES_HAS_SERVICE) &&
           ((mask & SERVICES_NAME) == 0 || equalTexts(record.name, key.name)) &&
           ((mask & SERVICES_PORT) == 0 || record.port == key.port) &&
           ((mask & SERVICES_PROTOCOL) == 0 || equalTexts(record.protocol, key.protocol));
  }

  static void unpack(Routine& routine, Record& record, const char* text) {
    std::memset(static_cast<void*>(&record), 0, sizeof record);
    const ServiceLine line = genreg::parseServiceLine(genreg::lineOf(text));
    const bool filled = fillRecord(line, record);
    if (!line.hasService) {
      if (std::strcmp(text, "\n") == 0) record.Contains = SERVICES_HAS_COMMENT;
    } else if (line.odd == GENREG_RC_SERVICES_NO_PORT) {
      (void)routine.fail(line.odd, 40, genreg::text(record.name));
    } else if (line.odd != 0) {
      const bool noSlash = line.odd == GENREG_RC_SERVICES_NO_SLASH;
      const genreg::LogValue word{noSlash ? line.endpoint.data() : line.protocol.data(),
                                  noSlash ? line.endpoint.size() : line.protocol.size(),
                                  OSS_LOG_STRING};
      routine.note(line.odd, noSlash ? 50 : 60, oddLineSeverity, word);
    } else if (!filled) {
      (void)routine.fail(OSS_RC_BUFFER_TOO_SMALL, 70, genreg::text(record.name));
    }
  }

  static unsigned int write(LineWriter& out, const Record& record, const char*) {
    // A list without an entry is no list.
    const bool hasAliases = record.aliases != nullptr && record.aliases[0] != nullptr;
    if (has(record, SERVICES_HAS_SERVICE)) {
      if (const unsigned int code = writeService(out, record, hasAliases); code != 0) return code;
    }
    if (has(record, SERVICES_HAS_COMMENT)) writeComment(out, record, hasAliases);
    return GENREG_RC_OK;
  }

  static bool fill(std::string_view text, Record& record) noexcept {
    if (text.find('\0') != std::string_view::npos) return false;
    const ServiceLine line = genreg::parseServiceLine(text);
    if (line.odd != 0) return false;
    genreg::clearRecord(record);
    if (text.empty()) record.Contains = SERVICES_HAS_COMMENT;  // an empty line
    return fillRecord(line, record);
  }

  // A line that is odd in any way takes the hook, which says so in the log. So does one that may
  // have too many aliases.
  static Match match(std::uint64_t mask, const char* bytes, std::size_t length,
                     const void* key) noexcept {
    const auto& wanted = *static_cast<const ServiceEntryRecord*>(key);
    if (!has(wanted, SERVICES_HAS_SERVICE) || length == 0) return Match::Unclear;
    if (bytes[0] == '#') return Match::Differs;
    genreg::ServiceHead head;
    if (!genreg::readServiceHead({bytes, length}, head)) {
      if (std::memchr(bytes, '\0', length) != nullptr) return Match::Unclear;
      const ServiceLine line = genreg::parseServiceLine({bytes, length});
      return line.odd == 0 && !line.hasService ? Match::Differs : Match::Unclear;
    }
    constexpr std::size_t longestPlain = 2 * SERVICES_ALIAS_SLOTS - 2;
    if (head.rest.size() > longestPlain) return Match::Unclear;
    const bool matches =
        ((mask & SERVICES_NAME) == 0 || genreg::equalsText(head.name, wanted.name)) &&
        ((mask & SERVICES_PORT) == 0 || networkOrder(head.port()) == wanted.port) &&
        ((mask & SERVICES_PROTOCOL) == 0 || genreg::equalsText(head.protocol, wanted.protocol));
    return matches ? Match::Matches : Match::Differs;
  }

  static bool hash(std::uint64_t mask, const void* record, genreg::IdentityHash* hash) noexcept {
    constexpr std::uint64_t compared = SERVICES_NAME | SERVICES_PORT | SERVICES_PROTOCOL;
    const auto& fields = *static_cast<const ServiceEntryRecord*>(record);
    const bool byName = (mask & SERVICES_NAME) != 0;
    const bool byProtocol = (mask & SERVICES_PROTOCOL) != 0;
    const bool isThere = has(fields, SERVICES_HAS_SERVICE) && (!byName || fields.name != nullptr) &&
                         (!byProtocol || fields.protocol != nullptr);
    if (!isThere || (mask & compared) == 0) return false;
    if (byName) hash->addText(fields.name);
    if ((mask & SERVICES_PORT) != 0) hash->addBytes(&fields.port, sizeof fields.port);
    if (byProtocol) hash->addText(fields.protocol);
    return true;
  }
};

const genreg::RecordForm recordForm =
    genreg::LineFlavourHook<Services>::form(GenRegServices::PrintRecord);

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
  if (genreg::HandleAccess::setUp(*this, routine, path, &recordForm, rc) != 0) return;
  (void)setFeature(GENREG_VERIFY_UPDATES);
}

GenRegServices::~GenRegServices() { const Routine routine(Function::servicesDestructor); }

unsigned int GenRegServices::PrintRecord(void* record) noexcept {
  if (record == nullptr) return GENREG_RC_OK;
  const auto& fields = *static_cast<const ServiceEntryRecord*>(record);
  printText("name    ", fields.name);
  std::printf("   port     = %u\n", hostOrder(fields.port));
  printText("protocol", fields.protocol);
  printText("comment ", fields.comment);
  return GENREG_RC_OK;
}
