// Logical lines of a text registry: what is read, and what it means.
//
// A logical line is one physical line or, joined, several. Its raw text is what stands in the file
// and what an update writes back; its text is what a flavour parses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "genreg_text.h"

namespace genreg {

// One read into caller-owned buffers.
struct LineRead {
  std::size_t rawLength = 0;   // bytes of the raw buffer
  std::size_t textLength = 0;  // bytes of the line buffer before its terminator
  bool any = false;            // something was read
  bool complete = false;       // the logical line did not run into the end of the file or an error
  bool holdsNul = false;       // a NUL byte stands in the raw text; the text ends before it
};

// Reads one logical line. `offset` is where the stream stands, for streams that can tell; it tells
// bytes behind a NUL from what an earlier line left in the buffer. Null when nobody asks.
LineRead readLogicalLine(char* raw, char* text, std::size_t size, std::FILE* stream, bool join,
                         const std::uint64_t* offset) noexcept;

// A line with its buffers, as the engine holds it.
struct TextLine {
  char raw[GENREG_LINE_SIZE] = {};
  char text[GENREG_LINE_SIZE] = {};
  std::size_t rawLength = 0;
  bool ended = false;      // the logical line ends in its newline
  bool endOfFile = false;  // it does not because the file ends here
  bool fragment = false;   // a piece of a line that is longer than the buffer
  bool holdsNul = false;

  // Only a line that was read whole can be told from what it says.
  bool whole() const noexcept { return !fragment && !holdsNul; }
};

// Where the next line of a stream starts.
struct LineCursor {
  std::FILE* stream = nullptr;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;   // bytes of the file
  bool insideLine = false;  // the last read was cut: what follows belongs to the same line
};

// Reads the next logical line at the cursor; false when there is none (the end, or an error that
// the stream's error flag tells).
bool readLine(LineCursor& cursor, TextLine& line, bool join) noexcept;

}  // namespace genreg
