// Running conversions for the package: the GIL released while the library
// converts, and how each run ended, as one typed outcome.
#pragma once

#include <cstdint>
#include <string>

#include <pybind11/pybind11.h>

#include "GridViews.hpp"
#include "pallion/tools/Driver.hpp"

namespace Pallion::Python {

// How a conversion ended, for the package to raise from.  `end` is
// "converted", "options", "failed", "threw", "memory" or "raised" (the
// progress callable or a signal raised `raised`); `kind` names the failure's
// kind ("cannot_open", "token_invalid", ...), "" for none.
struct Outcome {
    GridHandle grid;
    pybind11::list guessed;
    std::string end = "converted";
    std::string kind;
    pybind11::str message;
    pybind11::object raised = pybind11::none();
    pybind11::object file = pybind11::none();
    pybind11::object line = pybind11::none();
    pybind11::object column = pybind11::none();
    pybind11::object token = pybind11::none();
    pybind11::str context;  // the failure's place and hints, as lines
    pybind11::list hints;
    int error = 0;  // errno where a file could not be opened
    // What "auto" stood for: for the Dask route, so that every worker converts alike.
    std::string delimiter;
    std::uint32_t header = 0;
    std::string parse;
};

// The options made concrete from the first file and the fields the parse
// string declares, each with an empty array of its kind; nothing converted.
struct Plan {
    pybind11::list fields;  // (name, empty array)
    std::string delimiter;
    std::uint32_t header = 0;
    std::string parse;
    pybind11::object failure = pybind11::none();  // the Outcome of a plan that cannot be used
};

// The name of how a run ended, as Outcome.end gives it.
std::string endName(Tools::RunEnd end);
// The failure's kind and place into `outcome`: from the library's record
// where it has them, else from the run's report.
void placeOf(Outcome& outcome, const Tools::TableRun& run, const FailureRecord& record);

void bindRunning(pybind11::module_& module);

}  // namespace Pallion::Python
