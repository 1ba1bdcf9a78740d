// A table read block by block for the package's iter_table: the conversion
// runs on a thread of its own, and each block it flushes is taken out of the
// grid and handed over, with at most one block waiting, so that a table of
// any size is held about two blocks at a time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

#include "Arguments.hpp"
#include "Running.hpp"
#include "pallion/tools/Driver.hpp"

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
    // Stops the conversion and waits for its thread.
    void close();
    // How the conversion ended; once next() gave None.
    Outcome outcome();

private:
    struct Block {
        std::vector<std::pair<std::string, Ravelin::ChunkPtr>> columns;
        std::string file;
    };

    void take(const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file);
    void stopAndJoin();

    TableCall call_;
    Tessel::GridPtr grid_{new Tessel::Grid};
    Parameter parameter_;
    Tools::TableRun run_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Block> ready_;
    Block filling_;
    bool done_ = false;
    bool stop_ = false;
    bool stoppedEarly_ = false;
};

void bindBlocks(pybind11::module_& module);

}  // namespace Pallion::Python
