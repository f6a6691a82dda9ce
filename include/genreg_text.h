// The engine of text registries: one record per logical line; and the line routines.
//
// A program uses the engine through a flavour (GenRegVarVal, GenRegServices): construct one, look
// at its code, call the operations in any order. The line routines need no registry:
//
//   char raw[GENREG_LINE_SIZE];   // the line as it stands in the file
//   char line[GENREG_LINE_SIZE];  // without the backslashes that join
//   while (GenRegReadLine(raw, line, sizeof line, stream, nullptr, true) != nullptr) {
//     std::fputs(line, stdout);
//   }
#pragma once

#include <cstdio>

#include "genreg_handle.h"

// Bytes of a line buffer of the text engine, terminator included. A line of up to 2,046 characters
// and its newline is one logical line; what is longer is read in pieces.
constexpr std::size_t GENREG_LINE_SIZE = 2048;

// Reads one logical line from `stream`: one physical line, or with `join` every physical line up to
// the first that does not end in a backslash right before its newline.
//
// `buffer` receives the physical lines exactly as they stand in the file, `line` the logical line:
// NUL-terminated, with its newline unless the buffer's bound or the end of the file cut it, without
// the joining backslashes and without a carriage return before a newline. Both are caller-owned and
// hold `size` bytes. `rc` may be null.
//
// On Windows a stream of another runtime library than the one that this library calls is refused by
// both routines: it could not be read.
//
// Returns `buffer`, or null when nothing was read. *rc is then or otherwise 0;
// GENREG_RC_BAD_ARGUMENT (a null or such a stream, a null buffer or line, size 0);
// GENREG_RC_NO_LINE at the end of
// the file or after a read error, also when a continued line met the end: judge by the pointer.
GENREG_API char* GenRegReadLine(char* buffer, char* line, std::uint64_t size, std::FILE* stream,
                                unsigned int* rc, bool join) noexcept;

// Writes `line` to `stream`, folded by a backslash and a newline so that no physical line is longer
// than `width` characters; read with `join` it is `line` again. Adds no newline of its own. The
// outcome of the write is the stream's to tell (ferror).
// Returns 0, or GENREG_RC_BAD_ARGUMENT and nothing is written: a null line or stream, a width below
// 3 (nothing but breaks would fit), or a line whose folded form is longer than 2,047 bytes.
GENREG_API unsigned int GenRegWriteLine(char* line, std::uint64_t width,
                                        std::FILE* stream) noexcept;

// The text engine's operations on records.
//
// A record buffer is GetRecordSize bytes and belongs to the caller; keys and records must stay
// valid during the call only. `mask` goes unchanged to ValidateKey and CompareRecord.
//
// Lines that an update does not touch, comments, blanks and lines that the flavour cannot parse
// among them, stay byte for byte as they are. Lines with a NUL byte and lines that do not fit the
// line buffer are such lines to every update, whatever they say. A last line without its newline
// gains one when something follows it (a carriage return and a newline from Add) or when a Change
// rewrites the file.
//
// Every operation first checks the hooks it needs and returns, before any file is touched:
// GENREG_RC_NO_VALIDATE_HOOK, GENREG_RC_NO_SIZE_HOOK (Add: GENREG_RC_HOOK_MISSING for any missing
// one), GENREG_RC_KEY_REJECTED, GENREG_RC_RECORD_TOO_SMALL, GENREG_RC_RECORD_TOO_LARGE,
// GENREG_RC_BUFFER_ALLOC. While lines are read: GENREG_RC_READ_FAILED, GENREG_RC_NO_UNPACK_HOOK,
// GENREG_RC_NO_COMPARE_HOOK. At the end, when nothing failed before:
// GENREG_RC_CLOSE_AFTER_OPERATION, GENREG_RC_BUFFER_FREE.
//
// The updates add: GENREG_RC_LOCK_FAILED, GENREG_RC_OPEN_FOR_OPERATION, GENREG_RC_COPY_FAILED,
// GENREG_RC_PACK_LINE_FAILED, GENREG_RC_NO_PACK_HOOK, GENREG_RC_VERIFY_FAILED. A failed update
// leaves the registry file byte for byte as it was (a first Add may leave an empty one), with these
// exceptions, in which only the clean-up behind the commit failed: GENREG_RC_UNLOCK_FAILED,
// GENREG_RC_BUFFER_FREE, GENREG_RC_NO_POST_UPDATE_HOOK, and a GENREG_RC_VERIFY_FAILED or
// GENREG_RC_CLOSE_AFTER_OPERATION whose log tells GENREG_RC_BACKUP_DELETE_FAILED or the release of
// a verification buffer.
class GenRegText : public GenRegFile {
 public:
  // A handle without hooks and file names; a flavour's constructor fills them.
  GENREG_API GenRegText() noexcept;
  // As GenRegBin's; the hooks to fill are CompareRecord, ValidateKey, GetRecordSize,
  // GetRecordLength, PackRecord and UnpackRecord.
  GENREG_API GenRegText(const char* path, unsigned int* rc) noexcept;
  // As GenRegFile's.
  GENREG_API ~GenRegText();

  // Appends the line of `record` behind everything else. Creates the registry file and its
  // directory when missing. Without GENREG_ALLOW_DUPLICATES a stored record that matches `record`
  // under `mask` gives GENREG_RC_DUPLICATE. With GENREG_ALLOW_DUPLICATES and without
  // GENREG_VERIFY_UPDATES the line is appended in place.
  // Also: GENREG_RC_FILE_INFO, GENREG_RC_SEEK_END_FAILED, GENREG_RC_WRITE_NEW_FAILED,
  // OSS_RC_BUFFER_TOO_SMALL when the last line lacks its newline and has no room for one.
  GENREG_API unsigned int Add(std::uint64_t mask, void* record) noexcept;

  // Replaces the line of each record that matches `key` under `mask` by the line of `newRecord`.
  // GENREG_RC_NOT_FOUND when none matches; GENREG_RC_UNCHANGED when a matching one equals
  // `newRecord` already (the others are changed all the same unless GENREG_VERIFY_UPDATES is set,
  // then nothing is); GENREG_RC_AMBIGUOUS when a second one would change without
  // GENREG_ALLOW_DUPLICATES; GENREG_RC_DELETE_TEMP_FAILED in place of any other failure.
  GENREG_API unsigned int Change(std::uint64_t mask, void* key, void* newRecord) noexcept;

  // Removes the line of each record that matches `key` under `mask`. Codes as Change, without
  // GENREG_RC_UNCHANGED.
  GENREG_API unsigned int Delete(std::uint64_t mask, void* key) noexcept;

  // Copies the first record of the file that matches into `record`, with pointers into `record`
  // itself. GENREG_RC_NOT_FOUND when none does (`record` is zero-filled);
  // GENREG_RC_OPEN_FOR_OPERATION, also when there is no registry file and while a scan is open on
  // this handle without GENREG_GET_IN_SCAN; GENREG_RC_RECORD_TOO_LARGE for a record size below 8.
  GENREG_API unsigned int Get(std::uint64_t mask, void* key, void* record) noexcept;

  // Copies the scan's next record that matches into `record`; with mask 0 the next line of any
  // kind, and the key is not looked at. GENREG_RC_END at the end of the file (`record` is
  // zero-filled the first time); GENREG_RC_NO_SCAN.
  GENREG_API unsigned int GetNext(std::uint64_t mask, void* key, void* record) noexcept;
};
