// args.cpp - option parsing and number parsing for every subcommand.
#include "cli/args.hpp"

#include <algorithm>
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

namespace {

const OptionDef* FindLong(std::span<const OptionDef> known, std::string_view name) {
    for (const OptionDef& s : known) {
        if (s.long_name == name) return &s;
    }
    return nullptr;
}

const OptionDef* FindShort(std::span<const OptionDef> known, char c) {
    for (const OptionDef& s : known) {
        if (s.short_name != '\0' && s.short_name == c) return &s;
    }
    return nullptr;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

ParsedArgs ParseArgs(std::span<char* const> args, std::span<const OptionDef> known, LevelDigits digits,
                     std::span<const std::string_view> optional_value) {
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
        if (arg.starts_with("--")) {
            std::string_view name = arg.substr(2);
            std::optional<std::string_view> attached;
            if (const std::size_t eq = name.find('='); eq != std::string_view::npos) {
                attached = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
            const OptionDef* option = FindLong(known, name);
            if (option == nullptr && !attached && (name == "help" || name == "version")) {
                (name == "help" ? parsed.help : parsed.version) = true;
                continue;
            }
            if (option == nullptr) throw UsageError("unknown option '" + std::string(arg) + "'");
            const std::string display = "--" + std::string(option->long_name);
            if (!option->takes_value) {
                if (attached) throw UsageError("option '" + display + "' takes no value");
                parsed.options.emplace_back(option->long_name, std::string());
            } else if (attached) {
                parsed.options.emplace_back(option->long_name, std::string(*attached));
            } else if (std::find(optional_value.begin(), optional_value.end(), option->long_name) !=
                       optional_value.end()) {
                parsed.options.emplace_back(option->long_name, std::string());
            } else if (i + 1 < args.size()) {
                parsed.options.emplace_back(option->long_name, std::string(args[++i]));
            } else {
                throw UsageError("option '" + display + "' needs a value");
            }
            continue;
        }
        // A group of short options.
        for (std::size_t j = 1; j < arg.size(); ++j) {
            const char c = arg[j];
            if (IsDigit(c) && digits != LevelDigits::None && FindShort(known, c) == nullptr) {
                std::size_t end = j + 1;
                while (digits == LevelDigits::Number && end < arg.size() && IsDigit(arg[end])) ++end;
                parsed.options.emplace_back("level-digits", std::string(arg.substr(j, end - j)));
                j = end - 1;
                continue;
            }
            const OptionDef* option = FindShort(known, c);
            if (option == nullptr && (c == 'h' || c == 'V')) {
                (c == 'h' ? parsed.help : parsed.version) = true;
                continue;
            }
            if (option == nullptr) {
                throw UsageError("unknown option '-" + std::string(1, c) + "'" +
                                 (arg.size() > 2 ? " in '" + std::string(arg) + "'" : ""));
            }
            if (!option->takes_value) {
                parsed.options.emplace_back(option->long_name, std::string());
                continue;
            }
            if (j + 1 < arg.size()) {
                parsed.options.emplace_back(option->long_name, std::string(arg.substr(j + 1)));
            } else if (i + 1 < args.size()) {
                parsed.options.emplace_back(option->long_name, std::string(args[++i]));
            } else {
                throw UsageError("option '-" + std::string(1, c) + "' needs a value");
            }
            break;
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
