// Every call with which this process changes files passes here, whoever makes it, so that what is
// seen of them does not depend on what the library under test says of itself.
#pragma once

#include <cstdint>
#include <functional>

namespace proof {

// While it stands, `passing` is called before each call, with the inode of what the call makes
// durable, or 0. One at a time.
class Gate {
 public:
  explicit Gate(std::function<void(std::uint64_t synced)> passing);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
};

}  // namespace proof
