#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// Describes mistakes in a command line, in plain words.
namespace zavtool {

/// "; use record, play, ... or help, see 'zav --help'"
std::string verbHint(const CLI::App& app);

/// Throws `UsageFailure` if `word` is not a verb.
void requireVerb(const CLI::App& app, const std::string& word);

/// Throws `UsageFailure` if the first word other than an option is not a verb. Also throws if an
/// option of a verb stands before the verb. CLI11 would print the help and succeed for "zav bogus
/// --help". If an option stands before the verb, CLI11 would mistake the option's value for the
/// verb.
void requireVerbFirst(const CLI::App& app, const std::vector<std::string>& words);

/// CLI11's message in plain words.
std::string problemOf(const CLI::ParseError& error, const CLI::App& app);

}  // namespace zavtool
