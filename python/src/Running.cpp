#include "Running.hpp"

#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "Arguments.hpp"
#include "Blocks.hpp"
#include "Progress.hpp"
#include "Text.hpp"
#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/tools/Driver.hpp"

namespace py = pybind11;

namespace Pallion::Python {

namespace {

std::string kindName(FailureKind kind) {
    switch (kind) {
        case FailureKind::None:
            return "";
        case FailureKind::Arguments:
            return "arguments";
        case FailureKind::CannotOpen:
            return "cannot_open";
        case FailureKind::ReadFailed:
            return "read_failed";
        case FailureKind::Interrupted:
            return "interrupted";
        case FailureKind::LineTooLong:
            return "line_too_long";
        case FailureKind::TooFewTokens:
            return "too_few_tokens";
        case FailureKind::TokenInvalid:
            return "token_invalid";
        case FailureKind::TokenOutOfRange:
            return "token_out_of_range";
    }
    return "";
}

// The element type of each field the parse string declared, in its order.
std::vector<std::pair<std::string, std::string>> declaredTypes(const Parameter& parameter) {
    std::vector<std::pair<std::string, std::string>> declared;
    for (const ContainerEntry& entry : parameter.Container)
        Tessel::forEachElementType([&]<class T>() {
            if (entry.TypeId == Tessel::typeIndexOf<T>())
                declared.emplace_back(entry.FieldName, Tessel::ElementTraits<T>::parseName);
        });
    return declared;
}

Outcome readTable(const py::handle& files, const py::handle& parse, const py::handle& delimiter,
                  const py::handle& header, const py::handle& skiprows, const py::handle& block, const py::handle& epsg,
                  const py::handle& comments, const py::handle& names, const py::handle& usecols, bool strict,
                  const py::object& progress, const py::handle& threads) {
    TableCall call =
        tableCall(files, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols, strict);
    call.options.threads = threadsOf(threads);
    checkCallable(progress);
    Outcome outcome;
    outcome.grid.grid = Tessel::GridPtr(new Tessel::Grid);
    const NumpyLoader numpy;
    Parameter parameter;
    PythonProgress* watcher = nullptr;
    parameter.Progress = watcher = new PythonProgress(progress, numpy);
    Tools::TableRun run;
    {
        const py::gil_scoped_release released;
        run = Tools::runTable(
            *outcome.grid.grid, parameter, call.options, [&](Tools::Resolved& resolved) { applyNames(call, resolved); },
            [&](Parameter& filled, const Tools::TableRun&) {
                applyReading(call, filled);
                return true;
            },
            Tools::OptionWords::Keywords);
    }
    outcome.grid.declared = declaredTypes(parameter);
    for (const std::string& line : run.resolved.guessed) outcome.guessed.append(decoded(line));
    outcome.delimiter = std::string(1, run.resolved.delimiter);
    outcome.header = run.resolved.headerLines;
    outcome.parse = run.resolved.parse;
    outcome.end = endName(run.end);
    outcome.message = decoded(run.failure);
    if (!run.converted()) placeOf(outcome, run, parameter.Failure);
    outcome.raised = watcher->raised;
    if (!outcome.raised.is_none()) outcome.end = "raised";
    parameter.Progress.reset();  // the callable goes while the GIL is held
    return outcome;
}

Outcome readTrajectories(const py::handle& files, const py::object& progress) {
    Ravelin::StringListPtr list(new Ravelin::StringList);
    const std::vector<std::string> paths = pathsOf(files);
    list->assign(paths.begin(), paths.end());
    checkCallable(progress);
    Outcome outcome;
    outcome.grid.grid = Tessel::GridPtr(new Tessel::Grid);
    const NumpyLoader numpy;
    PythonProgress* watcher = nullptr;
    Ravelin::ProgressPtr watching(watcher = new PythonProgress(progress, numpy));
    Tools::TableRun run;
    {
        const py::gil_scoped_release released;
        try {
            run.failure = convertTrajectory2Z9(*outcome.grid.grid, list, watching);
            run.end = run.failure.empty() ? Tools::RunEnd::Converted : Tools::RunEnd::Failed;
        } catch (const std::bad_alloc& e) {
            run.failure = e.what();
            run.end = Tools::RunEnd::OutOfMemory;
        } catch (const std::exception& e) {
            run.failure = e.what();
            run.end = Tools::RunEnd::Threw;
        }
        if (!run.converted()) {
            run.kind = Tools::probeOpenFailure(paths, run.file, run.openError);
            // The piece of a name that does not fit the layout, where one does not.
            const std::string wrongName = Tools::trajectoryNameFailure(paths);
            if (!wrongName.empty()) run.report.hints.push_back(wrongName);
        }
    }
    outcome.end = endName(run.end);
    outcome.message = decoded(run.failure);
    if (!run.converted()) placeOf(outcome, run, FailureRecord{});
    outcome.raised = watcher->raised;
    if (!outcome.raised.is_none()) outcome.end = "raised";
    watching.reset();
    return outcome;
}

// The options made concrete and the fields declared, from the parse string
// alone: the library's own parser, with no file converted.
Plan planTable(const py::handle& files, const py::handle& parse, const py::handle& delimiter, const py::handle& header,
               const py::handle& skiprows, const py::handle& block, const py::handle& epsg, const py::handle& comments,
               const py::handle& names, const py::handle& usecols, bool strict) {
    const TableCall call =
        tableCall(files, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols, strict);
    Plan plan;
    Tools::Resolved resolved = Tools::resolveOptions(call.options);
    if (resolved.failure.empty()) applyNames(call, resolved);
    std::string failure = resolved.failure;
    ParsedEntries parsed;
    if (failure.empty()) failure = parseEntries(resolved.parse, parsed);
    if (!failure.empty()) {
        Outcome outcome;
        outcome.end = "options";
        outcome.kind = kindName(FailureKind::Arguments);
        outcome.message = decoded(failure);
        plan.failure = py::cast(std::move(outcome));
        return plan;
    }
    std::vector<std::string> seen;
    Parameter parameter;
    parameter.Container = parsed.Entries;
    for (const auto& [name, type] : declaredTypes(parameter)) {
        if (std::find(seen.begin(), seen.end(), name) != seen.end()) continue;
        seen.push_back(name);
        plan.fields.append(py::make_tuple(decoded(name), emptyOf(type).first));
    }
    plan.delimiter = call.whitespace ? "whitespace" : std::string(1, resolved.delimiter);
    plan.header = resolved.headerLines;
    plan.parse = resolved.parse;
    return plan;
}

}  // namespace

std::string endName(Tools::RunEnd end) {
    switch (end) {
        case Tools::RunEnd::Converted:
            return "converted";
        case Tools::RunEnd::Options:
        case Tools::RunEnd::Refused:
            return "options";
        case Tools::RunEnd::Failed:
            return "failed";
        case Tools::RunEnd::Threw:
            return "threw";
        case Tools::RunEnd::OutOfMemory:
            return "memory";
    }
    return "failed";
}

// The place of a failure, from the library's record where it has one, else
// from the report worked out of the re-read line.
void placeOf(Outcome& outcome, const Tools::TableRun& run, const FailureRecord& record) {
    outcome.kind = kindName(run.kind);
    outcome.error = run.openError;
    const Tools::FailureReport& report = run.report;
    const std::string& file = !record.File.empty() ? record.File : !run.file.empty() ? run.file : report.file;
    if (!file.empty()) outcome.file = pathText(file);
    if (record.Line > 0)
        outcome.line = py::int_(record.Line);
    else if (report.lineNumber > 0)
        outcome.line = py::int_(report.lineNumber);
    if (record.Column >= 0) {
        outcome.column = py::int_(record.Column);
        outcome.token = decoded(record.Token);
    } else if (report.column) {
        outcome.column = py::int_(*report.column);
        outcome.token = decoded(report.token);
    }
    outcome.context = decoded(report.text());
    for (const std::string& hint : report.hints) outcome.hints.append(decoded(hint));
}

void bindRunning(py::module_& module) {
    py::class_<Outcome>(module, "Outcome")
        .def_property_readonly("grid", [](const Outcome& outcome) { return outcome.grid; })
        .def_readonly("guessed", &Outcome::guessed)
        .def_readonly("end", &Outcome::end)
        .def_readonly("kind", &Outcome::kind)
        .def_readonly("message", &Outcome::message)
        .def_readonly("raised", &Outcome::raised)
        .def_readonly("file", &Outcome::file)
        .def_readonly("line", &Outcome::line)
        .def_readonly("column", &Outcome::column)
        .def_readonly("token", &Outcome::token)
        .def_readonly("context", &Outcome::context)
        .def_readonly("hints", &Outcome::hints)
        .def_readonly("error", &Outcome::error)
        .def_readonly("delimiter", &Outcome::delimiter)
        .def_readonly("header", &Outcome::header)
        .def_readonly("parse", &Outcome::parse);
    py::class_<Plan>(module, "Plan")
        .def_readonly("fields", &Plan::fields)
        .def_readonly("delimiter", &Plan::delimiter)
        .def_readonly("header", &Plan::header)
        .def_readonly("parse", &Plan::parse)
        .def_readonly("failure", &Plan::failure);
    module.def("read_table", &readTable, py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"),
               py::arg("skiprows"), py::arg("block"), py::arg("epsg"), py::arg("comments"), py::arg("names"),
               py::arg("usecols"), py::arg("strict"), py::arg("progress"), py::arg("threads") = py::none());
    module.def("plan_table", &planTable, py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"),
               py::arg("skiprows"), py::arg("block"), py::arg("epsg"), py::arg("comments"), py::arg("names"),
               py::arg("usecols"), py::arg("strict"));
    module.def("read_trajectories", &readTrajectories, py::arg("files"), py::arg("progress"));
    bindBlocks(module);
}

}  // namespace Pallion::Python
