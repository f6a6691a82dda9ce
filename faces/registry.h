// A registry of any kind in terms of named fields: what the C interface does, without its C.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "faces/named_fields.h"

namespace faces {

// The operations return codes as include/zorreg.h says; the cause of a failure is in cause(). They
// throw std::bad_alloc, with the registry as it was.
class Registry {
 public:
  virtual ~Registry() = default;

  virtual unsigned int get(const NamedFields& key, NamedFields& found) = 0;
  virtual unsigned int add(const NamedFields& given) = 0;
  virtual unsigned int change(const NamedFields& key, const NamedFields& given) = 0;
  virtual unsigned int set(const NamedFields& given) = 0;
  virtual unsigned int remove(const NamedFields& key) = 0;
  virtual unsigned int scan() = 0;
  virtual unsigned int next(NamedFields& found) = 0;
  virtual unsigned int endScan() = 0;
  virtual unsigned int begin() = 0;
  virtual unsigned int commit() = 0;
  virtual unsigned int abandon() = 0;
  virtual void setLockTimeout(std::uint64_t milliseconds) = 0;
  virtual void setCachedReads(bool on) = 0;
  virtual bool isCommitted() const = 0;
  const std::string& cause() const noexcept { return cause_; }
  // As it was given, UTF-8; or the global registry's own.
  const std::string& path() const noexcept { return path_; }
  // What the caller knows of a failure that is not the registry's.
  void setCause(std::string cause) noexcept { cause_ = std::move(cause); }

 protected:
  std::string cause_;  // of the last operation; empty when it did not fail
  std::string path_;
};

// Makes a registry of the kind, with options as include/zorreg.h has them, at the path, UTF-8, or
// gives a code and the cause.
unsigned int openRegistry(const char* kind, const char* path, std::unique_ptr<Registry>& registry,
                          std::string& cause);

}  // namespace faces
