// The installed copies: what the registry says of one, and the walk from one to the next.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg/core/diagnostics.h"
#include "install/registry.h"
#include "ossinstall.h"

namespace install {

inline constexpr char productPath[] = "SOFTWARE\\NUV\\ZOR";
inline constexpr char copiesPath[] = "SOFTWARE\\NUV\\ZOR\\INSTALLEDCOPIES";

constexpr std::size_t copyPathSize = 260;  // bytes of an installation directory, with terminator

// One installed copy, by its name; the empty name is the copy of the older layout, recorded
// directly in the product's key (the default entry). What could be read is read once; what could
// not is tried, and fails, at each call.
class Copy {
 public:
  // Becomes the copy of that name.
  void enter(const char* name) noexcept;
  const char* name() const noexcept { return name_; }

  // What a list makes of a version or path that cannot be read, and from where it logs it.
  struct Failure {
    unsigned int code, point;
  };
  struct Failures {
    Failure version, path;
  };
  // Reads the version code and, into `path` of at least copyPathSize bytes, the installation
  // directory without a backslash at its end. Gives 0; GENREG_RC_END when there is no default
  // entry; or the code of a failure. From version 9 on, every copy has a name: what stands in the
  // old place then is no entry.
  unsigned int describe(genreg::Routine& routine, const platform::Machine& machine,
                        const Failures& failures, std::uint64_t* versionCode, char* path) noexcept;

  // Whether it has at least one ZEM profile.
  bool hasZemProfiles(const platform::Machine& machine) const noexcept;

 private:
  bool isDefault() const noexcept { return *name_ == '\0'; }
  // 0; GENREG_RC_END when there is no default entry; or the registry's error for a copy with a
  // name. Only the former is logged.
  unsigned int readVersion(const platform::Machine& machine, std::uint64_t* versionCode) noexcept;
  unsigned int findVersion(const platform::Machine& machine) noexcept;
  unsigned int readPath(const platform::Machine& machine, char* buffer) noexcept;

  char name_[sizeof OSSServiceInfo_t::copyName] = {};
  bool versionKnown_ = false;
  bool pathKnown_ = false;
  std::uint64_t version_ = 0;
  char path_[copyPathSize] = {};
};

// A list of the copies: the subkeys of INSTALLEDCOPIES, then the default entry. A copy is consumed
// when it is reported as "ZOR", or could not be read; reported as "ZEM" it comes again, as "ZOR",
// at the next call.
class ServiceList {
 public:
  using Record = OSSServiceInfo_t;

  // The machine must outlive the list.
  explicit ServiceList(const platform::Machine* machine) noexcept : machine_(machine) {}

  // Opens the copies' key. Returns 0 or another code.
  unsigned int open(genreg::Routine& routine) noexcept;

  // Fills the record with the next entry. Returns 0, GENREG_RC_END, or another code.
  unsigned int next(genreg::Routine& routine, Record& record) noexcept;

 private:
  unsigned int nextCopy(genreg::Routine& routine, Record& record) noexcept;
  unsigned int enterDefault(genreg::Routine& routine) noexcept;
  void chooseService(Record& record) noexcept;
  unsigned int readCopy(genreg::Routine& routine, Record& record) noexcept;

  const platform::Machine* machine_;
  Key copiesKey_;                // after its last subkey: the product's key
  std::uint32_t copyIndex_ = 0;  // of the next subkey
  bool zemReported_ = false;
  bool defaultReached_ = false;
  Copy copy_;
};

}  // namespace install
