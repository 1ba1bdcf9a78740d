// A conversion read back as a whole (the grid's fields, fragments, notes and
// attributes, the Parameter's counters and failure record, the result or the
// exception), made once sequentially and once in byte ranges side by side, so
// that a test or a fuzz target compares the two.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "ReferenceConversion.hpp"
#include "pallion/tools/Ranges.hpp"

namespace ranged {

struct Shot {
    reference::Outcome run;  // result or exception, counters, record, fragments (no reports, no hook calls)
    std::vector<std::string> fields, notes, attributes;
    int representations = 0;
    bool operator==(const Shot&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Shot& shot) {
    out << shot.run << "\n  fields:";
    for (const std::string& field : shot.fields) out << ' ' << field;
    out << " notes " << shot.notes.size() << " attributes " << shot.attributes.size();
    return out;
}

// What `convert` (one of the two ways) leaves in a grid and a Parameter.
template <class Convert>
Shot shoot(const reference::Settings& settings, Convert&& convert) {
    Shot shot;
    Tessel::Grid grid;
    Pallion::Parameter p = reference::libraryParameter(settings);
    reference::record(shot.run, p, [&] { return convert(grid, p); });
    shot.run.tokens.clear();  // where a failing row's tokens are left is no part of the grid
    for (const Tessel::FieldPtr& field : grid.fields()) {
        shot.fields.push_back(field->fieldName());
        for (const Tessel::Field::Fragment& fragment : field->fragments())
            for (const Tessel::MemBase::Array& array : fragment.arrays)
                shot.run.fragments.push_back(
                    {field->fieldName(), fragment.id->name,
                     std::string(static_cast<const char*>(array->rawData()), array->byteSize())});
    }
    for (const Tessel::Grid::Note& note : grid.notes()) shot.notes.push_back(note.converter + '|' + note.text);
    for (const std::string& name : grid.attributes().names()) {
        const Pallion::ChunkPtr value = grid.attributes().getAttribute(name);
        shot.attributes.push_back(
            name + '|' +
            std::string(static_cast<const char*>(value->rawData()), value->elementCount() * value->elementSize()));
    }
    shot.representations = grid.cartesianRepresentationCount();
    return shot;
}

inline Shot sequential(const reference::Settings& settings) {
    return shoot(settings, [](Tessel::Grid& grid, Pallion::Parameter& p) { return Pallion::ascii2z9(grid, p); });
}

// Each file cut at `cuts` (byte offsets, ascending, within every file), on `threads` threads.
inline Shot inRanges(const reference::Settings& settings, const std::vector<std::uint64_t>& cuts, unsigned threads) {
    std::vector<Pallion::Tools::TableRange> ranges;
    for (std::size_t f = 0; f < settings.files.size(); ++f) {
        std::uint64_t begin = 0;
        for (const std::uint64_t cut : cuts) {
            ranges.push_back({f, begin, cut});
            begin = cut;
        }
        ranges.push_back({f, begin, Pallion::WholeFileEnd});
    }
    return shoot(settings, [&](Tessel::Grid& grid, Pallion::Parameter& p) {
        return Pallion::Tools::convertRanges(grid, p, ranges, threads);
    });
}

}  // namespace ranged
