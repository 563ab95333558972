// bzip2.cpp - `zyrdc bzip2`: .bz2 files in both directions with the library's block
// stages. Blocks are independent once cut (compressing) or once their Huffman codes are read
// (decompressing), so they run on several threads; the results are written in block order,
// so the output is the same for every thread count.
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "cli/args.hpp"
#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/bzip2_stream.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'T', "threads", true}, {'\0', "fast", false}, {'\0', "best", false}};
constexpr CodecTraits kTraits = {".bz2", false, LevelDigits::Single};
constexpr std::size_t kReadPiece = std::size_t{1} << 20;

// Runs jobs on worker threads and hands their results over in submission order: `work` runs
// on a worker, `consume` on the submitting thread once every earlier job was consumed. With
// one thread both run at once on the caller. An exception from `work` comes out of the call
// that would have consumed it.
class OrderedPool {
public:
    explicit OrderedPool(unsigned threads) : limit_(2 * threads) {
        for (unsigned i = 1; i < threads; ++i) threads_.emplace_back([this] { Worker(); });
    }
    ~OrderedPool() {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
            queue_.clear();
        }
        work_ready_.notify_all();
        for (std::thread& t : threads_) t.join();
    }
    OrderedPool(const OrderedPool&) = delete;
    OrderedPool& operator=(const OrderedPool&) = delete;

    void Submit(std::function<void()> work, std::function<void()> consume) {
        if (threads_.empty()) {
            work();
            consume();
            return;
        }
        auto task = std::make_shared<Task>();
        task->work = std::move(work);
        task->consume = std::move(consume);
        {
            std::lock_guard lock(mutex_);
            order_.push_back(task);
            queue_.push_back(task);
        }
        work_ready_.notify_one();
        // The submitting thread works too while the window is full.
        while (order_.size() >= limit_) {
            if (!RunOneQueued()) ConsumeFront();
        }
        while (!order_.empty() && Done(*order_.front())) ConsumeFront();
    }
    void Drain() {
        while (!order_.empty()) {
            if (!RunOneQueued()) ConsumeFront();
        }
    }

private:
    struct Task {
        std::function<void()> work, consume;
        std::exception_ptr error;
        bool done = false;
    };

    static void Run(Task& t) {
        try {
            t.work();
        } catch (...) {
            t.error = std::current_exception();
        }
    }
    bool Done(const Task& t) {
        std::lock_guard lock(mutex_);
        return t.done;
    }
    // Takes a job nobody started and runs it here; false if there is none.
    bool RunOneQueued() {
        std::shared_ptr<Task> task;
        {
            std::lock_guard lock(mutex_);
            if (queue_.empty()) return false;
            task = queue_.front();
            queue_.pop_front();
        }
        Run(*task);
        {
            std::lock_guard lock(mutex_);
            task->done = true;
        }
        while (!order_.empty() && Done(*order_.front())) ConsumeFront();
        return true;
    }
    void ConsumeFront() {
        std::shared_ptr<Task> task = order_.front();
        {
            std::unique_lock lock(mutex_);
            work_done_.wait(lock, [&] { return task->done; });
        }
        order_.pop_front();
        if (task->error) std::rethrow_exception(task->error);
        task->consume();
    }
    void Worker() {
        for (;;) {
            std::shared_ptr<Task> task;
            {
                std::unique_lock lock(mutex_);
                work_ready_.wait(lock, [&] { return stop_ || !queue_.empty(); });
                if (queue_.empty()) return;
                task = queue_.front();
                queue_.pop_front();
            }
            Run(*task);
            {
                std::lock_guard lock(mutex_);
                task->done = true;
            }
            work_done_.notify_all();
        }
    }

    std::size_t limit_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;
    std::condition_variable work_ready_, work_done_;
    std::deque<std::shared_ptr<Task>> queue_;  // not started
    std::deque<std::shared_ptr<Task>> order_;  // submitted, not consumed (submitting thread only)
    bool stop_ = false;
};

void CompressStream(const ReadFn& read, const WriteFn& write, int level, unsigned threads) {
    Bz2BitWriter writer;
    writer.Put(0x425A68, 24);  // "BZh"
    writer.Put(static_cast<std::uint32_t>('0' + level), 8);
    std::uint32_t combined = 0;
    const auto write_bytes = [&] {
        write(writer.Bytes());
        writer.Bytes().clear();
    };
    {
        OrderedPool pool(threads);
        Bz2BlockSplitter splitter(level);
        const auto submit = [&] {
            auto raw = std::make_shared<Bz2RawBlock>(splitter.Take());
            auto coded = std::make_shared<Bz2CodedBlock>();
            pool.Submit([raw, coded] { *coded = EncodeBz2Block(*raw); },
                        [raw, coded, &writer, &combined, &write_bytes] {
                            combined = ((combined << 1) | (combined >> 31)) ^ raw->crc;
                            writer.Append(*coded);
                            write_bytes();
                        });
        };
        std::vector<std::uint8_t> piece(kReadPiece);
        while (const std::size_t got = ReadFull(read, piece)) {
            for (std::size_t at = 0; at < got;) {
                at += splitter.Feed(std::span(piece.data() + at, got - at));
                if (splitter.Full()) submit();
            }
        }
        if (!splitter.Empty()) submit();
        pool.Drain();
    }
    writer.Put(static_cast<std::uint32_t>(kBz2EndMarker >> 24), 24);
    writer.Put(static_cast<std::uint32_t>(kBz2EndMarker & 0xFFFFFF), 24);
    writer.Put(combined >> 16, 16);
    writer.Put(combined & 0xFFFF, 16);
    writer.Align();
    write_bytes();
}

// Decodes every stream that `read` gives; an empty `write` only tests.
void DecompressStream(const ReadFn& read, const WriteFn& write, unsigned threads) {
    Bz2Reader reader(read);
    // Output memory goes back to a free list once written, for the next block of the size.
    std::mutex spare_mutex;
    std::vector<std::unique_ptr<std::uint8_t[]>> spare;
    std::int32_t spare_block_size = 0;
    OrderedPool pool(threads);
    try {
        for (;;) {
            auto block = std::make_shared<Bz2SymbolBlock>();
            if (!reader.Next(*block)) break;
            if (block->block_size != spare_block_size) {
                std::lock_guard lock(spare_mutex);
                spare.clear();
                spare_block_size = block->block_size;
            }
            auto bytes = std::make_shared<Bz2Bytes>();
            pool.Submit(
                [block, bytes, &spare, &spare_mutex] {
                    std::unique_ptr<std::uint8_t[]> memory;
                    {
                        std::lock_guard lock(spare_mutex);
                        if (!spare.empty()) {
                            memory = std::move(spare.back());
                            spare.pop_back();
                        }
                    }
                    *bytes = DecodeBz2Block(*block, std::move(memory));
                },
                [bytes, &write, &spare, &spare_mutex, &spare_block_size, size = block->block_size] {
                    if (write) write(bytes->Span());
                    std::lock_guard lock(spare_mutex);
                    if (size == spare_block_size) spare.push_back(std::move(bytes->data));
                });
        }
    } catch (const Failure&) {
        // A block before the one that broke the stream may be the first bad one: its error
        // comes first.
        pool.Drain();
        throw;
    }
    pool.Drain();
}

class Bzip2Codec : public Codec {
public:
    Bzip2Codec(int level, unsigned threads) : level_(level), threads_(threads) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile&) override {
        CompressStream(read, write, level_, threads_);
    }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        try {
            DecompressStream(read, write, threads_);
        } catch (const Failure& e) {
            throw Failure(file.name + ": " + e.what());
        }
    }

private:
    int level_;
    unsigned threads_;
};

}  // namespace

int RunBzip2(const Command& self, std::span<char* const> args) {
    return RunCodec(self, args, kTraits, kOptions, [](const ParsedArgs& parsed, const CodecOptions&) {
        const long long level = LastLevel(parsed, 1, 9).value_or(9);
        if (level < 1 || level > 9) throw UsageError("invalid block size -" + std::to_string(level) + " (1 to 9)");
        unsigned threads = std::max(1u, std::thread::hardware_concurrency());
        for (const std::string& value : parsed.Values("threads")) {
            const auto n = ToInteger(value, 1, 256);
            if (!n) throw UsageError("invalid thread count '" + value + "' (1 to 256)");
            threads = static_cast<unsigned>(*n);
        }
        return std::make_unique<Bzip2Codec>(static_cast<int>(level), threads);
    });
}

}  // namespace zyrdc::tool
