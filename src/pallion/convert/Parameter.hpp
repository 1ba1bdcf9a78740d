// What a host hands to ascii2z9: the files, how to read them, and where to
// report.  The same record carries the state of the conversion.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pallion/array/TesselTypeIndex.hpp"
#include "pallion/convert/Source.hpp"
#include "ravelin/ChunkBase.hpp"
#include "ravelin/LoaderProgress.hpp"
#include "ravelin/StringList.hpp"

namespace Pallion {

using Ravelin::ChunkPtr;

// One parsed entry of a parse string.
struct ContainerEntry {
    std::vector<std::uint32_t> Columns;
    std::string FieldName;
    Tessel::TesselTypeIndex TypeId;
};

// What stopped a conversion, as a record beside its text: a host reads the
// kind, the place and the counts from here instead of taking the sentence
// apart.  The text stays what it always was; it is made apart from this.
enum class FailureKind : std::uint8_t {
    None,             // no failure (yet)
    Arguments,        // no files, no parse-string entry, a block size of 0, a wrong parse string
    CannotOpen,       // File could not be opened (or is a directory)
    ReadFailed,       // reading File failed part-way (an I/O error, a corrupt compressed stream)
    Interrupted,      // the progress object said stop
    LineTooLong,      // Line of File is longer than LineSizeLimit
    TooFewTokens,     // Line of File has TokensInLine tokens where HighestColumn is needed
    TokenInvalid,     // Token in Column of Line is no number (std::invalid_argument, or not whole)
    TokenOutOfRange,  // Token in Column of Line does not fit its type (std::out_of_range, or range refusal)
};

// Where a conversion whose blocks a host keeps gets the memory of a block:
// for entry `entry` of Container (its index there) and block number `block`,
// a Ravelin::Chunk of the entry's element type that holds the block's rows.
using BlockMemory = std::function<ChunkPtr(std::size_t entry, std::uint64_t block)>;

// The rows of a block (a fragment of every field) unless a host says otherwise.
inline constexpr std::uint32_t DefaultChunkSize = 10000000;
// The end of a byte range that reaches the end of its file.
inline constexpr std::uint64_t WholeFileEnd = ~std::uint64_t{0};
// How often a conversion of a byte range reports to its progress object.
inline constexpr std::uint64_t RangeReportRows = 65536;

struct FailureRecord {
    FailureKind Kind = FailureKind::None;
    std::string File;                 // the file being read, where one was
    std::uint64_t Line = 0;           // 1-based, every line of the file counted (skipped ones too); 0: none
    std::int64_t Column = -1;         // the token's column number, -1: none
    std::string Token;                // the token as read, where one failed
    std::string Type;                 // the parse-string name of the column's element type ("uint8_t")
    std::string Stored;               // a refused whole token: what the unchecked reading stores; "" if it throws
    std::uint64_t HighestColumn = 0;  // TooFewTokens: the highest column a row needs
    std::uint64_t TokensInLine = 0;   // TooFewTokens: the tokens the line had
};

// Called for each column of each flushed block, before the chunk becomes a fragment:
// the chunk, the field name and the current file name.
using FragmentHook = std::function<void(const ChunkPtr&, const std::string&, const std::string&)>;

struct Parameter {
    // Set by the caller.
    Ravelin::StringListPtr Files;
    std::uint32_t HeaderLines = 0;
    std::string Parse = "Positions:point:0+1+2";
    char Delimiter = ' ';  // the letter t stands for a tab
    std::uint32_t ChunkSize = DefaultChunkSize;
    std::int32_t EPSG = -1;
    Ravelin::ProgressPtr Progress;
    // The longest line, in bytes without its line end, that a file may hold
    // (header lines too).  A longer one (a file without line feeds, a device
    // that never ends a line) ends the conversion with a failure text once that
    // many bytes have been read, before memory runs out; a host may raise it
    // for tables of longer lines.  Not told by speak.
    std::uint64_t LineSizeLimit = std::uint64_t{1} << 28;

    // Readings a host may opt into; each default is the plain reading above.
    // None of them is told by speak.  Under any of them a CR before the line
    // feed belongs to the line end, and a skipped line is no row: it is not
    // reported to Progress, though failure texts count it.
    // Every token a row reads must be a number in full (blanks around it and
    // the CR of a CRLF line end allowed) and fit its column's type; otherwise
    // the conversion ends with a failure text naming the file, the line, the
    // column, the token and what the reading without the check would store.
    // No token conversion throws then: a token that is no number at all is
    // such a failure too (TokenInvalid), as is a value beyond its type
    // (TokenOutOfRange: 300 in a uint8_t, -5 in a uint32_t, 1e39 in a float,
    // a subnormal double).  Integers are decimal digits with an optional sign;
    // a uint32_t takes 0 to 4294967295.  Floating-point tokens are what
    // std::stod (std::stof) reads in full, inf and nan included, hexadecimal
    // refused.
    bool WholeTokens = false;
    // Any run of blanks and tabs separates tokens, and blanks at the start and
    // end of a line are ignored; Delimiter is then not used.
    bool Whitespace = false;
    // Lines that begin with this prefix ("#", "//") are skipped; empty: none.
    std::string CommentPrefix;
    // Empty lines, and lines of blanks alone, are skipped instead of read as rows.
    bool SkipEmptyLines = false;
    // ',' is the decimal separator: "3,25" is read exactly as "3.25", and a
    // '.' ends a number as any other letter does ("1.5" reads as 1 and is no
    // whole token).  Meant for a delimiter other than ','.
    bool DecimalComma = false;
    // The bytes of one regular file to read: the lines that start in
    // [RangeBegin, RangeEnd).  A line starts at byte 0 and after every line
    // feed; a range that does not begin at byte 0 thus begins after the first
    // line end at or after byte RangeBegin - 1, and skips no header.  The line
    // that straddles RangeEnd is read to its end.  Ranges that meet
    // ([0, b), [b, c), [c, end)) read every line of the file exactly once.
    // With several files, each is read in the same range.
    //
    // What a host does to put N ranges together into the grid of one
    // sequential conversion (Pallion::Tools::convertRanges does all of it):
    // - rows: a range's rows are those of the sequential conversion, in order,
    //   from the first row of its first line on; nothing is skipped twice or
    //   read twice at the seams.  A range of a file other than its first
    //   begins at or after the end of the header lines;
    // - counts: countRows (Extensions.hpp) gives the rows and lines of each
    //   range by the conversion's own line rules, so that the host knows,
    //   before converting, the sequential row (FirstRow) and line (FirstLine)
    //   at which each range begins, and every block's rows;
    // - blocks: with BlockChunks (below) every range writes its rows straight
    //   into the host's chunks of the sequential blocks, a block across a seam
    //   by two ranges into disjoint rows; the host stores the blocks in file
    //   order when all are done.  Without a block size that is one chunk per
    //   field per file, as in a sequential run;
    // - failures: a failure's line, in its record and its text, counts from
    //   FirstLine + 1; the host reports the first failure in file order and
    //   keeps the blocks before its row.
    // A range reports to Progress every RangeReportRows rows it stores, with
    // the total unknown (4294967295), so that a host can stop it.
    std::uint64_t RangeBegin = 0;
    std::uint64_t RangeEnd = WholeFileEnd;
    // The lines before the range's first line: failure records and texts
    // number a range's lines from FirstLine + 1.  0: from the range's first.
    std::uint64_t FirstLine = 0;
    // Blocks whose memory the host makes, so that ranges converted side by
    // side write straight into the blocks of one sequential conversion, none
    // of them copied: empty, the conversion makes its own chunks and flushes
    // them into fragments as ever.  With a target:
    // - the conversion's first row is row FirstRow of the sequential
    //   conversion: it starts with BlockFill = FirstRow % ChunkSize and
    //   FragmentCount = FirstRow / ChunkSize;
    // - when a row is to be stored in a block whose chunks it does not hold
    //   yet, it asks BlockChunks once for each entry's chunk of that block,
    //   and writes each row at its row of the block (two ranges that share a
    //   block write disjoint rows of the same chunks);
    // - a chunk must hold the block's rows (ChunkSize, fewer for the last
    //   block); a row beyond them ends the conversion with a failure text
    //   (FailureKind::ReadFailed: the file grew since its rows were counted);
    // - it stores no fragment and calls no OnFragment, not even for the last
    //   block: the host stores the blocks, once all ranges are done, with
    //   storeBlock (Extensions.hpp);
    // - LineCount counts the rows this conversion stored.
    std::uint64_t FirstRow = 0;
    BlockMemory BlockChunks;
    // How a file is opened: empty, the library's plain reading of the name
    // (a regular file, a pipe, a FIFO, a device, read once front to back).
    // A host may set its own factory, for compressed files for instance; a
    // Source that fails part-way ends the conversion with a failure text
    // naming the file (FailureKind::ReadFailed).  Not told by speak.
    SourceFactory OpenSource;

    // State of the conversion.
    std::uint32_t HighestColumnIndex = 0;
    std::vector<ContainerEntry> Container;
    // The tokens of the line being read, as far as a row needs them: the
    // first HighestColumnIndex + 1.  The rest of a line that holds more is
    // not split, so a long line of many tokens costs no text per token.
    std::vector<std::string> Tokens;
    std::uint64_t BlockFill = 0;
    std::uint64_t LineCount = 0;
    std::uint64_t FragmentCount = 0;

    FragmentHook OnFragment;
    std::string CurrentFile;
    // What stopped the conversion, filled with its failure text (or before a
    // standard exception leaves it); Kind None after a success.
    FailureRecord Failure;

    // The caller's settings as a text, one line each, as it is noted in the grid.
    PALLION_API std::string speak() const;
};

}  // namespace Pallion
