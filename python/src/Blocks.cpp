#include "Blocks.hpp"

#include <chrono>

#include <pybind11/stl.h>

#include "GridViews.hpp"
#include "Numpy.hpp"
#include "Text.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"

namespace py = pybind11;

namespace Pallion::Python {

namespace {

// Asks the conversion to stop once the reader of the blocks has gone.
class StopWhenAsked : public Ravelin::LoaderProgress {
public:
    explicit StopWhenAsked(const bool& stop, std::mutex& mutex) : stop_(stop), mutex_(mutex) {}
    bool report(const std::string& /*message*/, std::uint32_t /*value*/, std::uint32_t /*total*/) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        return !stop_;
    }

private:
    const bool& stop_;
    std::mutex& mutex_;
};

}  // namespace

TableBlocks::TableBlocks(TableCall call, std::uint32_t rows) : call_(std::move(call)) {
    call_.options.block = rows;
    parameter_.Progress = new StopWhenAsked(stop_, mutex_);
    parameter_.OnFragment = [this](const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file) {
        take(chunk, field, file);
    };
    thread_ = std::thread([this] {
        Tools::TableRun run = Tools::runTable(
            *grid_, parameter_, call_.options, [this](Tools::Resolved& resolved) { applyNames(call_, resolved); },
            [this](Parameter& filled, const Tools::TableRun&) {
                filled.WholeTokens = call_.strict;
                filled.Whitespace = call_.whitespace;
                filled.CommentPrefix = call_.comments;
                filled.SkipEmptyLines = call_.whitespace || !call_.comments.empty();
                return true;
            },
            Tools::OptionWords::Keywords);
        const std::lock_guard<std::mutex> lock(mutex_);
        run_ = std::move(run);
        done_ = true;
        changed_.notify_all();
    });
}

TableBlocks::~TableBlocks() { stopAndJoin(); }

// On the conversion's thread, for each field of each flushed block: the
// chunk's elements move into a chunk of the block, leaving the grid an empty
// fragment, and a whole block waits until the one before it has been taken.
void TableBlocks::take(const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file) {
    Ravelin::ChunkPtr moved;
    Tessel::forEachElementType([&]<class T>() {
        if (auto* elements = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get())) {
            Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> own(new Ravelin::Chunk<T>(0));
            own->vector().swap(elements->vector());
            moved = Ravelin::ChunkPtr(own);
        }
    });
    filling_.columns.emplace_back(field, moved);
    filling_.file = file;
    if (filling_.columns.size() < parameter_.Container.size()) return;
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return ready_.empty() || stop_; });
    if (!stop_) ready_.push_back(std::move(filling_));
    filling_ = Block{};
    changed_.notify_all();
}

py::object TableBlocks::next() {
    Block block;
    for (;;) {
        bool got = false;
        bool ended = false;
        {
            const py::gil_scoped_release released;
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait_for(lock, std::chrono::milliseconds(100), [this] { return !ready_.empty() || done_; });
            if (!ready_.empty()) {
                block = std::move(ready_.front());
                ready_.pop_front();
                got = true;
                changed_.notify_all();
            } else {
                ended = done_;
            }
        }
        if (got) break;
        if (ended) return py::none();
        if (PyErr_CheckSignals() != 0) {
            close();
            throw py::error_already_set();
        }
    }
    readyNumpy();
    GridHandle handle{Tessel::GridPtr(new Tessel::Grid), {}};
    std::vector<FieldData> fields;
    const py::str file = pathText(block.file);
    for (const auto& [name, chunk] : block.columns) {
        Tessel::forEachElementType([&]<class T>() {
            if (chunk.isNull() || chunk->elementType() != typeid(T)) return;
            auto [empty, components] = emptyOf(Tessel::ElementTraits<T>::parseName);
            py::list arrays;
            arrays.append(viewOfChunk(chunk));
            py::list fragments;
            fragments.append(py::make_tuple(file, arrays));
            fields.push_back(
                {decoded(name), py::str(Tessel::ElementTraits<T>::parseName), components, empty, fragments});
        });
    }
    return py::cast(std::move(fields));
}

void TableBlocks::stopAndJoin() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!done_) stoppedEarly_ = true;
        stop_ = true;
        ready_.clear();
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

void TableBlocks::close() {
    const py::gil_scoped_release released;
    stopAndJoin();
}

Outcome TableBlocks::outcome() {
    close();
    Outcome outcome;
    outcome.grid.grid = Tessel::GridPtr(new Tessel::Grid);
    for (const std::string& line : run_.resolved.guessed) outcome.guessed.append(decoded(line));
    // A conversion stopped because the blocks were no longer wanted ended as asked.
    outcome.end = stoppedEarly_ ? "converted" : endName(run_.end);
    outcome.message = decoded(run_.failure);
    if (!run_.converted()) placeOf(outcome, run_, parameter_.Failure);
    return outcome;
}

void bindBlocks(py::module_& module) {
    py::class_<TableBlocks>(module, "TableBlocks")
        .def(py::init([](const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                         const py::handle& header, const py::handle& skiprows, const py::handle& rows,
                         const py::handle& comments, const py::handle& names, const py::handle& usecols, bool strict) {
                 TableCall call = tableCall(files, parse, delimiter, header, skiprows, rows, py::none(), comments,
                                            names, usecols, strict);
                 const std::uint32_t perBlock = *call.options.block;
                 return new TableBlocks(std::move(call), perBlock);
             }),
             py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"), py::arg("skiprows"),
             py::arg("rows"), py::arg("comments"), py::arg("names"), py::arg("usecols"), py::arg("strict"))
        .def("next", &TableBlocks::next)
        .def("close", &TableBlocks::close)
        .def("outcome", &TableBlocks::outcome);
}

}  // namespace Pallion::Python
