// zorreg KIND FILE edit: a text registry in the user's editor.
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "content_update.h"
#include "edited_copy.h"
#include "file_content.h"
#include "file_verbs.h"
#include "line_findings.h"
#include "output.h"
#include "platform/terminal.h"
#include "report.h"
#include "unified_diff.h"

namespace zorreg {
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
  if (!platform::isInteractive()) return false;
  std::fprintf(stderr, "edit again? [Y/n] ");
  std::string answer;
  return std::getline(std::cin, answer) &&
         (answer.empty() || (answer[0] != 'n' && answer[0] != 'N'));
}

int keep(EditedCopy& copy, const std::string& why) {
  copy.keep();
  return reportFailure(why + "; what was edited is in " + printable(copy.path()));
}

int store(const Words& words, const Content& before, const std::string& edited, EditedCopy& copy) {
  bool isJudged = false;
  const int status = updateContent(words, [&](const Content& now, std::string& wanted) {
    isJudged = true;
    if (now != before) {
      return keep(copy, printable(words.file) +
                            " was changed by another program meanwhile, and is left as it is now");
    }
    wanted = edited;
    isJudged = false;
    return int{exitDone};
  });
  if (status == exitDone) {
    const std::string diff = unifiedDiff(before.bytes, edited, words.file);
    (void)std::fwrite(diff.data(), 1, diff.size(), stdout);
  } else if (!isJudged) {
    (void)keep(copy, printable(words.file) + " is not changed");
  }
  return status;
}

}  // namespace

int edit(Kind kind, const Words& words) {
  if (kind == Kind::Bin || kind == Kind::Global) {
    return reportUsage(std::string("a registry of kind ") + nameOf(kind) +
                       " is no text and cannot be edited as one; list and import do it");
  }
  const RegistryFiles files(words.file);
  if (files.code != 0) return reportCode(files.code, words.file);
  const std::string reason = reasonAgainst(files.content(), kind, words.bigEndian);
  if (!reason.empty()) return reportRefusal(words.file, reason);
  Content before;
  if (const int status = readContentOf(words.file, before); status != exitDone) return status;
  EditedCopy copy(std::filesystem::path(words.file).filename().string());
  if (!copy.write(before.bytes)) {
    return reportFailure("the copy to edit, " + printable(copy.path()) + ", cannot be written");
  }
  for (;;) {
    const bool isFine = copy.runEditor();
    std::string edited;
    if (!copy.read(edited)) {
      return reportFailure("the editor '" + printable(EditedCopy::editor()) + "' left no file; " +
                           printable(words.file) + " is not changed");
    }
    const std::string untouched = "; " + printable(words.file) + " is not changed";
    if (!isFine) {
      const std::string why =
          "the editor '" + printable(EditedCopy::editor()) + "' failed" + untouched;
      return edited == before.bytes ? reportFailure(why) : keep(copy, why);
    }
    if (edited == before.bytes) {
      std::printf("%s: unchanged\n", printable(words.file).c_str());
      return exitDone;
    }
    const std::vector<LineFinding> findings = newOddLines(kind, before.bytes, edited);
    if (findings.empty()) return store(words, before, edited, copy);
    printFindings(words.file, findings);
    if (!wantsToGoOn()) return keep(copy, "lines that cannot be read are not stored" + untouched);
  }
}

}  // namespace zorreg
