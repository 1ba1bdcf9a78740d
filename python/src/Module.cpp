// The compiled part of the Python package (pallion._pallion): conversions run
// with the GIL released (Running), their arguments checked (Arguments), numpy
// loaded beside them (Numpy), progress reported (Progress), and the grid's
// fields handed over as numpy views of their chunks (GridViews).  The
// Pythonic surface lives in the package's .py files.
#include <pybind11/pybind11.h>

#include "GridViews.hpp"
#include "ModuleMessages.hpp"
#include "Running.hpp"

namespace py = pybind11;

PYBIND11_MODULE(_pallion, module) {
    namespace m = Pallion::Python::messages;
    module.doc() = "The compiled part of pallion: conversions and views of the chunks.";
    Pallion::Python::bindGridViews(module);
    Pallion::Python::bindRunning(module);
    py::dict texts;
    const auto text = [&](const char* name, std::string_view value) { texts[name] = std::string(value); };
    text("unequal_counts", m::UnequalCounts);
    text("files_per_partition", m::FilesPerPartition);
    text("byte_range_with_max_rows", m::ByteRangeWithMaxRows);
    text("blocksize", m::BlockSize);
    text("nul_in_path", m::NulInPath);
    text("no_match", m::NoMatch);
    text("not_a_file_object", m::NotAFileObject);
    text("not_a_named_path", m::NotANamedPath);
    text("rows_per_block", m::RowsPerBlock);
    text("no_open3d", m::NoOpen3d);
    text("no_positions", m::NoPositions);
    text("not_writable", m::NotWritable);
    text("wrong_extension", m::WrongExtension);
    module.attr("texts") = texts;
}
