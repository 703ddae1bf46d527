#pragma once

#include "PMSArgumentRules.h"

#include <string>

namespace CLI {
class App;
class ParseError;
class Validator;
}  // namespace CLI

/// How the tool's command line speaks through CLI11: the argument rules as validators, and every usage
/// error as one line that names the flag (or subcommand) and what it wants, in place of CLI11's own wording
/// where that misleads ("A subcommand is required" for a misspelt one, ranges with 300-digit bounds).
class PMSUsage {
public:
    /// A validator applying `kind`'s rule; CLI11 puts the option's name before its message.
    static CLI::Validator rule(PMSArgumentRules::Kind kind);
    /// The line for `error`, raised while parsing `app`: "vlmsdk-pms: pay --amount: wants ...".
    static std::string line(const CLI::App& app, const CLI::ParseError& error);
    /// The line for what a parse that passed left wrong: a word that is no subcommand, an extra argument, or
    /// no subcommand at all. Empty when nothing is.
    static std::string leftoverLine(const CLI::App& app);
};
