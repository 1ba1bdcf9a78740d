// The compiled part of the Python package (pallion._pallion): the arguments
// of a conversion checked and turned into the shared table options, the
// conversion run with the GIL released, and the grid's fragments handed to
// numpy as views of their chunks.  The Pythonic surface lives in the
// package's .py files; failures come back as an outcome that one function
// there turns into the exception.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "ModuleMessages.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/TableOptions.hpp"
#include "tessel/Grid.hpp"

namespace py = pybind11;

namespace {

namespace m = Pallion::Python::messages;
using Pallion::Tools::messages::fill;

// The base object of every array that views a chunk: it holds one count of
// the chunk, so the array outlives the grid and the field it came from.
struct ChunkKeeper {
    Ravelin::ChunkPtr chunk;
};

// A grid made by one conversion, with the element type that the parse string
// gave each field (a field that received no fragment has no array to tell it).
struct GridHandle {
    Tessel::GridPtr grid;
    std::vector<std::pair<std::string, std::string>> declared;
};

std::string typeName(const py::handle& value) { return py::str(py::type::of(value).attr("__name__")); }

// ---- Arguments: the one place where the keywords of a call become TableOptions.

std::string pathOf(const py::handle& item) {
    if (!py::isinstance<py::str>(item) && !py::isinstance<py::bytes>(item) && !py::hasattr(item, "__fspath__"))
        throw py::type_error(fill(m::NotAPath, typeName(item).c_str()));
    return py::str(py::module_::import("os").attr("fsdecode")(item));
}

std::vector<std::string> pathsOf(const py::handle& files) {
    std::vector<std::string> paths;
    if (py::isinstance<py::str>(files) || py::isinstance<py::bytes>(files) || py::hasattr(files, "__fspath__")) {
        paths.push_back(pathOf(files));
    } else {
        if (!py::isinstance<py::iterable>(files)) throw py::type_error(fill(m::NotAPath, typeName(files).c_str()));
        for (const py::handle item : files) paths.push_back(pathOf(item));
    }
    if (paths.empty()) throw py::value_error(std::string(m::NoFiles));
    return paths;
}

std::string textOf(const py::handle& value, const char* name) {
    if (!py::isinstance<py::str>(value)) throw py::type_error(fill(m::NotAText, name, typeName(value).c_str()));
    return value.cast<std::string>();
}

long long wholeNumber(const py::handle& value, const char* name, long long low, long long high) {
    if (!py::isinstance<py::int_>(value) || py::isinstance<py::bool_>(value))
        throw py::type_error(fill(m::NotAWholeNumber, name, typeName(value).c_str()));
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow != 0 || number < low || number > high)
        throw py::value_error(fill(m::OutOfRange, name,
                                   overflow > 0   ? high + 1
                                   : overflow < 0 ? low - 1
                                                  : number,
                                   low, high));
    return number;
}

// "auto" (delimiter, header, parse) leaves the option to be guessed from the
// first lines of the first file, as the command-line host guesses it.
Pallion::Tools::TableOptions tableOptions(const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                                          const py::handle& header, const py::handle& block, const py::handle& epsg) {
    const auto isAuto = [](const py::handle& value) {
        return py::isinstance<py::str>(value) && value.cast<std::string>() == "auto";
    };
    Pallion::Tools::TableOptions options;
    options.files = pathsOf(files);
    options.parse = textOf(parse, "parse");
    if (!isAuto(delimiter)) {
        const std::string name = textOf(delimiter, "delimiter");
        options.delimiter = Pallion::Tools::delimiterFromName(name);
        if (!options.delimiter) throw py::value_error(fill(m::UnknownDelimiter, name.c_str()));
    }
    if (!isAuto(header))
        options.headerLines =
            static_cast<std::uint32_t>(wholeNumber(header, "header", 0, std::numeric_limits<std::uint32_t>::max()));
    if (!block.is_none())
        options.block = static_cast<std::uint32_t>(wholeNumber(block, "block", 1, Pallion::Parameter().ChunkSize));
    if (!epsg.is_none())
        options.epsg =
            static_cast<std::int32_t>(wholeNumber(epsg, "epsg", 1, std::numeric_limits<std::int32_t>::max()));
    return options;
}

// ---- numpy, loaded beside the first conversion.

// Importing numpy takes much of what a short script spends outside the
// conversion, and the conversion needs no Python.  Where numpy is not loaded
// yet, a thread of its own imports it while the calling thread converts with
// the GIL released; the arrays are made once both are done.  A failed import
// is left for the first array to raise again with its own message.
// Made and destroyed with the GIL held.
class NumpyLoader {
public:
    NumpyLoader() {
        if (PyDict_GetItemString(PyImport_GetModuleDict(), "numpy") != nullptr) return;
        loading_ = true;
        thread_ = std::thread([this] {
            {
                py::gil_scoped_acquire gil;
                try {
                    py::module_::import("numpy");
                } catch (py::error_already_set&) {}
            }
            loading_ = false;
        });
    }
    NumpyLoader(const NumpyLoader&) = delete;
    NumpyLoader& operator=(const NumpyLoader&) = delete;
    ~NumpyLoader() {
        if (!thread_.joinable()) return;
        // Joined without the GIL: the thread may still be waiting for it.
        PyThreadState* const state = PyEval_SaveThread();
        try {
            thread_.join();
        } catch (...) {  // a joinable thread other than this one: join does not fail
        }
        PyEval_RestoreThread(state);
    }

    bool loading() const { return loading_; }

private:
    std::atomic<bool> loading_{false};
    std::thread thread_;
};

// ---- Progress: reports reach Python with the GIL taken back.

// Calls the user's callable, if any, at the library's report intervals and
// looks for a pending signal there.  A Python exception (KeyboardInterrupt
// from Ctrl-C among them) stops the conversion; it is kept for the caller.
// Without a callable a report takes the GIL only to look for a signal, which
// Python hands to its main thread alone: on any other thread (a Dask
// worker's, say) there is nothing to do.  On the main thread, the reports that
// come while numpy is being loaded are let pass (the GIL is the loader's),
// and a signal waits for the next report.
class PythonProgress : public Ravelin::LoaderProgress {
public:
    // Made with the GIL held, on the thread that converts.
    PythonProgress(py::object callable, const NumpyLoader& numpy)
        : callable_(std::move(callable)), numpy_(numpy), onMainThread_(isMainThread()) {}

    bool report(const std::string& /*message*/, std::uint32_t value, std::uint32_t total) override {
        if (callable_.is_none() && (!onMainThread_ || numpy_.loading())) return true;
        py::gil_scoped_acquire gil;
        if (!raised.is_none()) return false;  // asked to stop already
        try {
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
            if (!callable_.is_none()) callable_(value, total);
            return true;
        } catch (py::error_already_set& e) {
            raised = e.value();
            return false;
        }
    }

    py::object raised = py::none();

private:
    static bool isMainThread() {
        const py::module_ threading = py::module_::import("threading");
        return threading.attr("get_ident")().equal(threading.attr("main_thread")().attr("ident"));
    }

    py::object callable_;
    const NumpyLoader& numpy_;
    bool onMainThread_;
};

// ---- Running a conversion.

struct Outcome {
    std::string failure;  // the library's text, or the exception's
    std::string kind;     // "", "failure", "value", "overflow", "memory", "error"
};

template <class Convert>
Outcome guarded(Convert&& convert) {
    try {
        const std::string failure = convert();
        return {failure, failure.empty() ? "" : "failure"};
    } catch (const std::invalid_argument& e) {
        return {e.what(), "value"};
    } catch (const std::out_of_range& e) {
        return {e.what(), "overflow"};
    } catch (const std::bad_alloc& e) {
        return {e.what(), "memory"};
    } catch (const std::exception& e) {
        return {e.what(), "error"};
    }
}

py::dict reportOf(const Pallion::Tools::FailureReport& report) {
    py::dict out;
    out["file"] = report.file;
    out["line"] = report.lineNumber;
    out["text"] = report.text();
    out["column"] = report.column ? py::cast(*report.column) : py::none();
    out["token"] = report.token;
    out["detail"] = report.detail;
    py::list hints;
    for (const std::string& hint : report.hints) hints.append(hint);
    out["hints"] = hints;
    return out;
}

py::dict outcomeOf(GridHandle handle, const Outcome& outcome, PythonProgress& progress) {
    py::dict out;
    out["grid"] = py::cast(std::move(handle));
    out["kind"] = outcome.kind;
    out["message"] = outcome.failure;
    out["raised"] = progress.raised;
    out["report"] = py::none();
    out["guessed"] = py::list();
    return out;
}

py::dict readTable(const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                   const py::handle& header, const py::handle& block, const py::handle& epsg,
                   const py::object& progress) {
    const Pallion::Tools::TableOptions options = tableOptions(files, parse, delimiter, header, block, epsg);
    if (!progress.is_none() && PyCallable_Check(progress.ptr()) == 0)
        throw py::type_error(fill(m::NotCallable, typeName(progress).c_str()));

    GridHandle handle{Tessel::GridPtr(new Tessel::Grid), {}};
    const NumpyLoader numpy;
    Pallion::Parameter parameter;
    PythonProgress* watcher = nullptr;
    parameter.Progress = watcher = new PythonProgress(progress, numpy);
    Pallion::Tools::Resolved resolved;
    Outcome outcome;
    {
        py::gil_scoped_release released;
        outcome = guarded([&] {
            resolved = Pallion::Tools::resolveOptions(options);
            if (!resolved.failure.empty()) return resolved.failure;
            // Fills everything but the progress object, which stays as set above.  The
            // files are sampled to judge the block size only where none is given.
            const auto rows = options.block ? std::nullopt : Pallion::Tools::judgedRows(options.files);
            Pallion::Tools::fillParameter(parameter, options, resolved, rows);
            return Pallion::ascii2z9(*handle.grid, parameter);
        });
    }
    for (const Pallion::ContainerEntry& entry : parameter.Container)
        Tessel::forEachElementType([&]<class T>() {
            if (entry.TypeId == Tessel::typeIndexOf<T>())
                handle.declared.emplace_back(entry.FieldName, Tessel::ElementTraits<T>::parseName);
        });
    py::dict out = outcomeOf(std::move(handle), outcome, *watcher);
    out["guessed"] = resolved.guessed;
    if (!outcome.kind.empty() && outcome.kind != "memory")
        out["report"] = reportOf(Pallion::Tools::describeFailure(parameter,
                                                                 Pallion::Tools::OptionWords::Keywords));
    parameter.Progress.reset();  // the callable goes while the GIL is held
    return out;
}

py::dict readTrajectories(const py::handle& files, const py::object& progress) {
    Ravelin::StringListPtr list(new Ravelin::StringList);
    const std::vector<std::string> paths = pathsOf(files);
    list->assign(paths.begin(), paths.end());
    if (!progress.is_none() && PyCallable_Check(progress.ptr()) == 0)
        throw py::type_error(fill(m::NotCallable, typeName(progress).c_str()));

    GridHandle handle{Tessel::GridPtr(new Tessel::Grid), {}};
    const NumpyLoader numpy;
    PythonProgress* watcher = nullptr;
    Ravelin::ProgressPtr watching(watcher = new PythonProgress(progress, numpy));
    Outcome outcome;
    {
        py::gil_scoped_release released;
        outcome = guarded([&] { return Pallion::convertTrajectory2Z9(*handle.grid, list, watching); });
    }
    py::dict out = outcomeOf(std::move(handle), outcome, *watcher);
    if (!outcome.kind.empty() && outcome.kind != "memory") {
        // The piece of a name that does not fit the layout, where one does not.
        Pallion::Tools::FailureReport report;
        const std::string wrongName = Pallion::Tools::trajectoryNameFailure(paths);
        if (!wrongName.empty()) report.hints.push_back(wrongName);
        out["report"] = reportOf(report);
    }
    watching.reset();
    return out;
}

// ---- What a grid holds, for the package's Grid and Field.

// A numpy array over `count` elements of T at `data`: (n,) for a scalar,
// (n, 3) for a point, vector or colour.  With a keeper it views the chunk;
// without one (no elements) it is an empty array of its own.
template <class T>
py::array arrayOf(const void* data, std::uint64_t count, const py::object& keeper) {
    using Traits = Tessel::ElementTraits<T>;
    using C = typename Traits::Component;
    static_assert(sizeof(T) == Traits::components * sizeof(C), "elements are stored without gaps");
    std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(count)};
    std::vector<py::ssize_t> strides{static_cast<py::ssize_t>(sizeof(T))};
    if (Traits::components > 1) {
        shape.push_back(Traits::components);
        strides.push_back(sizeof(C));
    }
    if (count == 0 || keeper.is_none()) return py::array_t<C>(shape);
    return py::array_t<C>(shape, strides, static_cast<const C*>(data), keeper);
}

py::tuple typeOf(const std::string& name) {
    py::tuple found = py::make_tuple(py::none(), py::list(), py::none());
    Tessel::forEachElementType([&]<class T>() {
        using Traits = Tessel::ElementTraits<T>;
        if (name != Traits::parseName) return;
        py::list components;
        for (unsigned i = 0; i < Traits::components; ++i)
            components.append(Traits::components > 1 ? Traits::componentName(static_cast<int>(i)) : std::string());
        found = py::make_tuple(name, components, arrayOf<T>(nullptr, 0, py::none()));
    });
    return found;
}

// Each field as (name, type, component names, empty array of its kind,
// [(fragment name, [arrays])]).
py::list fieldsOf(const GridHandle& handle) {
    py::list fields;
    for (const Tessel::FieldPtr& field : handle.grid->fields()) {
        std::string type;
        for (const auto& [name, declaredType] : handle.declared)
            if (name == field->fieldName()) type = declaredType;
        py::list fragments;
        for (const Tessel::Field::Fragment& fragment : field->fragments()) {
            py::list arrays;
            for (const Tessel::MemBase::Array& array : fragment.arrays)
                Pallion::Tools::withElementType(*array, [&]<class T>() {
                    type = Tessel::ElementTraits<T>::parseName;
                    const py::object keeper = py::cast(ChunkKeeper{array->chunkPointer()});
                    arrays.append(arrayOf<T>(array->rawData(), array->elementCount(), keeper));
                });
            fragments.append(py::make_tuple(fragment.id->name, arrays));
        }
        const py::tuple kind = typeOf(type);
        fields.append(py::make_tuple(field->fieldName(), kind[0], kind[1], kind[2], fragments));
    }
    return fields;
}

py::object attributeValue(const Ravelin::ChunkPtr& value) {
    py::list values;
    if (const auto* ints = dynamic_cast<const Ravelin::Chunk<int>*>(value.get()))
        for (int v : ints->vector()) values.append(v);
    else if (const auto* uints = dynamic_cast<const Ravelin::Chunk<unsigned int>*>(value.get()))
        for (unsigned v : uints->vector()) values.append(v);
    else if (const auto* doubles = dynamic_cast<const Ravelin::Chunk<double>*>(value.get()))
        for (double v : doubles->vector()) values.append(v);
    else if (const auto* texts = dynamic_cast<const Ravelin::Chunk<std::string>*>(value.get()))
        for (const std::string& v : texts->vector()) values.append(py::str(v));
    if (values.size() == 1) return values[0];
    return values;
}

py::dict attributesOf(const GridHandle& handle) {
    py::dict attributes;
    const Ravelin::Attributes& all = handle.grid->attributes();
    for (const std::string& name : all.names()) attributes[py::str(name)] = attributeValue(all.getAttribute(name));
    return attributes;
}

py::list notesOf(const GridHandle& handle) {
    py::list notes;
    for (const Tessel::Grid::Note& note : handle.grid->notes()) notes.append(py::make_tuple(note.converter, note.text));
    return notes;
}

// The data address of each chunk of a field, fragment by fragment: what the
// tests compare an array's address with.
py::list chunkAddresses(const GridHandle& handle, const std::string& name) {
    py::list addresses;
    const Tessel::FieldPtr field = handle.grid->field(name);
    if (field.isNull()) return addresses;
    for (const Tessel::Field::Fragment& fragment : field->fragments())
        for (const Tessel::MemBase::Array& array : fragment.arrays)
            addresses.append(reinterpret_cast<std::uintptr_t>(array->chunkPointer()->rawData()));
    return addresses;
}

// ---- Planning conversions elsewhere (the Dask route).

// The checked files, the options made concrete (what "auto" was guessed to
// be, from the first file, so that every worker converts alike), and the
// fields that the parse string declares, in its order, each with an empty
// array of its kind; or the failure.  The library parses the parse string
// before it looks for files, so a conversion of no file gives the
// declaration without reading any.
py::dict planTable(const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                   const py::handle& header, const py::handle& block, const py::handle& epsg) {
    const Pallion::Tools::TableOptions options = tableOptions(files, parse, delimiter, header, block, epsg);
    const Pallion::Tools::Resolved resolved = Pallion::Tools::resolveOptions(options);
    Pallion::Parameter parameter;
    parameter.Parse = resolved.parse;
    parameter.Files = new Ravelin::StringList;
    Tessel::Grid scratch;
    const std::string failure = resolved.failure.empty() ? Pallion::ascii2z9(scratch, parameter) : resolved.failure;
    py::list fields;
    std::vector<std::string> seen;
    for (const Pallion::ContainerEntry& entry : parameter.Container) {
        if (std::find(seen.begin(), seen.end(), entry.FieldName) != seen.end()) continue;
        seen.push_back(entry.FieldName);
        Tessel::forEachElementType([&]<class T>() {
            if (entry.TypeId == Tessel::typeIndexOf<T>())
                fields.append(py::make_tuple(entry.FieldName, arrayOf<T>(nullptr, 0, py::none())));
        });
    }
    py::dict out;
    out["files"] = options.files;
    out["delimiter"] = std::string(1, resolved.delimiter);
    out["header"] = resolved.headerLines;
    out["parse"] = resolved.parse;
    out["fields"] = fields;
    out["failure"] = parameter.Container.empty() ? failure : std::string();
    return out;
}

}  // namespace

PYBIND11_MODULE(_pallion, module) {
    module.doc() = "The compiled part of pallion: conversions and views of the chunks.";
    py::class_<ChunkKeeper>(module, "ChunkKeeper")
        .def_property_readonly(
            "address",
            [](const ChunkKeeper& keeper) { return reinterpret_cast<std::uintptr_t>(keeper.chunk->rawData()); })
        .def_property_readonly("bytes", [](const ChunkKeeper& keeper) {
            return keeper.chunk->elementCount() * keeper.chunk->elementSize();
        });
    py::class_<GridHandle>(module, "GridHandle")
        .def("fields", &fieldsOf)
        .def("attributes", &attributesOf)
        .def("notes", &notesOf)
        .def("chunk_addresses", &chunkAddresses);
    py::dict texts;
    texts["unequal_counts"] = std::string(m::UnequalCounts);
    texts["files_per_partition"] = std::string(m::FilesPerPartition);
    module.attr("texts") = texts;
    module.def("read_table", &readTable, py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"),
               py::arg("block"), py::arg("epsg"), py::arg("progress"));
    module.def("plan_table", &planTable, py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"),
               py::arg("block"), py::arg("epsg"));
    module.def("read_trajectories", &readTrajectories, py::arg("files"), py::arg("progress"));
}
