// A text registry of network services: lines of NAME PORT/PROTOCOL ALIASES # comment.
//
//   unsigned int code = 0;
//   GenRegServices services("services", &code);
//   const char* aliases[] = {"www", nullptr};
//   ServiceEntryRecord record{};
//   record.Contains = SERVICES_HAS_SERVICE;
//   record.name = "web";
//   record.aliases = aliases;
//   record.protocol = "tcp";
//   record.port = htons(8080);
//   if (code == 0) code = services.Add(SERVICES_IDENTITY, &record);
#pragma once

#include "genreg_text.h"

// Bits of ServiceEntryRecord::Contains.
constexpr std::uint8_t SERVICES_HAS_COMMENT = 1;  // also an empty line, whose comment is null
constexpr std::uint8_t SERVICES_HAS_SERVICE = 2;  // the fields of a service are filled
constexpr std::uint8_t SERVICES_BAD_PORT = 4;     // the port/protocol field was not understood

constexpr std::size_t SERVICES_ALIAS_SLOTS = 128;  // aliases of a line and the terminating null

// A services file's line. After Get and GetNext the pointers point into the same record, so a
// record that is copied must not be used beyond the life of the one it was copied from. A record
// that a caller builds may point anywhere; its `text` and `aliasList` are not used.
struct ServiceEntryRecord {
  std::uint8_t Contains;                        // SERVICES_... bits
  const char* comment;                          // the text after the line's first "#", or null
  const char* name;                             // the service's name, or null
  const char** aliases;                         // null-terminated list in the line's order, or null
  const char* protocol;                         // "udp", "tcp", "ddp" or "divert" as read, or null
  std::uint16_t port;                           // network byte order; 0 = none
  char text[GENREG_LINE_SIZE];                  // what the texts point into after a read
  const char* aliasList[SERVICES_ALIAS_SLOTS];  // what aliases points to after a read
};

// Mask bits; aliases and comments are never compared. Mask 0 matches every line that names a
// service (GetNext with mask 0: every line). A key whose Contains is SERVICES_HAS_COMMENT alone
// matches the comment line of that text under any mask.
constexpr std::uint64_t SERVICES_NAME = 0x1;      // the names are equal; aliases are not looked at
constexpr std::uint64_t SERVICES_PORT = 0x2;      // the ports are equal
constexpr std::uint64_t SERVICES_PROTOCOL = 0x4;  // the protocols are equal, byte for byte
// The fields by which two entries are the same thing.
constexpr std::uint64_t SERVICES_IDENTITY = SERVICES_NAME | SERVICES_PROTOCOL;

// A handle of a services file. A written line has one layout of tabs; that of the line it replaces
// is not kept. Add refuses a duplicate; Change and Delete act on one line.
//
// Add and Change refuse a record (GENREG_RC_PACK_LINE_FAILED, the log names the cause) that is
// marked as holding a service without a name, a port or a protocol, that holds a newline, or whose
// line would be longer than 2,046 characters. A line with more than 127 aliases does not parse: no
// update touches it.
class GenRegServices : public GenRegText {
 public:
  // Opens nothing; names the files of the registry at `path`, as GenRegVarVal's does, and stores
  // the same codes at `rc` (may be null).
  GENREG_API GenRegServices(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's.
  GENREG_API ~GenRegServices();

  // Prints name, port, protocol and comment of a ServiceEntryRecord, which must not be null, on
  // standard output. Returns 0.
  GENREG_API static unsigned int PrintRecord(void* record) noexcept;
};
