// The bytes are a registry and what is done with it: a byte for kind and features, one for the
// number of steps, three for each step, and the file, if any, which may be anything. By what scans
// see and by the bytes of the file,
//   - what was told to be done is done and nothing else, in an update unseen until its commit;
//   - what is refused leaves the file as it was; a whole one refuses nothing without a reason;
//   - reads that keep the content see the same, and a repair loses nothing that could be read.
#include <algorithm>

#include "bench/flavours.h"
#include "scratch_directory.h"
#include "targets.h"

namespace {

using flavours::Verb;

constexpr std::uint64_t modes[] = {GENREG_VERIFY_UPDATES, GENREG_ALLOW_DUPLICATES,
                                   GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES};
constexpr std::uint64_t framings[] = {GENREG_BIG_ENDIAN_LENGTH, 0, GENREG_JOIN_CONTINUED_LINES,
                                      GENREG_JOIN_CONTINUED_LINES};
constexpr const char* names[] = {"a", "b", "c", "fifteen-letters", "\xC3\xA4", "d e", "#", "\"q"};

// What a whole file may answer; the last ones only a text, of which a last line that goes on in
// what follows takes no record behind it.
constexpr unsigned int answers[] = {GENREG_RC_NOT_FOUND,          GENREG_RC_NO_FILE,
                                    GENREG_RC_OPEN_FOR_OPERATION, GENREG_RC_DUPLICATE,
                                    GENREG_RC_UNCHANGED,          GENREG_RC_AMBIGUOUS,
                                    GENREG_RC_VERIFY_FAILED,      OSS_RC_BUFFER_TOO_SMALL,
                                    GENREG_RC_PACK_LINE_FAILED,   GENREG_RC_WRITE_NEW_FAILED};

struct Seen {
  explicit Seen(flavours::Handle& handle) {
    std::size_t count = 0;
    end = handle.scan(&count, &entries);
    if (end == GENREG_RC_OPEN_FAILED) end = 0;  // there is no file
  }
  bool operator==(const Seen& other) const { return entries == other.entries && end == other.end; }

  std::vector<Entry> entries;  // without a name: none that a step means
  unsigned int end;            // why the scan ended, 0 at the end of the file
};

bool isGiven(const Entry& entry, const Entry& given) {
  return entry.name == given.name && entry.value == given.value;
}

// `text` is the file, if it is one. The end of a line alone does not show whether a NUL hides its
// backslash from readers: an empty line may be added. A backslash at the end of the file is not
// read as part of its line until that has an end, and a carriage return there is, until then.
bool isDone(const Seen& was, const Seen& now, Verb verb, const Entry& given,
            const std::string& text) {
  auto at = now.entries.begin();
  const auto isNext = [&] { return at != now.entries.end() && isGiven(*at++, given); };
  const bool mayTurn = !text.empty() && (text.back() == '\\' || text.back() == '\r');
  for (const Entry& entry : was.entries) {
    const bool isMeant = verb != Verb::Add && entry.name == given.name;
    const bool mayStay = !isMeant || (verb == Verb::Change && isGiven(entry, given));
    const bool isTurned = mayTurn && &entry == &was.entries.back();
    if (mayStay && at != now.entries.end() && (*at == entry || isTurned)) {
      ++at;
    } else if (!isMeant || (verb == Verb::Change && !isNext())) {
      return false;
    }
  }
  const bool mayGap = verb == Verb::Add && text.find('\0') != text.npos;
  if (mayGap && now.entries.end() - at == 2 && *at == Entry{}) ++at;
  const bool isHidden = was.end != 0 && at == now.entries.end();  // behind what cannot be read
  return (verb != Verb::Add || isHidden || isNext()) && at == now.entries.end() &&
         now.end == was.end;
}

struct Trial {
  void steps(const std::uint8_t* at, const std::uint8_t* end) {
    for (; end - at >= 3; at += 3) {
      const std::string before = contentOf(path);
      const int verb = at[0] & 7;
      unsigned int code = 0;
      if (verb < 4) {
        code = operation(static_cast<Verb>(verb), {names[at[1] & mostNames], at[2] + 1}, before);
      } else if (!isInside) {
        code = verb == 4 ? repair(before) : update(at, end, verb == 5);
      }
      require(Seen(*handle) == seen && (isInside || Seen(*reader) == seen));
      require((!isInside && verb != 3 && code == 0) || contentOf(path) == before);
    }
  }

  unsigned int operation(Verb verb, const Entry& given, const std::string& before) {
    unsigned int code = handle->run(verb, given);
    // Without verification the other records that match are changed all the same.
    if (code == GENREG_RC_UNCHANGED && !isInside && !isVerified) code = 0;
    const auto isMeant = [&](const Entry& entry) { return entry.name == given.name; };
    const auto first = std::find_if(seen.entries.begin(), seen.entries.end(), isMeant);
    const auto count = std::count_if(first, seen.entries.end(), isMeant);
    const bool isThere = count != 0;
    if (code == 0 && verb == Verb::Get) {
      require(isThere && handle->found() == *first);
    } else if (code == 0) {
      require(verb == Verb::Add ? mayRepeat || !isThere : isThere || seen.end != 0);
      require(mayRepeat || count <= 1);
      const Seen now(*handle);
      require(isDone(seen, now, verb, given, isText ? before : ""));
      seen = now;
    }
    require(code != GENREG_RC_NOT_FOUND || !isThere);
    require(code == 0 || seen.end != 0 ||
            std::count(answers, std::end(answers) - (isText ? 0 : 4), code) != 0);
    return code;
  }

  // Of a text, lines that hold a NUL byte or are too long are damage, whatever is read of them.
  unsigned int repair(const std::string& before) {
    const unsigned int code = handle->repair();
    if (code != 0) return code;
    const std::vector<Entry> were = seen.entries;
    seen = Seen(*handle);
    const bool mayLose = before.find('\0') != before.npos || before.size() > GENREG_LINE_SIZE - 2;
    require(isText ? mayLose || contentOf(path) == before
                   : seen.end != GENREG_RC_READ_FAILED && seen.entries.size() >= were.size() &&
                         std::equal(were.begin(), were.end(), seen.entries.begin()));
    return code;
  }

  // One update of the next steps.
  unsigned int update(const std::uint8_t*& at, const std::uint8_t* end, bool abandons) {
    const Seen before = seen;
    const std::uint8_t* const first = at + 3;
    at += std::min<std::ptrdiff_t>(end - first, 3 * (at[1] & 7));
    isInside = true;
    const unsigned int code =
        handle->inOneUpdate([&] { return steps(first, at + 3), abandons ? 1u : 0u; });
    isInside = false;
    if (code != 0) seen = before;
    return code;
  }

  const flavours::Row& row;
  const std::string& path;
  const std::uint64_t features;
  const bool isText = &row > flavours::rows + 1;
  const bool isVerified = (features & GENREG_VERIFY_UPDATES) != 0;
  const bool mayRepeat = (features & GENREG_ALLOW_DUPLICATES) != 0;
  const int mostNames = isText && !isVerified ? 3 : 7;  // not those that are read as other lines
  const std::unique_ptr<flavours::Handle> handle = row.open(path, features);
  const std::unique_ptr<flavours::Handle> reader = row.open(path, features);
  Seen seen = Seen(*handle);
  bool isInside = false;
};

}  // namespace

int fuzzOperations(const std::uint8_t* data, std::size_t size) {
  static const ScratchDirectory directory;
  if (size < 2) return 0;
  for (const char* file : {"r", "r.cor"}) std::filesystem::remove(directory.path / file);
  const std::size_t kind = data[0] & 3;
  const std::uint64_t framing = (data[0] & 4) != 0 ? framings[kind] : 0;
  const std::uint8_t* const file = data + 2 + std::min<std::size_t>(3 * (data[1] & 15), size - 2);
  if (file != data + size) writeContent(directory.registry, {file, data + size});
  Trial trial{flavours::rows[kind], directory.registry, modes[(data[0] >> 3) % 3] | framing};
  trial.reader->keepReads();
  trial.steps(data + 2, file);
  return 0;
}
