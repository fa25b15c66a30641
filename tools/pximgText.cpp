// Text of pximg: numbers and JSON, checks of whole-number options, and the one-line report of a command-line
// error with the help of the subcommand the arguments reached.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "pximgTool.h"

namespace pximg {

namespace {

// Shortest decimal text that reads back as the same value of type T (at most maxPrecision digits always
// do), without an exponent for integers of up to 17 digits.
template <typename T> std::string shortestText(T value, int maxPrecision) {
    char text[40];
    int precision = 1;
    for (; precision < maxPrecision; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, double(value));
        if (static_cast<T>(std::strtod(text, nullptr)) == value) {
            break;
        }
    }
    const double magnitude = std::fabs(double(value));
    const int integerDigits = magnitude >= 1.0 && magnitude < 1e17 ? int(std::log10(magnitude)) + 1 : 0;
    std::snprintf(text, sizeof text, "%.*g", std::max(precision, integerDigits), double(value));
    return text;
}

// The subcommands the arguments name, from the top: {app, info} for "pximg info x.pxi".
std::vector<const CLI::App *> reachedCommands(const CLI::App &app, int argc, char **argv,
                                              std::string &unknown) {
    std::vector<const CLI::App *> chain{&app};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (!arg.empty() && arg[0] == '-') {
            continue;
        }
        const CLI::App *current = chain.back();
        const auto subs = current->get_subcommands([](const CLI::App *) { return true; });
        if (subs.empty()) {
            break;
        }
        const auto found =
            std::find_if(subs.begin(), subs.end(), [&](const CLI::App *s) { return s->check_name(arg); });
        if (found == subs.end()) {
            unknown = arg;
            break;
        }
        chain.push_back(*found);
    }
    return chain;
}

// "pximg filter box" for a chain.
std::string commandName(const std::vector<const CLI::App *> &chain) {
    std::string name = "pximg";
    for (size_t i = 1; i < chain.size(); ++i) {
        name += " " + chain[i]->get_name();
    }
    return name;
}

// "box, min, max" for the subcommands of a command.
std::string subcommandList(const CLI::App *command) {
    std::string list;
    for (const CLI::App *sub : command->get_subcommands([](const CLI::App *) { return true; })) {
        list += (list.empty() ? "" : ", ") + sub->get_name();
    }
    return list;
}

} // namespace

std::string shortest(double value) {
    return shortestText(value, 17);
}
std::string shortest(float value) {
    return shortestText(value, 9);
}
std::string shortest(int32_t value) {
    return std::to_string(value);
}

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string jsonNumber(double value) {
    return std::isfinite(value) ? shortest(value) : "null";
}

std::string jsonString(const std::string &text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

CLI::Validator wholeNumber(long lo, long hi) {
    const std::string range = std::to_string(lo) + ".." + std::to_string(hi);
    return CLI::Validator(
        [lo, hi, range](std::string &text) -> std::string {
            char *end = nullptr;
            errno = 0;
            const long value = std::strtol(text.c_str(), &end, 10);
            if (text.empty() || *end != '\0' || errno != 0) {
                return "'" + text + "' is not a whole number (use " + range + ")";
            }
            if (value < lo || value > hi) {
                return text + " is outside " + range;
            }
            return "";
        },
        "INT in " + range);
}

int reportUsageError(const CLI::App &app, const CLI::ParseError &error, int argc, char **argv) {
    std::string unknown;
    const std::vector<const CLI::App *> chain = reachedCommands(app, argc, argv, unknown);
    const CLI::App *last = chain.back();
    const std::string name = commandName(chain);
    const std::string hint = " (see " + name + " --help)";
    const bool needsSubcommand = last->get_require_subcommand_min() > 0;
    const std::string where = chain.size() == 1 ? "" : name.substr(6) + ": ";
    if (!unknown.empty() && needsSubcommand) {
        std::cerr << "pximg: " << where << "unknown command '" << unknown << "' (use " << subcommandList(last)
                  << ")" << hint << '\n';
        return 1;
    }
    if (chain.size() == 1 && unknown.empty() && argc > 1 && argv[1][0] == '-') { // options of no command
        std::cerr << "pximg: unknown option '" << argv[1] << "'" << hint << '\n';
        return 1;
    }
    if (needsSubcommand && dynamic_cast<const CLI::RequiredError *>(&error) != nullptr) {
        std::cerr << "pximg: " << where << "a command is needed: one of " << subcommandList(last) << hint
                  << '\n';
        return 1;
    }
    std::cerr << "pximg: " << error.what() << hint << '\n';
    return 1;
}

} // namespace pximg
