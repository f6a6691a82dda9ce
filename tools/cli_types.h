// The names of the command-line parser, for declarations: its one header takes longer to compile
// than any file here.
#pragma once

namespace CLI {
class App;
class Option;
class ParseError;
}  // namespace CLI
