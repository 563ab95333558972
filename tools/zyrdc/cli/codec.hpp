// codec.hpp - the command line that every codec command shares, as the standard compressors
// have it: `zyrdc CMD [OPTIONS] [FILE...]`. Without a file, or with "-", standard input goes
// to standard output; otherwise FILE becomes FILE.SUF (and back with -d), one file after
// another. A command supplies its suffix, its habits and a Codec; this file does the rest:
// names, checks, safe outputs, removal of inputs, progress, listing, exit codes.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "cli/args.hpp"
#include "cli/bytes.hpp"

namespace zyrdc::tool {

struct Command;

// What a codec knows about the file in hand.
struct CodecFile {
    std::string name;                   // the input, "-" for standard input
    std::string output;                 // the output, "-" for standard output, empty when testing
    std::optional<std::uint64_t> size;  // the input's size, when it is a regular file
    std::optional<struct stat> status;  // the input's status, unless standard input
};

// One line of a listing: the coded and decoded sizes, and the method where a format has
// several.
struct ListRow {
    std::uint64_t coded = 0, decoded = 0;
    std::string method;
};

class Codec {
public:
    virtual ~Codec() = default;
    virtual void Compress(const ReadFn& read, const WriteFn& write, const CodecFile& file) = 0;
    // `write` is empty when only testing. Throws Failure, starting with file.name, for data
    // that is foreign, damaged or truncated.
    virtual void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) = 0;
    // The sizes for -l; by default the file is decoded and the bytes counted.
    virtual ListRow List(const ReadFn& read, const CodecFile& file);
    // Whether -l prints a method column (lzop's layout) rather than gzip's.
    virtual bool ListsMethod() const { return false; }
    // Called after a file tested sound; by default -v says so.
    virtual void Tested(const CodecFile& file, bool verbose, bool quiet);
};

// The habits of a command, the same in every run.
struct CodecTraits {
    std::string_view suffix;        // ".gz"
    bool keeps_input;               // lz4 and lzop keep it, gzip and bzip2 remove it
    LevelDigits digits;             // how -1.. are read; None refuses them
    bool in_out_pair = false;       // lz4: two names without -m are IN and OUT
    // Further suffixes recognised when decompressing, with the suffix each name gets
    // (".tgz" gives ".tar"); may be empty.
    std::span<const std::pair<std::string_view, std::string_view>> more_suffixes = {};
};

// The options every codec command understands, resolved.
struct CodecOptions {
    enum class Mode { Compress, Decompress, Test, List } mode = Mode::Compress;
    bool to_stdout = false, keep = false, force = false, quiet = false, verbose = false;
    std::string output;   // -o
    std::string suffix;   // -S, or the traits' suffix
};

// Builds the codec from the command's own options (in `parsed`); throws UsageError.
using CodecFactory = std::function<std::unique_ptr<Codec>(const ParsedArgs& parsed, const CodecOptions& options)>;

// Parses `args` with the common options and `own` (which win where names collide), then
// codes every file. Returns the exit code: 0, 1 if any file failed, 2 if any was skipped
// for its name or kind (as gzip does) and none failed.
int RunCodec(const Command& self, std::span<char* const> args, const CodecTraits& traits,
             std::span<const OptionDef> own, const CodecFactory& make,
             std::span<const std::string_view> optional_value = {});

// The level -N, --level=N, --fast and --best leave, in command-line order, as a number; or
// nothing. --fast and --best stand for `fast` and `best`; names not in `parsed` are ignored.
std::optional<long long> LastLevel(const ParsedArgs& parsed, long long fast, long long best);

}  // namespace zyrdc::tool
