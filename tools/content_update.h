// A registry's content as bytes: read as a reader of the library reads it, and replaced as a whole
// in one update of the library, under its lock, verified and committed like any other. Nothing is
// parsed, so that every content can be written: lines of any length, NUL bytes, a last line without
// its newline, frames of either byte order, nothing at all.
//
//   return updateContent(words, [&](const Content& now, std::string& wanted) {
//     if (now != before) return reportRefusal(words.file, "was changed meanwhile");
//     wanted = edited;
//     return int{exitDone};
//   });
#pragma once

#include <functional>
#include <string>

#include "verbs.h"

namespace zorreg {

struct Content {
  bool isThere = false;
  std::string bytes;  // empty when there is no registry
  bool operator==(const Content& other) const {
    return isThere == other.isThere && bytes == other.bytes;
  }
  bool operator!=(const Content& other) const { return !(*this == other); }
};

// Reads the last committed content of the registry at `file`, also where a crash left it under the
// backup's name alone. A registry that does not exist is no failure. Gives the exit status, and
// reports what failed.
int readContentOf(const std::string& file, Content& content);

// Makes of the content, which nobody else changes meanwhile, what is to stand there: `wanted` is
// `now`'s bytes before the call. Gives exitDone, or after a report another exit status; nothing is
// changed then.
using Rewrite = std::function<int(const Content& now, std::string& wanted)>;

// Replaces the content of words.file by what `rewrite` makes of it, all of it or, when anything
// fails, nothing. A registry that does not exist comes into being, with its directory; where the
// bytes are the same nothing is written. The update waits for the lock as the words say. Gives the
// exit status, and reports what failed.
int updateContent(const Words& words, const Rewrite& rewrite);

}  // namespace zorreg
