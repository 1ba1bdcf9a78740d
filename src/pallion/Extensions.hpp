// What a host that reads and guesses like the library needs beyond the two
// conversions: the parse string read as the conversion reads it, a line cut
// into tokens as the conversion cuts it, the standard conversion of one
// token, and what is wrong with a trajectory file's name.  Together with the
// opt-in fields of Parameter and its failure record (Parameter.hpp), this is
// the whole of what the host helpers, the command-line program and the Python
// package use of the library: they link the shared libraries like any host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "pallion/Export.hpp"
#include "pallion/convert/Parameter.hpp"

namespace Tessel {
class Grid;
}

namespace Pallion {

// The entries of a parse string, as the conversion will read them, with the
// highest column any of them names.  Gives the empty text, or the first fault:
// the conversion's own texts, and for a column that is no number from 0 to
// 2147483647 a text that names it, its entry and the whole string.  Nothing is
// read and nothing is converted.  (Pallion::convert)
struct ParsedEntries {
    std::vector<ContainerEntry> Entries;
    std::uint32_t HighestColumn = 0;
};
PALLION_API std::string parseEntries(const std::string& parse, ParsedEntries& parsed);

// One entry of a parse string as it is written, before anything is judged:
// its text, its items cut at ':' and, where it has three, the words of the
// third (the columns) cut at '+'.  A column word may be a number or, for a
// host that looks names up in a header, a name.
struct WrittenEntry {
    std::string Text;
    std::vector<std::string> Items;
    std::vector<std::string> Columns;
};
// The entries of a parse string cut as the conversion cuts it (at ',', then
// ':', then '+'), in order; parseEntries judges each of them.  Nothing is
// refused here.  (Pallion::convert)
PALLION_API std::vector<WrittenEntry> writtenEntries(const std::string& parse);

// The first fault of a parse string as a text, empty where it has none: the
// same judgement as parseEntries, without the entries.  (Pallion::convert)
PALLION_API std::string checkParseString(const std::string& parse);

// The tokens of one line, cut as a conversion with `parameter`'s reading cuts
// it (its Delimiter, or runs of blanks and tabs with Whitespace), at most
// `atMost` of them; the line ends at its first NUL byte.  Appends to `out`
// and gives the number appended.  (Pallion::convert)
PALLION_API std::size_t tokensOf(std::string_view line, const Parameter& parameter, std::vector<std::string>& out,
                                 std::size_t atMost = static_cast<std::size_t>(-1));

// What is wrong with the stem of a trajectory file's name, in the order in
// which the trajectory conversion meets it: a count of pieces other than six,
// or the first piece it cannot read, named by its number, its meaning and its
// text, with the six-piece layout.  Empty where the stem fits.
// (Pallion::trajectory)
PALLION_API std::string checkTrajectoryName(const std::string& stem);

// What a conversion of `parameter`'s byte range of `file` would read: the
// lines that start in the range (the header lines too where it begins at
// byte 0) and the rows among them, by the conversion's own line rules (the
// header at byte 0, comment and empty lines where the readings skip them, a
// CR before the line feed, a last line without a line end).  Counted as if
// every row converted: a range with a failing line counts on past it.  The
// plain reading is a count of line feeds.  A file that does not open counts
// nothing.  Progress, where set, is asked now and then (value 0, total
// 4294967295) whether to go on; a no ends the count early, short of the range.
// (Pallion::convert)
struct RangeRows {
    std::uint64_t Rows = 0;
    std::uint64_t Lines = 0;
};
PALLION_API RangeRows countRows(const Parameter& parameter, const std::string& file);

// A zeroed chunk of `count` elements of the element type `type` (one of the
// nine), as a conversion makes a block's chunk, with room for `capacity`
// elements (at least `count`) that takes no memory until it is resized into;
// null for another type.  (Pallion::convert)
PALLION_API ChunkPtr makeBlockChunk(const Tessel::TesselTypeIndex& type, std::size_t count, std::size_t capacity = 0);

// Stores block `block` of a conversion whose blocks the host made
// (Parameter::BlockChunks): each entry's chunk of that block, as BlockChunks
// gives it, becomes the fragment fragmentName(file, block) of the entry's
// field, in the order in which a conversion flushes a block, OnFragment
// called first, as a flush would.  `parameter` is that of a conversion that
// ran on `grid`, so that its Container is parsed and its fields exist.
// (Pallion::convert)
PALLION_API void storeBlock(Tessel::Grid& grid, const Parameter& parameter, const std::string& file,
                            std::uint64_t block);

// The name of block `number` of `file`: the file's stem and the number
// ("points.txt", 0: "points0").  (Pallion::convert)
PALLION_API std::string blockName(const std::string& file, std::uint64_t number);

// The standard conversion of one token into a component type C: std::stod for
// double, std::stof for float, std::stoi for every integer type, of whose
// value C keeps the low bits.  Its exceptions pass through unchanged: this is
// the plain reading a conversion's values are equal to, bit for bit.
template <class C>
C standardNumber(const std::string& token) {
    if constexpr (std::is_same_v<C, double>)
        return std::stod(token);
    else if constexpr (std::is_same_v<C, float>)
        return std::stof(token);
    else
        return static_cast<C>(std::stoi(token));  // a value too wide keeps its low bits
}

}  // namespace Pallion
