#include "pallion/convert/detail/Ascii2Z9.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "gridnotes/GridNotes.hpp"
#include "pallion/convert/detail/FastNumbers.hpp"
#include "pallion/convert/detail/LineReader.hpp"
#include "pallion/convert/detail/LineRules.hpp"
#include "pallion/convert/detail/Messages.hpp"
#include "pallion/convert/detail/NumberConversion.hpp"
#include "pallion/convert/detail/Parse.hpp"
#include "pallion/convert/detail/TokenConversion.hpp"
#include "pallion/detail/Platform.hpp"

namespace Pallion {

namespace {

// The first multiple of `step` at or above `count`: the row count at which
// the next progress report falls due.
std::uint64_t nextMultiple(std::uint64_t count, std::uint64_t step) {
    const std::uint64_t rest = count % step;
    return rest == 0 ? count : count + (step - rest);
}

}  // namespace

template <class T>
void Ascii2Z9::openColumns(TypedColumns<T>& holder) {
    for (std::size_t index = 0; index < parameter.Container.size(); ++index) {
        const ContainerEntry& entry = parameter.Container[index];
        if (!(entry.TypeId == holder.TypeId)) continue;
        Tessel::FieldPtr field = grid[entry.FieldName];
        ColumnContainer<T> column{entry.FieldName, entry.Columns, field, {}, nullptr, index};
        // A host's chunks are asked for when the first row comes.
        if (!hostBlocks_) column.renew(parameter.ChunkSize);
        holder.Entries.push_back(std::move(column));
    }
}

void Ascii2Z9::storeLine() {
    const std::vector<std::string>& tokens = parameter.Tokens;
    (void)makeRoom();  // readFile has made sure of the room where the host gives the chunks
    const std::uint64_t row = parameter.BlockFill;
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) storeElement(column.rows[row], tokens, column.Columns);
    });
    finishRow();
}

namespace {
template <class Column>
using ElementOf = std::remove_pointer_t<decltype(Column::rows)>;
}  // namespace

std::string Ascii2Z9::storeChecked(std::uint64_t line) {
    const std::vector<std::string>& tokens = parameter.Tokens;
    (void)makeRoom();
    const std::uint64_t row = parameter.BlockFill;
    const bool whole = parameter.WholeTokens, comma = parameter.DecimalComma;
    std::string failure;
    forEachHolder([&](auto& holder) {
        using T = ElementOf<typename std::decay_t<decltype(holder.Entries)>::value_type>;
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        for (auto& column : holder.Entries) {
            if (!failure.empty()) return;
            C values[Traits::components];
            for (unsigned i = 0; i < Traits::components; ++i) {
                const std::uint32_t at = column.Columns[i];
                if (!whole) {
                    values[i] = readNumber<C>(tokens[at], comma);  // its exception passes through
                    continue;
                }
                const TokenVerdict verdict = readWhole<C>(tokens[at], comma, values[i]);
                if (verdict != TokenVerdict::Stored) {
                    failure = refuseToken<C>(verdict, at, tokens[at], Traits::parseName, line);
                    return;
                }
            }
            static_assert(sizeof(T) == sizeof values, "components lie side by side");
            std::memcpy(static_cast<void*>(&column.rows[row]), values, sizeof values);
        }
    });
    if (!failure.empty()) return failure;
    finishRow();
    return {};
}

template <class C>
std::string Ascii2Z9::refuseToken(TokenVerdict verdict, std::uint32_t column, const std::string& token,
                                  const char* type, std::uint64_t line) {
    namespace m = messages::convert;
    const bool range = verdict == TokenVerdict::OutOfRange;
    FailureRecord& record = parameter.Failure;
    record.Column = column;
    record.Token = token;
    record.Type = type;
    std::string_view thrown;
    try {
        record.Stored = numberText(readNumber<C>(token, parameter.DecimalComma));
    } catch (const std::invalid_argument&) {
        thrown = m::InvalidArgument;
    } catch (const std::out_of_range&) {
        thrown = m::OutOfRange;
    }
    std::string text = std::string(range ? m::TokenOutOfRange : m::TokenNotWhole) + type + std::string(m::TokenQuote) +
                       token + std::string(m::TokenColumn) + std::to_string(column) + std::string(m::TokenLine) +
                       std::to_string(line) + std::string(m::TokenFile) + parameter.CurrentFile;
    if (thrown.empty())
        text += std::string(m::TokenWouldBeStored) + record.Stored;
    else
        text += std::string(m::TokenPlainThrows) + std::string(thrown);
    return fail(range ? FailureKind::TokenOutOfRange : FailureKind::TokenInvalid, std::move(text), line);
}

void Ascii2Z9::noteTokenException(std::uint64_t line) {
    const std::vector<std::string>& tokens = parameter.Tokens;
    bool found = false;
    forEachHolder([&](auto& holder) {
        using T = ElementOf<typename std::decay_t<decltype(holder.Entries)>::value_type>;
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        for (auto& column : holder.Entries)
            for (unsigned i = 0; i < Traits::components && !found; ++i) {
                const std::uint32_t at = column.Columns[i];
                FailureKind kind = FailureKind::None;
                try {
                    (void)readNumber<C>(tokens[at], parameter.DecimalComma);
                } catch (const std::invalid_argument&) {
                    kind = FailureKind::TokenInvalid;
                } catch (const std::out_of_range&) {
                    kind = FailureKind::TokenOutOfRange;
                }
                if (kind == FailureKind::None) continue;
                found = true;
                fail(kind, {}, line);
                parameter.Failure.Column = at;
                parameter.Failure.Token = tokens[at];
                parameter.Failure.Type = Traits::parseName;
            }
    });
}

std::string Ascii2Z9::fail(FailureKind kind, std::string text, std::uint64_t line) {
    FailureRecord& record = parameter.Failure;
    record.Kind = kind;
    record.File = parameter.CurrentFile;
    record.Line = line;
    return text;
}

bool Ascii2Z9::skipLine(const char* line, const char* end) const { return isSkippedLine(parameter, line, end); }

void Ascii2Z9::finishRow() {
    ++parameter.BlockFill;
    ++parameter.LineCount;
    if (parameter.BlockFill < parameter.ChunkSize) return;
    if (hostBlocks_) {
        // The host stores the block; the next one's chunks come with its first row.
        releaseColumns();
    } else {
        flushBlock();
    }
    ++parameter.FragmentCount;
    parameter.BlockFill = 0;
    grown_ = 0;
    if (fastRows_ && !hostBlocks_) planRows();
}

void Ascii2Z9::planRows() {
    plan_.start(parameter.Delimiter, parameter.HighestColumnIndex, reading_);
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) plan_.add(column);
    });
    plan_.finish();
}

bool Ascii2Z9::takeHostBlock() {
    bool fits = true;
    std::uint64_t rows = parameter.ChunkSize;
    forEachHolder([&](auto& holder) {
        using T = ElementOf<typename std::decay_t<decltype(holder.Entries)>::value_type>;
        for (auto& column : holder.Entries) {
            if (column.Chunk.isNull()) {
                const ChunkPtr chunk = parameter.BlockChunks(column.Entry, parameter.FragmentCount);
                column.Chunk = dynamic_cast<Ravelin::Chunk<T>*>(chunk.get());
                column.rows = column.Chunk.isNull() ? nullptr : column.Chunk->data();
            }
            if (column.Chunk.isNull())
                fits = false;
            else
                rows = std::min<std::uint64_t>(rows, column.Chunk->size());
        }
    });
    grown_ = fits ? rows : 0;
    if (fastRows_) planRows();
    return parameter.BlockFill < grown_;
}

bool Ascii2Z9::growColumns() {
    if (hostBlocks_) return takeHostBlock();
    // The first steps are short, so that a short table touches few pages;
    // from there on a step is as long as what the chunk holds, up to GrowthStep.
    const std::uint64_t step = std::clamp<std::uint64_t>(parameter.BlockFill, FirstGrowthStep, GrowthStep);
    grown_ = std::min<std::uint64_t>(parameter.ChunkSize, parameter.BlockFill + step);
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) column.resize(grown_);
    });
    return true;
}

void Ascii2Z9::releaseColumns() {
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) {
            column.Chunk = nullptr;
            column.rows = nullptr;
        }
    });
    grown_ = 0;
}

void Ascii2Z9::flushBlock() {
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) {
            column.flushColumn(parameter.FragmentCount, parameter.CurrentFile, parameter.OnFragment);
            column.renew(parameter.ChunkSize);
        }
    });
}

void Ascii2Z9::flushRemainder() {
    forEachHolder([&](auto& holder) {
        for (auto& column : holder.Entries) {
            column.resize(parameter.BlockFill);
            column.flushColumn(parameter.FragmentCount, parameter.CurrentFile, parameter.OnFragment);
        }
    });
}

std::string Ascii2Z9::run() {
    if (parameter.Files.isNull() || parameter.Files->empty())
        return fail(FailureKind::Arguments, std::string(messages::convert::NoInputFiles));
    if (parameter.Container.empty()) return fail(FailureKind::Arguments, std::string(messages::convert::NoContainer));
    // A block needs at least one row: with 0 no chunk could hold the first row.
    if (parameter.ChunkSize == 0) return fail(FailureKind::Arguments, std::string(messages::convert::ChunkSizeZero));
    reading_ = {parameter.WholeTokens, parameter.Whitespace, parameter.DecimalComma};
    lineRules_ = lineRulesOn(parameter);
    checked_ = parameter.WholeTokens || parameter.DecimalComma;
    skipRules_ = skipRulesOn(parameter);
    hostBlocks_ = static_cast<bool>(parameter.BlockChunks);
    if (hostBlocks_) {
        parameter.BlockFill = parameter.FirstRow % parameter.ChunkSize;
        parameter.FragmentCount = parameter.FirstRow / parameter.ChunkSize;
    }

    forEachHolder([&](auto& holder) { openColumns(holder); });
    // A chunk that is being grown is seen by no one until it has its full
    // size; a failure, a returned text or an exception, loses the block being
    // filled, and with it the columns' chunks.
    struct LoseBlockUnlessDone {
        Ascii2Z9& converter;
        bool done = false;
        ~LoseBlockUnlessDone() {
            if (!done) converter.releaseColumns();
        }
    } guard{*this};
    // The fast number conversion reads '.' as the decimal point and rounds to
    // nearest; under a locale or a rounding mode of another kind, every line
    // goes the standard way.
    fastRows_ = detail::fastFloatingHolds();
    if (fastRows_) planRows();

    for (const std::string& name : *parameter.Files) {
        std::string failure = readFile(name);
        if (!failure.empty()) return failure;
    }
    if (parameter.BlockFill < parameter.ChunkSize && !hostBlocks_) flushRemainder();
    guard.done = true;
    return {};
}

std::size_t Ascii2Z9::splitLine(const char* line, std::size_t length) {
    // A row needs the tokens up to the highest column, and the count test needs
    // to know only whether there are that many: the rest stays unsplit.
    std::vector<std::string>& tokens = parameter.Tokens;
    const std::size_t needed = std::size_t{parameter.HighestColumnIndex} + 1;
    const std::size_t more = tokens.size() < needed ? needed - tokens.size() : 0;
    if (parameter.Whitespace)
        splitBlanks(line, length, tokens, more);
    else
        split(line, length, tokens, parameter.Delimiter, more);
    return tokens.size();
}

std::string Ascii2Z9::readFile(const std::string& name) {
    // Looked at before it is opened: a directory opens like a file but has no lines.
    const auto cannotOpen = [&] {
        parameter.Failure.File = name;
        parameter.Failure.Kind = FailureKind::CannotOpen;
        return std::string(messages::convert::CannotOpenFile) + name;
    };
    if (platform::statusOf(name).kind == platform::FileKind::Directory) return cannotOpen();
    Ravelin::LoaderProgress* progress = parameter.Progress.get();
    std::uint64_t estimate = UnknownLineCount;
    // A wait in open or read (a FIFO, a pipe) that a signal interrupts, where a
    // host's handler lets it, is one more progress report: a host that wants
    // to stop says so there, as at any report.
    auto stillWanted = [&] {
        return progress == nullptr ||
               progress->report(std::string(messages::convert::ProgressReadLine),
                                static_cast<std::uint32_t>(std::min(estimate, parameter.LineCount)),
                                static_cast<std::uint32_t>(estimate));
    };
    LineReader reader(parameter.OpenSource, name, parameter.LineSizeLimit, LineReader::DefaultBlockSize, stillWanted);
    if (reader.interrupted()) {
        parameter.Failure.File = name;
        return fail(FailureKind::Interrupted, std::string(messages::convert::UserInterruption));
    }
    if (!reader.isOpen()) return cannotOpen();
    // A range that begins inside the file skips no header: that lies before it.
    reader.stopAt(parameter.RangeEnd);
    if (parameter.RangeBegin > 0)
        reader.startAt(parameter.RangeBegin);
    else
        reader.skipLines(parameter.HeaderLines);

    // Only a regular file read as a whole is judged; anything else (a FIFO, a
    // pipe, a device, a compressed file) is opened this once and read only by
    // the line loop.
    const bool whole = parameter.RangeBegin == 0 && parameter.RangeEnd == WholeFileEnd;
    if (reader.fileSize() > 0 && whole) estimate = estimateLines(name, parameter.HeaderLines, parameter.LineSizeLimit);
    // A range is not judged; it reports at a fixed distance, so that a host can stop it.
    const std::uint64_t step = whole ? progressStep(estimate) : RangeReportRows;
    const std::uint64_t firstLine = parameter.FirstLine;
    parameter.CurrentFile = name;

    std::uint64_t reportAt = nextMultiple(parameter.LineCount, step);
    std::vector<std::string>& tokens = parameter.Tokens;
    const char* line;
    const char* end;
    for (;;) {
        // The quiet rows: plain ones up to the next progress report, the end of
        // the chunks' present size or the last row of the block, whichever
        // comes first, each through the row plan with no other work.  The
        // first that needs more goes the general way below.
        // The chunks grow on the general way only, once a line has come: the
        // end of the file may be next.
        bool haveLine = false;
        bool shaped = false;  // the line rules have been applied to the line at hand
        bool ended = false;   // no line left: what follows the loop decides
        if (fastRows_ && tokens.empty() && !reader.sawNul()) {
            const std::uint64_t first = parameter.BlockFill;
            const std::uint64_t room = grown_ > first ? grown_ - first : 0;
            const std::uint64_t last = first + std::min({reportAt - parameter.LineCount, room,
                                                         std::uint64_t{parameter.ChunkSize} - 1 - first});
            // The counters follow each row, so that they are right if the
            // reading of the next line throws.
            while (parameter.BlockFill < last) {
                if (!reader.nextLine(line, end)) {
                    ended = true;
                    break;
                }
                // A block read with a NUL in it may have put one into this line.
                if (reader.sawNul()) {
                    haveLine = true;
                    break;
                }
                if (lineRules_) {
                    if (end != line && end[-1] == '\r') --end;
                    if (skipRules_ && skipLine(line, end)) continue;
                }
                if (!plan_.store(line, end, parameter.BlockFill)) {
                    haveLine = true;
                    shaped = lineRules_;
                    break;
                }
                ++parameter.BlockFill;
                ++parameter.LineCount;
            }
        }
        if (ended || (!haveLine && !reader.nextLine(line, end))) break;
        if (lineRules_ && !shaped) {
            // The line ends at a NUL for the splitter, and so for the rules.
            if (reader.sawNul())
                if (const void* nul = std::memchr(line, '\0', static_cast<std::size_t>(end - line)))
                    end = static_cast<const char*>(nul);
            if (end != line && end[-1] == '\r') --end;
            if (skipRules_ && skipLine(line, end)) continue;
        }
        const std::uint64_t lineNumber = firstLine + reader.linesTaken();

        if (parameter.LineCount == reportAt) {
            reportAt += step;
            if (progress != nullptr) {
                const std::uint64_t value = std::min(estimate, parameter.LineCount);
                if (!progress->report(std::string(messages::convert::ProgressReadLine),
                                      static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(estimate)))
                    return fail(FailureKind::Interrupted, std::string(messages::convert::UserInterruption), lineNumber);
            }
        }
        const auto length = static_cast<std::size_t>(end - line);
        if (!makeRoom())
            return fail(FailureKind::ReadFailed,
                        std::string(messages::convert::BlockMemoryFull) + std::to_string(parameter.FragmentCount) +
                            std::string(messages::convert::BlockMemoryFullFile) + name,
                        lineNumber);
        // The fast row leaves `Tokens` empty; it is filled only where someone
        // can look at it: while a full block is flushed, and on a failure, which
        // the standard way below reports.  Tokens left over from before the run
        // send its first line the standard way, which appends to them.
        if (fastRows_ && tokens.empty()) {
            const char* stop =
                reader.sawNul() && !lineRules_ ? static_cast<const char*>(std::memchr(line, '\0', length)) : nullptr;
            if (plan_.store(line, stop != nullptr ? stop : end, parameter.BlockFill)) {
                if (parameter.BlockFill + 1 == parameter.ChunkSize) splitLine(line, length);
                finishRow();
                tokens.clear();
                continue;
            }
        }
        if (parameter.HighestColumnIndex >= splitLine(line, length)) {
            parameter.Failure.HighestColumn = parameter.HighestColumnIndex;
            parameter.Failure.TokensInLine = tokens.size();
            return fail(FailureKind::TooFewTokens,
                        std::string(messages::convert::ColumnIndexOutOfRange) +
                            std::to_string(parameter.HighestColumnIndex) +
                            std::string(messages::convert::TokensInLine) + std::to_string(tokens.size()),
                        lineNumber);
        }
        try {
            if (checked_) {
                std::string refused = storeChecked(lineNumber);
                if (!refused.empty()) return refused;
            } else {
                storeLine();
            }
        } catch (const std::logic_error&) {  // std::invalid_argument and std::out_of_range, passed on unchanged
            noteTokenException(lineNumber);
            throw;
        }
        tokens.clear();
    }
    const std::uint64_t lastLine = firstLine + reader.linesTaken();
    if (reader.interrupted())
        return fail(FailureKind::Interrupted, std::string(messages::convert::UserInterruption), lastLine);
    if (reader.failed())
        return fail(FailureKind::ReadFailed,
                    std::string(messages::convert::CannotReadFile) + name +
                        std::string(messages::convert::CannotReadWhy) + reader.failure(),
                    lastLine + 1);
    if (reader.lineTooLong())
        return fail(FailureKind::LineTooLong,
                    std::string(messages::convert::LineTooLong) + std::to_string(parameter.LineSizeLimit) +
                        std::string(messages::convert::LineTooLongAt) + std::to_string(lastLine + 1) +
                        std::string(messages::convert::LineTooLongFile) + name,
                    lastLine + 1);
    return {};
}

std::string ascii2z9(Tessel::Grid& grid, Parameter& parameter) {
    if (parameter.Delimiter == 't') parameter.Delimiter = '\t';
    parameter.Failure = FailureRecord{};

    std::string result;
    try {
        result = parseUserInputToContainer(parameter);
    } catch (const std::logic_error&) {  // a column that is no number: std::stoi's exception, passed on unchanged
        parameter.Failure.Kind = FailureKind::Arguments;
        throw;
    }
    if (!result.empty()) {
        parameter.Failure.Kind = FailureKind::Arguments;
        return result;
    }

    Ascii2Z9 converter(parameter, grid);
    grid.makeCartesianRepresentation(3, std::string(), 0);
    result = converter.run();

    if (parameter.EPSG > 0) {
        Ravelin::StrongPtr<Ravelin::Chunk<int>, Ravelin::ChunkBase> code(new Ravelin::Chunk<int>(1));
        (*code)[0] = parameter.EPSG;
        grid.attributes().setAttribute(std::string(messages::convert::EPSGAttribute), ChunkPtr(code));
        grid.setTimeStamp(Ravelin::Ageable::tick());
    }

    const Tessel::GridPtr noGrid;
    const int zero = 0, one = 1;
    GridNotes::addInfoToGrid(parameter.speak(), grid, std::string(messages::convert::TextConverterName), noGrid, zero,
                             one);
    return result;
}

}  // namespace Pallion
