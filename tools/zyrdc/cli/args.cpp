// args.cpp - option parsing and number parsing for every subcommand.
#include "cli/args.hpp"

#include <cerrno>
#include <cstdlib>

#include "cli/errors.hpp"

namespace zyrdc::tool {

std::vector<std::string> ParsedArgs::Values(std::string_view long_name) const {
    std::vector<std::string> out;
    for (const auto& [name, value] : options) {
        if (name == long_name) {
            out.push_back(value);
        }
    }
    return out;
}

ParsedArgs ParseArgs(std::span<char* const> args, std::span<const OptionDef> known) {
    ParsedArgs parsed;
    bool options_ended = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view arg = args[i];
        if (options_ended || arg.size() < 2 || arg[0] != '-') {
            parsed.operands.emplace_back(arg);
            continue;
        }
        if (arg == "--") {
            options_ended = true;
            continue;
        }
        if (arg == "-h" || arg == "--help") {
            parsed.help = true;
            continue;
        }
        // Find the option and any value attached to it ("--name=value", "-nVALUE").
        const OptionDef* option = nullptr;
        std::optional<std::string_view> attached;
        if (arg.starts_with("--")) {
            std::string_view name = arg.substr(2);
            if (const std::size_t eq = name.find('='); eq != std::string_view::npos) {
                attached = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
            for (const OptionDef& s : known) {
                if (s.long_name == name) option = &s;
            }
        } else {
            for (const OptionDef& s : known) {
                if (s.short_name != '\0' && s.short_name == arg[1]) option = &s;
            }
            // Short flags are not bundled: "-xyz" is a value only for an option taking one.
            if (option != nullptr && arg.size() > 2) {
                if (option->takes_value) {
                    attached = arg.substr(2);
                } else {
                    option = nullptr;
                }
            }
        }
        if (option == nullptr) {
            throw UsageError("unknown option '" + std::string(arg) + "'");
        }
        const std::string display = "--" + std::string(option->long_name);
        if (!option->takes_value) {
            if (attached) throw UsageError("option '" + display + "' takes no value");
            parsed.options.emplace_back(option->long_name, std::string());
        } else if (attached) {
            parsed.options.emplace_back(option->long_name, std::string(*attached));
        } else if (i + 1 < args.size()) {
            parsed.options.emplace_back(option->long_name, std::string(args[++i]));
        } else {
            throw UsageError("option '" + display + "' needs a value");
        }
    }
    return parsed;
}

std::optional<long long> ToInteger(std::string_view text, long long low, long long high) {
    const std::string s(text);
    if (s.empty() || (low >= 0 && (s[0] == '-' || s[0] == '+')) || s[0] == ' ') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(s.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || v < low || v > high) return std::nullopt;
    return v;
}

std::optional<double> ToReal(std::string_view text) {
    const std::string s(text);
    if (s.empty() || s[0] == ' ') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(s.c_str(), &end);
    if (*end != '\0' || errno != 0) return std::nullopt;
    return v;
}

}  // namespace zyrdc::tool
