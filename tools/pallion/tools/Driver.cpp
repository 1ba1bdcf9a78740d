#include "pallion/tools/Driver.hpp"

#include <cerrno>
#include <new>
#include <stdexcept>

namespace Pallion::Tools {

FailureKind probeOpenFailure(const std::vector<std::string>& files, std::string& file, int& openError) {
    for (const std::string& name : files) {
        const int error = openErrorOf(libraryPath(name));
        if (error == 0) continue;
        file = name;
        openError = error;
        return FailureKind::CannotOpen;
    }
    return FailureKind::None;
}

TableRun runTable(Tessel::Grid& grid, Parameter& parameter, const TableOptions& options,
                  const AfterResolving& afterResolving, const BeforeConversion& before, OptionWords words) {
    TableRun run;
    try {
        run.resolved = resolveOptions(options);
        if (!run.resolved.failure.empty()) {
            run.end = RunEnd::Options;
            run.failure = run.resolved.failure;
            run.kind = FailureKind::Arguments;
            return run;
        }
        if (afterResolving) afterResolving(run.resolved);
        if (!run.resolved.failure.empty()) {
            run.end = RunEnd::Options;
            run.failure = run.resolved.failure;
            run.kind = FailureKind::Arguments;
            return run;
        }
        // The files are sampled to judge the block size only where none is given.
        if (!options.block) run.judgedRows = judgedRows(options.files);
        fillParameter(parameter, options, run.resolved, run.judgedRows);
        if (before && !before(parameter, run)) {
            run.end = RunEnd::Refused;
            return run;
        }
        run.failure = ascii2z9(grid, parameter);
        run.end = run.failure.empty() ? RunEnd::Converted : RunEnd::Failed;
        run.kind = parameter.Failure.Kind;
    } catch (const std::bad_alloc& e) {
        run.end = RunEnd::OutOfMemory;
        run.failure = e.what();
        return run;
    } catch (const std::invalid_argument& e) {
        run.end = RunEnd::Threw;
        run.failure = e.what();
        run.kind = FailureKind::TokenInvalid;
    } catch (const std::out_of_range& e) {
        run.end = RunEnd::Threw;
        run.failure = e.what();
        run.kind = FailureKind::TokenOutOfRange;
    } catch (const std::exception& e) {
        run.end = RunEnd::Threw;
        run.failure = e.what();
    }
    if (run.converted()) return run;
    if (parameter.Failure.Kind != FailureKind::None) run.kind = parameter.Failure.Kind;
    if (run.kind == FailureKind::CannotOpen) {
        run.file = parameter.Failure.File;
        run.openError = run.file.empty() ? 0 : openErrorOf(libraryPath(run.file));
    } else if (run.kind == FailureKind::None && run.end == RunEnd::Failed) {
        run.kind = probeOpenFailure(options.files, run.file, run.openError);
    }
    run.report = describeFailure(parameter, words);
    return run;
}

}  // namespace Pallion::Tools
