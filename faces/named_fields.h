// A record as named fields with values, every value a text: what the C interface holds and what the
// tool prints as JSON.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace faces {

class NamedFields {
 public:
  using Field = std::pair<std::string, std::string>;

  // The value, or null when the field is absent.
  const std::string* find(std::string_view name) const noexcept {
    for (const Field& field : fields_) {
      if (field.first == name) return &field.second;
    }
    return nullptr;
  }
  bool has(std::string_view name) const noexcept { return find(name) != nullptr; }
  // The value, empty when the field is absent.
  const std::string& text(std::string_view name) const noexcept {
    static const std::string none;
    const std::string* const value = find(name);
    return value == nullptr ? none : *value;
  }

  // A field that is new comes last. `value` may be one of this record's own.
  void set(std::string_view name, std::string value) {
    for (Field& field : fields_) {
      if (field.first == name) {
        field.second = std::move(value);
        return;
      }
    }
    fields_.emplace_back(name, std::move(value));
  }
  void remove(std::string_view name) noexcept {
    for (auto field = fields_.begin(); field != fields_.end(); ++field) {
      if (field->first != name) continue;
      fields_.erase(field);
      return;
    }
  }

  const std::vector<Field>& all() const noexcept { return fields_; }

 private:
  std::vector<Field> fields_;
};

}  // namespace faces
