// errors.cpp - error lines, status names and the version line of the zyrdc program.
#include "cli/errors.hpp"

#include <cinttypes>
#include <cstdio>

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

}  // namespace zyrdc::tool
