#include "pallion/tools/Writers.hpp"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <set>

#include <unistd.h>

#include "pallion/Extensions.hpp"
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/OutputFile.hpp"

namespace Pallion::Tools {

namespace {

namespace m = messages;

// One field as PLY properties: the slice of the block it takes its elements
// from and the properties of its components.
struct PlyColumn {
    std::size_t slice = 0;
    std::vector<std::string> names;  // a property per component
    std::string type;                // the PLY type of every component
    std::size_t elementBytes = 0;
    bool usual = false;  // x y z, red green blue or nx ny nz
};

template <class C>
const char* plyType() {
    if constexpr (std::is_same_v<C, double>) return "double";
    if constexpr (std::is_same_v<C, float>) return "float";
    if constexpr (std::is_same_v<C, int>) return "int";
    if constexpr (std::is_same_v<C, unsigned char>) return "uchar";
    if constexpr (std::is_same_v<C, unsigned short>) return "ushort";
    return "uint";
}

// A property name without blanks, which the header's words are cut at.
std::string plyName(std::string name) {
    for (char& c : name)
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') c = '_';
    return name.empty() ? "_" : name;
}

// The columns of the vertices: the first point, rgb and tvector fields under
// their usual names, then every other field in the grid's order.
std::vector<PlyColumn> plyColumns(const std::vector<ColumnSlice>& slices) {
    std::vector<PlyColumn> columns;
    bool point = false, colour = false, normal = false;
    for (std::size_t s = 0; s < slices.size(); ++s) {
        PlyColumn column{s, {}, {}, 0, false};
        withChunkType(*slices[s].type, [&]<class T>() {
            using Traits = Tessel::ElementTraits<T>;
            column.type = plyType<typename Traits::Component>();
            column.elementBytes = sizeof(T);
            const std::string name = plyName(*slices[s].name);
            if constexpr (std::is_same_v<T, Tessel::Point>) {
                if (!point) column.names = {"x", "y", "z"}, column.usual = true;
                point = true;
            } else if constexpr (std::is_same_v<T, Tessel::Colour>) {
                if (!colour) column.names = {"red", "green", "blue"}, column.usual = true;
                colour = true;
            } else if constexpr (std::is_same_v<T, Tessel::TVector>) {
                if (!normal) column.names = {"nx", "ny", "nz"}, column.usual = true;
                normal = true;
            }
            if (column.names.empty())
                for (unsigned c = 0; c < Traits::components; ++c)
                    column.names.push_back(Traits::components == 1 ? name : name + '_' + Traits::componentName(c));
        });
        if (!column.names.empty()) columns.push_back(std::move(column));
    }
    // The point field's columns first, so that a reader finds x, y, z at the start.
    std::stable_partition(columns.begin(), columns.end(), [](const PlyColumn& c) { return c.names[0] == "x"; });
    // Readers look properties up by name: the usual names stay with the
    // point, rgb and tvector fields, and any other name taken before ("x" of a
    // field beside the point field, "red" beside an rgb field) gets the first
    // free suffix _2, _3, ...
    std::set<std::string> taken;
    for (const PlyColumn& column : columns)
        if (column.usual) taken.insert(column.names.begin(), column.names.end());
    for (PlyColumn& column : columns)
        for (std::string& name : column.names) {
            if (column.usual) continue;
            std::string unique = name;
            for (unsigned n = 2; taken.count(unique) > 0; ++n) unique = name + '_' + std::to_string(n);
            taken.insert(unique);
            name = unique;
        }
    return columns;
}

// Binary little-endian vertices, written as the blocks come.  The header goes
// first with the vertex count expected; at the end the true count is written
// over it, and where its digits are more or fewer than the expected count's,
// the vertices are moved by that many bytes, so that the file is the one a
// writer that knew the count from the start gives.
class PlyWriter final : public BlockWriter {
public:
    explicit PlyWriter(std::string file) : file_(std::move(file)), out_(file_) {}

    void expectRows(std::uint64_t rows) override {
        if (!started_) expected_ = rows;
    }

    std::string add(const std::string& /*fragment*/, const std::vector<ColumnSlice>& slices) override {
        if (!failure_.empty()) return failure_;
        if (!started_ && !start(slices)) return failure_;
        if (slices.size() != fields_.size()) return fail(m::fill(m::BlockFieldsDiffer, file_.c_str()));
        for (std::size_t s = 0; s < slices.size(); ++s)
            if (*slices[s].name != fields_[s] || *slices[s].type != *types_[s])
                return fail(m::fill(m::BlockFieldsDiffer, file_.c_str()));
        const std::uint64_t rows = slices[columns_[0].slice].count;
        bool differ = false;
        for (const PlyColumn& column : columns_) differ |= slices[column.slice].count != rows;
        if (differ) {
            std::string counts;
            for (const PlyColumn& column : columns_)
                counts += (counts.empty() ? "" : ", ") + fields_[column.slice] + ' ' +
                          std::to_string(vertices_ + slices[column.slice].count);
            return fail(m::fill(m::CountsDiffer, file_.c_str(), counts.c_str()));
        }
        // Row by row: the bytes of one element of each field side by side
        // (this machine is little-endian, as the format says).
        for (std::uint64_t i = 0; i < rows; ++i) {
            for (const PlyColumn& column : columns_) {
                const char* element = slices[column.slice].data + i * column.elementBytes;
                buffer_.insert(buffer_.end(), element, element + column.elementBytes);
            }
            if (buffer_.size() >= (1u << 20)) flush();
        }
        flush();
        vertices_ += rows;
        if (!out_.good()) return fail(out_.failure());
        return {};
    }

    LasWritten finish(const Tessel::Grid& grid) override {
        addFieldsOf(grid);
        if (!failure_.empty()) return {failure_, {}};
        const std::string header = headerFor(vertices_);
        if (header.size() != headerBytes_) {
            std::uint64_t rowBytes = 0;
            for (const PlyColumn& column : columns_) rowBytes += column.elementBytes;
            out_.move(headerBytes_, rowBytes * vertices_,
                      static_cast<std::int64_t>(header.size()) - static_cast<std::int64_t>(headerBytes_));
        }
        out_.writeAt(0, header.data(), header.size());
        return {out_.commit(), {}};
    }

private:
    bool start(const std::vector<ColumnSlice>& slices) {
        started_ = true;
        columns_ = plyColumns(slices);
        for (const ColumnSlice& slice : slices) {
            fields_.push_back(*slice.name);
            types_.push_back(slice.type);
        }
        if (columns_.empty() || columns_[0].names[0] != "x") {
            fail(m::fill(m::NoPointField, file_.c_str()));
            return false;
        }
        if (!out_.open()) {
            fail(out_.failure());
            return false;
        }
        const std::string header = headerFor(expected_);
        headerBytes_ = header.size();
        out_.write(header.data(), header.size());
        return true;
    }

    std::string headerFor(std::uint64_t vertices) const {
        std::string header = "ply\nformat binary_little_endian 1.0\ncomment written by pallion\nelement vertex " +
                             std::to_string(vertices) + '\n';
        for (const PlyColumn& column : columns_)
            for (const std::string& name : column.names) header += "property " + column.type + ' ' + name + '\n';
        return header + "end_header\n";
    }

    void flush() {
        out_.write(buffer_.data(), buffer_.size());
        buffer_.clear();
    }

    std::string file_;
    OutputFile out_;
    std::vector<PlyColumn> columns_;
    std::vector<std::string> fields_;
    std::vector<const std::type_info*> types_;
    std::vector<char> buffer_;
    std::uint64_t vertices_ = 0, expected_ = 0;
    std::size_t headerBytes_ = 0;
};

}  // namespace

OutputFormat outputFormatOf(const std::string& file) {
    std::string extension = std::filesystem::path(file).extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".ply") return OutputFormat::Ply;
    if (extension == ".h5" || extension == ".hdf5") return OutputFormat::Hdf5;
    if (extension == ".las") return OutputFormat::Las;
    return OutputFormat::Unknown;
}

std::string fieldNamesProblem(const std::string& file, const std::vector<std::string>& fieldNames) {
    if (outputFormatOf(file) != OutputFormat::Hdf5) return {};  // PLY names are made unique
    for (const std::string& name : fieldNames) {
        const std::string_view why = name.find('/') != std::string::npos ? m::Hdf5NameSlash
                                     : name.empty() || name == "."       ? m::Hdf5NameDot
                                     : name == "notes"                   ? m::Hdf5NameNotes
                                                                         : std::string_view();
        if (!why.empty()) return m::fill(m::BadHdf5Name, file.c_str(), name.c_str(), std::string(why).c_str());
    }
    return {};
}

std::string writePly(const Tessel::Grid& grid, const std::string& file) {
    const PointColumns checked = pointColumns(grid, file, m::CountsDiffer);
    if (!checked.failure.empty()) return checked.failure;
    const Ravelin::StrongPtr<PlyWriter, BlockWriter> writer(new PlyWriter(file));
    writer->expectRows(checked.points);
    if (std::string failure = feedRuns(*writer, checked.columns); !failure.empty()) return failure;
    return writer->finish(grid).failure;
}

std::vector<GridColumn> gridColumns(const Tessel::Grid& grid) {
    std::vector<GridColumn> columns;
    for (const auto& field : grid.fields()) {
        if (field->fragments().empty()) continue;
        GridColumn column;
        withElementType(*field->fragments()[0].arrays[0], [&]<class T>() {
            if (!fieldHolds<T>(*field)) return;
            column = {field.get(), &typeid(T), sizeof(T), {}};
            forEachArray<T>(*field, [&](std::span<const T> elements) {
                if (!elements.empty())
                    column.arrays.emplace_back(reinterpret_cast<const char*>(elements.data()), elements.size());
            });
        });
        if (column.field != nullptr) columns.push_back(std::move(column));
    }
    return columns;
}

PointColumns pointColumns(const Tessel::Grid& grid, const std::string& file, std::string_view countsDiffer) {
    PointColumns checked{gridColumns(grid), 0, 0, {}};
    const auto point = std::find_if(checked.columns.begin(), checked.columns.end(),
                                    [](const GridColumn& c) { return *c.type == typeid(Tessel::Point); });
    if (point == checked.columns.end()) {
        checked.failure = m::fill(m::NoPointField, file.c_str());
        return checked;
    }
    checked.point = static_cast<std::size_t>(point - checked.columns.begin());
    checked.points = elementCountOf(*point->field);
    std::string counts;
    bool differ = false;
    for (const GridColumn& column : checked.columns) {
        const std::uint64_t n = elementCountOf(*column.field);
        differ |= n != checked.points;
        counts += (counts.empty() ? "" : ", ") + column.field->fieldName() + ' ' + std::to_string(n);
    }
    if (differ) checked.failure = m::fill(countsDiffer, file.c_str(), counts.c_str());
    return checked;
}

std::string feedRuns(BlockWriter& writer, const std::vector<GridColumn>& columns) {
    std::vector<ColumnSlice> slices;
    slices.reserve(columns.size());
    for (const GridColumn& column : columns) slices.push_back({&column.field->fieldName(), column.type, nullptr, 0});
    if (std::string failure = writer.add({}, slices); !failure.empty()) return failure;
    std::vector<std::size_t> array(columns.size());
    std::vector<std::uint64_t> at(columns.size());
    for (;;) {
        std::uint64_t run = std::numeric_limits<std::uint64_t>::max();
        for (std::size_t c = 0; c < columns.size(); ++c) {
            const auto& arrays = columns[c].arrays;
            while (array[c] < arrays.size() && at[c] == arrays[array[c]].second) ++array[c], at[c] = 0;
            run = array[c] < arrays.size() ? std::min(run, arrays[array[c]].second - at[c]) : 0;
            if (run == 0) break;
        }
        if (run == 0 || columns.empty()) return {};
        for (std::size_t c = 0; c < columns.size(); ++c) {
            slices[c].data = columns[c].arrays[array[c]].first + at[c] * columns[c].elementBytes;
            slices[c].count = run;
            at[c] += run;
        }
        if (std::string failure = writer.add({}, slices); !failure.empty()) return failure;
    }
}

std::optional<std::string> feedBlocks(const Tessel::Grid& grid, BlockWriter& writer) {
    std::vector<const Tessel::Field*> fields;
    std::vector<const std::type_info*> types;
    for (const GridColumn& column : gridColumns(grid)) {
        fields.push_back(column.field);
        types.push_back(column.type);
    }
    if (fields.empty()) return std::nullopt;
    const auto& first = fields[0]->fragments();
    for (const Tessel::Field* field : fields) {
        const auto& fragments = field->fragments();
        if (fragments.size() != first.size()) return std::nullopt;
        for (std::size_t k = 0; k < fragments.size(); ++k)
            if (fragments[k].arrays.size() != 1 || fragments[k].id->name != first[k].id->name ||
                fragments[k].arrays[0]->elementCount() != first[k].arrays[0]->elementCount())
                return std::nullopt;
    }
    std::vector<ColumnSlice> slices(fields.size());
    for (std::size_t k = 0; k < first.size(); ++k) {
        for (std::size_t c = 0; c < fields.size(); ++c) {
            const Tessel::MemBase& array = *fields[c]->fragments()[k].arrays[0];
            slices[c] = {&fields[c]->fieldName(), types[c], static_cast<const char*>(array.rawData()),
                         static_cast<std::uint64_t>(array.elementCount())};
        }
        if (std::string failure = writer.add(first[k].id->name, slices); !failure.empty()) return failure;
    }
    return std::string();
}

void BlockWriter::addFieldsOf(const Tessel::Grid& grid) {
    if (started_ || !failure_.empty()) return;
    const std::vector<GridColumn> columns = gridColumns(grid);
    std::vector<ColumnSlice> slices;
    slices.reserve(columns.size());
    for (const GridColumn& column : columns) slices.push_back({&column.field->fieldName(), column.type, nullptr, 0});
    add({}, slices);
}

std::string BlockWriter::add(const FlushedBlock& block) {
    std::vector<ColumnSlice> slices;
    slices.reserve(block.columns.size());
    for (const auto& [name, chunk] : block.columns)
        slices.push_back({&name, &chunk->elementType(), static_cast<const char*>(chunk->rawData()),
                          static_cast<std::uint64_t>(chunk->elementCount())});
    return add(Pallion::blockName(block.file, block.number), slices);
}

BlockWriterPtr openPlyWriter(const std::string& file) { return BlockWriterPtr(new PlyWriter(file)); }

BlockWriterPtr openBlockWriter(const std::string& file, const LasOptions& las, const Tessel::Grid* grid) {
    switch (outputFormatOf(file)) {
        case OutputFormat::Ply:
            return openPlyWriter(file);
        case OutputFormat::Hdf5:
            return openHdf5Writer(file);
        case OutputFormat::Las:
            return openLasWriter(file, las, grid);
        default:
            return {};
    }
}

std::string writeGrid(const Tessel::Grid& grid, const std::string& file) {
    switch (outputFormatOf(file)) {
        case OutputFormat::Ply:
            return writePly(grid, file);
        case OutputFormat::Hdf5:
            return writeHdf5(grid, file);
        case OutputFormat::Las:
            return writeLas(grid, file).failure;
        default:
            return messages::fill(messages::UnknownFormat, file.c_str());
    }
}

}  // namespace Pallion::Tools
