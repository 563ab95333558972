// runner.cpp - the timing loop, table and status line of `zyrdc bench`.
#include "bench/runner.hpp"

#include <cpuid.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "bench/rows.hpp"
#include "bench/sample.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"

namespace zyrdc::tool {

namespace {

// A user-mode emulator (how i686 programs run on kernels without 32-bit support) names
// itself in the processor's brand string. Under it every check still means what it says, but
// the speeds are the emulator's.
std::string EmulatorName() {
    unsigned regs[12] = {};
    if (__get_cpuid_max(0x80000000u, nullptr) < 0x80000004u) {
        return {};
    }
    for (unsigned leaf = 0; leaf < 3; ++leaf) {
        __cpuid(0x80000002u + leaf, regs[4 * leaf], regs[4 * leaf + 1], regs[4 * leaf + 2],
                regs[4 * leaf + 3]);
    }
    char brand[sizeof regs + 1] = {};
    std::memcpy(brand, regs, sizeof regs);
    const std::string text(brand);
    return text.find("QEMU") != std::string::npos ? text : std::string{};
}

struct Input {
    std::string label;        // the name in the table's input column
    std::string description;  // what it is, for the header
    std::vector<std::uint8_t> bytes;
};

struct Timing {
    double best_seconds;      // fastest single pass
    std::size_t output_size;  // as returned by the last pass
};

// Passes are timed in batches long enough for the clock to resolve (tiny inputs run many
// passes a batch); batches repeat until `min_seconds` have gone by, and the fastest batch
// gives the time of a pass, as the one least disturbed by the rest of the machine.
Timing Measure(const BenchRow& row, std::span<const std::uint8_t> input, double min_seconds) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    Timing timing{std::numeric_limits<double>::infinity(), 0};
    const Clock::time_point start = Clock::now();
    std::size_t passes = 1;
    for (;;) {
        const Clock::time_point t0 = Clock::now();
        for (std::size_t i = 0; i < passes; ++i) {
            timing.output_size = row.run(input);
        }
        const Clock::time_point t1 = Clock::now();
        const double batch = Seconds(t1 - t0).count();
        timing.best_seconds = std::min(timing.best_seconds, batch / static_cast<double>(passes));
        if (Seconds(t1 - start).count() >= min_seconds) {
            return timing;
        }
        if (batch < 1e-3 && passes < (std::size_t{1} << 24)) {
            passes *= 2;
        }
    }
}

std::vector<BenchRow> SelectRows(const std::vector<std::string>& wanted) {
    std::vector<BenchRow> all = BenchRows();
    if (wanted.empty()) {
        return all;
    }
    std::vector<BenchRow> chosen;
    for (const std::string& name : wanted) {
        const auto it = std::find_if(all.begin(), all.end(),
                                     [&](const BenchRow& r) { return r.name == name; });
        if (it == all.end()) {
            std::string names;
            for (const BenchRow& r : all) {
                names.append(names.empty() ? "" : ", ").append(r.name);
            }
            throw UsageError("unknown primitive '" + name + "' (choose " + names + ")");
        }
        chosen.push_back(*it);
    }
    return chosen;
}

std::vector<Input> LoadInputs(const std::vector<std::string>& files) {
    std::vector<Input> inputs;
    if (files.empty()) {
        Sample sample = MakeSample();
        inputs.push_back({"sample", std::move(sample.description), std::move(sample.bytes)});
    }
    for (const std::string& file : files) {
        std::vector<std::uint8_t> bytes = ReadAll(file);
        const std::string what = file == "-" ? "standard input of " : "file of ";
        inputs.push_back({file, what + std::to_string(bytes.size()) + " bytes", std::move(bytes)});
    }
    return inputs;
}

// A status line on stderr, rewritten in place and erased before each table line; only on a
// terminal, so that logs and pipes get nothing but the table.
class Progress {
public:
    Progress() : enabled_(isatty(STDERR_FILENO) != 0) {}
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(const std::string& text) {
        if (!enabled_) return;
        Clear();
        std::fprintf(stderr, "%s", text.c_str());
        std::fflush(stderr);
        shown_ = text.size();
    }
    void Clear() {
        if (shown_ == 0) return;
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
        std::fflush(stderr);
        shown_ = 0;
    }

private:
    bool enabled_;
    std::size_t shown_ = 0;
};

// The table: column widths fit the longest primitive name, input label and size, so every
// row lines up whatever the inputs are called.
class Table {
public:
    Table(const std::vector<BenchRow>& rows, const std::vector<Input>& inputs) {
        for (const BenchRow& row : rows) Widen(name_, row.name.size());
        for (const Input& in : inputs) {
            Widen(label_, in.label.size());
            Widen(bytes_, std::to_string(in.bytes.size()).size());
        }
    }
    void Print(const std::string& name, const std::string& label, const std::string& bytes,
               const char* speed, const char* ratio, const char* check) const {
        std::printf("%-*s  %-*s  %*s  %9s  %6s  %s\n", name_, name.c_str(), label_, label.c_str(),
                    bytes_, bytes.c_str(), speed, ratio, check);
        std::fflush(stdout);
    }

private:
    static void Widen(int& width, std::size_t length) {
        width = std::max(width, static_cast<int>(length));
    }
    int name_ = 9, label_ = 5, bytes_ = 5;
};

}  // namespace

void RunBenchmarks(const std::vector<std::string>& primitives, const std::vector<std::string>& files,
                   double min_seconds) {
    const std::vector<BenchRow> rows = SelectRows(primitives);
    // Every file is read before anything is timed, so a bad name fails at once.
    const std::vector<Input> inputs = LoadInputs(files);

    std::printf("%s\n", VersionLine().c_str());
    for (const Input& in : inputs) {
        std::printf("input \"%s\": %s\n", in.label.c_str(), in.description.c_str());
    }
    std::printf("Each primitive is checked, then run for at least %.2f s; MB/s is from the\n"
                "fastest pass, in 10^6 input bytes per second. Ratio is input size / output\n"
                "size (blank for primitives without an output stream).\n\n",
                min_seconds);
    if (const std::string emulator = EmulatorName(); !emulator.empty()) {
        std::printf("Running under emulation (%s): the checks hold, but the MB/s figures\n"
                    "measure the emulator, not the library; time a native build instead.\n\n",
                    emulator.c_str());
    }
    const Table table(rows, inputs);
    table.Print("primitive", "input", "bytes", "MB/s", "ratio", "check");

    Progress progress;
    std::string first_failure;
    int failures = 0, done = 0;
    const int total = static_cast<int>(rows.size() * inputs.size());
    for (const Input& in : inputs) {
        for (const BenchRow& row : rows) {
            // A row may run on data made from the input instead (see BenchRow::input).
            const std::vector<std::uint8_t> made = row.input ? row.input(in.bytes) : std::vector<std::uint8_t>();
            const std::span<const std::uint8_t> data =
                row.input ? std::span<const std::uint8_t>(made) : std::span<const std::uint8_t>(in.bytes);
            const double size = static_cast<double>(data.size());
            char status[160];
            std::snprintf(status, sizeof status, "[%d/%d] %s on %s ...", ++done, total,
                          row.name.c_str(), in.label.c_str());
            progress.Show(status);
            const char* check = "-";
            if (row.verify) {
                const std::string problem = row.verify(data);
                check = problem.empty() ? "ok" : "FAILED";
                if (!problem.empty() && failures++ == 0) {
                    first_failure = row.name + " on " + in.label + ": " + problem;
                }
            }
            const Timing t = Measure(row, data, min_seconds);
            char speed[32] = "-", ratio[32] = "";
            if (size > 0) {
                std::snprintf(speed, sizeof speed, "%.1f", size / t.best_seconds / 1e6);
            }
            if (t.output_size != 0) {
                const double output = static_cast<double>(t.output_size);
                std::snprintf(ratio, sizeof ratio, "%.3f", size / output);
            }
            progress.Clear();
            table.Print(row.name, in.label, std::to_string(data.size()), speed, ratio, check);
        }
    }
    if (failures != 0) {
        throw Failure(std::to_string(failures) + " check(s) failed, first " + first_failure);
    }
    std::printf("\nWhat zyrdc does with files (zyrdc COMMAND --help, man zyrdc):\n"
                "  zyrdc gzip FILE    FILE -> FILE.gz with gzip's command line; -d, -t, -l\n"
                "  zyrdc lz4 FILE     FILE -> FILE.lz4 with lz4's command line\n"
                "  zyrdc lzop FILE    FILE -> FILE.lzo with lzop's command line\n"
                "  zyrdc lzss FILE    FILE -> FILE.lzs, the library's LZSS with a CRC-32\n"
                "  zyrdc bwt FILE     FILE -> FILE.bwt through the bzip2 block stages\n"
                "  zyrdc zfp FILE     float32 volumes -> FILE.zfp, which zfp -h reads\n"
                "  zyrdc sum FILE     Adler-32, CRC-32, CRC-32C or the bzip2 CRC\n");
}

}  // namespace zyrdc::tool
