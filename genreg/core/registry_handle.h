// The library's own face of a registry handle: the session routines behind the handle's protected
// members, and what engines and flavours share. Its functions are members of one friend so that the
// handle's private part stays with the core.
#pragma once

#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "genreg_handle.h"
#include "platform/stream.h"

// The hooks that a flavour named by a path brings; null where it has none.
struct FlavourHooks {
  GenRegCompareHook compareRecord;
  GenRegValidateHook validateKey;
  GenRegPrintHook printRecord;
  GenRegUnpackHook unpackRecord;
  GenRegPackHook packRecord;
  GenRegSizeHook getRecordSize;
  GenRegLengthHook getRecordLength;
  const genreg::StoredForm* storedForm;
};

struct RegistryHandle {
  // --- flavours ---

  // What the constructor of a flavour named by a path does: checks the path, installs the hooks,
  // names the files. Returns, and stores at `rc` unless that is null, 0 or the constructor's code;
  // without a usable path no hook is installed.
  static unsigned int setUp(GenRegFile& handle, const genreg::Routine& routine, const char* path,
                            const FlavourHooks& hooks, unsigned int* rc) noexcept;

  // Checks a registry path: 0, GENREG_RC_NO_ARGUMENT for null or empty, GENREG_RC_PATH_TOO_LONG.
  static unsigned int checkPath(const char* path) noexcept;

  // Names the registry file and its companions and marks the handle ready. `path` was checked.
  // Returns 0, GENREG_RC_BASE_NAME or GENREG_RC_DIRECTORY_NAME (no name is set then).
  static unsigned int nameFiles(GenRegFile& handle, const genreg::Routine& routine,
                                const char* path) noexcept;

  static void useStoredForm(GenRegFile& handle, const genreg::StoredForm& form) noexcept {
    handle.storedForm = &form;
  }

  // --- engines ---

  static bool hasFeature(const GenRegFile& handle, std::uint64_t feature) noexcept {
    return (handle.features & feature) != 0;
  }

  // Add appends to the registry file itself: no temporary file, no commit, no verification.
  static bool appendsInPlace(const GenRegFile& handle, std::uint64_t kind) noexcept {
    return kind == GENREG_OP_ADD && hasFeature(handle, GENREG_ALLOW_DUPLICATES) &&
           !hasFeature(handle, GENREG_VERIFY_UPDATES);
  }

  static const char* temporaryPath(const GenRegFile& handle) noexcept {
    return handle.temporaryPath;
  }

  // Whether what the last update wrote to the temporary file is on stable storage.
  static bool temporaryIsDurable(const GenRegFile& handle) noexcept {
    return handle.temporaryDurable;
  }

  static std::FILE* main(const GenRegFile& handle) noexcept { return handle.mainStream; }
  static std::FILE* second(const GenRegFile& handle) noexcept { return handle.secondStream; }

  // After an unlock that failed: ends the lock with its handle, or the handle's next update would
  // be refused and every other writer would wait for ever. Nothing to do when the lock is not held.
  static void dropUpdateLock(GenRegFile& handle) noexcept;

  // Asks for the registry file's size. Returns ossFileGetInfoV9's code.
  static unsigned int registryFileSize(const GenRegFile& handle, std::uint64_t* size) noexcept;

  // Where the main stream is being read, or -1 with errno.
  static std::int64_t mainPosition(const GenRegFile& handle) noexcept {
    return platform::tellStream(handle.mainStream, handle.mainBacking);
  }

  // Bytes of the open main or second stream's file, as they were when it was opened.
  static std::uint64_t mainSize(const GenRegFile& handle) noexcept {
    return platform::streamSize(handle.mainBacking);
  }
  static std::uint64_t secondSize(const GenRegFile& handle) noexcept {
    return platform::streamSize(handle.secondBacking);
  }

  // --- session routines, as the handle's header tells them ---

  static unsigned int lockRegistry(GenRegFile& handle, std::uint64_t request);
  static unsigned int unlockRegistry(GenRegFile& handle);
  static unsigned int openRegFile(GenRegFile& handle, std::uint64_t kind);
  static unsigned int closeRegFile(GenRegFile& handle, std::uint64_t kind);
  static unsigned int getPath(const GenRegFile& handle, unsigned int which, char* buffer,
                              std::uint64_t size);
  static const GenRegSessionRoutines sessionRoutines;

  // --- core only ---

  // Permissions for a file the library creates.
  static std::uint32_t permissions(std::uint64_t field) noexcept {
    constexpr std::uint32_t ownerReadWrite = 0600;
    return field == 0 ? ownerReadWrite : static_cast<std::uint32_t>(field);
  }

  // Creates the directory of the registry file when it is missing. `purpose` is handed on.
  static unsigned int createDirectory(const GenRegFile& handle, const genreg::Routine& routine,
                                      std::uint32_t purpose, unsigned int point) noexcept;

  // Opens the registry file to be read, or its backup in the moment of a commit, or after a crash,
  // in which only that exists. Writes nothing. Returns the code of the open.
  static unsigned int openReadable(const GenRegFile& handle, OSSHFile& file) noexcept;

  // Locks an open registry file, waiting. Returns the lock's code.
  static unsigned int lockFileOf(OSSHFile& file, std::uint32_t lockType) noexcept;

  // Makes the handle's main stream of an open file, which it owns from then on. Returns 0 or errno.
  static int adoptMainStream(GenRegFile& handle, OSSHFile& file, platform::StreamUse use) noexcept;

  // Close a stream if it is open; the field becomes null. Return 0 or the system error.
  static int closeMain(GenRegFile& handle) noexcept;
  static int closeSecond(GenRegFile& handle) noexcept;

  // Steps of openRegFile; 0 or the code openRegFile returns.
  static unsigned int openRegistry(GenRegFile& handle, genreg::Routine& routine,
                                   std::uint64_t kind) noexcept;
  static unsigned int recover(GenRegFile& handle, genreg::Routine& routine) noexcept;
  static unsigned int setLeftoversAside(GenRegFile& handle, genreg::Routine& routine) noexcept;
  static unsigned int openTemporary(GenRegFile& handle, genreg::Routine& routine,
                                    std::uint64_t kind) noexcept;

  // Steps of closeRegFile; 0 or the code closeRegFile returns.
  static unsigned int finishStreams(GenRegFile& handle, genreg::Routine& routine,
                                    std::uint64_t kind) noexcept;
  static unsigned int commit(GenRegFile& handle, genreg::Routine& routine) noexcept;
};
