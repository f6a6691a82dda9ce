// What the records and keys of zorgenreg_registries.hpp may hold, whatever they are stored through.
// Nothing here is for callers.
//
//   Complaint complaint;
//   check(Variable{"Timeout", 30}, complaint);
//   if (complaint.code != 0) use(complaint.words);
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>

#include "genreg_binvarval.h"
#include "genreg_global.h"
#include "genreg_services.h"
#include "zorgenreg_records.hpp"

namespace zor::detail {

// Why a record cannot be stored; the first complaint stays.
struct Complaint {
  unsigned int code = 0;
  std::string words{};

  // Whether no stored text is like that, so that a key of it finds nothing.
  bool isOfBytes() const noexcept {
    return code == GENREG_RC_BAD_ARGUMENT || code == OSS_RC_BUFFER_TOO_SMALL;
  }
  void add(unsigned int found, const std::string& text) {
    if (code == 0) *this = {found, text};
  }
  void checkText(const char* name, const std::string& text, const char* barred = "") {
    const bool isOdd =
        text.find('\0') != std::string::npos || text.find_first_of(barred) != std::string::npos;
    if (isOdd) add(GENREG_RC_BAD_ARGUMENT, std::string(name) + " holds a byte that it may not");
  }
  void checkName(const char* name, const std::string& text, const char* barred = "") {
    if (text.empty()) add(GENREG_RC_NO_ARGUMENT, std::string(name) + " is empty");
    checkText(name, text, barred);
  }
  // A text of a field of `size` bytes and a terminator.
  void checkSize(const char* name, const std::string& text, std::size_t size) {
    checkText(name, text);
    if (text.size() <= size) return;
    add(OSS_RC_BUFFER_TOO_SMALL,
        std::string(name) + " has at most " + std::to_string(size) + " bytes");
  }
};

constexpr const char* noLine = "\r\n";      // no text of a line holds them
constexpr const char* noWord = " \t\r\n#";  // nor a word of it these

// The name of a variable in a record, and in a key: another program may have filled the field
// without a terminator.
inline void checkVariable(const std::string& name, bool isKey, Complaint& complaint) {
  complaint.checkName("Variable", name);
  complaint.checkSize("Variable", name, sizeof BinVarValRecord::Variable - (isKey ? 0 : 1));
}
inline void checkAssignment(const std::string& name, Complaint& complaint) {
  complaint.checkName("Variable", name, noLine);
}
inline void checkName(const std::string& name, Complaint& complaint) {
  complaint.checkName("Name", name, noWord);
}
inline void checkPort(std::uint16_t port, Complaint& complaint) {
  if (port == 0) complaint.add(GENREG_RC_SERVICES_PACK_NO_PORT, "Port is 0");
}
inline void checkProtocol(const std::string& protocol, Complaint& complaint) {
  complaint.checkName("Protocol", protocol, noWord);
}

inline void check(const Variable& record, Complaint& complaint) {
  checkVariable(record.name, false, complaint);
  complaint.checkSize("Comment", record.comment, sizeof BinVarValRecord::Comment - 1);
}
inline void check(const Assignment& record, Complaint& complaint) {
  checkAssignment(record.name, complaint);
  complaint.checkText("Value", record.value, noLine);
  if (record.comment) complaint.checkText("Comment", *record.comment, noLine);
}
inline void check(const Service& record, Complaint& complaint) {
  checkName(record.name, complaint);
  checkPort(record.port, complaint);
  checkProtocol(record.protocol, complaint);
  const char* const known[] = {"tcp", "udp", "ddp", "divert"};
  if (std::find(std::begin(known), std::end(known), record.protocol) == std::end(known)) {
    complaint.add(GENREG_RC_SERVICES_BAD_PROTOCOL, "Protocol is not tcp, udp, ddp or divert");
  }
  for (const std::string& alias : record.aliases) complaint.checkName("Aliases", alias, noWord);
  if (record.aliases.size() >= SERVICES_ALIAS_SLOTS) {
    complaint.add(OSS_RC_BUFFER_TOO_SMALL, "Aliases has at most 127 words");
  }
  if (record.comment) complaint.checkText("Comment", *record.comment, noLine);
}

template <typename Record>
constexpr std::uint32_t globalType = std::is_same_v<Record, GlobalInstance>
                                         ? GLOBALREG_RECORD_INSTANCE
                                         : (std::is_same_v<Record, GlobalServices>
                                                ? GLOBALREG_RECORD_SERVICES
                                                : GLOBALREG_RECORD_VARIABLE);

// Hands each field of a global record to `take`, with its row of the table in genreg_global.h.
template <typename Record, typename Take>
void walk(Record& record, const Take& take) {
  const GlobalRegField* row = globalRegFindType(globalType<std::remove_const_t<Record>>)->fields;
  const auto each = [&](auto&... fields) { (take(*row++, fields), ...); };
  std::apply(each, fieldsOf(record));
}

template <typename Record, std::enable_if_t<isGlobalRecord<Record>, int> = 0>
void check(const Record& record, Complaint& complaint) {
  walk(record, [&](const GlobalRegField& row, const auto& value) {
    if constexpr (std::is_same_v<std::decay_t<decltype(*value)>, std::string>) {
      if (value) complaint.checkSize(row.name, *value, row.width - 1);
    }
  });
}

}  // namespace zor::detail
