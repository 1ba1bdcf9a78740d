#include "pallion/tools/CompressedSource.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(PALLION_TOOLS_ZSTD)
#include <zstd.h>
#endif
#if defined(PALLION_TOOLS_ISAL)
#include <isa-l/igzip_lib.h>
#else
#include <zlib.h>
#endif

#include "pallion/tools/Messages.hpp"

namespace Pallion::Tools {

namespace {

// Decompressed blocks in flight between the thread and the reader: enough to
// keep both busy, few enough that memory stays a few MiB whatever the file.
constexpr std::size_t BlockBytes = std::size_t{1} << 20;
constexpr std::size_t BlocksInFlight = 8;
// What one call to libarchive decompresses at most.
constexpr std::size_t StepBytes = std::size_t{64} * 1024;
// What libarchive reads of the compressed file at a time.
constexpr std::size_t CompressedReadBytes = std::size_t{1} << 17;

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// A gzip file of one member or several one after the other, each checked
// against its CRC and length (which libarchive's gzip reading skips).  With
// ISA-L where it was found at build time, which inflates some times faster,
// else with zlib.
class GzipReader {
public:
    explicit GzipReader(int descriptor) : descriptor_(descriptor), input_(CompressedReadBytes) {
#if defined(PALLION_TOOLS_ISAL)
        isal_inflate_init(&state_);
        state_.crc_flag = ISAL_GZIP;
        ready_ = true;
#else
        ready_ = inflateInit2(&state_, MAX_WBITS + 16) == Z_OK;
#endif
    }
#if defined(PALLION_TOOLS_ISAL)
    ~GzipReader() = default;
#else
    ~GzipReader() {
        if (ready_) inflateEnd(&state_);
    }
#endif
    GzipReader(const GzipReader&) = delete;
    GzipReader& operator=(const GzipReader&) = delete;

    bool ready() const { return ready_; }

    // Up to `count` bytes of text: the number, 0 at the end, -1 with `failure` set.
    std::int64_t read(char* into, std::size_t count, std::string& failure) {
        state_.next_out = reinterpret_cast<unsigned char*>(into);
        state_.avail_out = static_cast<unsigned>(count);
        while (state_.avail_out > 0) {
            if (state_.avail_in == 0 && !inputEnded_) {
                const ssize_t n = ::read(descriptor_, input_.data(), input_.size());
                if (n < 0 && errno == EINTR) continue;
                if (n < 0) {
                    failure = std::strerror(errno);
                    return -1;
                }
                inputEnded_ = n == 0;
                state_.next_in = input_.data();
                state_.avail_in = static_cast<unsigned>(n);
            }
            if (state_.avail_in == 0 && inputEnded_) {
                if (!inMember_) break;
                failure = std::string(messages::GzipTruncated);
                return -1;
            }
            if (!inMember_) nextMember();
            if (!inflateSome(failure)) return -1;
        }
        return static_cast<std::int64_t>(count - state_.avail_out);
    }

private:
    // Starts the next member where the last one ended, its input kept.
    void nextMember() {
        auto* const in = state_.next_in;
        const auto available = state_.avail_in;
#if defined(PALLION_TOOLS_ISAL)
        isal_inflate_reset(&state_);
        state_.crc_flag = ISAL_GZIP;
#else
        inflateReset(&state_);
#endif
        state_.next_in = in;
        state_.avail_in = available;
        inMember_ = true;
    }

    // One step of inflating; false with `failure` set where the data is damaged.
    bool inflateSome(std::string& failure) {
#if defined(PALLION_TOOLS_ISAL)
        if (isal_inflate(&state_) < 0) {
            failure = std::string(messages::GzipDamaged);
            return false;
        }
        if (state_.block_state == ISAL_BLOCK_FINISH) inMember_ = false;
#else
        const int result = inflate(&state_, Z_NO_FLUSH);
        if (result == Z_STREAM_END) {
            inMember_ = false;
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            failure = state_.msg != nullptr ? std::string(state_.msg) : std::string(messages::GzipDamaged);
            return false;
        }
#endif
        return true;
    }

    int descriptor_;  // the file, owned by the Source
    std::vector<unsigned char> input_;
#if defined(PALLION_TOOLS_ISAL)
    inflate_state state_{};
#else
    z_stream state_{};
#endif
    bool ready_ = false;
    bool inputEnded_ = false;
    bool inMember_ = true;  // an empty file is a truncated one
};

#if defined(PALLION_TOOLS_ZSTD)
// A zstd file of one frame or several, read by libzstd straight into the
// reader's block (libarchive's way costs a copy and a quarter more time).
// Each frame's checksum, where it has one, is checked.
class ZstdReader {
public:
    explicit ZstdReader(int descriptor)
        : descriptor_(descriptor), input_(ZSTD_DStreamInSize()), stream_(ZSTD_createDStream()) {}
    ~ZstdReader() { ZSTD_freeDStream(stream_); }
    ZstdReader(const ZstdReader&) = delete;
    ZstdReader& operator=(const ZstdReader&) = delete;

    bool ready() const { return stream_ != nullptr; }

    // Up to `count` bytes of text: the number, 0 at the end, -1 with `failure` set.
    std::int64_t read(char* into, std::size_t count, std::string& failure) {
        ZSTD_outBuffer out{into, count, 0};
        while (out.pos < out.size) {
            if (in_.pos == in_.size && !inputEnded_) {
                const ssize_t n = ::read(descriptor_, input_.data(), input_.size());
                if (n < 0 && errno == EINTR) continue;
                if (n < 0) {
                    failure = std::strerror(errno);
                    return -1;
                }
                inputEnded_ = n == 0;
                in_ = ZSTD_inBuffer{input_.data(), static_cast<std::size_t>(n), 0};
            }
            if (in_.pos == in_.size && inputEnded_) {
                if (!inFrame_) break;
                failure = std::string(messages::ZstdTruncated);
                return -1;
            }
            const std::size_t left = ZSTD_decompressStream(stream_, &out, &in_);
            if (ZSTD_isError(left) != 0U) {
                failure = ZSTD_getErrorName(left);
                return -1;
            }
            inFrame_ = left != 0;  // 0: a frame ended and all of it was handed out
        }
        return static_cast<std::int64_t>(out.pos);
    }

private:
    int descriptor_;  // the file, owned by the Source
    std::vector<char> input_;
    ZSTD_DStream* stream_;
    ZSTD_inBuffer in_{nullptr, 0, 0};
    bool inputEnded_ = false;
    bool inFrame_ = true;  // an empty file is a truncated one
};
#endif

// A compressed file, decompressed by a thread of its own into a few blocks
// that the reader takes in turn.  The thread ends at the end of the text, at
// a failure, or when the Source goes (it is then told to stop and joined).
class CompressedSource final : public Source {
public:
    CompressedSource(const std::string& name, Compression kind, CompressedBytesRead counter)
        : name_(name), counter_(std::move(counter)) {
        descriptor_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor_ < 0) return;
        for (auto& block : blocks_) free_.push_back(&block);
        // A decoder of its own (gzip, zstd): the thread starts where it could be set up.
        const auto start = [this](const auto& decoder) {
            if (decoder.ready()) {
                worker_ = std::thread([this] { decompress(); });
                return;
            }
            failure_ = std::string(messages::CompressedUnknown);
            finished_ = true;
        };
        if (kind == Compression::Gzip) {
            start(inflater_.emplace(descriptor_));
            return;
        }
#if defined(PALLION_TOOLS_ZSTD)
        if (kind == Compression::Zstd) {
            start(zstd_.emplace(descriptor_));
            return;
        }
#endif
        archive_ = archive_read_new();
        archive_read_support_filter_all(archive_);
        if (kind == Compression::Zip)
            archive_read_support_format_zip(archive_);
        else
            archive_read_support_format_raw(archive_);
        archive_entry* entry = nullptr;
        // A stream too short to tell its kind fails here already (libarchive
        // reads ahead to choose the decompressor): the reading then fails at once.
        if (archive_read_open_fd(archive_, descriptor_, CompressedReadBytes) != ARCHIVE_OK ||
            archive_read_next_header(archive_, &entry) != ARCHIVE_OK) {
            failure_ = whyFailed();
            finished_ = true;
            return;
        }
        zip_ = kind == Compression::Zip;
        worker_ = std::thread([this] { decompress(); });
    }

    ~CompressedSource() override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        if (worker_.joinable()) worker_.join();
        if (archive_ != nullptr) archive_read_free(archive_);
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    CompressedSource(const CompressedSource&) = delete;
    CompressedSource& operator=(const CompressedSource&) = delete;

    bool isOpen() const override { return descriptor_ >= 0; }

    std::int64_t read(char* into, std::size_t count) override {
        if (current_ == nullptr || taken_ == current_->size()) {
            std::unique_lock<std::mutex> lock(mutex_);
            if (current_ != nullptr) free_.push_back(current_);
            current_ = nullptr;
            changed_.notify_all();
            changed_.wait(lock, [this] { return !filled_.empty() || finished_; });
            if (filled_.empty()) {
                handOn(endedAt_);
                return failure_.empty() ? 0 : Failed;
            }
            current_ = filled_.front().block;
            handOn(filled_.front().compressedAt);
            filled_.pop_front();
            taken_ = 0;
            // A counted Source pauses before each block's text: the reader asks
            // its host whether it is still wanted, and the host draws its progress.
            if (counter_) return Interrupted;
        }
        const std::size_t n = std::min(count, current_->size() - taken_);
        std::memcpy(into, current_->data() + taken_, n);
        taken_ += n;
        return static_cast<std::int64_t>(n);
    }

    std::string failure() const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        return failure_;
    }

private:
    // A block in the reader's queue, with the bytes of the compressed file
    // read once it was filled.
    struct Filled {
        std::vector<char>* block;
        std::uint64_t compressedAt;
    };

    // The compressed file's bytes read by now: libarchive's count of what it
    // read (it may seek in a zip archive), else the descriptor's offset, which
    // our own decoders move only by reading front to back.  At the end, the
    // whole file, so that a count against its size ends full.
    std::uint64_t compressedRead(bool ended) const {
        struct stat status {};
        if (ended && ::fstat(descriptor_, &status) == 0) return static_cast<std::uint64_t>(status.st_size);
        const std::int64_t at = archive_ != nullptr ? archive_filter_bytes(archive_, -1)
                                                    : static_cast<std::int64_t>(::lseek(descriptor_, 0, SEEK_CUR));
        return at < 0 ? 0 : static_cast<std::uint64_t>(at);
    }

    // The reader's side: the compressed bytes up to `at` are handed on.
    void handOn(std::uint64_t at) {
        if (!counter_ || at <= counted_) return;
        counter_->fetch_add(at - counted_, std::memory_order_relaxed);
        counted_ = at;
    }

    std::string whyFailed() const {
        const char* why = archive_error_string(archive_);
        return why != nullptr ? std::string(why) : std::string(messages::CompressedUnknown);
    }

    // Decompresses up to `count` bytes: the number, 0 at the end, -1 with `failure` set.
    std::int64_t step(char* into, std::size_t count, std::string& failure) {
        if (inflater_) return inflater_->read(into, count, failure);
#if defined(PALLION_TOOLS_ZSTD)
        if (zstd_) return zstd_->read(into, count, failure);
#endif
        // libarchive in small steps: a step that meets a failure gives none of its bytes.
        const la_ssize_t n = archive_read_data(archive_, into, std::min(count, StepBytes));
        if (n < 0) failure = whyFailed();
        return n;
    }

    // The thread: fills free blocks in turn until the text ends or fails.
    void decompress() {
        std::string failure;
        for (;;) {
            std::vector<char>* block = nullptr;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                changed_.wait(lock, [this] { return !free_.empty() || stop_; });
                if (stop_) return;
                block = free_.front();
                free_.pop_front();
            }
            block->resize(BlockBytes);
            std::size_t got = 0;
            bool end = false;
            while (got < BlockBytes) {
                const std::int64_t n = step(block->data() + got, BlockBytes - got, failure);
                if (n < 0) break;
                if (n == 0) {
                    end = true;
                    break;
                }
                got += static_cast<std::size_t>(n);
            }
            // A zip archive is read for its one member; a second one is refused.
            archive_entry* entry = nullptr;
            if (end && zip_ && failure.empty() && archive_read_next_header(archive_, &entry) != ARCHIVE_EOF)
                failure = std::string(messages::CompressedMoreMembers);
            block->resize(got);
            const std::uint64_t at = compressedRead(end && failure.empty());
            const std::lock_guard<std::mutex> lock(mutex_);
            if (got > 0) filled_.push_back(Filled{block, at});
            if (end || !failure.empty()) {
                endedAt_ = at;
                failure_ = failure;
                finished_ = true;
                changed_.notify_all();
                return;
            }
            changed_.notify_all();
        }
    }

    std::string name_;
    CompressedBytesRead counter_;  // none: nothing is counted
    int descriptor_ = -1;
    archive* archive_ = nullptr;
    bool zip_ = false;
    std::optional<GzipReader> inflater_;  // a .gz file's reading, else libarchive's
#if defined(PALLION_TOOLS_ZSTD)
    std::optional<ZstdReader> zstd_;  // a .zst file's reading, else libarchive's
#endif
    std::thread worker_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::array<std::vector<char>, BlocksInFlight> blocks_;
    std::deque<std::vector<char>*> free_;  // blocks the thread may fill
    std::deque<Filled> filled_;            // blocks the reader is to take, in order
    bool finished_ = false;                // the thread has put its last block
    std::uint64_t endedAt_ = 0;            // the compressed bytes read when it did
    bool stop_ = false;                    // the reader has gone
    std::string failure_;

    // The reader's side only.
    std::vector<char>* current_ = nullptr;
    std::size_t taken_ = 0;
    std::uint64_t counted_ = 0;  // the compressed bytes added to counter_
};

}  // namespace

Compression compressionOf(const std::string& name) {
    const std::size_t dot = name.find_last_of("./");
    if (dot == std::string::npos || name[dot] != '.') return Compression::None;
    const std::string extension = lower(name.substr(dot + 1));
    if (extension == "gz") return Compression::Gzip;
    if (extension == "bz2") return Compression::Bzip2;
    if (extension == "xz") return Compression::Xz;
    if (extension == "zst") return Compression::Zstd;
    if (extension == "zip") return Compression::Zip;
    return Compression::None;
}

namespace {
SourcePtr openCounted(const std::string& name, const SourceOpening& how, const CompressedBytesRead& counter) {
    const Compression kind = compressionOf(name);
    if (kind == Compression::None) return openFileSource(name, how);
    return {new CompressedSource(name, kind, counter)};
}
}  // namespace

SourcePtr openTableSource(const std::string& name, const SourceOpening& how) { return openCounted(name, how, {}); }

SourceFactory countingTableSources(const CompressedBytesRead& counter) {
    return [counter](const std::string& name, const SourceOpening& how) { return openCounted(name, how, counter); };
}

SourceBuffer::SourceBuffer(const std::string& name) : source_(openTableSource(name, SourceOpening{})) {}

SourceBuffer::int_type SourceBuffer::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (!isOpen()) return traits_type::eof();
    std::int64_t got;
    do got = source_->read(bytes_.data(), bytes_.size());
    while (got == Source::Interrupted);
    if (got <= 0) return traits_type::eof();  // a failed reading ends the text here
    setg(bytes_.data(), bytes_.data(), bytes_.data() + got);
    return traits_type::to_int_type(*gptr());
}

SourceStream::SourceStream(const std::string& name) : SourceBuffer(name), std::istream(this) {
    if (!isOpen()) setstate(std::ios::failbit);
}

}  // namespace Pallion::Tools
