// What the kinds of registries are asked for at the command line.
#include <algorithm>
#include <iterator>

#include "file_verbs.h"
#include "record_verbs.h"
#include "transfer.h"
#include "verbs.h"

namespace tool {
namespace {

constexpr Argument name{"NAME", "the variable's name", &Words::name, Need::MustFilled};
constexpr Argument pattern{"PATTERN", "a part of a field, or with * and ? the whole of it",
                           &Words::pattern, Need::MustFilled};
constexpr Argument raw{"--raw", "without the quotes around it", &Words::raw};
constexpr Argument defaultValue{"--default", "what to print when there is none",
                                &Words::defaultValue};
constexpr Argument valueType{"--type",
                             "what the value must be; else string",
                             &Words::type,
                             Need::May,
                             {"string", "uint", "sint", "double", "bool"}};
constexpr Argument comment{"--comment", "the comment; without it the old one stays",
                           &Words::comment};
constexpr Argument noComment{"--no-comment", "take the comment away", &Words::noComment};
constexpr Argument input{"INPUT", "a file; - or nothing: standard input", &Words::input};
constexpr Argument replace{"--replace", "what is not in the input goes", &Words::replace};
constexpr Argument compact{"--compact", "add the line as NAME=VALUE", &Words::compact};

constexpr const char* listHelp = "print every record";
constexpr const char* findHelp = "print the records of which a field matches";
constexpr const char* importHelp =
    "set records from JSON or from lines as list prints them, all or none";

constexpr Verb importVerb{"import", importHelp, Whole(import), {&input, &replace}, true};
constexpr Verb findVerb{"find", findHelp, Read(find), {&pattern, &jsonArgument}};
constexpr Verb listVerb{"list", listHelp, Read(list), {&jsonArgument}};

constexpr Argument to{"TO", "the file to make", &Words::other, Need::MustFilled};
constexpr Argument from{"FROM", "the file to take it from", &Words::other, Need::MustFilled};
constexpr Argument force{"--force", "replace TO if it exists", &Words::force};

// The verbs that every kind has, behind those that differ.
constexpr Verb commonVerbs[] = {
    {"apply",
     "run lines of such verbs on standard input or in a file, all or none",
     Change{apply},
     {&input}},
    {"export", "print everything as JSON, for import", Read(exportJson), {}},
    {"dump", "print every record, field by field", Read(dump), {}},
    {"repair",
     "keep what is whole of a damaged registry and set the original aside",
     Whole(repair),
     {&dropArgument, &jsonArgument},
     true},
    {"edit", "change the registry in your editor, all of it or nothing", Whole(edit), {}, true},
    {"watch", "print each change as it is committed", Whole(watch), {&jsonArgument}},
    {"backup", "copy what the registry holds to another file", Whole(backup), {&to, &force}},
    {"restore", "make the registry hold what another file does", Whole(restore), {&from}, true},
};

// --- bin ---

constexpr Argument number{"VALUE", "a whole number of 32 bits", &Words::value, Need::Must};
constexpr Argument bigEndian{"--big-endian", "length fields have their high byte first",
                             &Words::bigEndian};
constexpr Verb unsetVerb{"unset", "delete every variable of that name", Change{remove}, {&name}};
constexpr Verb binVerbs[] = {
    listVerb,
    {"get",
     "print the value of the first variable of that name",
     Read(get),
     {&name, &valueType, &defaultValue, &jsonArgument}},
    findVerb,
    {"set",
     "add a variable, or change every one of that name",
     Change{set},
     {&name, &number, &comment, &noComment, &ifValueArgument, &ifAbsentArgument,
      &ifPresentArgument}},
    unsetVerb,
    importVerb,
};

// --- var ---

constexpr Argument text{"VALUE", "one line, in double quotes to keep blanks", &Words::value,
                        Need::Must};
constexpr Verb varVerbs[] = {
    listVerb,
    {"get",
     "print the value of the first line that assigns the name",
     Read(get),
     {&name, &valueType, &raw, &defaultValue, &jsonArgument}},
    findVerb,
    {"set",
     "add a variable, or change every line that assigns it",
     Change{set},
     {&name, &text, &comment, &noComment, &compact, &ifValueArgument, &ifAbsentArgument,
      &ifPresentArgument}},
    {"unset", "delete every line that assigns the name", Change{remove}, {&name}},
    {"import", importHelp, Whole(import), {&input, &replace, &compact}, true},
};

// --- services ---

constexpr Argument wanted{"NAME|PORT[/PROTOCOL]", "the service; a name may hold * and ?",
                          &Words::pattern, Need::MustFilled};
constexpr Argument service{"NAME", "the service", &Words::name, Need::MustFilled};
constexpr const char* portHelp = "for example 8080/tcp";
constexpr Argument port{"PORT/PROTOCOL", portHelp, &Words::port, Need::MustFilled};
constexpr Argument somePort{"PORT/PROTOCOL", portHelp, &Words::port, Need::MayFilled};
constexpr Argument aliases{"ALIAS", "other names; without any the old ones stay", &Words::aliases};
constexpr Argument noAliases{"--no-aliases", "take the aliases away", &Words::noAliases};
constexpr Verb servicesVerbs[] = {
    listVerb,
    {"find",
     "print the services of a name, an alias or a port",
     Read(findService),
     {&wanted, &jsonArgument}},
    {"set",
     "add a service, or change the one of that name and protocol",
     Change{set},
     {&service, &port, &aliases, &comment, &noAliases, &noComment}},
    {"add",
     "add a service; one of that name and protocol must not be there",
     Change{add},
     {&service, &port, &aliases, &comment}},
    {"change",
     "give the service of that name and protocol another port, aliases or comment",
     Change{change},
     {&service, &port, &aliases, &comment, &noAliases, &noComment}},
    {"remove",
     "delete the one service of that name (and port and protocol)",
     Change{remove},
     {&service, &somePort}},
    importVerb,
};

// --- global ---

constexpr const char* typeHelp = "instance, services or variable";
constexpr Argument globalFile{"--file",
                              "the registry file; else $ZOR_GLOBAL_REG_PATHNAME, else global.reg",
                              &Words::file, Need::MayFilled};
constexpr std::array<const char*, 5> types{"instance", "services", "variable"};
constexpr Argument someType{"--type", typeHelp, &Words::type, Need::May, types};
constexpr Argument type{"--type", typeHelp, &Words::type, Need::Must, types};
constexpr Argument fields{"FIELD=VALUE", "the record's fields", &Words::fields};
constexpr Argument keyFields{"FIELD=VALUE", "fields to find it by", &Words::fields};
constexpr Argument newFields{"--to",
                             "FIELD=VALUE words to set; an empty VALUE takes the field away",
                             &Words::newFields, Need::Must};
constexpr Verb globalVerbs[] = {
    {"list", "print every record with the fields it holds", Read(list), {&someType, &jsonArgument}},
    {"get",
     "print the first record that holds the given fields",
     Read(get),
     {&type, &keyFields, &jsonArgument}},
    findVerb,
    {"set", "add a record, or give the one of its name the fields", Change{set}, {&type, &fields}},
    {"add", "add a record; one of its name must not be there", Change{add}, {&type, &fields}},
    {"change",
     "give the one record that holds the given fields new values",
     Change{change},
     {&type, &keyFields, &newFields}},
    {"delete",
     "delete the one record that holds the given fields",
     Change{remove},
     {&type, &keyFields}},
    importVerb,
};

// In the order of the kinds.
constexpr Group groups[] = {
    {nameOf(Kind::Bin),
     "a registry of binary variables",
     {&fileArgument, &bigEndian},
     std::begin(binVerbs),
     std::end(binVerbs)},
    {nameOf(Kind::Global),
     "the global registry",
     {&globalFile},
     std::begin(globalVerbs),
     std::end(globalVerbs)},
    {nameOf(Kind::Var),
     "a text registry of profile variables",
     {&fileArgument},
     std::begin(varVerbs),
     std::end(varVerbs)},
    {nameOf(Kind::Services),
     "a text registry of network services",
     {&fileArgument},
     std::begin(servicesVerbs),
     std::end(servicesVerbs)},
};

}  // namespace

const Group& groupOf(Kind kind) { return groups[static_cast<int>(kind)]; }

void forEachVerb(const Group& group, const std::function<void(const Verb&)>& visit) {
  std::for_each(group.first, group.end, visit);
  std::for_each(std::begin(commonVerbs), std::end(commonVerbs), visit);
}

}  // namespace tool
