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

#include "HostMessages.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/memory/Chunk.hpp"

namespace host {

namespace {

using Array = Tessel::MemBase::Array;

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + '"';
}

// The shortest text that reads back to the same value; a float field's
// values as floats, so that 0.2f shows as 0.2.
std::string jsonNumber(double value, bool single) {
    if (!std::isfinite(value)) return "null";
    char text[32];
    const auto end = single ? std::to_chars(text, text + sizeof text, static_cast<float>(value)).ptr
                            : std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

// Runs `f` with the element type of `array` (one of the nine), or not at all.
template <class F>
void withElementType(const Tessel::MemBase& array, F&& f) {
    Tessel::forEachElementType([&]<class T>() {
        if (array.typeIndex() == Tessel::typeIndexOf<T>()) f.template operator()<T>();
    });
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
            withElementType(*array, [&]<class T>() {
                using Traits = Tessel::ElementTraits<T>;
                using C = typename Traits::Component;
                const auto* components = static_cast<const C*>(array->rawData());
                range.single = std::is_same_v<C, float>;
                if (range.min.empty()) {
                    range.min.assign(Traits::components, std::numeric_limits<double>::infinity());
                    range.max.assign(Traits::components, -std::numeric_limits<double>::infinity());
                }
                for (std::uint64_t i = 0; i < array->elementCount() * Traits::components; ++i) {
                    const double v = static_cast<double>(components[i]);
                    double& low = range.min[i % Traits::components];
                    double& high = range.max[i % Traits::components];
                    low = std::min(low, v);
                    high = std::max(high, v);
                }
            });
    return range;
}

std::uint64_t elementsOf(const Tessel::Field& field) {
    std::uint64_t n = 0;
    for (const auto& fragment : field.fragments())
        for (const Array& array : fragment.arrays) n += array->elementCount();
    return n;
}

// An attribute's values joined by ", ", texts quoted as in JSON.
std::string attributeValues(const Ravelin::ChunkPtr& value) {
    std::string text;
    auto join = [&](const auto& values, auto render) {
        for (std::size_t i = 0; i < values.size(); ++i) text += (i ? ", " : "") + render(values[i]);
    };
    if (auto* ints = dynamic_cast<Ravelin::Chunk<int>*>(value.get()))
        join(ints->vector(), [](int v) { return std::to_string(v); });
    else if (auto* uints = dynamic_cast<Ravelin::Chunk<unsigned int>*>(value.get()))
        join(uints->vector(), [](unsigned v) { return std::to_string(v); });
    else if (auto* texts = dynamic_cast<Ravelin::Chunk<std::string>*>(value.get()))
        join(texts->vector(), jsonString);
    return text;
}

// All elements of the first field of element type T, in fragment order.
template <class T>
std::vector<T> firstFieldOf(const Tessel::Grid& grid) {
    for (const auto& field : grid.fields()) {
        std::vector<T> values;
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays) {
                if (!(array->typeIndex() == Tessel::typeIndexOf<T>())) return {};
                const T* data = static_cast<const T*>(array->rawData());
                values.insert(values.end(), data, data + array->elementCount());
            }
        if (!values.empty()) return values;
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

}  // namespace

std::string textSummary(const Tessel::Grid& grid) {
    std::ostringstream out;
    for (const auto& field : grid.fields()) {
        std::string type = "(no fragment)";
        if (!field->fragments().empty()) type = field->fragments()[0].arrays[0]->typeIndex().typeName;
        out << "field " << field->fieldName() << " : " << type << '\n';
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays) {
                const std::uint64_t n = array->elementCount();
                out << "  " << fragment.id->name << ": " << n << " elements";
                if (n > 0) out << ", first " << array->elementText(0) << ", last " << array->elementText(n - 1);
                out << '\n';
            }
    }
    for (const auto& name : grid.attributes().names())
        out << "attribute " << name << " = " << attributeValues(grid.attributes().getAttribute(name)) << '\n';
    for (const auto& note : grid.notes()) out << "note from " << note.converter << ":" << note.text << '\n';
    return out.str();
}

std::string jsonSummary(const Tessel::Grid& grid, const std::string& result) {
    std::ostringstream out;
    out << "{\n  \"result\": " << jsonString(result) << ",\n  \"fields\": [";
    bool firstField = true;
    for (const auto& field : grid.fields()) {
        out << (firstField ? "\n" : ",\n") << "    {\"name\": " << jsonString(field->fieldName());
        firstField = false;
        if (!field->fragments().empty()) {
            const auto& index = field->fragments()[0].arrays[0]->typeIndex();
            out << ", \"type\": " << jsonString(index.typeName) << ", \"components\": " << index.components;
        }
        const std::uint64_t elements = elementsOf(*field);
        out << ", \"elements\": " << elements << ", \"fragments\": [";
        bool firstFragment = true;
        for (const auto& fragment : field->fragments())
            for (const Array& array : fragment.arrays) {
                out << (firstFragment ? "" : ", ") << "{\"name\": " << jsonString(fragment.id->name)
                    << ", \"elements\": " << array->elementCount() << '}';
                firstFragment = false;
            }
        out << ']';
        if (elements > 0) {
            const Range range = rangeOf(*field);
            auto list = [&](const std::vector<double>& values) {
                std::string text = "[";
                for (std::size_t i = 0; i < values.size(); ++i)
                    text += (i ? ", " : "") + jsonNumber(values[i], range.single);
                return text + "]";
            };
            out << ", \"min\": " << list(range.min) << ", \"max\": " << list(range.max);
        }
        out << '}';
    }
    out << (firstField ? "" : "\n  ") << "],\n  \"attributes\": {";
    bool firstAttribute = true;
    for (const auto& name : grid.attributes().names()) {
        out << (firstAttribute ? "" : ", ") << jsonString(name) << ": " << '['
            << attributeValues(grid.attributes().getAttribute(name)) << ']';
        firstAttribute = false;
    }
    out << "},\n  \"notes\": [";
    bool firstNote = true;
    for (const auto& note : grid.notes()) {
        out << (firstNote ? "" : ", ") << "{\"converter\": " << jsonString(note.converter)
            << ", \"text\": " << jsonString(note.text) << '}';
        firstNote = false;
    }
    out << "]\n}\n";
    return out.str();
}

std::string writePreview(const Tessel::Grid& grid, const std::string& file, unsigned size) {
    const auto points = firstFieldOf<Tessel::Point>(grid);
    if (points.empty()) return std::string(messages::NothingToDraw);
    const auto colours = firstFieldOf<Tessel::Colour>(grid);
    const bool coloured = colours.size() == points.size();

    double low[3], high[3];
    for (int c = 0; c < 3; ++c) {
        low[c] = high[c] = points[0][c];
        for (const auto& p : points) {
            low[c] = std::min(low[c], p[c]);
            high[c] = std::max(high[c], p[c]);
        }
    }
    const double spanX = std::max(high[0] - low[0], 1e-12), spanY = std::max(high[1] - low[1], 1e-12);
    const double scale = (size - 1) / std::max(spanX, spanY);
    const unsigned width = static_cast<unsigned>(spanX * scale) + 1, height = static_cast<unsigned>(spanY * scale) + 1;
    std::vector<png_byte> image(static_cast<std::size_t>(width) * height * 3, 24);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto x = static_cast<unsigned>((points[i][0] - low[0]) * scale);
        const auto y = height - 1 - static_cast<unsigned>((points[i][1] - low[1]) * scale);
        png_byte* pixel = &image[(static_cast<std::size_t>(y) * width + x) * 3];
        if (coloured) {
            for (int c = 0; c < 3; ++c) pixel[c] = colours[i][c];
        } else {
            heightColour(high[2] > low[2] ? (points[i][2] - low[2]) / (high[2] - low[2]) : 0.5, pixel);
        }
    }

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(file.c_str(), "wb"), std::fclose);
    if (!out) return std::string(messages::CannotWrite) + file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return std::string(messages::CannotWrite) + file;
    }
    png_init_io(png, out.get());
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (unsigned y = 0; y < height; ++y) png_write_row(png, &image[static_cast<std::size_t>(y) * width * 3]);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return {};
}

}  // namespace host
