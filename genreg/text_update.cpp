// GenRegText: Add, Change and Delete. What is kept is written from its raw text, as it was read.
#include <algorithm>
#include <cstdio>
#include <string_view>

#include "genreg/core/update_sequence.h"
#include "genreg/text_store.h"

using genreg::Function;
using genreg::LineCursor;
using genreg::RecordBuffer;
using genreg::Routine;
using genreg::TextLine;

namespace {

constexpr genreg::UpdateRoutines routines{Function::textCheckHooks, Function::textVerifyUpdate,
                                          false};

// What the three operations share: the buffers and the pass over the stored lines.
class TextUpdate : public genreg::Update {
 public:
  TextUpdate(TextStore& store, Routine& routine, const genreg::UpdateKind& kind, std::uint64_t mask,
             void* record, void* key) noexcept
      : Update(store, routine, routines, kind, mask, record, key), store_(store) {}

 protected:
  ~TextUpdate() = default;

  unsigned int checkHooks() noexcept final { return store_.checkHooks(); }
  unsigned int allocate() noexcept final {
    const unsigned int code = buffer_.reserve(size_);
    if (code == 0) return GENREG_RC_OK;
    return routine_.failFrom(genreg::probeMemAlloc, code, GENREG_RC_BUFFER_ALLOC, 60);
  }
  unsigned int release() noexcept final { return buffer_.release(); }
  unsigned int verify() noexcept final {
    return store_.verifyUpdate(kind_.operation, mask_, record_, key_);
  }

  // Visits the lines of the registry file, all but those that surely stay as they are: 0 at its
  // end, or the first failure. Unless they are `compared` with the key, all stay that are whole.
  template <typename Visit>
  unsigned int forEachLine(bool compared, void* key, Visit visit) noexcept {
    const genreg::StoredForm* form = store_.storedForm(key);
    const auto stays = [&](const char* line, std::size_t length) {
      return !compared || form->liken(mask_, line, length, key) == genreg::Likeness::Differs;
    };
    LineCursor cursor = store_.mainCursor();
    for (;;) {
      if (!compared || form != nullptr) {
        const std::string_view kept = cursor.passOver(store_.joins(), stays);
        const unsigned int code = kept.empty() ? GENREG_RC_OK : writeKept(kept);
        if (code != 0) return code;
      }
      unsigned int code = store_.next(routine_, cursor, line_, GENREG_RC_READ_FAILED, 70);
      if (code == GENREG_RC_END) return GENREG_RC_OK;
      if (code == 0) code = visit();
      if (code != 0) return code;
    }
  }

  // The line just read as a record; null when it is none to an update.
  void* parsed() noexcept {
    return store_.parseWhole(routine_, buffer_.data(), line_, 71) ? buffer_.data() : nullptr;
  }

  // Whether the line just read holds a record that matches the key; `failed` for a missing hook.
  unsigned int matchesKey(bool* matched) noexcept {
    *matched = false;
    if (!store_.canUnpack()) return routine_.fail(GENREG_RC_NO_UNPACK_HOOK, 80);
    void* stored = parsed();
    if (stored == nullptr) return GENREG_RC_OK;
    if (!store_.canCompare()) return routine_.fail(GENREG_RC_NO_COMPARE_HOOK, 81);
    *matched = store_.matches(mask_, stored, key_);
    return GENREG_RC_OK;
  }

  unsigned int writeRaw() noexcept { return writeKept({line_.raw, line_.rawLength}); }

  unsigned int writeKept(std::string_view bytes) noexcept {
    return store_.write(routine_, temporary(), bytes.data(), bytes.size(), GENREG_RC_COPY_FAILED,
                        140);
  }

  TextStore& store_;
  RecordBuffer buffer_{"GenRegText", __LINE__};
  TextLine line_;
};

class AddWork final : public TextUpdate {
 public:
  using TextUpdate::TextUpdate;

  unsigned int work() noexcept override {
    std::uint64_t fileSize = 0;
    if (const unsigned int code = askFileSize(&fileSize); code != 0) return code;
    if (fileSize != 0) {
      const bool unique = !store_.has(GENREG_ALLOW_DUPLICATES);
      const unsigned int code = appendsInPlace()
                                    ? findEnd()
                                    : forEachLine(unique, record_, [this] { return copyLine(); });
      if (code != 0) return code;
    }
    std::FILE* target = nullptr;
    if (const unsigned int code = seekTarget(&target); code != 0) return code;
    if (appendsInPlace() && unended_) {
      if (const unsigned int code = store_.write(routine_, target, lineEnd, lineEndLength,
                                                 GENREG_RC_WRITE_NEW_FAILED, 95);
          code != 0) {
        return code;
      }
    }
    line_.rawLength = 0;  // no template
    if (const unsigned int code = store_.pack(routine_, record_, line_); code != 0) return code;
    return store_.write(routine_, target, line_.raw, line_.rawLength, GENREG_RC_WRITE_NEW_FAILED,
                        120);
  }

 private:
  static constexpr char lineEnd[] = "\r\n";
  static constexpr std::size_t lineEndLength = sizeof lineEnd - 1;

  // A last line that only its missing newline keeps from being continued has no end that could be
  // given to it: the new line would be a part of it.
  unsigned int copyLine() noexcept {
    if (!store_.has(GENREG_ALLOW_DUPLICATES)) {
      void* stored = parsed();
      if (stored != nullptr && store_.matches(mask_, stored, record_)) {
        routine_.trace(84, genreg::text("Match found; duplicate record"));
        return routine_.fail(GENREG_RC_DUPLICATE, 85);
      }
    }
    if (line_.endOfFile) {
      if (line_.unended() && store_.joins() && line_.raw[line_.rawLength - 1] == '\\') {
        return routine_.fail(GENREG_RC_WRITE_NEW_FAILED, 83);
      }
      if (!line_.append(lineEnd, lineEndLength)) {
        return routine_.fail(OSS_RC_BUFFER_TOO_SMALL, 86, genreg::wide(line_.rawLength));
      }
      routine_.trace(87, genreg::text("Added a newline"));
    }
    return writeRaw();
  }

  // In place, too, the new line must not run into a last one that lacks its newline or that it
  // would continue.
  unsigned int findEnd() noexcept {
    std::FILE* stream = RegistryHandle::main(store_.file());
    const std::uint64_t size = RegistryHandle::mainSize(store_.file());
    char tail[3];
    std::size_t length = std::min<std::uint64_t>(sizeof tail, size);
    if (platform::seekStream(stream, static_cast<std::int64_t>(size - length)) != 0 ||
        platform::readStream(stream, tail, length) != length) {
      return routine_.fail(GENREG_RC_READ_FAILED, 88);
    }
    const bool newline = tail[length - 1] == '\n';
    if (newline && --length > 0 && tail[length - 1] == '\r') --length;
    const bool continues = store_.joins() && length > 0 && tail[length - 1] == '\\';
    if (continues && !newline) return routine_.fail(GENREG_RC_WRITE_NEW_FAILED, 89);
    unended_ = continues || !newline;
    return GENREG_RC_OK;
  }

  bool unended_ = false;
};

class ChangeWork final : public TextUpdate {
 public:
  using TextUpdate::TextUpdate;

  unsigned int work() noexcept override {
    if (const unsigned int code = forEachLine(true, key_, [this] { return changeLine(); });
        code != 0) {
      return code;
    }
    if (unchanged_) return routine_.fail(GENREG_RC_UNCHANGED, 95);
    return changed_ == 0 ? routine_.fail(GENREG_RC_NOT_FOUND, 96) : GENREG_RC_OK;
  }

 private:
  unsigned int changeLine() noexcept {
    bool matched = false;
    if (const unsigned int code = matchesKey(&matched); code != 0) return code;
    if (matched && store_.matches(GENREG_ALL_FIELDS, buffer_.data(), record_)) {
      unchanged_ = true;
    } else if (matched) {
      if (changed_ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
        return routine_.fail(GENREG_RC_AMBIGUOUS, 85);
      }
      ++changed_;
      if (const unsigned int code = store_.pack(routine_, record_, line_); code != 0) return code;
      return writeRaw();
    }
    // A last line without its newline gains one, if there is room for it to be read as one line.
    if (line_.endOfFile && line_.unended()) (void)line_.append("\n", 1);
    return writeRaw();
  }

  std::uint64_t changed_ = 0;
  bool unchanged_ = false;  // a matching record equals the new one already
};

class DeleteWork final : public TextUpdate {
 public:
  using TextUpdate::TextUpdate;

  unsigned int work() noexcept override {
    if (const unsigned int code = forEachLine(true, key_, [this] { return keepOrDelete(); });
        code != 0) {
      return code;
    }
    return deleted_ == 0 ? routine_.fail(GENREG_RC_NOT_FOUND, 96) : GENREG_RC_OK;
  }

 private:
  unsigned int keepOrDelete() noexcept {
    bool matched = false;
    if (const unsigned int code = matchesKey(&matched); code != 0) return code;
    if (!matched) return writeRaw();
    if (deleted_++ > 0 && !store_.has(GENREG_ALLOW_DUPLICATES)) {
      return routine_.fail(GENREG_RC_AMBIGUOUS, 85);
    }
    return GENREG_RC_OK;
  }

  std::uint64_t deleted_ = 0;
};

}  // namespace

unsigned int GenRegText::Add(std::uint64_t mask, void* record) noexcept {
  Routine routine(Function::textAdd);
  TextStore store(*this);
  return routine.exit(AddWork(store, routine, genreg::addUpdate, mask, record, nullptr).run());
}

unsigned int GenRegText::Change(std::uint64_t mask, void* key, void* newRecord) noexcept {
  Routine routine(Function::textChange);
  TextStore store(*this);
  return routine.exit(ChangeWork(store, routine, genreg::changeUpdate, mask, newRecord, key).run());
}

unsigned int GenRegText::Delete(std::uint64_t mask, void* key) noexcept {
  Routine routine(Function::textDelete);
  TextStore store(*this);
  return routine.exit(DeleteWork(store, routine, genreg::deleteUpdate, mask, nullptr, key).run());
}
