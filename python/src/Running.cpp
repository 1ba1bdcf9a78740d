#include "Running.hpp"

#include <optional>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "Arguments.hpp"
#include "Blocks.hpp"
#include "ModuleMessages.hpp"
#include "Progress.hpp"
#include "Text.hpp"
#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/Driver.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "pallion/tools/OutputFile.hpp"
#include "pallion/tools/Writers.hpp"

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
                  const py::object& progress, const py::handle& byteRange, const py::handle& threads) {
    TableCall call =
        tableCall(files, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols, strict);
    applyByteRange(call, byteRange);
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
        // A range counts its lines from its own first: the user is told the file's.
        if (!run.converted() && call.options.rangeBegin > 0 && parameter.Failure.Line > 0) {
            Tools::countLinesFromFileStart(parameter, run.failure,
                                           Tools::linesBeforeRange(parameter.Failure.File, call.options.rangeBegin));
            run.report = Tools::describeFailure(parameter, Tools::OptionWords::Keywords);
        }
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

// The --las-scale of a LAS output, from its text ("0.001" or "0.01,0.01,0.001"); a ValueError otherwise.
Tools::LasOptions lasOptions(const std::optional<std::string>& scale) {
    Tools::LasOptions options;
    options.scaleOption = "las_scale";
    if (!scale) return options;
    options.scale = Tools::parseLasScale(*scale);
    if (!options.scale) throw py::value_error(Tools::messages::fill(messages::BadLasScale, scale->c_str()));
    return options;
}

// A conversion's grid written to `output` by its extension: (failure, notes).
py::tuple writeGridTo(const GridHandle& handle, const std::string& output, const std::optional<std::string>& scale) {
    const Tools::LasOptions options = lasOptions(scale);
    Tools::LasWritten written;
    {
        const py::gil_scoped_release released;
        if (Tools::outputFormatOf(output) == Tools::OutputFormat::Las)
            written = Tools::writeLas(*handle.grid, output, options);
        else
            written.failure = Tools::writeGrid(*handle.grid, output);
    }
    py::list notes;
    for (const std::string& note : written.notes) notes.append(decoded(note));
    return py::make_tuple(decoded(written.failure), notes);
}

// A table converted straight into `output`, block by block: each block is
// written when the conversion flushes it and then let go, so memory holds a
// few blocks whatever the table's size.  (outcome, failure of the writing,
// notes, rows, field names)
py::tuple convertTable(const py::handle& files, const std::string& output, const py::handle& parse,
                       const py::handle& delimiter, const py::handle& header, const py::handle& skiprows,
                       const py::handle& block, const py::handle& epsg, const py::handle& comments,
                       const py::handle& names, const py::handle& usecols, bool strict, const py::object& progress,
                       const std::optional<std::string>& scale, const py::handle& threads) {
    TableCall call =
        tableCall(files, parse, delimiter, header, skiprows, block, epsg, comments, names, usecols, strict);
    call.options.threads = threadsOf(threads);
    checkCallable(progress);
    const Tools::LasOptions options = lasOptions(scale);
    if (Tools::outputFormatOf(output) == Tools::OutputFormat::Unknown)
        throw py::value_error(Tools::messages::fill(Tools::messages::UnknownFormat, output.c_str()));
    if (std::string problem = Tools::outputProblem(output); !problem.empty()) throw py::value_error(problem);
    Outcome outcome;
    outcome.grid.grid = Tessel::GridPtr(new Tessel::Grid);
    Tessel::Grid& grid = *outcome.grid.grid;
    const NumpyLoader numpy;
    Parameter parameter;
    PythonProgress* watcher = nullptr;
    parameter.Progress = watcher = new PythonProgress(progress, numpy);
    const Tools::BlockWriterPtr writer = Tools::openBlockWriter(output, options, &grid);
    std::uint64_t rows = 0;
    const Tools::BlockRoute route{[&](const Tools::FlushedBlock& flushed) {
                                      if (!flushed.columns.empty()) rows += flushed.columns[0].second->elementCount();
                                      return writer ? writer->add(flushed) : std::string();
                                  },
                                  false};
    Tools::TableRun run;
    Tools::LasWritten written;
    {
        const py::gil_scoped_release released;
        run = Tools::runTable(grid, parameter, call.options, Tools::AfterResolving([&](Tools::Resolved& resolved) {
                                  applyNames(call, resolved);
                                  // Field names that the output cannot hold are refused before the conversion,
                                  // not after it.
                                  Tools::refuseFieldNames(resolved, output);
                              }),
                              Tools::BeforeConversion([&](Parameter& filled, const Tools::TableRun& judged) {
                                  applyReading(call, filled);
                                  if (writer && judged.judgedRows) writer->expectRows(*judged.judgedRows);
                                  return true;
                              }),
                              Tools::OptionWords::Keywords, route);
        if (run.converted() && watcher->raised.is_none()) {
            if (writer) {
                written = writer->finish(grid);
            } else if (Tools::outputFormatOf(output) == Tools::OutputFormat::Las) {
                written = Tools::writeLas(grid, output, options);
            } else {
                written.failure = Tools::writeGrid(grid, output);
            }
        }
    }
    outcome.grid.declared = declaredTypes(parameter);
    for (const std::string& line : run.resolved.guessed) outcome.guessed.append(decoded(line));
    outcome.end = endName(run.end);
    outcome.message = decoded(run.failure);
    if (!run.converted()) placeOf(outcome, run, parameter.Failure);
    outcome.raised = watcher->raised;
    if (!outcome.raised.is_none()) outcome.end = "raised";
    parameter.Progress.reset();
    py::list notes, fields;
    for (const std::string& note : written.notes) notes.append(decoded(note));
    for (const auto& field : grid.fields()) fields.append(decoded(field->fieldName()));
    return py::make_tuple(std::move(outcome), decoded(written.failure), notes, rows, fields);
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
        case Tools::RunEnd::Unwritten:
            return "unwritten";
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
               py::arg("usecols"), py::arg("strict"), py::arg("progress"), py::arg("byte_range") = py::none(),
               py::arg("threads") = py::none());
    module.def("plan_table", &planTable, py::arg("files"), py::arg("parse"), py::arg("delimiter"), py::arg("header"),
               py::arg("skiprows"), py::arg("block"), py::arg("epsg"), py::arg("comments"), py::arg("names"),
               py::arg("usecols"), py::arg("strict"));
    module.def(
        "readable_in_part", [](const py::bytes& file) { return readableInPart(file); }, py::arg("file"));
    module.def("read_trajectories", &readTrajectories, py::arg("files"), py::arg("progress"));
    module.def("write_grid", &writeGridTo, py::arg("grid"), py::arg("output"), py::arg("las_scale"));
    module.def("convert_table", &convertTable, py::arg("files"), py::arg("output"), py::arg("parse"),
               py::arg("delimiter"), py::arg("header"), py::arg("skiprows"), py::arg("block"), py::arg("epsg"),
               py::arg("comments"), py::arg("names"), py::arg("usecols"), py::arg("strict"), py::arg("progress"),
               py::arg("las_scale"), py::arg("threads") = py::none());
    bindBlocks(module);
}

}  // namespace Pallion::Python
