// Compressed tables, read through the library's Source seam: a file whose
// name ends in .gz, .bz2, .xz, .zst or .zip (a zip archive of one member) is
// decompressed on a thread of its own, block by block, while the conversion
// reads the text on its caller's thread.  Every helper that looks at a file
// (sniffing, the pre-flight check, the failure context) opens it here, and so
// sees the same text as the conversion.
//
// The name's ending chooses whether a file is decompressed and how: .gz by
// ISA-L or zlib (one member or several, each checked against its CRC), .zst
// by libzstd where it was found at build time, the others by libarchive.
// A truncated or corrupt stream fails at the block where it is found: read()
// gives Source::Failed, and failure() says why.  Bytes handed out before the
// damage was seen stay handed out: a decompressor that checks only at a
// block's or a member's end may have given some of it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <istream>
#include <memory>
#include <streambuf>
#include <string>

#include "pallion/Pallion.hpp"

namespace Pallion::Tools {

enum class Compression : std::uint8_t { None, Gzip, Bzip2, Xz, Zstd, Zip };

// The compression a file's name announces (its last extension, in any case).
Compression compressionOf(const std::string& name);

// Opens `name` for reading: decompressed where its name announces a
// compression, else the library's plain Source.  The factory that
// fillParameter hands to the library.
SourcePtr openTableSource(const std::string& name, const SourceOpening& how);

// The compressed bytes that the Sources of one conversion have handed on so
// far, counted as the reader takes each decompressed block: a progress that
// counts them against the files' sizes ends with the files' last byte.
// Shared between the factory, its Sources and the progress.
using CompressedBytesRead = std::shared_ptr<std::atomic<std::uint64_t>>;

// openTableSource, with the bytes each compressed file has handed on added
// to `counter`.  Such a Source also answers Source::Interrupted once before
// each decompressed block (about a MiB of text): the library's reader then
// asks whether it is still wanted, a progress report, so that the host draws
// its bar and can stop the reading (Ctrl-C), where the conversion, which
// knows no line count for such a file, would report only at its first line.
SourceFactory countingTableSources(const CompressedBytesRead& counter);

// The stream buffer of a SourceStream: it fills itself from the Source.
class SourceBuffer : public std::streambuf {
public:
    explicit SourceBuffer(const std::string& name);
    bool isOpen() const { return !source_.isNull() && source_->isOpen(); }

protected:
    int_type underflow() override;

private:
    SourcePtr source_;
    std::array<char, std::size_t{64} * 1024> bytes_{};
};

// A stream over the text of a file, as openTableSource gives it, for the
// helpers that read lines with Lines.hpp.  It reads nothing it is not asked for.
class SourceStream : private SourceBuffer, public std::istream {
public:
    explicit SourceStream(const std::string& name);
};

}  // namespace Pallion::Tools
