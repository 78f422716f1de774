#include "UsageProblem.hpp"

#include <algorithm>

#include "Failure.hpp"
#include "FileType.hpp"

namespace zavtool {
namespace {

std::vector<std::string> verbsOf(const CLI::App& app) {
    std::vector<std::string> verbs;
    for (const CLI::App* const verb :
         app.get_subcommands([](const CLI::App* /*each*/) { return true; })) {
        verbs.push_back(verb->get_name());
    }
    return verbs;
}

/// Describes the words that the parser did not expect. Reports an unknown option first, because the
/// words after the option may be its values.
std::string problemOfExtras(const std::vector<std::string>& rest) {
    const auto option = std::find_if(rest.begin(), rest.end(),
                                     [](const std::string& word) { return word.starts_with('-'); });
    return option != rest.end() ? shown(*option) + ": no such option"
                                : shown(rest.front()) + ": one argument too many";
}

/// "zav decode INPUT OUTPUT"
std::string formOf(const CLI::App& app, const CLI::App& verb) {
    std::string form = app.get_name() + " " + verb.get_name();
    for (const CLI::Option* const option : verb.get_options()) {
        form += option->get_positional() ? " " + option->get_name(true) : "";
    }
    return form;
}

}  // namespace

std::string verbHint(const CLI::App& app) {
    return "; use " + listed(verbsOf(app)) + ", see 'zav --help'";
}

void requireVerb(const CLI::App& app, const std::string& word) {
    const auto verbs = verbsOf(app);
    if (std::find(verbs.begin(), verbs.end(), word) == verbs.end()) {
        throw UsageFailure(shown(word) + ": not a verb of zav" + verbHint(app));
    }
}

void requireVerbFirst(const CLI::App& app, const std::vector<std::string>& words) {
    const auto verbs = verbsOf(app);
    const auto verb = std::find_first_of(words.begin(), words.end(), verbs.begin(), verbs.end());
    for (const std::string& word : words) {
        const std::string option = word.substr(0, word.find('='));
        if (!word.starts_with('-')) {
            requireVerb(app, word);
            return;
        }
        if (verb != words.end() && app.get_option_no_throw(option) == nullptr &&
            app.get_subcommand(*verb)->get_option_no_throw(option) != nullptr) {
            throw UsageFailure(option + ": not an option before the verb; put it after '" + *verb +
                               "'");
        }
    }
}

std::string problemOf(const CLI::ParseError& error, const CLI::App& app) {
    std::string text = error.what();
    const auto verbs = app.get_subcommands();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !app.remaining(true).empty()) {
        return problemOfExtras(app.remaining(true));
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !verbs.empty()) {
        return text + ": " + formOf(app, *verbs.front());
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        const bool isMissing = text.ends_with("missing");
        return text.substr(0, text.find(':')) + (isMissing ? ": needs a value" : ": given twice");
    }
    return text;
}

}  // namespace zavtool
