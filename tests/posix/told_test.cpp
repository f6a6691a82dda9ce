// What an operation does to the files, and writes into the trace and the log: undisturbed, and with
// each of its calls failing in turn.
#include "support/told.h"

#include <cerrno>
#include <cstring>
#include <regex>
#include <sstream>

#include "support/flavours.h"
#include "sysservices/environment.h"

namespace {

using flavours::Verb;

struct Case {
  const char* name;
  Verb verb;
  Entry entry;
  std::uint64_t features;
  const char* has;  // files before, "r bkp tmp", perhaps "large", and whether "links" are to be had
  bool fails = true;  // each of its calls is to
};
const Case cases[] = {
    {"get", Verb::Get, {"b", 2}, unique, "r links"},
    {"get from a large file", Verb::Get, {"b", 2}, unique, "r large links"},
    {"get what is not there", Verb::Get, {"x", 2}, unique, "r links", false},
    {"get from a backup", Verb::Get, {"b", 2}, unique, "bkp links", false},
    {"scan", Verb::Scan, {}, unique, "r links"},
    {"add", Verb::Add, {"c", 3}, unique, "r links"},
    {"add to a large file", Verb::Add, {"d", 4}, verified, "r large links"},
    {"add what is there", Verb::Add, {"b", 3}, unique, "r links", false},
    {"add in place", Verb::Add, {"c", 3}, unverified, "r links"},
    {"add to no file", Verb::Add, {"c", 3}, verified, "links"},
    {"change", Verb::Change, {"b", 22}, verified, "r links"},
    {"change unverified", Verb::Change, {"b", 22}, unverified, "r links"},
    {"change without links", Verb::Change, {"b", 22}, unverified, "r"},
    {"change what is not there", Verb::Change, {"x", 22}, unique, "r links", false},
    {"delete after a crash", Verb::Delete, {"a", 1}, unique, "bkp tmp links"},
    {"delete beside an old backup", Verb::Delete, {"a", 1}, unverified, "r bkp links", false},
    {"many", Verb::Many, {"", 2}, unique, "r links"},
};

// Both engines once with each call failing, and all flavours undisturbed.
bool isOfItsEngine(const flavours::Row& row) {
  return row.name != std::string("global") && row.name != std::string("services");
}

class ToldTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    writeFile(log_, "");
    (void)ossEnvironmentSet("ZOROSSE_LOG", log_.c_str());
  }
  void TearDown() override {
    (void)ossEnvironmentSet("ZOROSSE_LOG", nullptr);
    RegistryTest::TearDown();
  }

  // Runs the operation, call `k` of which (from 1) fails, and gives how many are to fail.
  unsigned long run(const flavours::Row& row, const Case& each, unsigned long k,
                    std::ostream& told) {
    clearDirectory();
    const auto has = [&](const char* what) { return std::strstr(each.has, what) != nullptr; };
    std::string content = row.stored({"a", 1}) + row.stored({"b", 2});
    while (has("large") && content.size() < 9000) content += row.stored({"c", 3});
    if (each.has[0] == 'r') writeFile(registry(), content);
    if (has("bkp")) writeFile(backup(), content);
    if (has("tmp")) writeFile(temporary(), "unfinished");
    const auto handle = row.open(registry(), each.features);
    std::string failing = "undisturbed";
    unsigned long calls = 0;
    Code code = 0;
    {
      const FaultHook hook([&](const std::string& call) {
        if (++calls == k) failing = call;
        return calls == k ? EIO : call == "link" && !has("links") ? EPERM : 0;
      });
      g_pGTCB->enabled = k == 0 && !has("large") ? 1 : 0;
      code = handle->run(each.verb, each.entry);
      g_pGTCB->enabled = 0;
    }
    const std::string now = readFile(registry());
    const GenRegReturnCode* known = genRegFindReturnCode(code);
    told << "== " << each.name << ", " << failing << ' ' << k << ": "
         << (known == nullptr ? std::to_string(code) : known->name)
         << (now == content ? ", old"
             : now.empty()  ? ", empty"
                            : ", new")
         << (handle->committed() ? ", committed" : "") << ", " << files() << '\n';
    std::istringstream lines(readFile(log_));
    for (std::string line; std::getline(lines, line);) told << shortened(line);
    writeFile(log_, "");
    return each.fails && isOfItsEngine(row) ? calls : 0;
  }

  // A line of the log, without what differs from run to run, and with names instead of numbers.
  std::string shortened(std::string line) const {
    static const std::pair<std::regex, const char*> changes[] = {
        {std::regex("^time=.* event="), ""},
        {std::regex("(callee|calleecode|probe|code)=0x[0-9A-F]* "), ""},
        {std::regex("^entry .* routine=([^ ]*) .*"), "> $1"},
        {std::regex("^exit .* name=(.*)"), "< $1"},
        {std::regex(" (callee)?(routine|name)=(GENREG_RC_)?"), " "},
        {std::regex("(owned by user\" value[0-9]=)[0-9]*"), "$1its number"},
        {std::regex("=2f[0-9a-f]{8,}"), "=path"},
        {std::regex(directory_ + "/"), ""},
    };
    for (const auto& [what, instead] : changes) line = std::regex_replace(line, what, instead);
    return line + '\n';
  }

  const std::string log_ = "told.log";
};

TEST_F(ToldTest, EachFailureIsToldAndEachStepTraced) {
  for (const flavours::Row& row : flavours::rows) {
    std::ostringstream told;
    for (const Case& each : cases) {
      const unsigned long calls = run(row, each, 0, told);
      for (unsigned long k = 1; k <= calls; ++k) run(row, each, k, told);
    }
    expectTold(row.name, told.str());
  }
}

}  // namespace
