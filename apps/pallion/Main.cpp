// The command-line host: converts text tables (or trajectory files) into a
// grid, tells what the grid holds and writes it where asked.  It guesses the
// delimiter, the header and the fields where the user names none, checks the
// first rows before converting, and gives a failure with its file, line,
// token and a hint.  Run it with --help for the options.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <unistd.h>

#include "HostMessages.hpp"
#include "Options.hpp"
#include "Progress.hpp"
#include "Summary.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/CompressedSource.hpp"
#include "pallion/tools/Driver.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/OutputFile.hpp"
#include "pallion/tools/Preflight.hpp"
#include "pallion/tools/Ranges.hpp"
#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/Writers.hpp"
#include "ravelin/Console.hpp"
#include "tessel/Grid.hpp"

namespace {

using namespace std::string_view_literals;

constexpr int Done = 0, Failed = 1, Usage = 2;

std::uint64_t bytesOf(const std::vector<std::string>& files) {
    std::uint64_t bytes = 0;
    for (const std::string& file : files) {
        std::error_code error;
        if (!Pallion::Tools::isRegularFile(file)) continue;
        const auto size = std::filesystem::file_size(file, error);
        if (!error) bytes += size;
    }
    return bytes;
}

// Whether every file is a regular file whose name announces a compression.
bool allCompressed(const std::vector<std::string>& files) {
    return std::all_of(files.begin(), files.end(), [](const std::string& file) {
        return Pallion::Tools::isRegularFile(file) &&
               Pallion::Tools::compressionOf(file) != Pallion::Tools::Compression::None;
    });
}

// The console's one message, a trajectory name that does not fit its layout,
// goes to stderr; the sink owns the flag it raises, so that it never refers
// to a local that has gone.
class ConsoleToStderr {
public:
    ConsoleToStderr() {
        auto misfit = misfit_;
        Ravelin::Console::setSink([misfit](const std::string& text) {
            std::cerr << host::messages::Prefix << Pallion::Tools::shownLines(text) << '\n';
            *misfit = true;
        });
    }
    ~ConsoleToStderr() { Ravelin::Console::setSink({}); }
    ConsoleToStderr(const ConsoleToStderr&) = delete;
    ConsoleToStderr& operator=(const ConsoleToStderr&) = delete;
    bool nameMisfit() const { return *misfit_; }

private:
    std::shared_ptr<std::atomic<bool>> misfit_ = std::make_shared<std::atomic<bool>>(false);
};

// Why the files named by -o and --preview cannot be written, found before
// anything is read: one of them is an input (or both are one file), its
// folder is missing or not writable, it is a folder or has other hard links.
// The exit status and the text; 0 and nothing where both can be written.
std::pair<int, std::string> outputsRefused(const host::Options& options) {
    namespace m = host::messages;
    const std::vector<std::pair<std::string_view, std::string>> outputs = {{"--output", options.output},
                                                                           {"--preview", options.preview}};
    for (const auto& [option, output] : outputs) {
        if (output.empty()) continue;
        for (const std::string& input : options.table.files)
            if (input != "-" && Pallion::Tools::sameFile(input, output))
                return {2, m::fill(m::OutputIsInput, std::string(option).c_str(), output.c_str(), input.c_str())};
    }
    if (!options.output.empty() && !options.preview.empty() &&
        Pallion::Tools::sameFile(options.output, options.preview))
        return {2, m::fill(m::OutputIsPreview, options.output.c_str())};
    for (const auto& [option, output] : outputs)
        if (!output.empty())
            if (std::string problem = Pallion::Tools::outputProblem(output); !problem.empty())
                return {1, std::string(option) + ": " + problem};
    return {0, {}};
}

// A signal's exit status: 128 and its number, as shells report it.
int signalled() { return 128 + Pallion::Tools::stopSignal(); }

int run(int argc, char** argv) {
    namespace m = host::messages;
    using Pallion::Tools::shownLines;
    const host::CommandLine command = host::parseCommandLine(argc, argv);
    Tessel::Grid grid;
    host::RunReport report;
    if (!command.options) {
        // A usage error also answers in JSON where --json was among the words.
        const bool json = std::any_of(argv + 1, argv + argc, [](const char* word) { return word == "--json"sv; });
        if (json && command.exitStatus != 0) {
            report.result = command.err.substr(std::min(command.err.size(), m::Prefix.size()));
            while (!report.result.empty() && report.result.back() == '\n') report.result.pop_back();
            report.status = command.exitStatus;
            std::cout << host::jsonSummary(grid, report) << std::flush;
        } else {
            std::cout << command.out;
        }
        std::cerr << shownLines(command.err);
        return command.exitStatus;
    }
    const host::Options& options = *command.options;
    auto say = [&](const std::string& line) {
        if (!options.quiet) std::cerr << m::Prefix << shownLines(line) << '\n';
    };
    // Ends the run with a failure that is not a conversion's: told on stderr, and as the JSON's result.
    auto refuse = [&](int status, const std::string& text) {
        std::cerr << m::Prefix << shownLines(text) << '\n';
        report.result = text;
        report.status = status;
        if (options.json) std::cout << host::jsonSummary(grid, report) << std::flush;
        return status;
    };

    if (const auto [status, text] = outputsRefused(options); status != 0) return refuse(status, text);

    const ConsoleToStderr console;
    host::BarProgress::installInterruptHandler();
    const bool terminal = isatty(STDERR_FILENO) != 0 && !options.quiet;
    const std::uint64_t bytes = bytesOf(options.table.files);

    // A table's output is written block by block as the conversion flushes
    // them, and the summary and the preview gathered from the same blocks, so
    // that memory holds a few blocks whatever the table's size.  Nothing
    // takes the output's name unless the conversion read everything.
    host::BlockDigest digest(!options.preview.empty(), host::BlockDigest::InMemory,
                             Pallion::Tools::threadCount(options.table.threads));
    Pallion::Tools::BlockWriterPtr writer;
    if (!options.output.empty() && !options.trajectory)
        writer = Pallion::Tools::openBlockWriter(options.output, {options.lasScale}, &grid);
    bool digested = false;  // the digest has what the summary shows
    const Pallion::Tools::BlockRoute route{[&](const Pallion::Tools::FlushedBlock& block) {
                                               digest.add(block);
                                               return writer ? writer->add(block) : std::string();
                                           },
                                           false};

    Pallion::Parameter parameter;
    {
        Ravelin::StringListPtr files(new Ravelin::StringList);
        for (const std::string& name : options.table.files) files->push_back(Pallion::Tools::libraryPath(name));
        host::BarProgress* bar = nullptr;
        try {
            if (options.trajectory) {
                Ravelin::ProgressPtr progress(bar = new host::BarProgress(nullptr, 1, bytes, terminal));
                report.result = Pallion::convertTrajectory2Z9(grid, files, progress);
                if (report.result.empty()) bar->finish();
            } else {
                bool strictRefusal = false;
                // Field names that the output cannot hold are refused before the conversion, not after it.
                const auto checkNames = [&](Pallion::Tools::Resolved& resolved) {
                    Pallion::Tools::refuseFieldNames(resolved, options.output);
                };
                // The first rows of the regular files, checked as the plain reading will convert them (a strict
                // reading refuses such a token itself), and the progress bar.
                const auto beforeConverting = [&](Pallion::Parameter& filled, const Pallion::Tools::TableRun& run) {
                    const Pallion::Tools::Preflight checked = options.table.lenient || options.strict
                                                                  ? Pallion::Tools::preflight(filled)
                                                                  : Pallion::Tools::Preflight();
                    for (const auto& warning : checked.warnings) report.warnings.push_back(warning.text());
                    if (checked.count > checked.warnings.size())
                        report.warnings.push_back(m::fill(
                            m::MoreWarnings, static_cast<unsigned long long>(checked.count - checked.warnings.size()),
                            static_cast<unsigned long long>(checked.rowsChecked)));
                    // What is not a regular file is not read ahead, so --strict cannot look at it: told, not hidden.
                    if (options.strict)
                        for (const std::string& file : options.table.files)
                            if (!Pallion::Tools::isRegularFile(file))
                                report.warnings.push_back(m::fill(m::StrictNotChecked, file.c_str()));
                    for (const std::string& line : run.resolved.guessed) say(line);
                    for (const std::string& warning : report.warnings)
                        if (options.strict || !options.quiet)
                            std::cerr << m::Prefix << (options.strict ? "" : m::Warning) << shownLines(warning) << '\n';
                    if (options.strict && checked.count > 0) {
                        strictRefusal = true;
                        return false;
                    }
                    // The bar judges the rows also where a block size is given.
                    const auto rows = run.judgedRows ? run.judgedRows : Pallion::Tools::judgedRows(options.table.files);
                    if (writer && rows) writer->expectRows(*rows);
                    // Compressed files are followed by their compressed bytes read against their sizes.
                    Pallion::Tools::CompressedBytesRead compressed;
                    if (allCompressed(options.table.files)) {
                        compressed = std::make_shared<std::atomic<std::uint64_t>>(0);
                        filled.OpenSource = Pallion::Tools::countingTableSources(compressed);
                    }
                    filled.Progress = bar =
                        new host::BarProgress(&filled, rows.value_or(0), bytes, terminal, std::move(compressed));
                    return true;
                };
                const Pallion::Tools::TableRun run =
                    Pallion::Tools::runTable(grid, parameter, options.table, checkNames, beforeConverting,
                                             Pallion::Tools::OptionWords::CommandLine, route);
                const Pallion::Tools::Resolved& resolved = run.resolved;
                report.guessed = resolved.guessed;
                if (run.end == Pallion::Tools::RunEnd::Options) {
                    for (const std::string& line : resolved.guessed) say(line);
                    return refuse(resolved.aboutTheOptions ? Usage : Failed, run.failure);
                }
                report.delimiter = Pallion::Tools::delimiterName(resolved.delimiter);
                report.headerLines = resolved.headerLines;
                report.parse = resolved.parse;
                report.comments = resolved.commentPrefix;
                report.decimalComma = resolved.decimalComma;
                report.lenient = options.table.lenient;
                if (strictRefusal) {
                    std::cerr << m::Prefix << m::StrictRefused << '\n';
                    report.result = std::string(m::StrictRefused);
                    report.status = Failed;
                    if (options.json) std::cout << host::jsonSummary(grid, report) << std::flush;
                    return Failed;
                }
                const bool threw =
                    run.end == Pallion::Tools::RunEnd::Threw || run.end == Pallion::Tools::RunEnd::OutOfMemory;
                report.result = threw ? std::string(m::StoppedByException) + run.failure : run.failure;
                // An output that cannot take a block is told as the output's failure.
                if (run.end == Pallion::Tools::RunEnd::Unwritten) report.output = {options.output, run.failure};
                if (run.converted()) bar->finish();
                parameter.Progress.reset();
                report.failure = run.report;
                digested = true;
                for (const std::string& shared : digest.sharedFragmentNames()) {
                    report.warnings.push_back(shared);
                    if (!options.quiet) std::cerr << m::Prefix << m::Warning << shared << '\n';
                }
            }
        } catch (const std::exception& e) {
            report.result = std::string(m::StoppedByException) + e.what();
            parameter.Progress.reset();
        }
    }
    report.partial = !report.result.empty();
    // A stop asked for by a signal during the conversion: nothing is written.
    if (!report.partial && Pallion::Tools::stopSignal() != 0) {
        report.result = m::fill(m::StoppedBySignal, Pallion::Tools::stopSignal());
        report.partial = true;
    }

    // The output files only after a conversion that read everything and was not stopped.
    std::string writeFailure, previewFailure;
    if (!digested) digest.addGrid(grid);
    if (writer && !report.partial) {
        Pallion::Tools::LasWritten written = writer->finish(grid);
        // What the file holds otherwise than the grid is told even with --quiet.
        for (const std::string& note : written.notes) std::cerr << m::Prefix << m::Warning << note << '\n';
        writeFailure = std::move(written.failure);
        report.output = {options.output, writeFailure};
    } else if (!options.output.empty() && !report.partial) {
        if (Pallion::Tools::outputFormatOf(options.output) == Pallion::Tools::OutputFormat::Las) {
            // What the file holds otherwise than the grid is told even with --quiet.
            Pallion::Tools::LasWritten las = Pallion::Tools::writeLas(grid, options.output, {options.lasScale});
            for (const std::string& note : las.notes) std::cerr << m::Prefix << m::Warning << note << '\n';
            writeFailure = std::move(las.failure);
        } else {
            writeFailure = Pallion::Tools::writeGrid(grid, options.output);
        }
        report.output = {options.output, writeFailure};
    }
    if (!options.preview.empty() && Pallion::Tools::stopSignal() == 0) {
        previewFailure = digest.writePreview(options.preview);
        report.preview = {options.preview, previewFailure};
    }
    const bool stopped = Pallion::Tools::stopSignal() != 0;
    const int status = stopped                                                              ? signalled()
                       : report.partial || !writeFailure.empty() || !previewFailure.empty() ? Failed
                                                                                            : Done;
    if (!report.partial && status != Done) report.result = !writeFailure.empty() ? writeFailure : previewFailure;
    report.status = status;

    if (options.json)
        std::cout << host::jsonSummary(grid, digest, report);
    else
        std::cout << shownLines(host::textSummary(grid, digest, report.partial));
    std::cout << std::flush;  // the summary before the failure, also when both go to one pipe
    if (!previewFailure.empty()) std::cerr << m::Prefix << m::PreviewFailed << shownLines(previewFailure) << '\n';
    if (!writeFailure.empty()) std::cerr << m::Prefix << shownLines(writeFailure) << '\n';
    if (!report.partial) return status;

    std::cerr << m::Prefix << shownLines(report.result) << '\n';
    if (stopped) {
        std::cerr << m::Prefix << m::Interrupted << '\n';
        return status;
    }
    if (options.trajectory) {
        const std::string wrongName = Pallion::Tools::trajectoryNameFailure(options.table.files);
        if (!wrongName.empty())
            std::cerr << m::Prefix << shownLines(wrongName) << '\n';
        else if (console.nameMisfit())
            std::cerr << m::HintTrajectoryName << '\n';
    }
    std::cerr << shownLines(report.failure.text());
    return Failed;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {  // out of memory, say, outside a conversion
        std::fprintf(stderr, "%s%s\n", host::messages::Prefix.data(), e.what());
        return 1;
    }
}
