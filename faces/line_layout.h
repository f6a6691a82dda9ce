// How the lines of one text file are laid out, so that a line that is added looks like the others,
// and one that is changed like it did: blanks around "=", columns and tabs of services, carriage
// returns, quotes.
#pragma once

#include <string>
#include <string_view>

namespace faces {

struct LineLayout {
  bool endsInReturn = false;  // most lines have a carriage return before the newline
  bool quotesAll = false;     // most values of a profile are in double quotes
  bool isShell = false;       // most assignments are NAME=VALUE, as a shell reads them
  // Of a profile.
  std::string beforeEquals = " ";
  std::string afterEquals = " ";
  // Of services: the part begins at that column, from 0, in most lines; else behind the separator.
  // Neither: as the library has it, or behind two blanks where the file has no tabs.
  struct Part {
    std::size_t column = 0;
    bool usesTabs = false;
    std::string separator;
  };
  Part port;
  Part aliases;
  Part comment;
  bool isKnown = false;  // the file has lines to learn from

  // New assignments are NAME=VALUE.
  void makeCompact() {
    isKnown = true;
    beforeEquals = afterEquals = "";
  }
};

LineLayout layoutOfProfile(std::string_view content);
LineLayout layoutOfServices(std::string_view content);

// A line that the library has written without its newline, as the layout has it; `replaced` is the
// one that was there, empty when it is new.
std::string reshapedProfile(const LineLayout& layout, std::string_view replaced,
                            std::string_view written);
std::string reshapedServices(const LineLayout& layout, std::string_view replaced,
                             std::string_view written);

}  // namespace faces
