#include "Summary.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
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

struct Range {
    std::vector<double> min, max;
    bool single = false;  // the components are floats
};

// Per-component minimum and maximum over every array of a field.
Range rangeOf(const Tessel::Field& field) {
    Range range;
    for (const auto& fragment : field.fragments())
        for (const Array& array : fragment.arrays)
            Pallion::Tools::withElementType(*array, [&]<class T>() {
                using Traits = Tessel::ElementTraits<T>;
                using C = typename Traits::Component;
                const auto elements = Pallion::Tools::elementsOf<T>(*array);
                const auto* components = reinterpret_cast<const C*>(elements.data());
                range.single = std::is_same_v<C, float>;
                if (range.min.empty()) {
                    range.min.assign(Traits::components, std::numeric_limits<double>::infinity());
                    range.max.assign(Traits::components, -std::numeric_limits<double>::infinity());
                }
                for (std::uint64_t i = 0; i < elements.size() * Traits::components; ++i) {
                    const double v = static_cast<double>(components[i]);
                    double& low = range.min[i % Traits::components];
                    double& high = range.max[i % Traits::components];
                    low = std::min(low, v);
                    high = std::max(high, v);
                }
            });
    return range;
}

// An attribute's values, by the type of its chunk.
Json attributeValues(const Ravelin::ChunkPtr& value) {
    Json values = Json::array();
    if (auto* ints = dynamic_cast<Ravelin::Chunk<int>*>(value.get()))
        for (int v : ints->vector()) values.push_back(v);
    else if (auto* uints = dynamic_cast<Ravelin::Chunk<unsigned int>*>(value.get()))
        for (unsigned v : uints->vector()) values.push_back(v);
    else if (auto* doubles = dynamic_cast<Ravelin::Chunk<double>*>(value.get()))
        for (double v : doubles->vector()) values.push_back(jsonNumber(v, false));
    else if (auto* texts = dynamic_cast<Ravelin::Chunk<std::string>*>(value.get()))
        for (const std::string& v : texts->vector()) values.push_back(v);
    return values;
}

std::string typeOf(const Tessel::Field& field) {
    return field.fragments().empty() ? std::string(messages::NoFragment)
                                     : Pallion::Tools::parseTypeName(*field.fragments()[0].arrays[0]);
}

// The elements of the first field of element type T that has `count`
// elements (any count where 0), as a copy for the picture.
template <class T>
std::vector<T> firstFieldOf(const Tessel::Grid& grid, std::uint64_t count = 0) {
    for (const auto& field : grid.fields()) {
        if (!Pallion::Tools::fieldHolds<T>(*field)) continue;
        const std::uint64_t n = Pallion::Tools::elementCountOf(*field);
        if (n > 0 && (count == 0 || n == count)) return Pallion::Tools::fieldValues<T>(*field);
    }
    return {};
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

}  // namespace

std::string textSummary(const Tessel::Grid& grid, bool partial) {
    std::ostringstream out;
    if (partial) out << messages::PartialSummary << '\n';
    for (const auto& field : grid.fields()) {
        out << "field " << field->fieldName() << " : " << typeOf(*field) << '\n';
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays) {
                const std::uint64_t n = array->elementCount();
                out << "  " << fragment.id->name << ": " << n << " elements";
                if (n > 0) out << ", first " << array->elementText(0) << ", last " << array->elementText(n - 1);
                out << '\n';
            }
    }
    for (const auto& name : grid.attributes().names())
        out << "attribute " << name << " = " << attributeValues(grid.attributes().getAttribute(name)).dump() << '\n';
    for (const auto& note : grid.notes()) out << "note from " << note.converter << ":" << note.text << '\n';
    return out.str();
}

std::string jsonSummary(const Tessel::Grid& grid, const RunReport& run) {
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
        if (!field->fragments().empty()) {
            entry["type"] = typeOf(*field);
            entry["components"] = field->fragments()[0].arrays[0]->typeIndex().components;
        }
        const std::uint64_t elements = Pallion::Tools::elementCountOf(*field);
        entry["elements"] = elements;
        entry["fragments"] = Json::array();
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays)
                entry["fragments"].push_back({{"name", fragment.id->name}, {"elements", array->elementCount()}});
        if (elements > 0) {
            const Range range = rangeOf(*field);
            for (std::size_t c = 0; c < range.min.size(); ++c) {
                entry["min"].push_back(jsonNumber(range.min[c], range.single));
                entry["max"].push_back(jsonNumber(range.max[c], range.single));
            }
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
    const auto points = firstFieldOf<Tessel::Point>(grid);
    if (points.empty()) return std::string(messages::NothingToDraw);
    const auto colours = firstFieldOf<Tessel::Colour>(grid, points.size());
    const bool coloured = colours.size() == points.size();

    double low[3], high[3];
    std::fill(std::begin(low), std::end(low), std::numeric_limits<double>::infinity());
    std::fill(std::begin(high), std::end(high), -std::numeric_limits<double>::infinity());
    for (const auto& p : points)
        if (finite(p))
            for (int c = 0; c < 3; ++c) {
                low[c] = std::min(low[c], p[c]);
                high[c] = std::max(high[c], p[c]);
            }
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
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!finite(points[i])) continue;
        const auto x = std::min(width - 1, pixel(points[i][0] / 2 - low[0] / 2));
        const auto y = height - 1 - std::min(height - 1, pixel(points[i][1] / 2 - low[1] / 2));
        png_byte* rgb = &image[(static_cast<std::size_t>(y) * width + x) * 3];
        if (coloured) {
            for (int c = 0; c < 3; ++c) rgb[c] = colours[i][c];
        } else {
            heightColour(spanZ > 0 ? (points[i][2] / 2 - low[2] / 2) / spanZ : 0.5, rgb);
        }
    }

    // Through the one atomic writer: nothing under the name unless the whole picture was written.
    Pallion::Tools::OutputFile out(file);
    if (out.open()) writePng(out, Picture{image, width, height});
    return out.commit();
}

}  // namespace host
