// What a host hands to ascii2z9: the files, how to read them, and where to
// report.  The same record carries the state of the conversion.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pallion/array/TesselTypeIndex.hpp"
#include "ravelin/ChunkBase.hpp"
#include "ravelin/LoaderProgress.hpp"
#include "ravelin/StringList.hpp"

namespace Pallion {

// One parsed entry of a parse string.
struct ContainerEntry {
    std::vector<std::uint32_t> Columns;
    std::string FieldName;
    Tessel::TesselTypeIndex TypeId;
};

using Ravelin::ChunkPtr;
// Called for each column of each flushed block, before the chunk becomes a fragment:
// the chunk, the field name and the current file name.
using FragmentHook = std::function<void(const ChunkPtr&, const std::string&, const std::string&)>;

struct Parameter {
    // Set by the caller.
    Ravelin::StringListPtr Files;
    std::uint32_t HeaderLines = 0;
    std::string Parse = "Positions:point:0+1+2";
    char Delimiter = ' ';  // the letter t stands for a tab
    std::uint32_t ChunkSize = 10000000;
    std::int32_t EPSG = -1;
    Ravelin::ProgressPtr Progress;
    // The longest line, in bytes without its line end, that a file may hold
    // (header lines too).  A longer one (a file without line feeds, a device
    // that never ends a line) ends the conversion with a failure text once that
    // many bytes have been read, before memory runs out; a host may raise it
    // for tables of longer lines.  Not told by speak.
    std::uint64_t LineSizeLimit = std::uint64_t{1} << 28;

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

    // The caller's settings as a text, one line each, as it is noted in the grid.
    PALLION_API std::string speak() const;
};

}  // namespace Pallion
