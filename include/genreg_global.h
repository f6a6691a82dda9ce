// The global registry: instance, services and variable records that every program of a machine
// shares, those of other versions included.
//
// A record holds a type, the fields of that type, and in FieldMask the bits of those that it has:
//
//   GlobalReg registry;  // the file that the environment names
//   GlobalRegRecord record{};
//   record.RecordType = GLOBALREG_RECORD_VARIABLE;
//   record.FieldMask = 0x1 | 0x2 | 0x4;  // Service, Variable, Value: globalRegVariableFields
//   std::strcpy(record.Variable.Service, "ZOR");
//   std::strcpy(record.Variable.Variable, "Language");
//   std::strcpy(record.Variable.Value, "en");
//   unsigned int code = registry.Add(0x1 | 0x2, &record);  // unless Service and Variable are there
//
//   GlobalRegRecord found{};
//   if (code == 0) code = registry.Get(0x1 | 0x2, &record, &found);
#pragma once

#include <cstddef>

#include "genreg_binary.h"

// Values of GlobalRegRecord::RecordType. In a key, 0 matches records of every type.
constexpr std::uint32_t GLOBALREG_RECORD_INSTANCE = 1;  // an InstanceRecord
constexpr std::uint32_t GLOBALREG_RECORD_SERVICES = 2;  // a ServicesRecord
constexpr std::uint32_t GLOBALREG_RECORD_VARIABLE = 4;  // a VariableRecord

// Bytes of the text fields, terminator included.
constexpr std::size_t GLOBALREG_NAME_SIZE = 64;                // names
constexpr std::size_t GLOBALREG_TEXT_SIZE = 256;               // texts
constexpr std::size_t GLOBALREG_PATH_SIZE = 1024;              // paths
constexpr std::size_t GLOBALREG_VARIABLE_COMMENT_SIZE = 2000;  // VariableRecord::Comment

// An instance of the product; its InstanceName identifies it.
struct InstanceRecord {
  char Service[GLOBALREG_NAME_SIZE];       // the product, "ZOR" for instance
  std::uint64_t VersionCode;               // four 16-bit parts, version first
  char InstanceName[GLOBALREG_NAME_SIZE];  // not empty
  char InstancePath[GLOBALREG_PATH_SIZE];  // its directory
  char Usage[GLOBALREG_NAME_SIZE];         // what it is for, in the writer's words
  std::uint32_t StartAtBoot;               // 0 or 1
  std::uint32_t Maintenance;               // 0 or 1
  char InstallPath[GLOBALREG_PATH_SIZE];   // of the copy that it runs
  char HostName[GLOBALREG_NAME_SIZE];      // the machine that holds it
  char Comment[GLOBALREG_TEXT_SIZE];       // free text
};

// An installed copy of the product; its Service identifies it. What the numbers and the two texts
// mean is the writers' affair: they are stored and compared only.
struct ServicesRecord {
  char Service[GLOBALREG_NAME_SIZE];      // the product, "ZOR" for instance
  std::uint64_t VersionCode;              // four 16-bit parts, version first
  char InstallPath[GLOBALREG_PATH_SIZE];  // the copy's directory
  char Text2[GLOBALREG_PATH_SIZE];        // carried unchanged
  char Text3[GLOBALREG_TEXT_SIZE];        // carried unchanged
  std::uint32_t Level;                    // carried unchanged
  std::uint32_t Number1;                  // carried unchanged
  std::uint8_t Byte1;                     // carried unchanged
  std::uint32_t Number2;                  // carried unchanged
  std::uint32_t Number3;                  // carried unchanged
};

// A variable of the product; Service and Variable identify it.
struct VariableRecord {
  char Service[GLOBALREG_NAME_SIZE];              // the product, "ZOR" for instance
  char Variable[GLOBALREG_TEXT_SIZE];             // its name
  char Value[GLOBALREG_TEXT_SIZE];                // its value
  char Comment[GLOBALREG_VARIABLE_COMMENT_SIZE];  // free text
};

// A record or a key. Text fields are NUL-terminated; what a record's FieldMask does not name is not
// stored, and is zero in a record that was read.
struct GlobalRegRecord {
  std::uint32_t RecordType;        // GLOBALREG_RECORD_...
  std::uint64_t FieldMask;         // one bit per field present; bits of unknown fields as read
  std::uint64_t MissingFieldMask;  // known fields that the stored record did not carry
  union {
    InstanceRecord Instance;  // of type GLOBALREG_RECORD_INSTANCE; the three share their bytes
    ServicesRecord Services;  // of type GLOBALREG_RECORD_SERVICES; as Instance
    VariableRecord Variable;  // of type GLOBALREG_RECORD_VARIABLE; as Instance
  };
  std::int32_t CheckSum;  // carried unchanged, neither computed nor verified
};
static_assert(sizeof(GlobalRegRecord) == 2608);

// --- the fields of each record type, one row each ---

// What a field holds.
enum class GlobalRegFieldKind {
  Text,    // NUL-terminated
  Number,  // unsigned, `width` bytes
  Flag,    // a number that is 0 or 1
};

// A field of a record type.
struct GlobalRegField {
  std::uint64_t bit;        // in FieldMask and in the mask of an operation
  const char* name;         // as it is called in the record's struct
  GlobalRegFieldKind kind;  // how its bytes are read
  std::size_t offset;       // in GlobalRegRecord
  std::size_t width;        // bytes in memory; of a stored text at most, of a stored number exactly
  unsigned int badCode;     // present but empty, or no flag; 0: every value is accepted
  unsigned int absentCode;  // selected by the mask but not present; 0: not checked
  const char* label;        // in a dump; null: not dumped
};

// clang-format off
#define GLOBALREG_FIELD(bit, record, field, kind, bad, absent, label)                      \
  {bit, #field, GlobalRegFieldKind::kind, offsetof(GlobalRegRecord, record.field),         \
   sizeof(GlobalRegRecord::record.field), bad, absent, label}

// The fields of an InstanceRecord.
inline constexpr GlobalRegField globalRegInstanceFields[] = {
    GLOBALREG_FIELD(0x1, Instance, Service, Text, GENREG_RC_INSTANCE_SERVICE_EMPTY, GENREG_RC_INSTANCE_SERVICE_ABSENT, "Service     "),
    GLOBALREG_FIELD(0x2, Instance, VersionCode, Number, 0, GENREG_RC_INSTANCE_VERSIONCODE_ABSENT, "VersionCode "),
    GLOBALREG_FIELD(0x4, Instance, InstanceName, Text, GENREG_RC_INSTANCE_NAME_EMPTY, GENREG_RC_INSTANCE_NAME_ABSENT, "InstanceName"),
    GLOBALREG_FIELD(0x8, Instance, InstancePath, Text, GENREG_RC_INSTANCE_PATH_EMPTY, GENREG_RC_INSTANCE_PATH_ABSENT, "InstancePath"),
    GLOBALREG_FIELD(0x10, Instance, Usage, Text, GENREG_RC_INSTANCE_USAGE_EMPTY, GENREG_RC_INSTANCE_USAGE_ABSENT, "Usage       "),
    GLOBALREG_FIELD(0x20, Instance, StartAtBoot, Flag, GENREG_RC_INSTANCE_STARTATBOOT_BAD, GENREG_RC_INSTANCE_STARTATBOOT_ABSENT, "StartAtBoot "),
    GLOBALREG_FIELD(0x40, Instance, Maintenance, Flag, GENREG_RC_INSTANCE_MAINTENANCE_BAD, GENREG_RC_INSTANCE_MAINTENANCE_ABSENT, "Maintenance "),
    GLOBALREG_FIELD(0x80, Instance, InstallPath, Text, GENREG_RC_INSTANCE_INSTALLPATH_EMPTY, GENREG_RC_INSTANCE_INSTALLPATH_ABSENT, nullptr),
    GLOBALREG_FIELD(0x100, Instance, HostName, Text, GENREG_RC_INSTANCE_HOSTNAME_EMPTY, GENREG_RC_INSTANCE_HOSTNAME_ABSENT, nullptr),
    GLOBALREG_FIELD(0x200, Instance, Comment, Text, GENREG_RC_INSTANCE_COMMENT_EMPTY, GENREG_RC_INSTANCE_COMMENT_ABSENT, "Comment     "),
};

// The fields of a ServicesRecord.
inline constexpr GlobalRegField globalRegServicesFields[] = {
    GLOBALREG_FIELD(0x1, Services, Service, Text, GENREG_RC_SERVICES_SERVICE_EMPTY, GENREG_RC_SERVICES_SERVICE_ABSENT, nullptr),
    GLOBALREG_FIELD(0x2, Services, VersionCode, Number, 0, GENREG_RC_SERVICES_VERSIONCODE_ABSENT, nullptr),
    GLOBALREG_FIELD(0x4, Services, InstallPath, Text, GENREG_RC_SERVICES_INSTALLPATH_EMPTY, GENREG_RC_SERVICES_INSTALLPATH_ABSENT, nullptr),
    GLOBALREG_FIELD(0x8, Services, Text2, Text, GENREG_RC_SERVICES_TEXT2_EMPTY, GENREG_RC_SERVICES_TEXT2_ABSENT, nullptr),
    GLOBALREG_FIELD(0x10, Services, Text3, Text, GENREG_RC_SERVICES_TEXT3_EMPTY, GENREG_RC_SERVICES_TEXT3_ABSENT, nullptr),
    GLOBALREG_FIELD(0x20, Services, Level, Number, 0, 0, nullptr),
    GLOBALREG_FIELD(0x40, Services, Number1, Number, 0, GENREG_RC_SERVICES_NUMBER1_ABSENT, nullptr),
    GLOBALREG_FIELD(0x80, Services, Byte1, Number, 0, GENREG_RC_SERVICES_BYTE1_ABSENT, nullptr),
    GLOBALREG_FIELD(0x100, Services, Number2, Number, 0, GENREG_RC_SERVICES_NUMBER2_ABSENT, nullptr),
    GLOBALREG_FIELD(0x200, Services, Number3, Number, 0, GENREG_RC_SERVICES_NUMBER3_ABSENT, nullptr),
};

// The fields of a VariableRecord.
inline constexpr GlobalRegField globalRegVariableFields[] = {
    GLOBALREG_FIELD(0x1, Variable, Service, Text, GENREG_RC_VARIABLE_SERVICE_EMPTY, GENREG_RC_VARIABLE_SERVICE_ABSENT, "Service "),
    GLOBALREG_FIELD(0x2, Variable, Variable, Text, GENREG_RC_VARIABLE_VARIABLE_EMPTY, GENREG_RC_VARIABLE_VARIABLE_ABSENT, "Variable"),
    GLOBALREG_FIELD(0x4, Variable, Value, Text, GENREG_RC_VARIABLE_VALUE_EMPTY, GENREG_RC_VARIABLE_VALUE_ABSENT, "Value   "),
    GLOBALREG_FIELD(0x8, Variable, Comment, Text, GENREG_RC_VARIABLE_COMMENT_EMPTY, GENREG_RC_VARIABLE_COMMENT_ABSENT, "Comment "),
};
#undef GLOBALREG_FIELD
// clang-format on

// A record type.
struct GlobalRegType {
  std::uint32_t type;            // GLOBALREG_RECORD_...
  const char* name;              // in the tool and the log
  const char* word;              // in the line that reports a field nobody knows
  const GlobalRegField* fields;  // its rows, lowest bit first
  std::size_t fieldCount;        // how many
  std::uint64_t knownMask;       // the bits of all fields
  std::uint64_t identity;        // the bits of the fields by which two records are the same thing
};

// The record types that this version knows.
inline constexpr GlobalRegType globalRegTypes[] = {
    {GLOBALREG_RECORD_INSTANCE, "instance", "Instance", globalRegInstanceFields,
     sizeof globalRegInstanceFields / sizeof *globalRegInstanceFields, 0x3FF, 0x4},
    {GLOBALREG_RECORD_SERVICES, "services", "Service", globalRegServicesFields,
     sizeof globalRegServicesFields / sizeof *globalRegServicesFields, 0x3FF, 0x1},
    {GLOBALREG_RECORD_VARIABLE, "variable", "Variable", globalRegVariableFields,
     sizeof globalRegVariableFields / sizeof *globalRegVariableFields, 0xF, 0x3},
};

// The row of a record type, or null for a type without one.
inline const GlobalRegType* globalRegFindType(std::uint32_t type) noexcept {
  for (const GlobalRegType& row : globalRegTypes) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

// A handle of the global registry. The registry file is the one named by the environment variable
// ZOR_GLOBAL_REG_PATHNAME when the object is made, else "global.reg" in the current directory.
//
// A mask of Add, Change, Delete, Get and GetNext selects the fields that must be equal, texts byte
// for byte; mask 0 matches every record of the key's type and leaves keys and records unchecked. A
// key or record is otherwise refused (GENREG_RC_KEY_REJECTED, the log names the cause) when it is
// null, of no type, without fields, with an empty text or a flag above 1 in a field it names, or
// without a field that the mask selects; its MissingFieldMask becomes 0. Duplicates are refused:
// Change and Delete act on one record.
//
// What a newer writer stored is kept: a Change carries the fields that this library does not know
// over from the record it replaces, and every other record stays byte for byte. Bits of FieldMask
// beyond the known ones for which the replaced record has nothing are reported on standard output
// and dropped. A stored record that is malformed (GENREG_RC_MALFORMED_RECORD in the log) or of an
// unknown type fails every operation that meets it (GENREG_RC_UNPACK_FAILED), and an update then
// leaves the file as it was.
class GlobalReg : public GenRegBin {
 public:
  // Opens nothing. When the variable is set but empty, or the path is longer than 253 characters,
  // every operation of the object fails.
  GENREG_API GlobalReg() noexcept;
  // At a path of the caller's, whatever the environment says; null: as above. Stores 0 at `rc`, or
  // why every operation fails; it may be null. Codes as GenRegVarVal's constructor, and
  // GENREG_RC_GLOBAL_PATH_SMALL or, on Windows, GENREG_RC_PATH_ENCODING for what the environment
  // names.
  GENREG_API GlobalReg(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's.
  GENREG_API ~GlobalReg();
};
