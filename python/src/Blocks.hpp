// A table read block by block for the package's iter_table: the conversion
// runs on a thread of its own, and each block it flushes is taken out of the
// grid and handed over, with at most one block waiting, so that a table of
// any size is held about two blocks at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <thread>

#include <pybind11/pybind11.h>

#include "Arguments.hpp"
#include "Running.hpp"

namespace Pallion::Python {

class TableBlocks {
public:
    TableBlocks(TableCall call, std::uint32_t rows);
    TableBlocks(const TableBlocks&) = delete;
    TableBlocks& operator=(const TableBlocks&) = delete;
    ~TableBlocks();

    // The next block's fields (FieldData), None after the last; waits without
    // the GIL, and raises KeyboardInterrupt (stopping the conversion) on Ctrl-C.
    pybind11::object next();
    // Stops the conversion.  Its thread is waited for a while; one that still
    // waits for input then (a FIFO without lines) ends on its own later.
    void close();
    // How the conversion ended; once next() gave None.
    Outcome outcome();

    struct State;  // shared with the conversion's thread

private:
    std::shared_ptr<State> state_;
    std::thread thread_;
};

void bindBlocks(pybind11::module_& module);

}  // namespace Pallion::Python
