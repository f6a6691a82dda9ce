// The instances of one kind, copy by copy.
//
// A list walks the subkeys of INSTALLEDCOPIES that have a profiles key of its kind, and in each the
// instances; then those of the default entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "install/cluster.h"
#include "install/copies.h"
#include "platform/service_control.h"

namespace install {

inline constexpr Kind zorKind{"ZOR", "PROFILES", "ZORINSTPROF"};
inline constexpr Kind zemKind{"ZEM", "ZEM_PROFILES", "ZORZEMPROF"};

struct CloseService {
  template <typename Handle>
  void operator()(Handle handle) const noexcept {
    platform::CloseServiceHandle(handle);
  }
};

class InstanceList {
 public:
  using Record = OSSInstanceInfo_t;

  // The machine must outlive the list.
  explicit InstanceList(platform::Machine* machine) noexcept : machine_(machine) {}

  // Moves to the first copy that has instances of the kind. Returns 0 or another code.
  unsigned int open(genreg::Routine& routine, const char* kind) noexcept;

  // Fills the record with the next instance. Returns 0, GENREG_RC_END, or another code.
  unsigned int next(genreg::Routine& routine, Record& record) noexcept;

 private:
  // Bytes of a key's name, with terminator: 255 UTF-16 units take at most three bytes each.
  static constexpr std::size_t nameSize = 766;
  using Name = char[nameSize];

  // The result of reading a profile. What is not consumed is met again by the next call.
  struct Profile {
    unsigned int code;
    bool consumed;
  };

  unsigned int openCopies(genreg::Routine& routine) noexcept;
  unsigned int nextCopyWithProfiles() noexcept;
  unsigned int openNextCopy(genreg::Routine& routine, Key& copyKey) noexcept;
  unsigned int findName(genreg::Routine& routine, Name& name) noexcept;
  unsigned int nextName(Name& name) const noexcept;

  unsigned int readInstance(genreg::Routine& routine, const Name& name, Record& record) noexcept;
  unsigned int openInstance(genreg::Routine& routine, const Name& name, Key& key) noexcept;
  std::uint64_t serviceFlags(const Name& name) const noexcept;
  Profile readProfile(genreg::Routine& routine, const Key& key, const Name& name,
                      Record& record) noexcept;
  unsigned int readRemoteProfile(const Name& name, Record& record) noexcept;
  Profile readClusterProfile(genreg::Routine& routine, const Name& name, Record& record) noexcept;

  platform::Machine* machine_;
  Key copiesKey_;    // INSTALLEDCOPIES; null when it is missing or exhausted
  Key profilesKey_;  // the current copy's; null when the list has ended or cannot go on
  std::unique_ptr<const platform::ServiceManagerObject, CloseService> serviceManager_;
  std::unique_ptr<ClusterContext> cluster_;  // null until an instance needs it
  std::uint32_t copyIndex_ = 0;              // of the next subkey of copiesKey_
  std::uint32_t instanceIndex_ = 0;          // of the next subkey of profilesKey_
  bool defaultReached_ = false;              // the default entry is the current copy
  const Kind* kind_ = nullptr;
  Copy copy_;
};

}  // namespace install
