// Scrubbing of a line before a flavour parses it.
#pragma once

namespace genreg {

// Rewrites `text` in place: tabs, newlines and carriage returns become spaces, runs of spaces one
// space, leading and trailing ones go; text between double quotes stays as it is, to the end when a
// quote is never closed. Returns 0; GENREG_RC_NO_ARGUMENT for null; the allocator's code when its
// work copy cannot be had (`text` is untouched then) or released.
unsigned int GenRegNormalizeLine(char* text) noexcept;

// GenRegNormalizeLine, without a work copy when there is nothing to rewrite.
unsigned int normalizeIfNeeded(char* text) noexcept;

// Splits off the next word at *cursor: *token points to it, a NUL ends it, and *cursor goes behind
// it, null when nothing follows. Returns 0, or GENREG_RC_NO_LINE with a null token.
unsigned int GenRegNextToken(char** token, char** cursor) noexcept;

// Replaces every byte that no terminal shows, all but the tab below 0x20 and all from 0x7F on, by
// ".". A null text is ignored.
void GenRegMakePrintable(char* text) noexcept;

}  // namespace genreg
