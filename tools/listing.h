// Entries that are printed as columns for people or as JSON for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "output.h"

namespace tool {

// Objects keep their members in the order in which they were made.
using Json = nlohmann::ordered_json;

// Prints one JSON value, indented, and a newline. Bytes that are no UTF-8 become U+FFFD.
void printJson(const Json& value);

// An entry as a line of cells and as JSON.
struct Row {
  std::vector<std::string> cells;
  Json json;
};

// Entries that are printed in the end, one way or the other.
class Listing {
 public:
  void add(Row row) {
    table_.add(std::move(row.cells));
    all_.push_back(std::move(row.json));
  }
  bool empty() const { return all_.empty(); }
  void print(bool json) const { json ? printJson(all_) : table_.print(); }

 private:
  Table table_;
  Json all_ = Json::array();
};

}  // namespace tool
