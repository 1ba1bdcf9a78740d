#include "Blocks.hpp"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "GridViews.hpp"
#include "Text.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/Driver.hpp"

namespace py = pybind11;

namespace Pallion::Python {

struct TableBlocks::State {
    struct Block {
        std::vector<std::pair<std::string, Ravelin::ChunkPtr>> columns;
        std::string file;
    };

    explicit State(TableCall tableCall) : call(std::move(tableCall)) {}
    void take(const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file);
    void convert();

    TableCall call;
    Tessel::GridPtr grid{new Tessel::Grid};
    Parameter parameter;
    Tools::TableRun run;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Block> ready;
    Block filling;
    bool done = false;
    bool stop = false;
    bool stoppedEarly = false;
};

namespace {

// Asks the conversion to stop once the reader of the blocks has gone.
class StopWhenAsked : public Ravelin::LoaderProgress {
public:
    explicit StopWhenAsked(TableBlocks::State& state) : state_(state) {}
    bool report(const std::string& /*message*/, std::uint32_t /*value*/, std::uint32_t /*total*/) override {
        const std::lock_guard<std::mutex> lock(state_.mutex);
        return !state_.stop;
    }

private:
    TableBlocks::State& state_;
};

}  // namespace

// On the conversion's thread, for each field of each flushed block: the
// chunk's elements move into a chunk of the block, leaving the grid an empty
// fragment, and a whole block waits until the one before it has been taken.
void TableBlocks::State::take(const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file) {
    Ravelin::ChunkPtr moved;
    Tessel::forEachElementType([&]<class T>() {
        if (auto* elements = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get())) {
            Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> own(new Ravelin::Chunk<T>(0));
            own->vector().swap(elements->vector());
            moved = Ravelin::ChunkPtr(own);
        }
    });
    filling.columns.emplace_back(field, moved);
    filling.file = file;
    if (filling.columns.size() < parameter.Container.size()) return;
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return ready.empty() || stop; });
    if (!stop) ready.push_back(std::move(filling));
    filling = Block{};
    changed.notify_all();
}

void TableBlocks::State::convert() {
    parameter.Progress = new StopWhenAsked(*this);
    parameter.OnFragment = [this](const Ravelin::ChunkPtr& chunk, const std::string& field, const std::string& file) {
        take(chunk, field, file);
    };
    Tools::TableRun finished = Tools::runTable(
        *grid, parameter, call.options, [this](Tools::Resolved& resolved) { applyNames(call, resolved); },
        [this](Parameter& filled, const Tools::TableRun&) {
            applyReading(call, filled);
            return true;
        },
        Tools::OptionWords::Keywords);
    const std::lock_guard<std::mutex> lock(mutex);
    run = std::move(finished);
    done = true;
    changed.notify_all();
}

TableBlocks::TableBlocks(TableCall call, std::uint32_t rows) : state_(new State(std::move(call))) {
    state_->call.options.block = rows;
    thread_ = std::thread([state = state_] { state->convert(); });
}

TableBlocks::~TableBlocks() {
    if (!thread_.joinable()) return;
    // Closed without the GIL, taken off and back through the C API, which throws
    // nothing; a lock or a join that fails leaves the conversion to end by itself.
    PyThreadState* const saved = PyEval_SaveThread();
    try {
        close();
    } catch (...) {  // the conversion keeps its own state alive
    }
    try {
        if (thread_.joinable()) thread_.detach();
    } catch (...) {  // detach fails only for a thread that is not joinable
    }
    PyEval_RestoreThread(saved);
}

py::object TableBlocks::next() {
    State& state = *state_;
    State::Block block;
    for (;;) {
        bool got = false;
        bool ended = false;
        {
            const py::gil_scoped_release released;
            std::unique_lock<std::mutex> lock(state.mutex);
            state.changed.wait_for(lock, std::chrono::milliseconds(100),
                                   [&] { return !state.ready.empty() || state.done; });
            if (!state.ready.empty()) {
                block = std::move(state.ready.front());
                state.ready.pop_front();
                got = true;
                state.changed.notify_all();
            } else {
                ended = state.done;
            }
        }
        if (got) break;
        if (ended) return py::none();
        if (PyErr_CheckSignals() != 0) {
            {
                const py::gil_scoped_release released;
                close();
            }
            throw py::error_already_set();
        }
    }
    std::vector<FieldData> fields;
    const py::str file = pathText(block.file);
    for (const auto& column : block.columns) {
        const auto& name = column.first;
        const auto& chunk = column.second;
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

void TableBlocks::close() {
    if (!thread_.joinable()) return;
    State& state = *state_;
    std::unique_lock<std::mutex> lock(state.mutex);
    if (!state.done) state.stoppedEarly = true;
    state.stop = true;
    state.ready.clear();
    state.changed.notify_all();
    // The conversion stops at its next progress report; one that waits for
    // input keeps its state alive and ends when the input does.
    const bool ended = state.changed.wait_for(lock, std::chrono::seconds(2), [&] { return state.done; });
    lock.unlock();
    if (ended)
        thread_.join();
    else
        thread_.detach();
}

Outcome TableBlocks::outcome() {
    {
        const py::gil_scoped_release released;
        close();
    }
    const State& state = *state_;
    Outcome outcome;
    outcome.grid.grid = Tessel::GridPtr(new Tessel::Grid);
    {
        // A conversion still waiting for input after close is left to end on its own.
        const std::lock_guard<std::mutex> lock(state_->mutex);
        if (!state.done) return outcome;
    }
    for (const std::string& line : state.run.resolved.guessed) outcome.guessed.append(decoded(line));
    // A conversion stopped because the blocks were no longer wanted ended as asked.
    outcome.end = state.stoppedEarly ? "converted" : endName(state.run.end);
    outcome.message = decoded(state.run.failure);
    if (!state.stoppedEarly && !state.run.converted()) placeOf(outcome, state.run, state.parameter.Failure);
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
        .def("close", &TableBlocks::close, py::call_guard<py::gil_scoped_release>())
        .def("outcome", &TableBlocks::outcome);
}

}  // namespace Pallion::Python
