#include "pallion/tools/Writers.hpp"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>

#include <unistd.h>

#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/OutputFile.hpp"

namespace Pallion::Tools {

namespace {

// One field as PLY properties: its arrays one after the other, and where the
// writing stands in them.
struct PlyColumn {
    const Tessel::Field* field;
    std::vector<std::string> names;  // a property per component
    std::string type;                // the PLY type of every component
    std::size_t elementBytes = 0;
    std::vector<std::pair<const char*, std::uint64_t>> arrays;  // data and element count
    std::size_t array = 0;
    std::uint64_t at = 0;
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
std::vector<PlyColumn> plyColumns(const Tessel::Grid& grid) {
    std::vector<PlyColumn> columns;
    bool point = false, colour = false, normal = false;
    for (const auto& field : grid.fields()) {
        if (field->fragments().empty()) continue;
        PlyColumn column{field.get(), {}, {}, 0, {}, 0, 0, false};
        const bool typed = withElementType(*field->fragments()[0].arrays[0], [&]<class T>() {
            using Traits = Tessel::ElementTraits<T>;
            if (!fieldHolds<T>(*field)) return;
            column.type = plyType<typename Traits::Component>();
            column.elementBytes = sizeof(T);
            forEachArray<T>(*field, [&](std::span<const T> elements) {
                column.arrays.emplace_back(reinterpret_cast<const char*>(elements.data()), elements.size());
            });
            const std::string name = plyName(field->fieldName());
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
        if (typed && !column.names.empty()) columns.push_back(std::move(column));
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
    namespace m = messages;
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
    namespace m = messages;
    std::vector<PlyColumn> columns = plyColumns(grid);
    if (columns.empty() || columns[0].names[0] != "x") return m::fill(m::NoPointField, file.c_str());
    const std::uint64_t vertices = elementCountOf(*columns[0].field);
    std::string counts;
    bool differ = false;
    for (const PlyColumn& column : columns) {
        const std::uint64_t n = elementCountOf(*column.field);
        differ |= n != vertices;
        counts += (counts.empty() ? "" : ", ") + column.field->fieldName() + ' ' + std::to_string(n);
    }
    if (differ) return m::fill(m::CountsDiffer, file.c_str(), counts.c_str());

    OutputFile out(file);
    if (!out.open()) return out.failure();
    std::string header = "ply\nformat binary_little_endian 1.0\ncomment written by pallion\nelement vertex " +
                         std::to_string(vertices) + '\n';
    for (const PlyColumn& column : columns)
        for (const std::string& name : column.names) header += "property " + column.type + ' ' + name + '\n';
    header += "end_header\n";
    out.write(header.data(), header.size());

    // Row by row through runs where no field changes its array: the bytes of
    // one element of each field side by side (this machine is little-endian,
    // as the format says).
    std::vector<char> buffer;
    std::size_t rowBytes = 0;
    for (const PlyColumn& column : columns) rowBytes += column.elementBytes;
    const std::size_t rowsPerWrite = std::max<std::size_t>(1, (1u << 20) / rowBytes);
    buffer.reserve(rowsPerWrite * rowBytes);
    for (std::uint64_t written = 0; written < vertices && out.good();) {
        std::uint64_t run = vertices - written;
        for (PlyColumn& column : columns) {
            while (column.at == column.arrays[column.array].second) {
                ++column.array;
                column.at = 0;
            }
            run = std::min(run, column.arrays[column.array].second - column.at);
        }
        for (std::uint64_t i = 0; i < run; ++i) {
            for (PlyColumn& column : columns) {
                const char* element = column.arrays[column.array].first + (column.at + i) * column.elementBytes;
                buffer.insert(buffer.end(), element, element + column.elementBytes);
            }
            if (buffer.size() >= rowsPerWrite * rowBytes) {
                out.write(buffer.data(), buffer.size());
                buffer.clear();
            }
        }
        for (PlyColumn& column : columns) column.at += run;
        written += run;
    }
    out.write(buffer.data(), buffer.size());
    return out.commit();
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
