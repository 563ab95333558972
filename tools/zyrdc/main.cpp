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
    {"gzip", "[-1..-9] [--level=N] [-cdtlkfqv] [-o FILE] [-S SUF] [FILE...]",
     "compress or decompress gzip files with the library's Deflate and Inflate",
     "  -1 .. -9           level: -1 the single-pass mode, the others the matcher's\n"
     "                     levels of the same number (default 6); --fast = -1, --best = -9\n"
     "      --level=N      any of the matcher's 30 levels, 0..29: the last digit sets the\n"
     "                     effort (0 fastest, 9 most), the tens pick a variant\n"
     "  -n, -N             accepted; no name is stored or restored\n"
     "Removes FILE once FILE.gz is complete (as gzip); -d checks every member's CRC-32\n"
     "and size.\n",
     RunGzip, true},
    {"lz4", "[-1..-12] [--fast[=N]] [-BD] [-B4..-B7] [-D DICT] [-l] [-m] [-cdtkfqv] [FILE...|IN OUT]",
     "compress or decompress files in the LZ4 frame format",
     "  -1 .. -12         level: 1 and 2 the fast encoder, 3 to 12 high compression\n"
     "                    (default 1); --best = -12\n"
     "      --fast[=N]    accelerated encoder: N from 1 (default) to 65537\n"
     "  -BD               linked blocks: each block may refer to the 64 KiB before it\n"
     "  -B4 .. -B7        block size 64 KiB, 256 KiB, 1 MiB, 4 MiB (default)\n"
     "  -D DICT           compress or decompress with the last 64 KiB of DICT\n"
     "  -l                write the legacy format (blocks of 8 MiB, no checksum)\n"
     "  -m, --multiple    every name is an input (two names are otherwise IN and OUT)\n"
     "      --list        -l of the other commands (lz4's -l is the legacy format)\n"
     "Keeps FILE (as lz4; --rm removes it). Writes a content checksum and, for a regular\n"
     "file, the content size; reads frames of the lz4 tool, legacy ones too.\n",
     RunLz4, true},
    {"lzop", "[-1..-9] [-U] [--crc32] [-F] [-C] [-cdtlkfqv] [-o FILE] [-S SUF] [FILE...]",
     "compress or decompress files in the format of the lzop tool",
     "  -1 .. -9          level: 1..6 the library's fast method (declared LZO1X-1), 7..9 its\n"
     "                    chained method (declared LZO1X-999); default 3\n"
     "  -U, --unlink      remove FILE once its output is complete (kept by default, as\n"
     "                    lzop does)\n"
     "      --crc32       CRC-32 instead of Adler-32 for blocks and header\n"
     "  -F, --no-checksum no checksum of the decompressed blocks\n"
     "  -C, --checksum-compressed  also a checksum of each compressed block\n"
     "-t prints 'testing FILE OK' and -l lzop's listing, as lzop does.\n",
     RunLzop, true},
    {"lzo", "[-d] [-f] [--segments N] IN OUT",
     "write or read the library's segmented LZO container as a raw file",
     "  -d, --decompress  decode a container file\n"
     "  -f, --force       overwrite OUT if it exists\n"
     "  -s, --segments N  2..32 segments of equal size (default: one per 64 KiB, 2 to 32)\n"
     "Segment i of n holds bytes i*(T/n) onward and decodes alone, so a reader can decode\n"
     "segments in parallel. Inputs up to 2 GiB - 1 bytes, held in memory.\n",
     RunLzo},
    {"lzss", "[-p BYTES] [--raw] [-cdtlkfqv] [-o FILE] [-S SUF] [FILE...]",
     "compress or decompress files in the library's LZSS format (.lzs)",
     "  -p, --piece BYTES size of each read and of the output buffer (default 65536);\n"
     "                    the coded bytes depend on it, any size decodes any file\n"
     "      --raw         read or write the bare LZSS stream, with no header or trailer\n"
     "  -1 .. -9          accepted; the coder has one setting\n"
     "A file starts with the magic \"zLZS\" and a version byte and ends with the CRC-32\n"
     "and length of the original, so a wrong or damaged file is refused (the bare stream\n"
     "has no check: any input decodes to something). Keeps FILE (--rm removes it).\n",
     RunLzss, true},
    {"bench", "[-t SECONDS] [-p PRIMITIVE]... [FILE|-]...",
     "measure and check every primitive over files or a built-in sample",
     "  -t, --time SECONDS      least time spent timing each primitive (default 0.2)\n"
     "  -p, --primitive NAME    measure only this primitive (may be repeated)\n"
     "Each primitive is first checked against an independent computation, then run\n"
     "repeatedly; the best pass gives MB/s (10^6 input bytes per second). Without files\n"
     "the input is a fixed 1 MiB mix of text, byte runs and random bytes.\n",
     RunBench},
    {"bzip2", "[-1..-9] [-T N] [-cdtkfqv] [-o FILE] [-S SUF] [FILE...]",
     "compress or decompress files in the .bz2 format of the bzip2 tool",
     "  -1 .. -9           block size 100 kB .. 900 kB (default 9); --fast = -1, --best = -9\n"
     "  -T, --threads N    blocks on N threads (default: the number of processors); the\n"
     "                     output is the same for every N\n"
     "Removes FILE once FILE.bz2 is complete (as bzip2). -d reads concatenated streams and\n"
     "checks every block CRC and the stream CRC; a damaged or truncated file gives one\n"
     "error naming the block. Randomised blocks (bzip2 0.9.0 and older) are refused.\n",
     RunBzip2, true},
    {"bwt", "[-1..-9] [-cdtlkfqv] [-o FILE] [-S SUF] [FILE...]",
     "run files through the bzip2 block stages (.bwt), or back with -d",
     "  -1 .. -9          blocks of 100000 .. 900000 bytes after the run-length stage\n"
     "                    (default -9, as bzip2)\n"
     "Blocks pass through the run-length stage, the dictionary reduction, the\n"
     "Burrows-Wheeler transform, move-to-front and zero-run coding; the container keeps\n"
     "each block's primary index, in-use table, bzip2 block CRC and symbols (see README).\n"
     "On the way back every block's CRC is checked. Keeps FILE (--rm removes it).\n",
     RunBwt, true},
    {"zfp", "(-r RATE | -p PRECISION | -a TOLERANCE) --dims NX NY NZ [--stats] [-ckfqv] [-o FILE] [FILE...]\n"
            "       zyrdc zfp -d [--stats] [-ctkfqv] [-o FILE] [FILE...]",
     "compress float32 volumes with ZFP (.zfp), or decompress them (-d)",
     "  -r, --rate RATE           fixed rate: bits per value, above 0, at most 64\n"
     "  -p, --precision PLANES    fixed precision: bit planes per block, 1 to 64\n"
     "  -a, --accuracy TOLERANCE  fixed accuracy: largest absolute error aimed at\n"
     "      --dims NX NY NZ       the volume's size, x varying fastest (1 to 65536 each)\n"
     "      --stats               print the ratio (and, compressing, the largest error)\n"
     "                            on standard error\n"
     "FILE holds raw little-endian 32-bit floats (compressing) or a stream (decompressing).\n"
     "Streams carry the header of the zfp tool, so 'zfp -h' reads them and 'zyrdc zfp -d'\n"
     "reads what 'zfp -h' writes for 3-D floats in the rate, precision and accuracy modes.\n"
     "There are no levels: the mode is always explicit. Keeps FILE (--rm removes it).\n",
     RunZfp, true},
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

// The options that RunCodec gives every codec command.
constexpr std::string_view kCodecOptions = "Common options (gzip, lz4, lzop, lzss, bwt, zfp):\n"
     "  -c, --stdout      write to standard output; the input is kept\n"
     "  -d, --decompress  decompress (-z, --compress: compress, the default)\n"
     "  -t, --test        decompress and check, writing nothing\n"
     "  -l, --list        print the compressed and decompressed sizes\n"
     "  -k, --keep        keep the input; --rm removes it once the output is on disk\n"
     "  -f, --force       overwrite outputs, read non-regular files, write compressed\n"
     "                    data to a terminal\n"
     "  -o, --output FILE write the output of the one input to FILE\n"
     "  -S, --suffix SUF  use SUF instead of the command's suffix\n"
     "  -q, --quiet       no warnings, no progress; -v, --verbose: a line per file\n"
     "  -h, --help; -V, --version\n"
     "No FILE, or '-', reads standard input and writes standard output. FILE becomes\n"
     "FILE.SUF (FILE without .SUF with -d; another suffix is skipped unless -o, -S or -c\n"
     "says otherwise); the output keeps FILE's mode, owner and times. Outputs are written\n"
     "beside their name and renamed when complete. Exit status: 0, 1 if a file failed,\n"
     "2 for a usage error or a file skipped (as gzip).\n";

void PrintCommandHelp(const Command& command) {
    std::string text("usage: zyrdc ");
    text.append(command.name);
    if (!command.synopsis.empty()) text.append(" ").append(command.synopsis);
    text.append("\n").append(command.summary).append("\n").append(command.details);
    if (command.codec) text.append(kCodecOptions);
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
