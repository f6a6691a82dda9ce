#include "store.h"

#include <charconv>
#include <filesystem>

#include "file_content.h"
#include "nearest.h"
#include "output.h"
#include "platform/tool/utf8_process.h"

namespace tool {
namespace {

constexpr const char* globalPathVariable = "ZOR_GLOBAL_REG_PATHNAME";
constexpr int mostLinks = 40;  // as the system follows them

}  // namespace

std::string readWait(const Words& words, std::uint64_t& milliseconds) {
  if (words.noWait && words.wait) return "--wait and --no-wait are given";
  milliseconds = words.noWait ? 1 : 0;
  if (!words.wait) return {};
  std::uint64_t seconds = 0;
  const char* end = words.wait->data() + words.wait->size();
  const auto [stop, error] = std::from_chars(words.wait->data(), end, seconds);
  if (error != std::errc() || stop != end || seconds > UINT32_MAX) {
    return "'" + printable(*words.wait) + "': --wait takes whole seconds";
  }
  milliseconds = seconds == 0 ? 1 : 1000 * seconds;
  return {};
}

int findFile(Kind kind, Words& words) {
  if (kind == Kind::Global && words.file.empty()) {
    words.file = platform::environmentValue(globalPathVariable).value_or("global.reg");
    if (words.file.empty()) return reportUsage(std::string(globalPathVariable) + " is empty");
  }
  std::filesystem::path file = std::filesystem::u8path(words.file);
  std::error_code error;
  for (int links = 0; std::filesystem::is_symlink(file, error); ++links) {
    const std::filesystem::path target = std::filesystem::read_symlink(file, error);
    if (error || links == mostLinks) {
      return reportRefusal(words.file, error ? "is a symbolic link that cannot be read"
                                             : "is a symbolic link that leads nowhere");
    }
    file = target.is_absolute() ? target : file.parent_path() / target;
    words.file = file.u8string();
  }
  return exitDone;
}

Store::Store(Kind kind, const Words& words) : kind_(kind), file_(words.file) {
  std::uint64_t milliseconds = 0;
  if (const std::string wrong = readWait(words, milliseconds); !wrong.empty()) {
    status_ = reportUsage(wrong);
    return;
  }
  const RegistryFiles files(file_);
  if (files.code != 0) {
    status_ = reportCode(files.code, file_);
    return;
  }
  if (const std::string reason = reasonAgainst(files.content(), kind, words.bigEndian);
      !reason.empty()) {
    status_ = reportRefusal(file_, reason);
    return;
  }
  registry_.emplace(optionsOf(words), file_);
  if (registry_->opened() != 0) {
    status_ = reportCode(registry_->opened(), file_, zorreg_cause(nullptr));
    return;
  }
  registry_->setLockTimeout(milliseconds);
}

// The kind with all that it is to be read and written with.
std::string Store::optionsOf(const Words& words) {
  std::string kind = std::string(nameOf(kind_)) + ",bytes";
  if (words.bigEndian) kind += ",big-endian";
  if (words.compact) kind += ",compact";
  if (kind_ == Kind::Var && goesOnInLines(content())) kind += ",joined";
  if (isText(kind_)) kind += ",alike";
  return kind;
}

int Store::outcome(unsigned int code, const std::string& name) {
  if (code == 0 || code == GENREG_RC_UNCHANGED) return exitDone;
  const std::string cause = registry_->cause();
  const bool isSearched = code == GENREG_RC_NOT_FOUND && !name.empty();
  return reportCode(code, file_, cause, isSearched ? nearest(name) : "");
}

const std::string& Store::content() {
  if (!content_) {
    content_.emplace();
    (void)readContent(RegistryFiles(file_).content(), std::string::npos, *content_);
  }
  return *content_;
}

const std::string* Store::oddityOf(const std::string& name) {
  if (!odd_) odd_ = oddAssignments(content());
  const auto found = odd_->find(name);
  return found == odd_->end() ? nullptr : &found->second;
}

// A shell takes these as they are.
bool Store::quotes(const std::string& value, bool isThere) {
  constexpr const char* plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:,+@%";
  const bool needsQuotes = value.find_first_not_of(plain) != std::string::npos;
  if (!layout_) layout_ = faces::layoutOfProfile(content());
  return (layout_->quotesAll && !isThere) || (layout_->isShell && needsQuotes);
}

// The name of a record that is most like the given one; empty when none is.
std::string Store::nearest(const std::string& name) {
  Nearest found(name);
  unsigned int code = registry_->scan();
  faces::NamedFields record;
  while (code == 0 && (code = registry_->next(record)) == 0) {
    for (const char* field : {"Variable", "Name"}) {
      if (const std::string* text = record.find(field)) found.consider(*text);
    }
  }
  (void)registry_->endScan();
  return found.text();
}

}  // namespace tool
