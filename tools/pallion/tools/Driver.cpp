#include "pallion/tools/Driver.hpp"

#include <cerrno>
#include <new>
#include <stdexcept>

#include "pallion/Extensions.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/Ranges.hpp"
#include "pallion/tools/Writers.hpp"
#include "tessel/Grid.hpp"

namespace Pallion::Tools {

namespace {

// Hands the chunk's elements to a new chunk, leaving it empty: the fragment
// that keeps it then holds no memory.
ChunkPtr takeElements(const ChunkPtr& chunk) {
    ChunkPtr moved;
    Tessel::forEachElementType([&]<class T>() {
        if (auto* elements = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get())) {
            Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> own(new Ravelin::Chunk<T>(0));
            own->vector().swap(elements->vector());
            moved = ChunkPtr(own);
        }
    });
    return moved;
}

// One sequential conversion whose blocks also go to `route`: through
// OnFragment, each block once its last column is flushed.  Without
// keepBlocks the conversion runs on a grid of its own whose blocks are let go
// as they are taken, and the host's grid gets the fields, attributes and
// notes afterwards (none where a token's exception ended the run).
std::string convertWhole(Tessel::Grid& grid, Parameter& parameter, const BlockRoute& route) {
    if (!route.onBlock && route.keepBlocks) return ascii2z9(grid, parameter);
    const FragmentHook previous = parameter.OnFragment;
    FlushedBlock filling;
    parameter.OnFragment = [&](const ChunkPtr& chunk, const std::string& field, const std::string& file) {
        if (previous) previous(chunk, field, file);
        filling.file = file;
        filling.number = parameter.FragmentCount;
        filling.columns.emplace_back(field, route.keepBlocks ? chunk : takeElements(chunk));
        if (filling.columns.size() < parameter.Container.size()) return;
        const FlushedBlock block = std::move(filling);
        filling = FlushedBlock{};
        if (route.onBlock)
            if (std::string refused = route.onBlock(block); !refused.empty()) throw SinkRefused{std::move(refused)};
    };
    struct Restore {
        Parameter& parameter;
        const FragmentHook& previous;
        ~Restore() { parameter.OnFragment = previous; }
    } restore{parameter, previous};
    if (route.keepBlocks) return ascii2z9(grid, parameter);
    Tessel::Grid own;
    std::string text = ascii2z9(own, parameter);
    // The host's grid as the run left it, without the blocks.
    Parameter fields = parameter;
    fields.Container.clear();
    fields.OnFragment = {};
    const std::string built = buildFields(grid, fields, parameter.LineCount);
    return text.empty() ? built : text;
}

}  // namespace

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

void refuseFieldNames(Resolved& resolved, const std::string& output) {
    if (!resolved.failure.empty() || output.empty()) return;
    std::vector<std::string> names;
    for (const WrittenEntry& entry : writtenEntries(resolved.parse))
        names.push_back(entry.Items.empty() ? std::string() : entry.Items[0]);
    resolved.failure = fieldNamesProblem(output, names);
    resolved.aboutTheOptions = !resolved.failure.empty();
}

TableRun runTable(Tessel::Grid& grid, Parameter& parameter, const TableOptions& options,
                  const AfterResolving& afterResolving, const BeforeConversion& before, OptionWords words,
                  const BlockRoute& route) {
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
        const unsigned threads = threadCount(options.threads);
        const std::vector<TableRange> ranges = planRanges(parameter, threads);
        run.failure = ranges.empty() ? convertWhole(grid, parameter, route)
                                     : convertRanges(grid, parameter, ranges, threads, route);
        run.end = run.failure.empty() ? RunEnd::Converted : RunEnd::Failed;
        run.kind = parameter.Failure.Kind;
    } catch (const SinkRefused& refused) {
        run.end = RunEnd::Unwritten;
        run.failure = refused.text;
        return run;
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
