// Every call with which this process changes files passes here, whoever makes it, so that what is
// seen of them does not depend on what the library under test says of itself.
#pragma once

#include <cstdint>
#include <functional>

namespace proof {

// While it stands, `passes` is asked before each call: whether it may be made. `synced` is the
// inode of what the call makes durable, or 0. One at a time.
class Gate {
 public:
  explicit Gate(std::function<bool(std::uint64_t synced)> passes);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
};

}  // namespace proof
