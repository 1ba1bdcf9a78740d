// The command-line host: converts text tables (or trajectory files) into a
// grid, tells what the grid holds and writes it where asked.  It guesses the
// delimiter, the header and the fields where the user names none, checks the
// first rows before converting, and gives a failure with its file, line,
// token and a hint.  Run it with --help for the options.
#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

#include "HostMessages.hpp"
#include "Options.hpp"
#include "Progress.hpp"
#include "Summary.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/Preflight.hpp"
#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/Writers.hpp"
#include "ravelin/Console.hpp"
#include "tessel/Grid.hpp"

namespace {

constexpr int Done = 0, Failed = 1, Usage = 2, Interrupted = 130;

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

// The console's one message, a trajectory name that does not fit its layout,
// goes to stderr; the sink owns the flag it raises, so that it never refers
// to a local that has gone.
class ConsoleToStderr {
public:
    ConsoleToStderr() {
        auto misfit = misfit_;
        Ravelin::Console::setSink([misfit](const std::string& text) {
            std::cerr << host::messages::Prefix << text << '\n';
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

int run(int argc, char** argv) {
    namespace m = host::messages;
    const host::CommandLine command = host::parseCommandLine(argc, argv);
    std::cout << command.out;
    std::cerr << command.err;
    if (!command.options) return command.exitStatus;
    const host::Options& options = *command.options;
    auto say = [&](const std::string& line) {
        if (!options.quiet) std::cerr << m::Prefix << line << '\n';
    };

    const ConsoleToStderr console;
    host::BarProgress::installInterruptHandler();
    const bool terminal = isatty(STDERR_FILENO) != 0 && !options.quiet;
    const std::uint64_t bytes = bytesOf(options.table.files);

    Tessel::Grid grid;
    Pallion::Parameter parameter;
    host::RunReport report;
    bool threw = false;
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
                const Pallion::Tools::Resolved resolved = Pallion::Tools::resolveOptions(options.table);
                for (const std::string& line : resolved.guessed) say(line);
                if (!resolved.failure.empty()) {
                    std::cerr << m::Prefix << resolved.failure << '\n';
                    return resolved.aboutTheOptions ? Usage : Failed;
                }
                report.guessed = resolved.guessed;
                report.delimiter = Pallion::Tools::delimiterName(resolved.delimiter);
                report.headerLines = resolved.headerLines;
                report.parse = resolved.parse;
                report.comments = resolved.commentPrefix;
                report.decimalComma = resolved.decimalComma;
                report.lenient = options.table.lenient;
                const auto rows = Pallion::Tools::judgedRows(options.table.files);
                Pallion::Tools::fillParameter(parameter, options.table, resolved, rows);

                // The first rows of the regular files, checked as the plain reading will convert them; a strict
                // reading refuses such a token itself.
                const Pallion::Tools::Preflight checked = options.table.lenient || options.strict
                                                              ? Pallion::Tools::preflight(parameter)
                                                              : Pallion::Tools::Preflight();
                for (const auto& warning : checked.warnings) report.warnings.push_back(warning.text());
                if (checked.count > checked.warnings.size())
                    report.warnings.push_back(m::fill(
                        m::MoreWarnings, static_cast<unsigned long long>(checked.count - checked.warnings.size()),
                        static_cast<unsigned long long>(checked.rowsChecked)));
                for (const std::string& warning : report.warnings)
                    if (options.strict || !options.quiet)
                        std::cerr << m::Prefix << (options.strict ? "" : m::Warning) << warning << '\n';
                if (options.strict && checked.count > 0) {
                    std::cerr << m::Prefix << m::StrictRefused << '\n';
                    report.result = std::string(m::StrictRefused);
                    if (options.json) std::cout << host::jsonSummary(grid, report) << std::flush;
                    return Failed;
                }

                parameter.Progress = bar = new host::BarProgress(&parameter, rows.value_or(0), bytes, terminal);
                report.result = Pallion::ascii2z9(grid, parameter);
                if (report.result.empty()) bar->finish();
                parameter.Progress.reset();
                for (const std::string& shared : Pallion::Tools::sharedFragmentNames(grid)) {
                    report.warnings.push_back(shared);
                    if (!options.quiet) std::cerr << m::Prefix << m::Warning << shared << '\n';
                }
            }
        } catch (const std::exception& e) {
            report.result = std::string(m::StoppedByException) + e.what();
            threw = true;
            parameter.Progress.reset();
        }
    }
    const bool interrupted = host::BarProgress::interrupted();
    report.partial = !report.result.empty();
    if (report.partial && !options.trajectory) {
        const std::string libraryText = threw ? report.result.substr(m::StoppedByException.size()) : report.result;
        report.failure = Pallion::Tools::describeFailure(parameter, libraryText, threw);
    }

    // The output file only after a conversion that read everything.
    std::string writeFailure;
    if (!options.output.empty() && !report.partial) {
        writeFailure = Pallion::Tools::writeGrid(grid, options.output);
        if (writeFailure.empty()) report.output = options.output;
    }

    if (options.json)
        std::cout << host::jsonSummary(grid, report);
    else
        std::cout << host::textSummary(grid, report.partial);
    std::cout << std::flush;  // the summary before the failure, also when both go to one pipe
    if (!options.preview.empty()) {
        const std::string failure = host::writePreview(grid, options.preview);
        if (!failure.empty()) std::cerr << m::Prefix << m::PreviewFailed << failure << '\n';
    }
    if (!writeFailure.empty()) std::cerr << m::Prefix << writeFailure << '\n';
    if (!report.partial) return writeFailure.empty() ? Done : Failed;

    std::cerr << m::Prefix << report.result << '\n';
    if (interrupted) {
        std::cerr << m::Prefix << m::Interrupted << '\n';
        return Interrupted;
    }
    if (options.trajectory) {
        const std::string wrongName = Pallion::Tools::trajectoryNameFailure(options.table.files);
        if (!wrongName.empty())
            std::cerr << m::Prefix << wrongName << '\n';
        else if (console.nameMisfit())
            std::cerr << m::HintTrajectoryName << '\n';
    }
    std::cerr << report.failure.text();
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
