// main.cpp - the zyrdc program: picks the subcommand and turns every failure into one line
// on stderr and an exit code (1: the work failed, 2: the command line was wrong).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "cli/errors.hpp"
#include "commands/commands.hpp"

namespace zyrdc::tool {

namespace {

constexpr Command kCommands[] = {
    {"sum", "[-a ALGORITHM] [FILE|-]...",
     "print the checksum of each file (default crc32)",
     "  -a, --algorithm NAME  adler32, crc32 (default), crc32c (the standard, inverted\n"
     "                        form) or bzip2\n"
     "Files are read in pieces, so any size works; '-' or no file reads standard input.\n"
     "Each line is the checksum in 8 hex digits, two spaces and the file name.\n",
     RunSum},
    {"lz4", "[-d|-t] [-1..-12] [--fast N] [-BD] [-B4..-B7] [-D DICT] [-c] [-k] [-f] IN [OUT]",
     "compress or decompress a file in the LZ4 frame format",
     "  -d, --decompress  decompress IN (frames of the standard lz4 tool, legacy format too)\n"
     "  -t, --test        decompress IN and check it, writing nothing\n"
     "  -1 .. -12         level: 1 and 2 the fast encoder, 3 to 12 high compression\n"
     "                    (9 and up: slower, smaller); default 1\n"
     "      --fast N      accelerated encoder: N from 1 (default, best ratio) to 65537\n"
     "  -BD               linked blocks: each block may refer to the 64 KiB before it\n"
     "  -B4 .. -B7        block size 64 KiB, 256 KiB, 1 MiB, 4 MiB (default)\n"
     "  -D, --dict DICT   compress or decompress with the last 64 KiB of DICT as dictionary\n"
     "  -c, --stdout      write to standard output\n"
     "  -k, --keep        keep IN (it is never removed)\n"
     "  -f, --force       overwrite OUT if it exists\n"
     "Writes a content checksum and, for a regular file, the content size. Without OUT the\n"
     "output is IN.lz4 (IN without .lz4 with -d); '-' names standard input or output. Inputs\n"
     "above 64 MiB show their progress on a terminal. On any error OUT is left as it was.\n",
     RunLz4},
    {"lzop", "[-d|-t|-l] [-1..-9] [-c] [-f] [-k] [--crc32] [-F] [-C] [IN [OUT]]",
     "compress or decompress files in the format of the lzop tool",
     "  -1 .. -9          level: 1..6 the library's fast method (declared LZO1X-1), 7..9 its\n"
     "                    chained method (declared LZO1X-999); default 3\n"
     "  -d, --decompress  decompress: every member, its header and the checksums it carries\n"
     "  -t, --test        decompress and check each IN, write nothing\n"
     "  -l, --list        print each IN's method, sizes and ratio\n"
     "  -c, --stdout      write to standard output (any number of INs, one after another)\n"
     "  -f, --force       overwrite an existing output\n"
     "  -k, --keep        keep IN (always done)\n"
     "      --crc32       CRC-32 instead of Adler-32 for blocks and header\n"
     "  -F, --no-checksum no checksum of the decompressed blocks\n"
     "  -C, --checksum-compressed  also a checksum of each compressed block\n"
     "IN OUT writes OUT; a single IN writes IN.lzo (with -d: IN without .lzo); no IN, or '-',\n"
     "reads standard input. Blocks of 256 KiB. On any error the output is left as it was.\n",
     RunLzop},
    {"lzo", "[-d] [-f] [--segments N] IN OUT",
     "write or read the library's segmented LZO container as a raw file",
     "  -d, --decompress  decode a container file\n"
     "  -f, --force       overwrite OUT if it exists\n"
     "  -s, --segments N  2..32 segments of equal size (default: one per 64 KiB, 2 to 32)\n"
     "Segment i of n holds bytes i*(T/n) onward and decodes alone, so a reader can decode\n"
     "segments in parallel. Inputs up to 2 GiB - 1 bytes, held in memory.\n",
     RunLzo},
    {"lzss", "[-d] [-f] [--raw] [--piece BYTES] IN OUT",
     "compress or decompress a file in the library's LZSS format",
     "  -d, --decompress  decompress IN\n"
     "  -f, --force       overwrite OUT if it exists\n"
     "  -p, --piece BYTES size of each read and of the output buffer (default 65536);\n"
     "                    the coded bytes depend on it, any size decodes any file\n"
     "      --raw         read or write the bare LZSS stream, with no header or trailer\n"
     "A file starts with the magic \"zLZS\" and a version byte and ends with the CRC-32\n"
     "and length of the original, so a wrong or damaged file is refused (the bare stream\n"
     "has no check: any input decodes to something). '-' names standard input or output.\n"
     "On any error OUT is left as it was.\n",
     RunLzss},
    {"bench", "[-t SECONDS] [-p PRIMITIVE]... [FILE|-]...",
     "measure and check every primitive over files or a built-in sample",
     "  -t, --time SECONDS      least time spent timing each primitive (default 0.2)\n"
     "  -p, --primitive NAME    measure only this primitive (may be repeated)\n"
     "Each primitive is first checked against an independent computation, then run\n"
     "repeatedly; the best pass gives MB/s (10^6 input bytes per second). Without files\n"
     "the input is a fixed 1 MiB mix of text, byte runs and random bytes.\n",
     RunBench},
    {"bzip2", "[-d|-t] [-1..-9] [-T N] [-c] [-k] [-f] [IN [OUT]]",
     "compress or decompress files in the .bz2 format of the bzip2 tool",
     "  -1 .. -9           block size 100 kB .. 900 kB (default 9)\n"
     "  -d, --decompress   decompress every stream of IN (concatenated streams too)\n"
     "  -t, --test         decompress and check each IN, writing nothing\n"
     "  -T, --threads N    blocks on N threads (default: the number of processors); the\n"
     "                     output is the same for every N\n"
     "  -c, --stdout       write to standard output (any number of INs, one after another)\n"
     "  -k, --keep         keep IN (it is never removed)\n"
     "  -f, --force        overwrite an existing output\n"
     "IN OUT writes OUT; a single IN writes IN.bz2 (with -d: IN without .bz2); no IN, or\n"
     "'-', reads standard input. Every block CRC and the stream CRC are checked; a damaged\n"
     "or truncated file gives one error naming the block and leaves no output file.\n"
     "Randomised blocks (written by bzip2 0.9.0 and older) are refused.\n",
     RunBzip2},
    {"bwt", "[-d] [-f] IN OUT",
     "run a file through the bzip2 block stages into OUT, or back with -d",
     "  -d, --decompress  turn a file made by 'zyrdc bwt' back into the original\n"
     "  -f, --force       overwrite OUT if it exists\n"
     "Blocks of up to 900000 bytes after the run-length stage pass through the dictionary\n"
     "reduction, the Burrows-Wheeler transform, move-to-front and zero-run coding; the\n"
     "container keeps each block's primary index, in-use table, bzip2 block CRC and\n"
     "symbols (see README). On the way back every block's CRC is checked. IN may be '-'.\n",
     RunBwt},
    {"zfp", "(-r RATE | -p PRECISION | -a TOLERANCE) --dims NX NY NZ [--stats] [-f] IN OUT\n"
            "       zyrdc zfp -d [--stats] [-f] IN OUT",
     "compress a float32 volume with ZFP, or decompress one (-d)",
     "  -r, --rate RATE           fixed rate: bits per value, above 0, at most 64\n"
     "  -p, --precision PLANES    fixed precision: bit planes per block, 1 to 64\n"
     "  -a, --accuracy TOLERANCE  fixed accuracy: largest absolute error aimed at\n"
     "      --dims NX NY NZ       the volume's size, x varying fastest (1 to 65536 each)\n"
     "  -d, --decompress          decompress; mode and size come from the stream's header\n"
     "      --stats               print the ratio (and, compressing, the largest error)\n"
     "                            on standard error\n"
     "  -f, --force               overwrite OUT if it exists\n"
     "IN holds raw little-endian 32-bit floats (compressing) or a stream (decompressing);\n"
     "'-' is standard input or output. Streams carry the header of the zfp tool, so\n"
     "'zfp -h' reads them and 'zyrdc zfp -d' reads what 'zfp -h' writes for 3-D floats in\n"
     "the rate, precision and accuracy modes.\n",
     RunZfp},
    {"gzip", "[-1..-9 | -l LEVEL] [-f] IN OUT | -c IN\n"
             "       zyrdc gzip -d [-f] IN OUT | -d -c IN | -t IN",
     "compress to or decompress from gzip format with the library's Deflate primitives",
     "  -1 .. -9           compression level: -1 the single-pass mode, the others the\n"
     "                     matcher's levels (default 6)\n"
     "  -l, --level LEVEL  level 0..29: the last digit sets the matcher's effort (0\n"
     "                     fastest, 9 most), the tens pick a variant; 1 is single-pass\n"
     "  -d, --decompress   decompress every member, checking CRC-32 and size\n"
     "  -t, --test         decompress and check without writing anything\n"
     "  -c, --stdout       write to standard output (no OUT operand)\n"
     "  -k, --keep         keep IN (it is never removed)\n"
     "  -f, --force        overwrite OUT if it exists\n"
     "IN may be '-' for standard input and OUT '-' for standard output. The output is\n"
     "written to a temporary file next to OUT and renamed when complete; a damaged input\n"
     "leaves no output file.\n",
     RunGzip},
    {"version", "", "print the library name, version and build date (also --version)", "",
     RunVersion},
};

const Command* FindCommand(std::string_view name) {
    for (const Command& c : kCommands) {
        if (c.name == name) return &c;
    }
    return nullptr;
}

void PrintUsage(std::FILE* out) {
    std::fputs("usage: zyrdc COMMAND [ARGUMENTS...]\n"
               "Data-compression primitives of the zyrDC library from the command line.\n\n"
               "commands:\n", out);
    for (const Command& c : kCommands) {
        std::fprintf(out, "  %-8.*s %.*s\n", static_cast<int>(c.name.size()), c.name.data(),
                     static_cast<int>(c.summary.size()), c.summary.data());
    }
    std::fputs("  help     print this text (also --help)\n\n"
               "'zyrdc COMMAND --help' describes a command and its options.\n", out);
}

// Everything up to the exit code; exceptions leave through main's handlers.
int Dispatch(std::span<char* const> args, std::string_view& command_name) {
    if (args.empty()) {
        PrintUsage(stderr);
        return kExitUsage;
    }
    const std::string_view first = args[0];
    if (first == "help" || first == "--help" || first == "-h") {
        PrintUsage(stdout);
        return kExitOk;
    }
    const Command* command = FindCommand(first == "--version" ? "version" : first);
    if (command == nullptr) {
        const char* kind = first.starts_with("-") ? "unknown option '" : "unknown command '";
        throw UsageError(kind + std::string(first) + "'");
    }
    command_name = command->name;
    return command->run(*command, args.subspan(1));
}

}  // namespace

void PrintCommandHelp(const Command& command) {
    std::string text("usage: zyrdc ");
    text.append(command.name);
    if (!command.synopsis.empty()) text.append(" ").append(command.synopsis);
    text.append("\n").append(command.summary).append("\n").append(command.details);
    std::fputs(text.c_str(), stdout);
}

}  // namespace zyrdc::tool

int main(int argc, char** argv) {
    using namespace zyrdc::tool;
    std::string_view command;
    int code = kExitFailure;
    try {
        const std::span<char* const> all(argv, static_cast<std::size_t>(argc));
        code = Dispatch(all.subspan(all.empty() ? 0 : 1), command);
    } catch (const UsageError& e) {
        const std::string help =
            command.empty() ? "zyrdc --help" : "zyrdc " + std::string(command) + " --help";
        ReportError(command, std::string(e.what()) + "; try '" + help + "'");
        return kExitUsage;
    } catch (const Failure& e) {
        ReportError(command, e.what());
        return kExitFailure;
    } catch (const std::bad_alloc&) {
        ReportError(command, "out of memory");
        return kExitFailure;
    } catch (const std::exception& e) {
        ReportError(command, std::string("unexpected error: ") + e.what());
        return kExitFailure;
    } catch (...) {
        ReportError(command, "unexpected error");
        return kExitFailure;
    }
    // Output lost to a full disk or a closed pipe must not pass as success.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        ReportError(command, std::string("cannot write the output: ") + std::strerror(errno));
        return kExitFailure;
    }
    return code;
}
