#include "PMSUsage.h"

#include "PMSShownText.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace {

// The subcommands chosen on the command line, outermost first, and the innermost one.
const CLI::App& innermost(const CLI::App& app, std::string& path) {
    const CLI::App* current = &app;
    while (true) {
        const auto chosen = current->get_subcommands();
        if (chosen.empty()) return *current;
        current = chosen.front();
        path += (path.empty() ? "" : " ") + current->get_name();
    }
}

std::string subcommandList(const CLI::App& app) {
    std::string list;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        list += (list.empty() ? "" : ", ") + sub->get_name();
    }
    return list;
}

// Whether `message` starts with the name of an option ("--amount: ...") or of a positional ("ID is required").
bool startsWithArgumentName(const std::string& message) {
    if (!message.empty() && message[0] == '-') return true;
    std::size_t capitals = 0;
    while (capitals < message.size() && message[capitals] >= 'A' && message[capitals] <= 'Z') ++capitals;
    return capitals >= 2 && capitals < message.size() && (message[capitals] == ':' || message[capitals] == ' ');
}

// "vlmsdk-pms: pay --amount: wants ..." or "vlmsdk-pms: sandbox: needs ...".
std::string compose(const std::string& path, const std::string& message) {
    const std::string shown = PMSShownText::line(message);
    if (path.empty()) return "vlmsdk-pms: " + shown;
    return "vlmsdk-pms: " + path + (startsWithArgumentName(shown) ? " " : ": ") + shown;
}

std::string unknownWord(const CLI::App& inner, const std::string& path, const std::string& word) {
    if (inner.get_subcommands([](const CLI::App*) { return true; }).empty()) {
        return compose(path, "unexpected argument '" + word + "'");
    }
    return compose(path, "'" + word + "' is not a subcommand; " + (path.empty() ? "the subcommands" : "its subcommands") +
                             " are " + subcommandList(inner));
}

}  // namespace

CLI::Validator PMSUsage::rule(PMSArgumentRules::Kind kind) {
    return CLI::Validator([kind](std::string& text) { return PMSArgumentRules::problem(kind, text); }, "");
}

std::string PMSUsage::line(const CLI::App& app, const CLI::ParseError& error) {
    std::string path;
    const CLI::App& inner = innermost(app, path);
    std::string message = error.what();
    // CLI11's "Could not convert: --json = maybe", for a flag given a value.
    if (const std::string prefix = "Could not convert: "; message.rfind(prefix, 0) == 0) {
        const auto equals = message.find(" = ", prefix.size());
        if (equals != std::string::npos) {
            message = message.substr(prefix.size(), equals - prefix.size()) +
                      ": wants no value, or true or false; not '" + message.substr(equals + 3) + "'";
        }
    }
    // An option of the tool itself, such as --base-url, belongs to no subcommand.
    const std::string name = message.substr(0, message.find_first_of(": "));
    if (!inner.get_option_no_throw(name) && app.get_option_no_throw(name)) path.clear();
    // CLI11's "Value x not in range 0 to 65535".
    if (const auto at = message.find(": Value "), range = message.find(" not in range "); at != std::string::npos &&
                                                                                        range != std::string::npos) {
        const std::string value = message.substr(at + 8, range - at - 8);
        message = message.substr(0, at) + ": wants a whole number from " + message.substr(range + 14) + ", not '" +
                  value + "'";
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error) && message.find("subcommand") != std::string::npos) {
        const auto left = app.remaining(true);
        if (!left.empty()) return unknownWord(inner, path, left.front());
        return compose(path, "needs a subcommand: " + subcommandList(inner));
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) && message.find(" missing") != std::string::npos) {
        return compose(path, message.substr(0, message.find(':')) + " needs a value");
    }
    return compose(path, message);
}

std::string PMSUsage::leftoverLine(const CLI::App& app) {
    std::string path;
    const CLI::App& inner = innermost(app, path);
    auto left = app.remaining(true);
    // "--" ends the options: what follows went to the arguments, and the marker itself is no word of its own.
    std::erase(left, "--");
    if (!left.empty()) return unknownWord(inner, path, left.front());
    if (path.empty()) return compose("", "needs a subcommand: " + subcommandList(app));
    return "";
}
