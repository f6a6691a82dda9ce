// Return codes of the registry library, one row each: name, value, meaning.
//
// Every operation returns an unsigned 32-bit code; 0 is success. This table is the only place where
// a code is spelled out: the constants, the log's names and the tool's messages come from it. The
// codes shared with the system services stand in sysservices/return_codes.h.
//
//   if (const GenRegReturnCode* row = genRegFindReturnCode(code)) {
//     std::fprintf(stderr, "%s: %s\n", row->name, row->meaning);
//   }
#pragma once

#include "sysservices/return_codes.h"

// clang-format off
#define GENREG_RETURN_CODES(CODE) \
  CODE(GENREG_RC_RECORD_PAST_EOF, 0x900001B3u, "a stored record's length runs past the end of the file") \
  CODE(GENREG_RC_UNKNOWN_RECORD_TYPE, 0x900001B4u, "a stored global registry record has an unknown record type") \
  CODE(GENREG_RC_BASE_NAME, 0x900001B8u, "the base name of the registry path cannot be taken") \
  CODE(GENREG_RC_DIRECTORY_NAME, 0x900001B9u, "the directory name of the registry path cannot be taken") \
  CODE(GENREG_RC_NOT_READY, 0x900001BAu, "the registry file names are not set") \
  CODE(GENREG_RC_ALREADY_LOCKED, 0x900001BBu, "the update lock is already held by this handle") \
  CODE(GENREG_RC_LOCK_FAILED, 0x900001BCu, "the update lock cannot be taken") \
  CODE(GENREG_RC_UNLOCK_FAILED, 0x900001BDu, "the update lock cannot be released") \
  CODE(GENREG_RC_END, 0x900001BEu, "end of file, scan or list: no more records or entries") \
  CODE(GENREG_RC_OPEN_FAILED, 0x900001BFu, "the registry file cannot be opened") \
  CODE(GENREG_RC_OPEN_TEMP_FAILED, 0x900001C0u, "the temporary file cannot be opened") \
  CODE(GENREG_RC_NO_LINE, 0x900001C1u, "no line could be read, or no token is left") \
  CODE(GENREG_RC_BUSY, 0x900001C4u, "the registry is locked by another holder, and waiting was not requested or took too long") \
  CODE(GENREG_RC_OPEN_FOR_OPERATION, 0x900001C5u, "the registry file cannot be opened for the operation") \
  CODE(GENREG_RC_CLOSE_AFTER_OPERATION, 0x900001C6u, "the registry file cannot be closed after the operation") \
  CODE(GENREG_RC_CLOSE_FAILED, 0x900001C7u, "the registry file stream cannot be closed") \
  CODE(GENREG_RC_CLOSE_TEMP_FAILED, 0x900001C8u, "the temporary file stream cannot be closed") \
  CODE(GENREG_RC_FILE_INFO, 0x900001CBu, "the registry file's information cannot be read before an add") \
  CODE(GENREG_RC_READ_FAILED, 0x900001CDu, "a record cannot be read") \
  CODE(GENREG_RC_COPY_FAILED, 0x900001D0u, "a record cannot be copied to the temporary file") \
  CODE(GENREG_RC_WRITE_NEW_FAILED, 0x900001D2u, "the new record cannot be written") \
  CODE(GENREG_RC_DELETE_TEMP_FAILED, 0x900001D3u, "the temporary file cannot be deleted") \
  CODE(GENREG_RC_WRITE_LENGTH_FAILED, 0x900001D4u, "a record's length field cannot be written") \
  CODE(GENREG_RC_WRITE_RECORD_FAILED, 0x900001D5u, "a record's bytes cannot be written") \
  CODE(GENREG_RC_READ_LENGTH_FAILED, 0x900001D6u, "a record's length field cannot be read") \
  CODE(GENREG_RC_READ_RECORD_FAILED, 0x900001D7u, "a record's bytes cannot be read") \
  CODE(GENREG_RC_OPEN_LOCK_FAILED, 0x900001DAu, "the lock file cannot be opened") \
  CODE(GENREG_RC_CLOSE_LOCK_FAILED, 0x900001DCu, "the lock file handle cannot be closed") \
  CODE(GENREG_RC_SEEK_END_FAILED, 0x900001DFu, "the end of the target stream cannot be reached") \
  CODE(GENREG_RC_REWIND_FAILED, 0x900001E0u, "the registry file cannot be rewound") \
  CODE(GENREG_RC_BACKUP_RENAME_FAILED, 0x900001E1u, "the registry file cannot be renamed to the backup") \
  CODE(GENREG_RC_COMMIT_RENAME_FAILED, 0x900001E2u, "the temporary file cannot be renamed to the registry file") \
  CODE(GENREG_RC_RECORD_TOO_SMALL, 0x900001E5u, "a record size or length is below 3") \
  CODE(GENREG_RC_RECORD_TOO_LARGE, 0x900001E6u, "a record size or length is above 0x100000 (or below 8 when a found record is copied out)") \
  CODE(GENREG_RC_BUFFER_ALLOC, 0x900001E7u, "the record buffer cannot be allocated") \
  CODE(GENREG_RC_VERIFY_ALLOC_OLD, 0x900001E8u, "the first verification buffer cannot be allocated") \
  CODE(GENREG_RC_VERIFY_ALLOC_NEW, 0x900001E9u, "the second verification buffer cannot be allocated") \
  CODE(GENREG_RC_BUFFER_FREE, 0x900001EEu, "the record buffer cannot be released") \
  CODE(GENREG_RC_VERIFY_FREE_OLD, 0x900001EFu, "the first verification buffer cannot be released") \
  CODE(GENREG_RC_VERIFY_FREE_NEW, 0x900001F0u, "the second verification buffer cannot be released") \
  CODE(GENREG_RC_DUPLICATE, 0x900001F1u, "the record to add is already present") \
  CODE(GENREG_RC_BAD_ARGUMENT, 0x900001F2u, "an argument is not acceptable (bad update-lock request; null buffer, line or stream; zero size or width)") \
  CODE(GENREG_RC_NO_ARGUMENT, 0x900001F3u, "a required argument is null or empty (registry path, text, record, key)") \
  CODE(GENREG_RC_PATH_TOO_LONG, 0x900001F4u, "the registry path is too long") \
  CODE(GENREG_RC_KEY_EMPTY, 0x900001F5u, "the key holds no fields (its Contains word is 0)") \
  CODE(GENREG_RC_NOT_FOUND, 0x900001F6u, "no record matches the key") \
  CODE(GENREG_RC_UNCHANGED, 0x900001F7u, "the record already equals the new record") \
  CODE(GENREG_RC_AMBIGUOUS, 0x900001F8u, "more than one record matches and duplicates are not allowed") \
  CODE(GENREG_RC_VERIFY_FAILED, 0x900001FBu, "the verification pass refused the update") \
  CODE(GENREG_RC_KEY_REJECTED, 0x900001FCu, "the key or record was rejected by ValidateKey") \
  CODE(GENREG_RC_VERIFY_UNEXPECTED, 0x900001FDu, "verification: the new record is not as expected, or a trailing old record does not match the key") \
  CODE(GENREG_RC_VERIFY_NOTHING_CHANGED, 0x90000200u, "verification: nothing changed") \
  CODE(GENREG_RC_PACK_LINE_FAILED, 0x90000201u, "PackRecord failed in the text store") \
  CODE(GENREG_RC_BAD_FEATURE, 0x90000202u, "a feature value is out of range") \
  CODE(GENREG_RC_FEATURE_NOT_SET, 0x90000203u, "the feature to clear is not set") \
  CODE(GENREG_RC_VARVAL_NO_EQUALS, 0x90000207u, "a profile variable line has no \"=\" sign") \
  CODE(GENREG_RC_VARVAL_OPEN_QUOTE, 0x90000208u, "a quoted value has no closing double quote") \
  CODE(GENREG_RC_VARVAL_NO_VARIABLE, 0x9000020Au, "the mask selects the variable but the key has none") \
  CODE(GENREG_RC_VARVAL_NO_VALUE, 0x9000020Bu, "the mask selects the value but the key has none") \
  CODE(GENREG_RC_SERVICES_NO_PORT, 0x9000020Cu, "a services line with a name has no port/protocol field") \
  CODE(GENREG_RC_SERVICES_NO_SLASH, 0x9000020Du, "the port/protocol field of a services line has no \"/\" (logged only: the record gets its flag for an unreadable port/protocol field and the result is 0)") \
  CODE(GENREG_RC_SERVICES_BAD_PROTOCOL, 0x9000020Eu, "the protocol of a services line is not a known one (logged only: the record gets its flag for an unreadable port/protocol field and the result is 0)") \
  CODE(GENREG_RC_SERVICES_NO_NAME, 0x9000020Fu, "the mask selects the name but the key has none") \
  CODE(GENREG_RC_SERVICES_NO_PORT_KEY, 0x90000210u, "the mask selects the port but the key has none") \
  CODE(GENREG_RC_SERVICES_NO_PROTOCOL_KEY, 0x90000211u, "the mask selects the protocol but the key has none") \
  CODE(GENREG_RC_SERVICES_PACK_NO_NAME, 0x90000212u, "a services record marked as holding a name has no name") \
  CODE(GENREG_RC_SERVICES_PACK_NO_PORT, 0x90000213u, "a services record marked as holding a name has port 0") \
  CODE(GENREG_RC_SERVICES_PACK_NO_PROTOCOL, 0x90000214u, "a services record marked as holding a name has no protocol") \
  CODE(GENREG_RC_UNPACK_LINE, 0x90000215u, "UnpackRecord failed on a line (logged only)") \
  CODE(GENREG_RC_WORK_ALLOC, 0x90000219u, "a work buffer cannot be allocated") \
  CODE(GENREG_RC_WORK_FREE, 0x9000021Au, "a work buffer cannot be released") \
  CODE(GENREG_RC_NO_VALIDATE_HOOK, 0x9000021Bu, "no ValidateKey hook") \
  CODE(GENREG_RC_NO_COMPARE_HOOK, 0x9000021Cu, "no CompareRecord hook") \
  CODE(GENREG_RC_NO_SIZE_HOOK, 0x9000021Du, "no GetRecordSize hook") \
  CODE(GENREG_RC_NO_LENGTH_HOOK, 0x9000021Eu, "no GetRecordLength hook") \
  CODE(GENREG_RC_NO_PACKED_LENGTH_HOOK, 0x9000021Fu, "no GetPackedLength hook") \
  CODE(GENREG_RC_NO_UNPACK_HOOK, 0x90000220u, "no UnpackRecord hook (text store)") \
  CODE(GENREG_RC_NO_PACK_HOOK, 0x90000221u, "no PackRecord hook (text store)") \
  CODE(GENREG_RC_NO_UNPACK_HOOK_PACKED, 0x90000222u, "no UnpackRecord hook while records are packed") \
  CODE(GENREG_RC_NO_PACK_HOOK_PACKED, 0x90000223u, "no PackRecord hook while records are packed") \
  CODE(GENREG_RC_CORRUPT_RENAME, 0x90000224u, "a leftover temporary file cannot be renamed to the corrupt file") \
  CODE(GENREG_RC_CORRUPT_DELETE, 0x90000225u, "an old corrupt file cannot be deleted") \
  CODE(GENREG_RC_BAD_RECORD_TYPE, 0x90000226u, "the record type is not 1, 2 or 4") \
  CODE(GENREG_RC_NO_FIELDS, 0x90000227u, "the record has no fields (FieldMask 0)") \
  CODE(GENREG_RC_MALFORMED_RECORD, 0x90000228u, "a global registry record is malformed: an entry or a text without its end, or bytes left over") \
  CODE(GENREG_RC_INSTANCE_SERVICE_EMPTY, 0x90000229u, "instance record: Service is present but empty") \
  CODE(GENREG_RC_INSTANCE_NAME_EMPTY, 0x9000022Bu, "instance record: InstanceName is present but empty") \
  CODE(GENREG_RC_INSTANCE_PATH_EMPTY, 0x9000022Cu, "instance record: InstancePath is present but empty") \
  CODE(GENREG_RC_INSTANCE_USAGE_EMPTY, 0x9000022Du, "instance record: Usage is present but empty") \
  CODE(GENREG_RC_INSTANCE_STARTATBOOT_BAD, 0x9000022Eu, "instance record: StartAtBoot is neither 0 nor 1") \
  CODE(GENREG_RC_INSTANCE_MAINTENANCE_BAD, 0x9000022Fu, "instance record: Maintenance is neither 0 nor 1") \
  CODE(GENREG_RC_INSTANCE_INSTALLPATH_EMPTY, 0x90000230u, "instance record: InstallPath is present but empty") \
  CODE(GENREG_RC_INSTANCE_HOSTNAME_EMPTY, 0x90000231u, "instance record: HostName is present but empty") \
  CODE(GENREG_RC_INSTANCE_COMMENT_EMPTY, 0x90000232u, "instance record: Comment is present but empty") \
  CODE(GENREG_RC_INSTANCE_SERVICE_ABSENT, 0x90000233u, "instance record: Service is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_VERSIONCODE_ABSENT, 0x90000234u, "instance record: VersionCode is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_NAME_ABSENT, 0x90000235u, "instance record: InstanceName is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_PATH_ABSENT, 0x90000236u, "instance record: InstancePath is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_USAGE_ABSENT, 0x90000237u, "instance record: Usage is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_STARTATBOOT_ABSENT, 0x90000238u, "instance record: StartAtBoot is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_MAINTENANCE_ABSENT, 0x90000239u, "instance record: Maintenance is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_INSTALLPATH_ABSENT, 0x9000023Au, "instance record: InstallPath is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_HOSTNAME_ABSENT, 0x9000023Bu, "instance record: HostName is selected by the mask but absent") \
  CODE(GENREG_RC_INSTANCE_COMMENT_ABSENT, 0x9000023Cu, "instance record: Comment is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_SERVICE_EMPTY, 0x9000023Du, "services record: Service is present but empty") \
  CODE(GENREG_RC_SERVICES_INSTALLPATH_EMPTY, 0x9000023Fu, "services record: InstallPath is present but empty") \
  CODE(GENREG_RC_SERVICES_TEXT2_EMPTY, 0x90000240u, "services record: Text2 is present but empty") \
  CODE(GENREG_RC_SERVICES_TEXT3_EMPTY, 0x90000241u, "services record: Text3 is present but empty") \
  CODE(GENREG_RC_SERVICES_SERVICE_ABSENT, 0x90000242u, "services record: Service is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_VERSIONCODE_ABSENT, 0x90000243u, "services record: VersionCode is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_INSTALLPATH_ABSENT, 0x90000244u, "services record: InstallPath is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_TEXT2_ABSENT, 0x90000245u, "services record: Text2 is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_TEXT3_ABSENT, 0x90000246u, "services record: Text3 is selected by the mask but absent") \
  CODE(GENREG_RC_VARIABLE_SERVICE_EMPTY, 0x90000247u, "variable record: Service is present but empty") \
  CODE(GENREG_RC_VARIABLE_VARIABLE_EMPTY, 0x90000248u, "variable record: Variable is present but empty") \
  CODE(GENREG_RC_VARIABLE_VALUE_EMPTY, 0x90000249u, "variable record: Value is present but empty") \
  CODE(GENREG_RC_VARIABLE_COMMENT_EMPTY, 0x9000024Au, "variable record: Comment is present but empty") \
  CODE(GENREG_RC_VARIABLE_SERVICE_ABSENT, 0x9000024Bu, "variable record: Service is selected by the mask but absent") \
  CODE(GENREG_RC_VARIABLE_VARIABLE_ABSENT, 0x9000024Cu, "variable record: Variable is selected by the mask but absent") \
  CODE(GENREG_RC_VARIABLE_VALUE_ABSENT, 0x9000024Du, "variable record: Value is selected by the mask but absent") \
  CODE(GENREG_RC_VARIABLE_COMMENT_ABSENT, 0x9000024Eu, "variable record: Comment is selected by the mask but absent") \
  CODE(GENREG_RC_PACK_ALLOC, 0x9000024Fu, "the packing buffer cannot be allocated") \
  CODE(GENREG_RC_PACK_FREE, 0x90000250u, "the packing buffer cannot be released") \
  CODE(GENREG_RC_PACK_LENGTH, 0x90000251u, "the packed length differs from the computed length") \
  CODE(GENREG_RC_UNPACK_ALLOC, 0x90000252u, "the unpacking buffer cannot be allocated") \
  CODE(GENREG_RC_UNPACK_FREE, 0x90000253u, "the unpacking buffer cannot be released") \
  CODE(GENREG_RC_UNPACK_FAILED, 0x90000254u, "UnpackRecord failed") \
  CODE(GENREG_RC_PACK_FAILED, 0x90000255u, "PackRecord failed") \
  CODE(GENREG_RC_FILE_INFO_OPEN, 0x90000256u, "the registry file's information cannot be read at open") \
  CODE(GENREG_RC_TEMP_PERMISSIONS, 0x90000257u, "the temporary file's permissions cannot be set") \
  CODE(GENREG_RC_GLOBAL_PATH_SMALL, 0x90000258u, "the buffer is too small for the global registry path") \
  CODE(GENREG_RC_GLOBAL_PATH_NULL, 0x90000259u, "no buffer for the global registry path") \
  CODE(GENREG_RC_NO_SCAN, 0x9000025Au, "no scan is open") \
  CODE(GENREG_RC_SCAN_OPEN, 0x9000025Bu, "not allowed while a scan is open") \
  CODE(GENREG_RC_VERSION_ARGUMENT, 0x9000025Cu, "version text or buffer missing") \
  CODE(GENREG_RC_VERSION_FORMAT, 0x9000025Du, "the version text cannot be formatted") \
  CODE(GENREG_RC_VERSION_BUFFER, 0x9000025Eu, "the buffer is too small for the version text") \
  CODE(GENREG_RC_VERSION_SYNTAX, 0x9000025Fu, "the version text holds a character other than a digit") \
  CODE(GENREG_RC_NO_SERVICE_RECORD, 0x90000260u, "service record missing") \
  CODE(GENREG_RC_NO_INSTANCE_RECORD, 0x90000261u, "instance record missing") \
  CODE(GENREG_RC_NO_LIST, 0x90000262u, "list handle missing") \
  CODE(GENREG_RC_LIST_OPEN, 0x90000263u, "the list cannot be opened") \
  CODE(GENREG_RC_LIST_CLOSE, 0x90000264u, "the list cannot be released") \
  CODE(GENREG_RC_NEXT_SERVICE, 0x90000265u, "the next service entry cannot be read") \
  CODE(GENREG_RC_NEXT_INSTANCE, 0x90000266u, "the next instance entry cannot be read") \
  CODE(GENREG_RC_SERVICE_INFO, 0x90000267u, "no service entry matches, or it cannot be read") \
  CODE(GENREG_RC_INSTANCE_INFO, 0x90000268u, "no instance entry matches, or it cannot be read") \
  CODE(GENREG_RC_FILE_LOCK, 0x90000272u, "the registry file cannot be locked") \
  CODE(GENREG_RC_VARVAL_LINE_TOO_LONG, 0x90000273u, "the rewritten profile variable line would be 2047 characters or longer") \
  CODE(GENREG_RC_VERIFY_CHANGED_KEY, 0x90000274u, "verification: the changed record does not match the key") \
  CODE(GENREG_RC_VERIFY_ADD_CHANGED, 0x90000275u, "verification: an add changed an existing record") \
  CODE(GENREG_RC_VERIFY_READ_NEW, 0x90000276u, "verification: the new file cannot be read") \
  CODE(GENREG_RC_VERIFY_SHORT, 0x90000277u, "verification: the new file is shorter than the old (change)") \
  CODE(GENREG_RC_VERIFY_OLD_ENDED, 0x90000278u, "verification: the old file ended while the new still has records (delete)") \
  CODE(GENREG_RC_VERIFY_ADD_COUNT, 0x90000279u, "verification: the new file does not hold exactly one more record (add)") \
  CODE(GENREG_RC_VERIFY_ADD_RECORD, 0x9000027Au, "verification: the appended record is not the added one") \
  CODE(GENREG_RC_VERIFY_ADD_TRAILING, 0x9000027Bu, "verification: records follow the appended one") \
  CODE(GENREG_RC_VERIFY_MANY, 0x9000027Cu, "verification: more than one record changed while duplicates are not allowed") \
  CODE(GENREG_RC_HOOK_MISSING, 0x9000027Du, "a hook needed by add or by verification is missing") \
  CODE(GENREG_RC_VERIFY_REMOVED_KEY, 0x9000027Eu, "verification: a removed record does not match the key") \
  CODE(GENREG_RC_NO_KIND, 0x90000280u, "instance kind missing") \
  CODE(GENREG_RC_KEY_NOT_FOUND, 0x90000282u, "a registry key does not exist") \
  CODE(GENREG_RC_GETPOS_FAILED, 0x90000287u, "the file position cannot be read") \
  CODE(GENREG_RC_SETPOS_FAILED, 0x90000288u, "the file position cannot be set") \
  CODE(GENREG_RC_UPDATE_OPEN, 0x900003E0u, "an update of many changes is open on this handle") \
  CODE(GENREG_RC_NO_UPDATE, 0x900003E1u, "no update of many changes is open on this handle") \
  CODE(GENREG_RC_UPDATE_IN_SCAN, 0x900003E2u, "an update of many changes cannot begin while a scan is open") \
  CODE(GENREG_RC_UNKNOWN_KIND, 0x900003E8u, "the kind of a registry is bin, var, services or global") \
  CODE(GENREG_RC_UNKNOWN_FIELD, 0x900003E9u, "a record of this kind has no field of that name") \
  CODE(GENREG_RC_FIELD_MISSING, 0x900003EAu, "a field is missing that is needed here") \
  CODE(GENREG_RC_BAD_VALUE, 0x900003EBu, "a value does not fit its field") \
  CODE(GENREG_RC_OTHER_KIND, 0x900003ECu, "the file is a registry of another kind") \
  CODE(GENREG_RC_PATH_ENCODING, 0x900003EDu, "the path cannot be spelled in the system's encoding") \
  CODE(GENREG_RC_NO_POST_UPDATE_HOOK, 0x900003F2u, "GENREG_POST_UPDATE is set but there is no PostUpdate hook") \
  CODE(GENREG_RC_BACKUP_SET_ASIDE, 0x900003F4u, "a backup that is not the last commit's own was set aside (logged only)") \
  CODE(GENREG_RC_LOCK_DELETE_FAILED, 0x900003F5u, "the lock file cannot be deleted") \
  CODE(GENREG_RC_BACKUP_DELETE_FAILED, 0x900003F6u, "the backup file cannot be deleted") \
  CODE(GENREG_RC_UNLOCK_FILE_FAILED, 0x900003F7u, "the lock file cannot be unlocked") \
  CODE(GENREG_RC_LOCK_FILE_GONE, 0x900003F8u, "the lock file was already gone (logged only)") \
  CODE(GENREG_RC_SERVICES_NUMBER1_ABSENT, 0x9000050Eu, "services record: Number1 is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_NUMBER2_ABSENT, 0x9000050Fu, "services record: Number2 is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_BYTE1_ABSENT, 0x90000510u, "services record: Byte1 is selected by the mask but absent") \
  CODE(GENREG_RC_SERVICES_NUMBER3_ABSENT, 0x90000511u, "services record: Number3 is selected by the mask but absent") \
  CODE(GENREG_RC_CREATE_DIRECTORY, 0x90000512u, "the registry directory cannot be created") \
  CODE(GENREG_RC_NO_FILE, 0x90000513u, "the registry file does not exist")
// clang-format on

#define GENREG_DEFINE_CODE(name, value, meaning) constexpr unsigned int name = value;
GENREG_RETURN_CODES(GENREG_DEFINE_CODE)
#undef GENREG_DEFINE_CODE

constexpr unsigned int GENREG_RC_OK = 0;  // success

// A code with its name and what it means; the texts are static.
struct GenRegReturnCode {
  unsigned int value;   // what an operation returns
  const char* name;     // of its constant
  const char* meaning;  // one line, without a full stop
};

#define GENREG_CODE_ROW(name, value, meaning) {value, #name, meaning},
// Every code, those of the system services first.
inline constexpr GenRegReturnCode genRegReturnCodes[] = {OSS_RETURN_CODES(GENREG_CODE_ROW)
                                                             GENREG_RETURN_CODES(GENREG_CODE_ROW)};
#undef GENREG_CODE_ROW

// The row of a code, or null for a code without one (0 included).
inline const GenRegReturnCode* genRegFindReturnCode(unsigned int value) noexcept {
  for (const GenRegReturnCode& row : genRegReturnCodes) {
    if (row.value == value) return &row;
  }
  return nullptr;
}
