// A registry export, line by line:
// clang-format off
//
//   Windows Registry Editor Version 5.00     always the first line
//   ; a comment
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Name]       a key, made with those above it; values follow
//   [-HKEY_LOCAL_MACHINE\SOFTWARE\Name]      the key is taken out, with all below it
//   "name"="text"                            \\ \" \n \r are escapes; a text may have several lines
//   @="text"                                 the value without a name
//   "name"=dword:0000000a
//   "name"=hex:01,0a,\                       bytes; the line goes on after a backslash at its end
//     ff
//   "name"=hex(2):41,00,00,00                bytes of another type; types 1, 2 and 7 are UTF-16
//   "name"=-                                 the value is taken out
//
// clang-format on
// A later line counts. Anything else makes the whole export worthless: a registry that is half
// there would answer with half of the truth. Half of a character, which the registry may hold and
// UTF-8 cannot, is no reason: it becomes the replacement character.
#include "platform/registry_export/registry_export.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "platform/registry_export/unicode.h"

namespace platform {
namespace {

constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view utf16Mark = "\xFF\xFE";
constexpr std::string_view firstLine = "Windows Registry Editor Version 5.00";
constexpr std::string_view blanks = " \t";

constexpr std::size_t longestKeyName = 255;  // UTF-16 units

bool startsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

// Text of a value given as bytes, which may be any.
std::string textOfValue(std::string_view bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const char32_t codePoint = nextUtf16CodePoint(bytes, i);
    appendUtf8(text, codePoint == invalidCodePoint ? replacementCharacter : codePoint);
  }
  return text;
}

// The export's characters as UTF-8, all of them valid and none of them NUL.
class ExportText {
 public:
  explicit ExportText(std::string_view bytes) {
    if (startsWith(bytes, utf16Mark)) {
      convert(bytes.substr(utf16Mark.size()));
      return;
    }
    text_ = startsWith(bytes, utf8Mark) ? bytes.substr(utf8Mark.size()) : bytes;
    for (std::size_t i = 0; i < text_.size() && reason_ == nullptr;) {
      if (isPlain(text_[i])) {
        ++i;
      } else {
        check(nextCodePoint(text_, i));
      }
    }
  }

  std::string_view text() const { return text_; }
  std::uint32_t line() const { return line_; }  // where checking ended
  const char* reason() const { return reason_; }

 private:
  void convert(std::string_view bytes) {
    converted_.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i < bytes.size() && reason_ == nullptr;) {
      const bool whole = bytes.size() - i > 1;
      char32_t codePoint = nextUtf16CodePoint(bytes, i);
      if (codePoint == invalidCodePoint && whole) codePoint = replacementCharacter;
      check(codePoint);
      if (reason_ == nullptr) appendUtf8(converted_, codePoint);
    }
    text_ = converted_;
  }

  // Nearly every character needs no look.
  static bool isPlain(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte > '\n' && byte < 0x80;
  }

  void check(char32_t codePoint) {
    if (codePoint == '\n') ++line_;
    if (codePoint == 0) reason_ = "a NUL character";
    if (codePoint == invalidCodePoint) reason_ = "neither UTF-8 nor UTF-16LE with its mark";
  }

  std::string converted_;
  std::string_view text_;
  std::uint32_t line_ = 1;
  const char* reason_ = nullptr;
};

// What a backslash in a text may be followed by, and what the two mean.
constexpr std::string_view escapesWritten = "\\\"nr";
constexpr std::string_view escapesMeant = "\\\"\n\r";

class ExportReader {
 public:
  ExportReader(std::string_view text, RegistryTree& tree, ExportFault& fault)
      : text_(text), tree_(tree), fault_(fault) {}

  bool read() {
    if (nextLine() != firstLine) return failAt(1, "not a registry export of version 5.00");
    while (!atEnd()) {
      if (!readEntry()) return false;
    }
    return true;
  }

 private:
  bool readEntry() {
    skipBlanks();
    if (atLineEnd()) return acceptLineEnd();
    switch (text_[position_]) {
      case ';':
        (void)nextLine();
        return true;
      case '[':
        return readKeyLine();
      case '"':
      case '@':
        return readValueLine();
      default:
        return fail("neither a key, a value nor a comment");
    }
  }

  bool readKeyLine() {
    const std::uint32_t line = line_;
    std::string_view path = nextLine();
    if (path.back() != ']') return failAt(line, "a key without its closing bracket");
    path = path.substr(1, path.size() - 2);
    const bool erase = startsWith(path, "-");
    if (erase) path.remove_prefix(1);
    const char* const reason = erase ? eraseKey(path) : enterKey(path);
    return reason == nullptr || failAt(line, reason);
  }

  // Makes the key at `path` the one that values belong to; gives the reason why it cannot.
  const char* enterKey(std::string_view path) {
    key_ = tree_.rootKey(nextComponent(path));
    if (key_ == nullptr) return "an unknown root key";
    while (!path.empty()) {
      const std::string_view name = nextComponent(path);
      if (nameTooLong(name)) return "a key name of more than 255 characters";
      if (!name.empty()) key_ = tree_.addKey(key_, name);
    }
    return nullptr;
  }

  const char* eraseKey(std::string_view path) {
    key_ = nullptr;
    RegistryKeyObject* parent = tree_.rootKey(nextComponent(path));
    if (parent == nullptr) return "an unknown root key";
    std::string_view name = nextComponent(path);
    if (name.empty()) return "a root key cannot be deleted";
    while (parent != nullptr && !path.empty()) {
      const std::string_view next = nextComponent(path);
      if (next.empty()) continue;
      parent = tree_.subkey(parent, name);
      name = next;
    }
    if (parent != nullptr) erase(parent->subkeys, name);
    return nullptr;
  }

  // A missing entry is nothing to do.
  template <typename Entries>
  static void erase(Entries& entries, std::string_view name) {
    if (const auto found = entries.find(name); found != entries.end()) entries.erase(found);
  }

  static std::string_view nextComponent(std::string_view& path) {
    const std::size_t end = std::min(path.find('\\'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    return component;
  }

  static bool nameTooLong(std::string_view name) {
    return name.size() > longestKeyName && utf16Length(name) > longestKeyName;
  }

  bool readValueLine() {
    if (key_ == nullptr) return fail("a value that belongs to no key");
    std::string name;
    if (!accept('@') && !readQuoted(name)) return false;
    skipBlanks();
    if (!accept('=')) return fail("a value without its equals sign");
    skipBlanks();
    if (accept('-')) {
      erase(key_->values, name);
      return acceptValueEnd();
    }
    std::uint32_t type = 0;
    std::string data;
    if (!readData(type, data) || !acceptValueEnd()) return false;
    key_->values[name] = {type, std::move(data)};
    return true;
  }

  bool readData(std::uint32_t& type, std::string& data) {
    if (!atEnd() && text_[position_] == '"') {
      type = registryText;
      if (!readQuoted(data)) return false;
      data += '\0';
      return true;
    }
    if (accept("dword:")) {
      type = registryDword;
      return readDword(data);
    }
    type = registryBinary;
    if (accept("hex:")) return readBytes(data);
    if (!accept("hex(")) return fail("a value of unknown form");
    if (!readHexNumber(type) || !accept("):")) return fail("a value of unknown type");
    if (!readBytes(data)) return false;
    if (isRegistryText(type)) data = textOfValue(data);
    return true;
  }

  bool readQuoted(std::string& text) {
    const std::uint32_t line = line_;
    for (++position_; !atEnd();) {
      const char character = text_[position_++];
      if (character == '"') return true;
      if (character == '\n') ++line_;
      if (character != '\\') {
        text += character;
      } else if (!readEscape(text)) {
        return fail("a backslash in a text that escapes nothing known");
      }
    }
    return failAt(line, "a text without its closing quote");
  }

  bool readEscape(std::string& text) {
    if (atEnd()) return false;
    const std::size_t known = escapesWritten.find(text_[position_++]);
    if (known == std::string_view::npos) return false;
    text += escapesMeant[known];
    return true;
  }

  bool readDword(std::string& data) {
    std::uint32_t number = 0;
    if (!readHexNumber(number)) return fail("a dword without its one to eight digits");
    for (unsigned int shift = 0; shift < 32; shift += 8) {
      data += static_cast<char>(number >> shift & 0xFFu);
    }
    return true;
  }

  bool readHexNumber(std::uint32_t& number, std::size_t mostDigits = 8) {
    const char* const begin = text_.data() + position_;
    const char* const limit = begin + std::min(mostDigits, text_.size() - position_);
    const char* const end = std::from_chars(begin, limit, number, 16).ptr;
    position_ += static_cast<std::size_t>(end - begin);
    return end != begin;
  }

  bool readBytes(std::string& bytes) {
    if (!skipContinuation()) return false;
    if (atLineEnd()) return true;
    for (;;) {
      const std::size_t start = position_;
      std::uint32_t byte = 0;
      if (!readHexNumber(byte, 2) || position_ - start != 2) {
        return fail("a byte that is not two hexadecimal digits");
      }
      bytes += static_cast<char>(byte);
      skipBlanks();
      if (!accept(',')) return true;
      if (!skipContinuation()) return false;
    }
  }

  bool skipContinuation() {
    skipBlanks();
    while (accept('\\')) {
      skipBlanks();
      if (!atLineEnd() || atEnd()) return fail("a backslash that is not at the end of a line");
      (void)acceptLineEnd();
      skipBlanks();
    }
    return true;
  }

  bool acceptValueEnd() {
    skipBlanks();
    if (!accept(';')) return acceptLineEnd() || fail("text after a value");
    (void)nextLine();
    return true;
  }

  // The rest of the line without blanks at its end; goes to the next line.
  std::string_view nextLine() {
    const std::size_t end = std::min(text_.find('\n', position_), text_.size());
    std::string_view line = text_.substr(position_, end - position_);
    position_ = std::min(end + 1, text_.size());
    ++line_;
    const std::size_t last = line.find_last_not_of(" \t\r");
    return line.substr(0, last + 1);
  }

  bool accept(char expected) {
    if (atEnd() || text_[position_] != expected) return false;
    ++position_;
    return true;
  }

  bool accept(std::string_view expected) {
    if (!startsWith(text_.substr(position_), expected)) return false;
    position_ += expected.size();
    return true;
  }

  bool acceptLineEnd() {
    if (!atLineEnd()) return false;
    (void)nextLine();
    return true;
  }

  void skipBlanks() {
    position_ = std::min(text_.find_first_not_of(blanks, position_), text_.size());
  }
  bool atEnd() const { return position_ == text_.size(); }
  bool atLineEnd() const {
    return atEnd() || text_[position_] == '\n' || startsWith(text_.substr(position_), "\r\n");
  }

  bool fail(const char* reason) { return failAt(line_, reason); }
  bool failAt(std::uint32_t line, const char* reason) {
    fault_ = {line, reason};
    return false;
  }

  std::string_view text_;
  RegistryTree& tree_;
  ExportFault& fault_;
  std::size_t position_ = 0;
  std::uint32_t line_ = 1;
  RegistryKeyObject* key_ = nullptr;  // the one that values belong to
};

}  // namespace

bool readRegistryExport(std::string_view bytes, RegistryTree& tree, ExportFault& fault) {
  const ExportText text(bytes);
  if (text.reason() != nullptr) {
    fault = {text.line(), text.reason()};
    return false;
  }
  if (!ExportReader(text.text(), tree, fault).read()) return false;
  tree.finish();
  return true;
}

}  // namespace platform
