// Every call with which this process changes files passes here, whoever makes it, so that what is
// seen of them does not depend on what the library under test says of itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace proof {

// How a process ends before a call: as if the kernel did no more for it, or by a signal.
enum class End { Refused, Killed };

// The gate stands while this lives. One at a time.
class Gate {
 public:
  // From call number `last` (from 0) on nothing is changed any more.
  explicit Gate(std::size_t last = SIZE_MAX, End end = End::Refused);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  // Asked after each call, with the inode of what the call made durable, or 0.
  std::function<void(std::uint64_t synced)> passed;

  bool hasEnded() const { return ended_; }
  bool letsPass();  // counts a call

 private:
  std::size_t last_;
  End end_;
  std::size_t calls_ = 0;
  bool ended_ = false;
};

}  // namespace proof
