// What an update of many changes learns of all records at once, so that each one that it finds as
// it should be takes no reading of the others.
#pragma once

#include <cstring>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "faces/exact_registry.h"

namespace faces {

// The values by which a record is known, in one text.
template <typename Record>
std::string nameOf(const Record& record) {
  const NamedFields fields = fieldsOf(record);
  std::string name;
  const auto add = [&](const char* field) {
    const std::string* const value = fields.find(field);
    name.append(value == nullptr ? "" : *value).append(1, '\0');
  };
  if constexpr (isGlobal<Record>) {
    add("Type");
    const GlobalRegType* const type = globalRegFindType(record.RecordType);
    for (std::size_t i = 0; type != nullptr && i < type->fieldCount; ++i) {
      if ((type->fields[i].bit & type->identity) != 0) add(type->fields[i].name);
    }
  } else {
    for (const FieldRow& row : KindOf<Record>::fields) {
      if ((row.mask & KindOf<Record>::identity) != 0) add(row.name);
    }
  }
  return name;
}

template <typename Record>
class KnownNames {
 public:
  // Of a record that was read exactly.
  void learn(const Record& record) {
    std::string name = nameOf(record);
    if constexpr (isLine<Record>) {
      const char* const comment = commentOf(record);
      if (comment != nullptr && !isPlain(comment)) hidden_[name] = comment;
    }
    if (!seen_.insert(name).second) unclear_.insert(std::move(name));
  }
  void endLearning() noexcept { seen_.clear(); }

  // Before another comment than the one that was learnt stands in a record, or in one that is
  // added.
  void changeComment(const Record& record) {
    if constexpr (isLine<Record>) {
      const char* const comment = commentOf(record);
      std::string name = nameOf(record);
      const bool isShown = comment == nullptr || isPlain(comment);
      if (!isShown || hidden_.count(name) != 0) unclear_.insert(std::move(name));
    }
  }

  bool standsOnce(const Record& record) const { return unclear_.count(nameOf(record)) == 0; }

  // Gives a record that the flavour itself has read the bytes of its comment that no terminal
  // shows. False when they are not known.
  bool complete(Record& record) const {
    if constexpr (isLine<Record>) {
      const std::string name = nameOf(record);
      if (unclear_.count(name) != 0) return false;
      const auto hidden = hidden_.find(name);
      if (hidden == hidden_.end()) return true;
      if (hidden->second.size() != std::strlen(commentOf(record))) return false;
      // It lies in the record's own memory.
      std::memcpy(const_cast<char*>(commentOf(record)), hidden->second.data(),
                  hidden->second.size());
    }
    return true;
  }

 private:
  static bool isPlain(const char* text) noexcept {
    while (isShown(*text)) ++text;
    return *text == '\0';
  }

  std::unordered_set<std::string> seen_;
  std::unordered_set<std::string> unclear_;  // of several records, or of one that became another
  std::unordered_map<std::string, std::string> hidden_;  // comments, by name
};

}  // namespace faces
