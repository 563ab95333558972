// common.cpp - error reporting, argument parsing and file input for the zyrdc program.
#include "common.hpp"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <optional>

namespace zyrdc::tool {

void ReportError(std::string_view command, std::string_view message) {
    std::string line = "zyrdc: ";
    if (!command.empty()) {
        line.append(command).append(": ");
    }
    for (char c : message) {
        // A control character (a newline in a file name, say) would break the one-line rule.
        line.push_back(static_cast<unsigned char>(c) < 0x20 ? '?' : c);
    }
    line.push_back('\n');
    std::fflush(stdout);  // keep what was printed before the error ahead of it
    std::fputs(line.c_str(), stderr);
}

std::string StatusName(ZyrStatus status) {
    switch (status) {
    case StatusOk: return "StatusOk";
    case StatusError: return "StatusError";
    case StatusStreamExhausted: return "StatusStreamExhausted";
    case StatusBadArgument: return "StatusBadArgument";
    case StatusBadSize: return "StatusBadSize";
    case StatusNullPointer: return "StatusNullPointer";
    case StatusBadContext: return "StatusBadContext";
    case StatusBadAcceleration: return "StatusBadAcceleration";
    case StatusBadHuffmanCode: return "StatusBadHuffmanCode";
    case StatusCorruptStream: return "StatusCorruptStream";
    case StatusSrcExhausted: return "StatusSrcExhausted";
    case StatusDstFull: return "StatusDstFull";
    case StatusBwtSortAbandoned: return "StatusBwtSortAbandoned";
    default: return "status " + std::to_string(status);
    }
}

void CheckStatus(ZyrStatus status, std::string_view what) {
    if (status != StatusOk) {
        throw Failure(std::string(what) + ": the library returned " + StatusName(status));
    }
}

std::string VersionLine() {
    const VersionRecord* v = zyrdcGetLibVersion();
    return std::string(v->name) + " " + v->version + ", built " + v->buildDate;
}

std::string Hex32(std::uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof text, "%08" PRIx32, value);
    return text;
}

// ---- arguments --------------------------------------------------------------------------

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

// ---- input ------------------------------------------------------------------------------

namespace {

std::string SystemReason(const std::string& name, int error) {
    return name + ": " + std::strerror(error);
}

}  // namespace

InputFile::InputFile(const std::string& name) : name_(name), file_(stdin), owned_(false) {
    if (name == "-") {
        return;
    }
    file_ = std::fopen(name.c_str(), "rb");
    if (file_ == nullptr) {
        throw Failure(SystemReason(name, errno));
    }
    owned_ = true;
}

InputFile::~InputFile() {
    if (owned_) {
        std::fclose(file_);
    }
}

std::size_t InputFile::Read(std::span<std::uint8_t> buffer) {
    errno = 0;
    const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), file_);
    if (got < buffer.size() && std::ferror(file_)) {
        // A directory opens fine and fails here, with EISDIR.
        throw Failure(SystemReason(name_, errno != 0 ? errno : EIO));
    }
    return got;
}

std::vector<std::uint8_t> ReadAll(const std::string& name) {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    InputFile in(name);
    std::vector<std::uint8_t> bytes;
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(used + kStep);
        const std::size_t got = in.Read(std::span(bytes).subspan(used));
        bytes.resize(used + got);
        if (got < kStep) {
            break;
        }
    }
    bytes.shrink_to_fit();
    return bytes;
}

std::uint64_t Rng::Next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

}  // namespace zyrdc::tool
