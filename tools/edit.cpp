// zorreg KIND FILE edit: a registry in the user's editor.
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "content_update.h"
#include "edited_copy.h"
#include "edited_records.h"
#include "file_content.h"
#include "file_verbs.h"
#include "line_findings.h"
#include "output.h"
#include "platform/tool/terminal.h"
#include "report.h"
#include "store.h"
#include "unified_diff.h"

namespace tool {
namespace {

// So much of a line as shows which one it is.
std::string startOf(const std::string& line) {
  constexpr std::size_t most = 80;
  return printable(line.size() <= most ? line : line.substr(0, most) + "...");
}

void printFindings(const std::string& file, const std::vector<LineFinding>& findings) {
  for (const LineFinding& finding : findings) {
    std::fprintf(stderr, "zorreg: %s, line %llu: %s: %s\n", printable(file).c_str(),
                 static_cast<unsigned long long>(finding.number), finding.why.c_str(),
                 startOf(finding.line).c_str());
  }
}

// Without anybody to ask: no.
bool wantsToGoOn() {
  if (!platform::isTerminal(stdin) || !platform::isTerminal(stderr)) return false;
  std::fprintf(stderr, "edit again? [Y/n] ");
  std::string answer;
  return std::getline(std::cin, answer) &&
         (answer.empty() || (answer[0] != 'n' && answer[0] != 'N'));
}

int keep(EditedCopy& copy, const std::string& why) {
  copy.keep();
  return reportFailure(why + "; what was edited is in " + printable(copy.path()));
}

int storeText(const Words& words, const Content& before, const std::string& edited) {
  return updateContent(words, [&](const Content& now, std::string& wanted) {
    if (now != before) {
      return reportRefusal(words.file, "was changed by another program meanwhile");
    }
    wanted = edited;
    return int{exitDone};
  });
}

// The text to edit; that of a registry which does not exist is empty.
int readText(Kind kind, const Words& words, Content& content, std::string& text) {
  if (const int status = readContentOf(words.file, content); status != exitDone) return status;
  text = content.bytes;
  if (isText(kind)) return exitDone;
  const Entries entries = readEntries(kind, words);
  text = linesOf(kind, entries);
  const bool isRead = entries.code == 0 || entries.code == GENREG_RC_NO_FILE;
  return isRead ? int{exitDone} : reportCode(entries.code, words.file, entries.cause);
}

}  // namespace

int edit(Kind kind, const Words& words) {
  std::uint64_t milliseconds = 0;
  if (const std::string wrong = readWait(words, milliseconds); !wrong.empty()) {
    return reportUsage(wrong);
  }
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  const std::string reason = reasonAgainst(files.content(), kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  Content content;
  std::string before;
  if (const int status = readText(kind, words, content, before); status != exitDone) return status;
  EditedCopy copy(words.file);
  if (!copy.write(before)) {
    return reportFailure("the copy to edit, " + printable(copy.path()) + ", cannot be written");
  }
  const std::string untouched = "; " + printable(words.file) + " is not changed";
  const std::string editor = "the editor '" + printable(EditedCopy::editor()) + "'";
  const std::string noFile = editor + " left no file" + untouched;
  const std::string why = editor + " failed" + untouched;
  for (;;) {
    const bool isFine = copy.runEditor();
    std::string after;
    if (!copy.read(after)) return reportFailure(noFile);
    if (!isFine) return after == before ? reportFailure(why) : keep(copy, why);
    if (after == before) {
      std::printf("%s: unchanged\n", shownText(printable(words.file)).c_str());
      return exitDone;
    }
    const std::vector<LineFinding> findings =
        isText(kind) ? newOddLines(kind, before, after) : findingsIn(kind, before, after);
    if (findings.empty()) {
      const int status =
          isText(kind) ? storeText(words, content, after) : storeLines(kind, words, before, after);
      if (status != exitDone) {
        (void)keep(copy, "the edit is not stored");
        return status;
      }
      if (words.verbose) {
        const std::string diff = unifiedDiff(before, after, printable(words.file));
        (void)std::fwrite(diff.data(), 1, diff.size(), stdout);
      }
      return reportChange(words, true);
    }
    printFindings(words.file, findings);
    if (!wantsToGoOn()) return keep(copy, "lines that cannot be read are not stored" + untouched);
  }
}

}  // namespace tool
