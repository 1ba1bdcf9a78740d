#include "Summary.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <type_traits>
#include <vector>

#include <png.h>
#include <nlohmann/json.hpp>

#include "HostMessages.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/OutputFile.hpp"
#include "pallion/tools/Ranges.hpp"

namespace host {

namespace {

using Array = Tessel::MemBase::Array;
using Json = nlohmann::ordered_json;

// A float field's values as the shortest double that prints like the float,
// so that 0.2f shows as 0.2; nan and inf as null.
Json jsonNumber(double value, bool single) {
    if (!std::isfinite(value)) return nullptr;
    if (!single) return value;
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, static_cast<float>(value)).ptr;
    double shortest = 0;
    std::from_chars(text, end, shortest);
    return shortest;
}

// Per-component minimum and maximum of `n` elements of type T, folded into
// `lowest` and `highest`.  The bounds are kept in local copies, which stay in
// registers: the arrays passed in could alias the values, and would be
// stored and loaded again for every value.  (A component's index by
// `i % components` would cost a division.)
template <class T>
void bounds(const T* elements, std::uint64_t n, std::array<double, Tessel::ElementTraits<T>::components>& lowest,
            std::array<double, Tessel::ElementTraits<T>::components>& highest) {
    using Traits = Tessel::ElementTraits<T>;
    using C = typename Traits::Component;
    constexpr std::size_t K = Traits::components;
    const auto* components = reinterpret_cast<const C*>(elements);
    std::array<double, K> low = lowest, high = highest;
    for (std::uint64_t i = 0; i < n; ++i, components += K)
        for (std::size_t k = 0; k < K; ++k) {
            const auto v = static_cast<double>(components[k]);
            low[k] = std::min(low[k], v);
            high[k] = std::max(high[k], v);
        }
    lowest = low;
    highest = high;
}

// Blocks of fewer elements are looked at on one thread.
constexpr std::uint64_t SplitElements = std::uint64_t{1} << 20;

// Per-component minimum and maximum of `n` elements of type T, into `field`.
// This pass over every value runs after the conversion, where a table given
// as one block is one block of hundreds of megabytes: a large block is split
// among `threads` threads, the caller's one of them.
template <class T>
void widen(BlockDigest::Field& field, const T* elements, std::uint64_t n, unsigned threads) {
    using Traits = Tessel::ElementTraits<T>;
    constexpr std::size_t K = Traits::components;
    using Bounds = std::array<double, K>;
    field.single = std::is_same_v<typename Traits::Component, float>;
    if (field.min.empty()) {
        field.min.assign(K, std::numeric_limits<double>::infinity());
        field.max.assign(K, -std::numeric_limits<double>::infinity());
    }
    const std::uint64_t parts = n < SplitElements ? 1 : std::min<std::uint64_t>(threads, n / (SplitElements / 2));
    std::vector<Bounds> low(std::max<std::uint64_t>(parts, 1)), high(low.size());
    for (std::size_t p = 0; p < low.size(); ++p) {
        std::copy_n(field.min.begin(), K, low[p].begin());
        std::copy_n(field.max.begin(), K, high[p].begin());
    }
    const std::uint64_t share = n / low.size();
    Pallion::Tools::splitAmongThreads(low.size(), [&](std::size_t p) {
        const std::uint64_t begin = share * p, count = p + 1 == low.size() ? n - begin : share;
        bounds(elements + begin, count, low[p], high[p]);
    });
    for (std::size_t p = 0; p < low.size(); ++p)
        for (std::size_t k = 0; k < K; ++k) {
            field.min[k] = std::min(field.min[k], low[p][k]);
            field.max[k] = std::max(field.max[k], high[p][k]);
        }
}

// An attribute's values, by the type of its chunk.
Json attributeValues(const Ravelin::ChunkPtr& value) {
    Json values = Json::array();
    Pallion::Tools::visitAttribute(value, [&](const auto& all) {
        for (const auto& v : all) {
            if constexpr (std::is_same_v<std::decay_t<decltype(v)>, double>)
                values.push_back(jsonNumber(v, false));
            else
                values.push_back(v);
        }
    });
    return values;
}

// Blue, cyan, green, yellow, red from low to high.
void heightColour(double t, png_byte* rgb) {
    static const double stops[5][3] = {{40, 60, 200}, {0, 190, 220}, {40, 200, 60}, {240, 220, 40}, {220, 40, 30}};
    t = std::clamp(t, 0.0, 1.0) * 4;
    const int i = std::min(3, static_cast<int>(t));
    const double f = t - i;
    for (int c = 0; c < 3; ++c) rgb[c] = static_cast<png_byte>(stops[i][c] + f * (stops[i + 1][c] - stops[i][c]));
}

bool finite(const Tessel::Point& p) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

// The rows of an RGB picture.
struct Picture {
    const std::vector<png_byte>& rgb;
    unsigned width, height;
};

// The picture as PNG into `out`; a failure of libpng (a short write among
// them) is recorded in `out`, which then commits nothing.
void writePng(Pallion::Tools::OutputFile& out, const Picture& picture) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        out.fail(std::string(messages::PngFailed));
        return;
    }
    png_init_io(png, out.stream());
    png_set_IHDR(png, info, picture.width, picture.height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (unsigned y = 0; y < picture.height && out.good(); ++y)
        png_write_row(png, &picture.rgb[static_cast<std::size_t>(y) * picture.width * 3]);
    if (out.good()) png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
}

// A point of the picture as spooled: x, y, z and its colour.
constexpr std::size_t SpooledBytes = 3 * sizeof(double) + 3;

}  // namespace

BlockDigest::BlockDigest(bool picture, std::size_t inMemory, unsigned threads)
    : picture_(picture), inMemory_(inMemory), threads_(std::max(threads, 1u)) {
    std::fill(std::begin(low_), std::end(low_), std::numeric_limits<double>::infinity());
    std::fill(std::begin(high_), std::end(high_), -std::numeric_limits<double>::infinity());
}

BlockDigest::~BlockDigest() {
    if (spill_ != nullptr) std::fclose(spill_);
}

BlockDigest::Field& BlockDigest::fieldNamed(const std::string& name) {
    for (Field& field : fields_)
        if (field.name == name) return field;
    fields_.emplace_back().name = name;
    return fields_.back();
}

const BlockDigest::Field* BlockDigest::field(const std::string& name) const {
    for (const Field& field : fields_)
        if (field.name == name) return &field;
    return nullptr;
}

std::vector<std::string> BlockDigest::sharedFragmentNames() const {
    std::vector<std::pair<std::string, std::vector<std::string>>> fields;
    for (const Field& field : fields_) {
        auto& [name, fragments] = fields.emplace_back(field.name, std::vector<std::string>());
        for (const Fragment& fragment : field.fragments) fragments.push_back(fragment.name);
    }
    return Pallion::Tools::sharedFragmentNames(fields);
}

void BlockDigest::add(const Pallion::Tools::FlushedBlock& block) {
    std::vector<Pallion::Tools::ColumnSlice> slices;
    for (const auto& [name, chunk] : block.columns)
        slices.push_back({&name, &chunk->elementType(), static_cast<const char*>(chunk->rawData()),
                          static_cast<std::uint64_t>(chunk->elementCount())});
    // The name the conversion gives the block's fragments: the file's stem and the block's number.
    const std::string stem = std::filesystem::path(block.file).stem().string();
    add(stem + std::to_string(block.number), slices);
}

void BlockDigest::add(const std::string& fragment, const std::vector<Pallion::Tools::ColumnSlice>& slices) {
    const char *points = nullptr, *colours = nullptr;
    std::uint64_t n = 0;
    for (const auto& slice : slices) {
        Field& field = fieldNamed(*slice.name);
        Fragment& entry = field.fragments.emplace_back();
        entry.name = fragment;
        entry.elements = slice.count;
        field.elements += slice.count;
        Pallion::Tools::withChunkType(*slice.type, [&]<class T>() {
            using Traits = Tessel::ElementTraits<T>;
            field.type = Traits::parseName;
            field.components = Traits::components;
            const T* elements = reinterpret_cast<const T*>(slice.data);
            if (slice.count > 0) {
                Traits::appendText(entry.first, elements[0]);
                Traits::appendText(entry.last, elements[slice.count - 1]);
                widen(field, elements, slice.count, threads_);
            }
        });
    }
    // The picture: the first point field of the first block with points, coloured by that block's first rgb
    // field.
    if (!picture_) return;
    if (pointField_.empty())
        for (const auto& slice : slices)
            if (*slice.type == typeid(Tessel::Point) && slice.count > 0) {
                pointField_ = *slice.name;
                for (const auto& other : slices)
                    if (*other.type == typeid(Tessel::Colour)) {
                        colourField_ = *other.name;
                        break;
                    }
                break;
            }
    for (const auto& slice : slices)
        if (*slice.name == pointField_) points = slice.data, n = slice.count;
    for (const auto& slice : slices)
        if (*slice.name == colourField_ && slice.count == n) colours = slice.data;
    if (points != nullptr) addPoints(points, colours, n);
}

void BlockDigest::addGrid(const Tessel::Grid& grid) {
    for (const auto& field : grid.fields()) {
        Field& entry = fieldNamed(field->fieldName());
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays) {
                Fragment& stored = entry.fragments.emplace_back();
                stored.name = fragment.id->name;
                stored.elements = array->elementCount();
                entry.elements += stored.elements;
                if (stored.elements > 0) {
                    stored.first = array->elementText(0);
                    stored.last = array->elementText(stored.elements - 1);
                }
                entry.type = Pallion::Tools::parseTypeName(*array);
                entry.components = array->typeIndex().components;
                Pallion::Tools::withElementType(*array, [&]<class T>() {
                    const auto elements = Pallion::Tools::elementsOf<T>(*array);
                    widen(entry, elements.data(), elements.size(), threads_);
                });
            }
        if (!field->fragments().empty()) {
            entry.type = Pallion::Tools::parseTypeName(*field->fragments()[0].arrays[0]);
            entry.components = field->fragments()[0].arrays[0]->typeIndex().components;
        }
    }
    // The picture: the first point field with elements, coloured by the first rgb field with as many.
    for (const auto& field : grid.fields()) {
        if (!picture_) break;
        if (!Pallion::Tools::fieldHolds<Tessel::Point>(*field)) continue;
        const std::uint64_t n = Pallion::Tools::elementCountOf(*field);
        if (n == 0) continue;
        const auto points = Pallion::Tools::fieldValues<Tessel::Point>(*field);
        std::vector<Tessel::Colour> colours;
        for (const auto& other : grid.fields())
            if (Pallion::Tools::fieldHolds<Tessel::Colour>(*other) && Pallion::Tools::elementCountOf(*other) == n) {
                colours = Pallion::Tools::fieldValues<Tessel::Colour>(*other);
                break;
            }
        pointField_ = field->fieldName();
        addPoints(reinterpret_cast<const char*>(points.data()),
                  colours.empty() ? nullptr : reinterpret_cast<const char*>(colours.data()), n);
        break;
    }
}

void BlockDigest::addPoints(const char* points, const char* colours, std::uint64_t n) {
    for (std::uint64_t i = 0; i < n; ++i) {
        Tessel::Point p;
        std::memcpy(&p, points + i * sizeof p, sizeof p);
        if (finite(p))
            for (int c = 0; c < 3; ++c) {
                low_[c] = std::min(low_[c], p[c]);
                high_[c] = std::max(high_[c], p[c]);
            }
        const std::size_t at = spooled_.size();
        spooled_.resize(at + SpooledBytes);
        std::memcpy(&spooled_[at], &p, sizeof p);
        if (colours != nullptr) std::memcpy(&spooled_[at + sizeof p], colours + i * 3, 3);
        if (spooled_.size() >= inMemory_) {
            if (spill_ == nullptr) spill_ = std::tmpfile();
            if (spill_ == nullptr || std::fwrite(spooled_.data(), 1, spooled_.size(), spill_) != spooled_.size())
                spillFailure_ = std::strerror(errno);
            spooled_.clear();
        }
    }
    drawn_ += n;
    if (colours != nullptr) coloured_ += n;
}

std::string textSummary(const Tessel::Grid& grid, bool partial) {
    BlockDigest digest;
    digest.addGrid(grid);
    return textSummary(grid, digest, partial);
}

std::string textSummary(const Tessel::Grid& grid, const BlockDigest& digest, bool partial) {
    std::ostringstream out;
    if (partial) out << messages::PartialSummary << '\n';
    for (const auto& field : grid.fields()) {
        const BlockDigest::Field* seen = digest.field(field->fieldName());
        const bool any = seen != nullptr && !seen->fragments.empty();
        out << "field " << field->fieldName() << " : " << (any ? seen->type : std::string(messages::NoFragment))
            << '\n';
        if (any)
            for (const auto& fragment : seen->fragments) {
                out << "  " << fragment.name << ": " << fragment.elements << " elements";
                if (fragment.elements > 0) out << ", first " << fragment.first << ", last " << fragment.last;
                out << '\n';
            }
    }
    for (const auto& name : grid.attributes().names())
        out << "attribute " << name << " = " << attributeValues(grid.attributes().getAttribute(name)).dump() << '\n';
    for (const auto& note : grid.notes()) out << "note from " << note.converter << ":" << note.text << '\n';
    return out.str();
}

std::string jsonSummary(const Tessel::Grid& grid, const RunReport& run) {
    BlockDigest digest;
    digest.addGrid(grid);
    return jsonSummary(grid, digest, run);
}

std::string jsonSummary(const Tessel::Grid& grid, const BlockDigest& digest, const RunReport& run) {
    Json json;
    json["result"] = run.result;
    json["status"] = run.status;
    json["partial"] = run.partial;
    if (run.headerLines >= 0)
        json["options"] = {{"delimiter", run.delimiter}, {"header", run.headerLines},         {"parse", run.parse},
                           {"comments", run.comments},   {"decimal_comma", run.decimalComma}, {"lenient", run.lenient}};
    json["guessed"] = run.guessed;
    json["warnings"] = run.warnings;
    if (run.failure.aboutALine()) {
        Json failure = {{"file", run.failure.file}, {"line", run.failure.lineNumber}, {"text", run.failure.line}};
        if (run.failure.column) failure["column"] = *run.failure.column;
        if (!run.failure.token.empty() || run.failure.column) failure["token"] = run.failure.token;
        failure["detail"] = run.failure.detail;
        failure["hints"] = run.failure.hints;
        json["failure"] = failure;
    } else if (!run.failure.hints.empty()) {
        json["failure"] = {{"hints", run.failure.hints}};
    }
    for (const auto& [key, written] : {std::pair{"output", &run.output}, std::pair{"preview", &run.preview}})
        if (*written) {
            json[key] = {{"file", (*written)->file}, {"written", (*written)->error.empty()}};
            if (!(*written)->error.empty()) json[key]["error"] = (*written)->error;
        }

    json["fields"] = Json::array();
    for (const auto& field : grid.fields()) {
        Json entry = {{"name", field->fieldName()}};
        const BlockDigest::Field* seen = digest.field(field->fieldName());
        const bool any = seen != nullptr && !seen->fragments.empty();
        if (any) {
            entry["type"] = seen->type;
            entry["components"] = seen->components;
        }
        entry["elements"] = any ? seen->elements : 0;
        entry["fragments"] = Json::array();
        if (any)
            for (const auto& fragment : seen->fragments)
                entry["fragments"].push_back({{"name", fragment.name}, {"elements", fragment.elements}});
        if (any && seen->elements > 0)
            for (std::size_t c = 0; c < seen->min.size(); ++c) {
                entry["min"].push_back(jsonNumber(seen->min[c], seen->single));
                entry["max"].push_back(jsonNumber(seen->max[c], seen->single));
            }
        json["fields"].push_back(entry);
    }
    json["attributes"] = Json::object();
    for (const auto& name : grid.attributes().names())
        json["attributes"][name] = attributeValues(grid.attributes().getAttribute(name));
    json["notes"] = Json::array();
    for (const auto& note : grid.notes()) json["notes"].push_back({{"converter", note.converter}, {"text", note.text}});

    try {
        return json.dump(2) + '\n';
    } catch (const Json::type_error&) {  // bytes that are not UTF-8, in a name or a text
        json["invalid_utf8_replaced"] = true;
        return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
    }
}

std::string writePreview(const Tessel::Grid& grid, const std::string& file, unsigned size) {
    BlockDigest digest(true);
    digest.addGrid(grid);
    return digest.writePreview(file, size);
}

std::string BlockDigest::writePreview(const std::string& file, unsigned size) {
    if (drawn_ == 0) return std::string(messages::NothingToDraw);
    const bool coloured = coloured_ == drawn_;
    const double* low = low_;
    const double* high = high_;
    if (!(low[0] <= high[0])) return std::string(messages::NothingToDraw);
    // Spans and offsets in halves, so that coordinates near +-1e308 give no
    // infinite span; every pixel index is clamped before it becomes unsigned.
    const double spanX = std::max(high[0] / 2 - low[0] / 2, 1e-12), spanY = std::max(high[1] / 2 - low[1] / 2, 1e-12);
    const double pixels = size - 1;
    const double longest = std::max(spanX, spanY);
    const auto pixel = [&](double offset) {
        const double at = offset / longest * pixels;
        return static_cast<unsigned>(std::isfinite(at) ? std::clamp(at, 0.0, pixels) : 0.0);
    };
    const unsigned width = pixel(spanX) + 1, height = pixel(spanY) + 1;
    std::vector<png_byte> image(static_cast<std::size_t>(width) * height * 3, 24);
    const double spanZ = high[2] / 2 - low[2] / 2;
    // The points in the order they came: those in the temporary file, then those in memory.
    const auto draw = [&](const char* spooled, std::size_t bytes) {
        for (std::size_t at = 0; at + SpooledBytes <= bytes; at += SpooledBytes) {
            Tessel::Point p;
            std::memcpy(&p, spooled + at, sizeof p);
            if (!finite(p)) continue;
            const auto x = std::min(width - 1, pixel(p[0] / 2 - low[0] / 2));
            const auto y = height - 1 - std::min(height - 1, pixel(p[1] / 2 - low[1] / 2));
            png_byte* rgb = &image[(static_cast<std::size_t>(y) * width + x) * 3];
            if (coloured)
                std::memcpy(rgb, spooled + at + sizeof p, 3);
            else
                heightColour(spanZ > 0 ? (p[2] / 2 - low[2] / 2) / spanZ : 0.5, rgb);
        }
    };
    if (spill_ != nullptr) {
        std::vector<char> piece(SpooledBytes * 40000);
        std::rewind(spill_);
        for (std::size_t n; (n = std::fread(piece.data(), 1, piece.size(), spill_)) > 0;) draw(piece.data(), n);
        if (std::ferror(spill_) != 0) spillFailure_ = std::strerror(errno);
        std::fseek(spill_, 0, SEEK_END);
    }
    draw(spooled_.data(), spooled_.size());

    // Through the one atomic writer: nothing under the name unless the whole picture was written.
    Pallion::Tools::OutputFile out(file);
    if (!spillFailure_.empty()) out.fail(spillFailure_);
    if (out.open()) writePng(out, Picture{image, width, height});
    return out.commit();
}

}  // namespace host
