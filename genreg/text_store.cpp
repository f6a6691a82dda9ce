#include "genreg/text_store.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "genreg/core/pending.h"
#include "genreg/line_reader.h"

namespace genreg {
namespace {

constexpr StoreKind textKind{
    Function::textAdd,  Function::textChange,       Function::textDelete,
    Function::textGet,  Function::textGetNext,      Function::textCheckHooks,
    Function::readLine, Function::textVerifyUpdate, true};

constexpr std::string_view lineEnd = "\r\n";

bool endsIn(std::string_view text, char last) { return !text.empty() && text.back() == last; }

}  // namespace

TextStore::TextStore(GenRegFile& handle) noexcept : RecordStore(handle, textKind) {
  text_[0] = '\0';  // the rest of both may hold anything
}

Code TextStore::checkHooks() const noexcept {
  const HandleAccess& hooks = handle();
  return requireHooks({{hooks.validateHook() != nullptr, GENREG_RC_NO_VALIDATE_HOOK},
                       {hooks.sizeHook() != nullptr, GENREG_RC_NO_SIZE_HOOK},
                       {hooks.unpackHook().text != nullptr, GENREG_RC_NO_UNPACK_HOOK},
                       {hooks.compareHook() != nullptr, GENREG_RC_NO_COMPARE_HOOK},
                       {hooks.packHook().text != nullptr, GENREG_RC_NO_PACK_HOOK}});
}

Code TextStore::next(File& file, Frame& frame) const noexcept {
  const Code code = nextLine(file, joins(), frame);
  if (code != GENREG_RC_NO_LINE) return code;
  const std::int32_t error = file.error();
  const std::uint64_t offset = file.offset();
  return Routine(kind.readRecord)
      .refuse(code, 20, text(session().registryPath()), number(error), number(offset));
}

bool TextStore::takePlain(File& file, Frame& frame) const noexcept {
  const std::size_t count = std::min(file.windowSize(), longestRaw);
  const std::size_t length = lengthOfPlainLine(file.window(), count, joins());
  if (length == longestRaw) return false;
  frame.bytes = {file.window(), length + 1};
  frame.stored = {file.window(), length};
  frame.offset = file.offset();
  file.skip(length + 1);
  return true;
}

// Where lines are joined, a newline alone does not show that one ends.
std::size_t TextStore::wholeFrames(const File& file, std::size_t count) const noexcept {
  if (joins()) return 0;
  const std::size_t newline = std::string_view(file.window(), count).rfind('\n');
  return newline == std::string_view::npos ? 0 : newline + 1;
}

std::string_view TextStore::run(const File& file, const RecordForm* form, std::uint64_t mask,
                                const void* key, bool alsoMatching) const noexcept {
  const auto stays = [&](const char* line, std::size_t length) {
    const Match match = form == nullptr ? Match::Differs : form->match(mask, line, length, key);
    return match == Match::Differs || (match == Match::Matches && alsoMatching);
  };
  return {file.window(), walkLines(file.window(), file.windowSize(), joins(), stays)};
}

bool TextStore::unpack(Routine& routine, const Frame& frame, Slot& slot, std::uint64_t size,
                       unsigned int point) noexcept {
  if (handle().unpackHook().text == nullptr) return routine.fail(GENREG_RC_NO_UNPACK_HOOK, point);
  makeText(frame.bytes, joins(), text_);
  std::memset(slot.record.data(), 0, size);  // what the hook leaves alone goes to the caller, too
  Cause* const cause = std::exchange(Cause::active, nullptr);  // an odd line is no failure
  const Code code = handle().unpackHook().text(slot.record.data(), text_);
  Cause::active = cause;
  slot.parsed = code == 0;
  if (!slot.parsed) {
    routine.note(GENREG_RC_UNPACK_LINE, point + 1, failureSeverity, number(code), text(text_));
  }
  return true;
}

// The record may point into itself: parsing the line again, into the caller's copy, makes those
// pointers the caller's own.
void TextStore::copyOut(const Slot& slot, std::uint64_t size, void* out) noexcept {
  std::memcpy(out, slot.record.data(), size);
  (void)handle().unpackHook().text(out, text_);
}

// Whether a line that is written ends in a carriage return, too: as the one does that it replaces,
// or the last whole one that a new line follows.
bool TextStore::endsInReturn(const Frame* replaced) const noexcept {
  if (!session().keepsReturns()) return false;
  std::string_view before;
  if (replaced != nullptr) {
    before = replaced->bytes;
  } else if (const Pending* pending = session().pending(); pending != nullptr) {
    before = pending->last();
  } else {
    before = session().main().lastRead();
  }
  const std::size_t newline = before.rfind('\n');
  return newline != std::string_view::npos && newline > 0 && before[newline - 1] == '\r';
}

std::string_view TextStore::pack(Routine& routine, const void* record, const Frame* replaced, Slot&,
                                 std::uint64_t, Code) noexcept {
  if (handle().packHook().text == nullptr) {
    (void)routine.fail(GENREG_RC_NO_PACK_HOOK, 90);
    return {};
  }
  const std::size_t templateLength = replaced == nullptr ? 0 : replaced->bytes.size();
  if (templateLength != 0) std::memcpy(packed_, replaced->bytes.data(), templateLength);
  packed_[templateLength] = '\0';
  // The hook's form takes a record that it may change; the flavours do not.
  const Code code = handle().packHook().text(const_cast<void*>(record), packed_);
  if (code != 0) {
    (void)routine.fail(GENREG_RC_PACK_LINE_FAILED, 92, number(code));
    return {};
  }
  std::size_t length = ::strnlen(packed_, GENREG_LINE_SIZE);
  const bool hasNewline = std::memchr(packed_, '\n', length) != nullptr;
  const bool isEnded = hasNewline && packed_[length - 1] == '\n';
  if (isEnded) --length;
  const bool hasReturn = endsIn({packed_, length}, '\r');
  const bool isWhole = hasNewline && !isEnded;
  const std::string_view end = isWhole                                ? std::string_view()
                               : !hasReturn && endsInReturn(replaced) ? lineEnd
                                                                      : lineEnd.substr(1);
  if (length + end.size() > longestRaw) {
    const std::uint64_t tooLong = length;
    (void)routine.fail(GENREG_RC_PACK_LINE_FAILED, 94, number(tooLong));
    return {};
  }
  length += end.copy(packed_ + length, end.size());
  const std::string_view line(packed_, length);
  // A line that joins what follows it would swallow a record.
  const std::size_t ending = isWhole ? 1 : end.size();
  if (joins() && endsIn(line.substr(0, length - ending), '\\')) {
    packed_[length - ending] = '\0';
    (void)routine.fail(GENREG_RC_PACK_LINE_FAILED, 96, text(packed_));
    return {};
  }
  return line;
}

bool TextStore::write(Routine& routine, File& to, std::string_view frames, Code failed,
                      unsigned int point) const noexcept {
  if (to.append(frames.data(), frames.size())) return true;
  const std::int32_t error = to.error();
  return routine.fail(failed, point, number(error));
}

// A kept line is written as it was read. A last one without its newline gains one: behind it an Add
// writes, and a Change leaves whole lines. One that only its missing newline keeps from being
// continued has no end that could be given to it.
bool TextStore::mayKeep(Routine& routine, const Frame& frame, std::uint64_t operation,
                        std::string_view* gained) const noexcept {
  const std::size_t length = frame.bytes.size();
  const bool hasNewline = endsIn(frame.bytes, '\n');
  if (operation == GENREG_OP_ADD && (frame.unended || !hasNewline)) {
    if (frame.unended && joins() && endsIn(frame.bytes, '\\')) {
      return routine.fail(GENREG_RC_WRITE_NEW_FAILED, 105);
    }
    if (length + lineEnd.size() > longestRaw) {  // as a piece of a longer line is, too
      const std::uint64_t tooLong = length;
      return routine.fail(OSS_RC_BUFFER_TOO_SMALL, 106, number(tooLong), number(frame.offset));
    }
    routine.trace(107, text("Added a newline"));
    *gained = lineEnd;
  } else if (operation == GENREG_OP_CHANGE && frame.unended && !hasNewline && length < longestRaw) {
    *gained = lineEnd.substr(1);
  }
  return true;
}

void TextStore::describeLast(Frame& frame) const noexcept { genreg::describeLast(frame, joins()); }

// The same bytes, or those of a last line without its newline and the newline that an update gives
// it: a plain one, or one behind a carriage return.
bool TextStore::isKept(const Frame& before, const Frame& after) const noexcept {
  const std::size_t length = before.bytes.size();
  if (after.bytes.substr(0, std::min(length, after.bytes.size())) != before.bytes) return false;
  const std::string_view added = after.bytes.substr(length);
  return added.empty() || (before.unended && (added == "\n" || added == lineEnd));
}

// The rest of a line that was read in pieces would stay behind as a line of its own, and what
// stands behind a NUL would go without anybody having seen it.
bool TextStore::mayTouch(Routine& routine, const Frame& frame) const noexcept {
  return isSound(frame) || routine.fail(OSS_RC_BUFFER_TOO_SMALL, 84, number(frame.offset));
}

// In place, too, the new line must not run into a last one that lacks its newline or that it would
// continue. A last line that begins with a NUL, as an append leaves it that did not finish, is
// empty to everybody and stays: it may be somebody else's. Whether a NUL hides a backslash from
// readers does not show here, since they read a long line in pieces: an empty line too many does no
// harm.
bool TextStore::findEnd(Routine& routine, File& file, std::string_view* before) noexcept {
  constexpr std::uint64_t looked = 3;  // bytes: a backslash, a carriage return, a newline
  const std::uint64_t size = file.size();
  const std::uint64_t start = size - std::min(size, looked);
  file.seek(start);
  if (size == 0) return true;
  if (!file.more(static_cast<std::size_t>(size - start)) || file.windowSize() != size - start) {
    const std::int32_t error = file.error();
    return routine.fail(GENREG_RC_READ_FAILED, 98, number(error));
  }
  std::string_view tail{file.window(), file.windowSize()};
  if (endsIn(tail, '\n')) tail.remove_prefix(tail.rfind('\0') + 1);
  return gapBehind(routine, tail, before);
}

bool TextStore::gapBehind(Routine& routine, std::string_view tail,
                          std::string_view* gap) const noexcept {
  const bool newline = tail.back() == '\n';
  if (newline) tail.remove_suffix(1);
  if (newline && !tail.empty() && tail.back() == '\r') tail.remove_suffix(1);
  const bool isHidden = newline && tail.find('\0') != std::string_view::npos;
  const bool continues = joins() && endsIn(tail, '\\') && !isHidden;
  if (continues && !newline) return routine.fail(GENREG_RC_WRITE_NEW_FAILED, 99);
  if (continues || !newline) *gap = lineEnd;
  return true;
}

bool TextStore::isSound(const Frame& frame) const noexcept {
  return !frame.isPiece && frame.bytes.find('\0') == std::string_view::npos;
}

}  // namespace genreg
