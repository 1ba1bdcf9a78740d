// One text-table conversion as a host runs it: the options resolved against
// the first file, the rows judged, the Parameter filled, the conversion run,
// and, where it stopped, what stopped it (its kind) and where (the report).
// The command-line host and the Python module both run it; each adds its own
// progress object and checks through the hook.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pallion/Pallion.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/TableOptions.hpp"

namespace Tessel {
class Grid;
}

namespace Pallion::Tools {

// How a run ended.
enum class RunEnd : std::uint8_t {
    Converted,    // every file converted
    Options,      // the options cannot be used (resolved.failure); nothing was read
    Refused,      // the hook refused to start (a host's own check)
    Failed,       // the library gave a failure text
    Threw,        // a token's exception (std::invalid_argument, std::out_of_range) or another std::exception
    OutOfMemory,  // std::bad_alloc
    Unwritten     // the route's sink refused a block: an output that cannot be written (failure says why)
};

struct TableRun {
    Resolved resolved;
    std::optional<std::uint64_t> judgedRows;
    RunEnd end = RunEnd::Converted;
    std::string failure;  // the library's text, the exception's, or the options' failure
    FailureKind kind = FailureKind::None;
    std::string file;      // the file the kind is about, where known
    int openError = 0;     // CannotOpen: the errno of opening `file`, where it could be found
    FailureReport report;  // where it stopped, for a person (Failed and Threw only)

    bool converted() const { return end == RunEnd::Converted; }
};

// Called once the Parameter is filled, before the conversion: a host sets its
// progress object and may check the files; false refuses the run (RunEnd::Refused).
using BeforeConversion = std::function<bool(Parameter&, const TableRun&)>;

// Options a host may change on the resolved options before they fill the
// Parameter (columns picked by name, names given for a headerless table).
using AfterResolving = std::function<void(Resolved&)>;

// One block of the conversion, in file order, once it is whole: the file it
// comes from, its number in that file (its fragments are named
// fragmentName(file, number), "points0"), and each field's chunk, in the
// order of the grid's fields.  The chunks hold the block's rows and nothing
// more.
struct FlushedBlock {
    std::string file;
    std::uint64_t number = 0;
    std::vector<std::pair<std::string, Ravelin::ChunkPtr>> columns;  // field name, chunk
};

// Takes each block as it is whole, in file order, on the thread that called
// runTable.  A text that is not empty stops the run as a failure with that
// text (a writer that cannot write).
using BlockSink = std::function<std::string(const FlushedBlock&)>;

// How the blocks leave the conversion.
struct BlockRoute {
    BlockSink onBlock;       // none: the blocks go only to the grid
    bool keepBlocks = true;  // false: the grid keeps fields, attributes and notes but no block,
                             // so that memory holds a few blocks whatever the table's size
};

// Refuses, before anything is read, field names that `output` cannot hold
// (fieldNamesProblem): the names the resolved parse string gives its fields
// become resolved.failure, a fault of the options.  Nothing where the options
// already failed or nothing is written (`output` empty).
void refuseFieldNames(Resolved& resolved, const std::string& output);

// Runs the conversion of `options` into `grid`.  Standard exceptions of the
// conversion are caught and told in the result; `parameter` keeps the state
// of the run (the record of the failure, the container, the counts).
// With options.threads other than 1, large regular files are converted in
// ranges side by side (Ranges.hpp) into the same grid; anything else stays
// one sequential conversion.  The blocks go to `route` in file order on the
// caller's thread either way.  A sink's refusal ends the run as Failed with
// its text.  Without keepBlocks the grid keeps no block, and where a token's
// exception ends the run it keeps no field either.
TableRun runTable(Tessel::Grid& grid, Parameter& parameter, const TableOptions& options,
                  const AfterResolving& afterResolving = {}, const BeforeConversion& before = {},
                  OptionWords words = OptionWords::CommandLine, const BlockRoute& route = {});

// The kind of a failure that the library's record leaves open: a file of
// `files` that cannot be opened (CannotOpen, with its name and errno), else
// None.  For a library whose record is not filled.
FailureKind probeOpenFailure(const std::vector<std::string>& files, std::string& file, int& openError);

}  // namespace Pallion::Tools
