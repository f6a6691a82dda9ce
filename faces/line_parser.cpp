#include "faces/line_parser.h"

#include <vector>

#include "faces/exact_registry.h"
#include "faces/line_layout.h"

namespace faces {

class LineParser::Flavour {
 public:
  virtual ~Flavour() = default;
  virtual Line parse(const std::string& line) = 0;
  virtual unsigned int format(const NamedFields& record, std::string& line) = 0;
};

template <typename Engine, typename Record>
class LineParser::FlavourOf final : public Flavour {
 public:
  FlavourOf() : hooks_("line", &code_) { hooks_.compareExactly(true); }

  Line parse(const std::string& text) override {
    Line line;
    Record record;
    std::string bytes = text + '\n';
    const bool isWhole = text.size() <= GENREG_LINE_SIZE - 2 && text.find('\0') == text.npos;
    line.code = code_ != 0 ? code_ : GENREG_RC_NO_LINE;
    if (code_ == 0 && isWhole) line.code = hooks_.readLine(record, bytes.data());
    if (line.code != 0) return line;
    if constexpr (std::is_same_v<Record, ServiceEntryRecord>) {
      line.isEntry = (record.Contains & SERVICES_HAS_SERVICE) != 0;
      line.isOdd = (record.Contains & SERVICES_BAD_PORT) != 0;
    } else {
      line.isEntry = (record.Contains & VARVAL_HAS_VARIABLE) != 0;
    }
    if (line.isEntry) line.fields = fieldsOf(record);
    return line;
  }

  unsigned int format(const NamedFields& record, std::string& line) override {
    Made<Record> made;
    if (const Complaint wrong = makeRecord(record, nullptr, made)) return wrong.code;
    char text[GENREG_LINE_SIZE] = "";
    // A line without the form of a record gives no look to one.
    if (!line.empty() && parse(line).isEntry) (void)line.copy(text, sizeof text - 1);
    const std::string replaced = text;
    const unsigned int code = code_ != 0 ? code_ : hooks_.writeLine(made.record, text);
    if (code != 0) return code;
    line = text;
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (std::is_same_v<Record, ServiceEntryRecord> && !replaced.empty()) {
      line = reshapedServices(LineLayout(), replaced, line);
    }
    return 0;
  }

 private:
  unsigned int code_ = 0;
  Exact<Engine, Record> hooks_;
};

LineParser::LineParser(const std::string& kind) {
  if (kind == nameOf(KindOf<ServiceEntryRecord>::kind)) {
    flavour_ = std::make_unique<FlavourOf<GenRegServices, ServiceEntryRecord>>();
  } else {
    flavour_ = std::make_unique<FlavourOf<GenRegVarVal, VarValRecord>>();
  }
}

LineParser::~LineParser() = default;

LineParser::Line LineParser::parse(const std::string& line) const { return flavour_->parse(line); }

unsigned int LineParser::format(const NamedFields& record, std::string& line) const {
  return flavour_->format(record, line);
}

}  // namespace faces
