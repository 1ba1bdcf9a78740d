// The command-line host: converts text tables (or trajectory files) into a
// grid and tells what the grid holds.  A failure comes with the file, the
// line, the token and a hint; --json gives a summary a script can read;
// --preview draws the points.  Run it with --help for the options.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include <unistd.h>

#include "HostMessages.hpp"
#include "Options.hpp"
#include "Progress.hpp"
#include "Summary.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/Sniff.hpp"
#include "ravelin/Console.hpp"
#include "tessel/Grid.hpp"

namespace {

std::uint64_t bytesOf(const std::vector<std::string>& files) {
    std::uint64_t bytes = 0;
    for (const std::string& file : files) {
        std::error_code error;
        const auto size = std::filesystem::file_size(file, error);
        if (!error) bytes += size;
    }
    return bytes;
}

int run(int argc, char** argv) {
    namespace m = host::messages;
    const host::CommandLine command = host::parseCommandLine(argc, argv);
    std::cout << command.out;
    std::cerr << command.err;
    if (!command.options) return command.exitStatus;
    const host::Options& options = *command.options;

    // The console's one message, a trajectory name that does not fit its layout, goes to stderr.
    bool nameMisfit = false;
    Ravelin::Console::setSink([&nameMisfit](const std::string& text) {
        std::cerr << m::Prefix << text << '\n';
        nameMisfit = true;
    });
    host::BarProgress::installInterruptHandler();
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const std::uint64_t bytes = bytesOf(options.table.files);

    Tessel::Grid grid;
    Pallion::Parameter parameter;
    std::string result;
    bool threw = false;
    {
        Ravelin::StringListPtr files(new Ravelin::StringList);
        files->assign(options.table.files.begin(), options.table.files.end());
        host::BarProgress* bar = nullptr;
        try {
            if (options.trajectory) {
                Ravelin::ProgressPtr progress(bar = new host::BarProgress(nullptr, 1, bytes, terminal));
                result = Pallion::convertTrajectory2Z9(grid, files, progress);
                if (result.empty()) bar->finish();
            } else {
                const Pallion::Tools::Resolved resolved = Pallion::Tools::resolveOptions(options.table);
                for (const std::string& line : resolved.guessed) std::cerr << m::Prefix << line << '\n';
                if (!resolved.failure.empty()) {
                    std::cerr << m::Prefix << resolved.failure << '\n';
                    return 1;
                }
                const auto rows = Pallion::Tools::judgedRows(options.table.files);
                Pallion::Tools::fillParameter(parameter, options.table, resolved, rows);
                parameter.Progress = bar = new host::BarProgress(&parameter, rows.value_or(0), bytes, terminal);
                result = Pallion::ascii2z9(grid, parameter);
                if (result.empty()) bar->finish();
                parameter.Progress.reset();
            }
        } catch (const std::exception& e) {
            result = std::string(m::StoppedByException) + e.what();
            threw = true;
            parameter.Progress.reset();
        }
    }

    if (options.json)
        std::cout << host::jsonSummary(grid, result);
    else
        std::cout << host::textSummary(grid);
    std::cout << std::flush;  // the summary before the failure, also when both go to one pipe
    if (!options.preview.empty()) {
        const std::string failure = host::writePreview(grid, options.preview);
        if (!failure.empty()) std::cerr << m::Prefix << m::PreviewFailed << failure << '\n';
    }
    if (result.empty()) return 0;
    std::cerr << m::Prefix << result << '\n';
    if (host::BarProgress::interrupted()) std::cerr << m::Prefix << m::Interrupted << '\n';
    if (options.trajectory && nameMisfit) std::cerr << m::HintTrajectoryName << '\n';
    if (!options.trajectory) {
        const std::string libraryText = threw ? result.substr(m::StoppedByException.size()) : result;
        std::cerr << Pallion::Tools::describeFailure(options.table, parameter, libraryText, threw).text();
    }
    return 1;
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
