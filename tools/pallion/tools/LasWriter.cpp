#include "pallion/tools/LasWriter.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <string_view>
#include <type_traits>
#include <vector>

#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/OutputFile.hpp"

#ifdef PALLION_TOOLS_PROJ
#include <proj.h>
#endif

namespace Pallion::Tools {

namespace {

namespace m = messages;

constexpr int MostDecimals = 9;
constexpr double MaxSteps = std::numeric_limits<std::int32_t>::max();
constexpr double ExactInteger = 9007199254740992.0;  // 2^53: every whole number below it is a double
constexpr std::size_t HeaderSize = 375;
constexpr double ScanAngleStep = 0.006;  // degrees per unit of the record's scan angle
constexpr std::uint16_t WktRecordId = 2112, GeoKeyRecordId = 34735, ExtraBytesRecordId = 4;
constexpr std::uint16_t WktBit = 1u << 4;

double powerOfTen(int d) {
    static constexpr double powers[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
    return powers[d];
}

// Whether `value` is the double of a decimal number with d decimals: the
// whole number of steps divided by 10^d is correctly rounded, as the text's
// reading was, so the two are the same double exactly when the text had at
// most d decimals.
bool exactAt(double value, int d) {
    const double p = powerOfTen(d);
    const double steps = std::nearbyint(value * p);
    return std::fabs(steps) < ExactInteger && steps / p == value;
}

// A number as the messages print it: the fewest digits that give it back.
std::string shortest(double value) {
    std::ostringstream out;
    out.precision(17);
    for (int digits = 1; digits <= 17; ++digits) {
        out.str({});
        out.precision(digits);
        out << value;
        if (std::stod(out.str()) == value) break;
    }
    return out.str();
}

// One field of the blocks: where its elements lie in the block being written.
struct Column {
    std::string name;
    const std::type_info* type = nullptr;
    std::size_t elementBytes = 0;
    unsigned components = 1;
    std::size_t componentBytes = 0;
    unsigned char extraType = 0;  // the extra bytes' data type of a component
    std::string typeName;         // the parse string's name of the element type
    double (*component)(const char*, unsigned) = nullptr;
    const char* data = nullptr;  // the block's elements
};

template <class C>
constexpr unsigned char extraTypeOf() {
    if constexpr (std::is_same_v<C, unsigned char>) return 1;
    if constexpr (std::is_same_v<C, unsigned short>) return 3;
    if constexpr (std::is_same_v<C, unsigned int>) return 5;
    if constexpr (std::is_same_v<C, int>) return 6;
    if constexpr (std::is_same_v<C, float>) return 9;
    return 10;  // double
}

template <class C>
double componentAsDouble(const char* element, unsigned c) {
    C value;
    std::memcpy(&value, element + c * sizeof(C), sizeof(C));
    return static_cast<double>(value);
}

enum class Dimension {
    Intensity,
    ReturnNumber,
    NumberOfReturns,
    Classification,
    GpsTime,
    ScanAngle,
    UserData,
    SourceId
};

struct Standard {
    Dimension dimension;
    std::string_view key;  // the name in lower case without '_'
    std::string_view name;
    double low, high;
    bool whole;
    std::string_view holds;
};

constexpr double Infinite = std::numeric_limits<double>::infinity();
constexpr Standard Standards[] = {
    {Dimension::Intensity, "intensity", "Intensity", 0, 65535, true, m::IntensityRange},
    {Dimension::ReturnNumber, "returnnumber", "ReturnNumber", 0, 15, true, m::FourBitRange},
    {Dimension::NumberOfReturns, "numberofreturns", "NumberOfReturns", 0, 15, true, m::FourBitRange},
    {Dimension::Classification, "classification", "Classification", 0, 255, true, m::ByteRange},
    {Dimension::GpsTime, "gpstime", "GpsTime", -Infinite, Infinite, false, m::AnyFinite},
    {Dimension::ScanAngle, "scanangle", "ScanAngle", -180, 180, false, m::AngleRange},
    {Dimension::UserData, "userdata", "UserData", 0, 255, true, m::ByteRange},
    {Dimension::SourceId, "pointsourceid", "PointSourceId", 0, 65535, true, m::IntensityRange},
};

const Standard* standardOf(const std::string& fieldName) {
    std::string key;
    for (const char c : fieldName)
        if (c != '_') key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const Standard& standard : Standards)
        if (standard.key == key) return &standard;
    return nullptr;
}

// One column of the extra bytes: a component of a field.
struct Extra {
    std::size_t column;
    unsigned component;
    std::string name;
};

// The fields of the grid as the record takes them.
struct Layout {
    std::vector<Column> columns;
    std::size_t point = 0;
    std::optional<std::size_t> colour;
    std::optional<std::size_t> standard[std::size(Standards)];
    std::vector<Extra> extras;
    std::size_t extraBytes = 0;
};

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// An extra column's name, at most 32 bytes, that no dimension of the record
// and no earlier extra column has (any case), so that a reader that finds
// dimensions by name finds each: "Z" becomes "Z_2".
std::string extraName(const std::string& wanted, std::set<std::string>& taken) {
    std::string name = wanted.substr(0, 32);
    for (int k = 2; taken.count(lowerCase(name)) > 0; ++k) name = wanted.substr(0, 28) + '_' + std::to_string(k);
    taken.insert(lowerCase(name));
    return name;
}

Layout layoutOf(const std::vector<ColumnSlice>& slices, bool& hasPoint) {
    Layout layout;
    std::set<std::string> taken = {"x",
                                   "y",
                                   "z",
                                   "intensity",
                                   "returnnumber",
                                   "numberofreturns",
                                   "classification",
                                   "userdata",
                                   "scanangle",
                                   "pointsourceid",
                                   "gpstime",
                                   "red",
                                   "green",
                                   "blue",
                                   "synthetic",
                                   "keypoint",
                                   "withheld",
                                   "overlap",
                                   "scannerchannel",
                                   "scandirectionflag",
                                   "edgeofflightline"};
    hasPoint = false;
    for (const ColumnSlice& slice : slices) {
        withChunkType(*slice.type, [&]<class T>() {
            using Traits = Tessel::ElementTraits<T>;
            using C = typename Traits::Component;
            Column column;
            column.name = *slice.name;
            column.type = slice.type;
            column.elementBytes = sizeof(T);
            column.components = Traits::components;
            column.componentBytes = sizeof(C);
            column.extraType = extraTypeOf<C>();
            column.typeName = Traits::parseName;
            column.component = &componentAsDouble<C>;
            const std::size_t index = layout.columns.size();
            layout.columns.push_back(std::move(column));
            if constexpr (std::is_same_v<T, Tessel::Point>) {
                if (!hasPoint) {
                    hasPoint = true;
                    layout.point = index;
                    return;
                }
            } else if constexpr (std::is_same_v<T, Tessel::Colour>) {
                if (!layout.colour) {
                    layout.colour = index;
                    return;
                }
            } else if (const Standard* standard = Traits::components == 1 ? standardOf(*slice.name) : nullptr) {
                auto& slot = layout.standard[standard - Standards];
                if (!slot) {
                    slot = index;
                    return;
                }
            }
            for (unsigned c = 0; c < Traits::components; ++c) {
                std::string name = *slice.name;
                if (Traits::components > 1) name += '_' + Traits::componentName(static_cast<int>(c));
                layout.extras.push_back({index, c, extraName(name, taken)});
                layout.extraBytes += sizeof(C);
            }
        });
    }
    return layout;
}

// How one axis is stored: X = steps * scale + offset.
struct Axis {
    double scale = 1, offset = 0;
    int decimals = -1;          // scale = 10^-decimals, or -1 for any other scale
    double offsetSteps = 0;     // the offset in steps, a whole number (decimal scales)
    bool noteRounding = false;  // whether the values may not come back as they are
    double rounded = 0;         // the most a value moved

    double steps(double v) const {
        return decimals >= 0 ? std::nearbyint(v * powerOfTen(decimals)) - offsetSteps
                             : std::nearbyint((v - offset) / scale);
    }
};

// The values of one axis seen before writing.
struct Seen {
    double low = Infinite, high = -Infinite;
    int decimals = 0;
    bool beyond = false;  // some value has more than MostDecimals decimals
};

// The axis at the decimal scale 10^-d, its offset a whole number of units
// where that still fits, else the minimum's own step; nothing where the
// range does not fit a 32-bit record.
std::optional<Axis> decimalAxis(const Seen& seen, int d) {
    Axis axis;
    axis.decimals = d;
    axis.scale = 1.0 / powerOfTen(d);
    const double p = powerOfTen(d);
    if (std::fabs(seen.low) * p >= ExactInteger || std::fabs(seen.high) * p >= ExactInteger) return std::nullopt;
    for (const double start : {std::floor(seen.low) * p, std::nearbyint(seen.low * p)}) {
        axis.offsetSteps = start;
        axis.offset = start / p;
        if (axis.steps(seen.low) >= 0 && axis.steps(seen.high) <= MaxSteps) return axis;
    }
    return std::nullopt;
}

// Any scale: the offset a whole number of steps at or below the minimum.
std::optional<Axis> scaledAxis(const Seen& seen, double scale) {
    for (int d = 0; d <= MostDecimals; ++d)
        if (scale == 1.0 / powerOfTen(d)) return decimalAxis(seen, d);
    Axis axis;
    axis.scale = scale;
    axis.offset = std::floor(seen.low / scale) * scale;
    const double high = (seen.high - axis.offset) / scale;
    if (!(high <= MaxSteps) || axis.steps(seen.low) < -MaxSteps) return std::nullopt;
    return axis;
}

double stepsAt(const Seen& seen, double scale) { return std::ceil((seen.high - seen.low) / scale); }

// The axis for the values seen, or the refusal that says why none fits.
std::optional<Axis> chooseAxis(const Seen& seen, char name, const std::optional<double>& given,
                               const LasOptions& options, const std::string& file, std::string& failure) {
    const std::string low = shortest(seen.low), high = shortest(seen.high);
    if (given) {
        std::optional<Axis> axis = scaledAxis(seen, *given);
        if (!axis) {
            failure = m::fill(m::LasTooWideAtScale, file.c_str(), name, low.c_str(), high.c_str(),
                              shortest(*given).c_str(), shortest(stepsAt(seen, *given)).c_str());
            return std::nullopt;
        }
        axis->noteRounding = seen.beyond || axis->decimals < seen.decimals;
        return axis;
    }
    if (!seen.beyond) {
        if (std::optional<Axis> axis = decimalAxis(seen, seen.decimals)) return axis;
    }
    // The finest decimal scale that fits: taken where the values have more
    // decimals than any scale keeps, offered otherwise.
    int d = seen.beyond ? MostDecimals : seen.decimals - 1;
    std::optional<Axis> axis;
    for (; d >= 0 && !axis; --d) axis = decimalAxis(seen, d);
    if (axis && seen.beyond) {
        axis->noteRounding = true;
        return axis;
    }
    const double scale = axis ? axis->scale : std::pow(10.0, std::ceil(std::log10(stepsAt(seen, 1) / MaxSteps)));
    const std::string suggested = shortest(scale), half = shortest(scale / 2);
    if (seen.beyond) {
        failure = m::fill(m::LasTooWideAtAnyDecimals, file.c_str(), name, low.c_str(), high.c_str(),
                          options.scaleOption.c_str(), suggested.c_str(), name, half.c_str());
        return std::nullopt;
    }
    const double fine = 1.0 / powerOfTen(seen.decimals);
    failure = m::fill(m::LasTooWide, file.c_str(), name, low.c_str(), high.c_str(), shortest(fine).c_str(),
                      seen.decimals, shortest(stepsAt(seen, fine)).c_str(), options.scaleOption.c_str(),
                      suggested.c_str(), name, half.c_str());
    return std::nullopt;
}

// Little-endian bytes of a header or a record.
class Bytes {
public:
    template <class V>
    void put(V value) {
        char bytes[sizeof(V)];
        std::memcpy(bytes, &value, sizeof(V));
        data_.append(bytes, sizeof(V));
    }
    void text(std::string_view text, std::size_t width) {
        const std::size_t n = std::min(text.size(), width);
        data_.append(text.data(), n);
        data_.append(width - n, '\0');
    }
    void zeros(std::size_t n) { data_.append(n, '\0'); }
    const std::string& data() const { return data_; }

private:
    std::string data_;
};

struct Vlr {
    std::string user;
    std::uint16_t record;
    std::string description;
    std::string content;
};

// The EPSG code the grid names: EPSG, or a trajectory's EPSG_SPATIAL.
std::optional<long long> epsgOf(const Tessel::Grid& grid) {
    for (const char* name : {"EPSG", "EPSG_SPATIAL"}) {
        std::optional<long long> code;
        visitAttribute(grid.attributes().getAttribute(name), [&]<class T>(const std::vector<T>& values) {
            if constexpr (std::is_integral_v<T>)
                if (!values.empty()) code = values[0];
        });
        if (code) return code;
    }
    return std::nullopt;
}

// WKT1 of an EPSG coordinate system from PROJ's database.
std::optional<std::string> wktOf(long long code) {
#ifdef PALLION_TOOLS_PROJ
    const std::unique_ptr<PJ_CONTEXT, PJ_CONTEXT* (*)(PJ_CONTEXT*)> context(proj_context_create(),
                                                                            proj_context_destroy);
    proj_log_level(context.get(), PJ_LOG_NONE);
    const std::string text = std::to_string(code);
    const std::unique_ptr<PJ, PJ* (*)(PJ*)> crs(
        proj_create_from_database(context.get(), "EPSG", text.c_str(), PJ_CATEGORY_CRS, 0, nullptr), proj_destroy);
    if (!crs) return std::nullopt;
    const char* const oneLine[] = {"MULTILINE=NO", nullptr};
    const char* wkt = proj_as_wkt(context.get(), crs.get(), PJ_WKT1_GDAL, oneLine);
    if (wkt == nullptr) return std::nullopt;
    return std::string(wkt);
#else
    (void)code;
    return std::nullopt;
#endif
}

// The code as GeoTIFF keys, for a reader without WKT: geographic for the
// 4000s, projected otherwise.
std::string geoKeysOf(long long code) {
    Bytes keys;
    const bool geographic = code >= 4000 && code < 5000;
    const std::uint16_t model = geographic ? 2 : 1, key = geographic ? 2048 : 3072;
    // The directory's version, revision, minor revision and key count, then
    // each key as its id, location (0: the value itself), count and value.
    for (const std::uint16_t value : {1, 1, 0, 2, 1024, 0, 1, int{model}, int{key}, 0, 1, static_cast<int>(code)})
        keys.put(value);
    return keys.data();
}

}  // namespace

bool canWriteLasWkt() {
#ifdef PALLION_TOOLS_PROJ
    return true;
#else
    return false;
#endif
}

int decimalsOf(double value) {
    for (int d = 0; d <= MostDecimals; ++d)
        if (exactAt(value, d)) return d;
    return -1;
}

std::optional<std::array<double, 3>> parseLasScale(const std::string& text) {
    std::vector<double> scales;
    for (std::size_t start = 0;;) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string piece = text.substr(start, end - start);
        std::size_t used = 0;
        double scale = 0;
        try {
            scale = std::stod(piece, &used);
        } catch (const std::exception&) {
            return std::nullopt;
        }
        if (used != piece.size() || !(scale > 0) || !std::isfinite(scale)) return std::nullopt;
        scales.push_back(scale);
        if (end == text.size()) break;
        start = end + 1;
    }
    if (scales.size() == 1) return std::array<double, 3>{scales[0], scales[0], scales[0]};
    if (scales.size() == 3) return std::array<double, 3>{scales[0], scales[1], scales[2]};
    return std::nullopt;
}

namespace {

// The coordinates of `n` points, seen: their ranges and decimals; the first
// one that is not finite refuses them (`first` is the index of the first).
std::string observe(Seen (&seen)[3], const char* data, std::uint64_t n, std::uint64_t first, const std::string& file) {
    static_assert(sizeof(Tessel::Point) == 3 * sizeof(double), "a point is read as three doubles side by side");
    for (std::uint64_t j = 0; j < n; ++j) {
        double xyz[3];
        std::memcpy(xyz, data + j * sizeof xyz, sizeof xyz);
        for (unsigned a = 0; a < 3; ++a) {
            const double v = xyz[a];
            if (!std::isfinite(v))
                return m::fill(m::LasNotFinite, file.c_str(), "XYZ"[a], static_cast<unsigned long long>(first) + j,
                               shortest(v).c_str());
            Seen& s = seen[a];
            s.low = std::min(s.low, v);
            s.high = std::max(s.high, v);
            if (s.beyond || exactAt(v, s.decimals)) continue;
            const int d = decimalsOf(v);
            if (d < 0)
                s.beyond = true;
            else
                s.decimals = std::max(s.decimals, d);
        }
    }
    return {};
}

// Points written block by block.  The header and the records before the
// points are written first and patched at the end (the counts, the counts by
// return, the bounds, the scales and offsets).
//
// Each axis needs its scale before its first point, but the decimals that
// keep every value exact are known only once every value was seen.  The
// scale is chosen from the values seen so far, by the rule of the whole
// table (chooseAxis), and the offset is the first point's value.  When a
// later block has more decimals, the records already written are read back
// and their integers rewritten in place: a step of 10^-d is 10^k steps of
// 10^-(d+k), so steps * 10^k is exactly the integer the value would have had
// (the offset, the same value, is 10^k times as many steps too).  The
// decimals grow at most nine times, so the records are rewritten nine times
// at most, and memory holds one block and a megabyte.  A range too wide for
// 32-bit integers at the decimals needed is refused with its numbers, as the
// whole table's would be.  The file does not depend on where the blocks end:
// a whole grid, whose ranges are known before the first block, gives the same
// file without any rewriting.
class LasWriter final : public BlockWriter {
public:
    LasWriter(std::string file, LasOptions options, const Tessel::Grid* grid)
        : file_(std::move(file)), options_(std::move(options)), grid_(grid), out_(file_) {}

    // The axes for values of these ranges and decimals, the first point
    // being `first`, before any block.
    std::string fix(const Seen (&seen)[3], const double (&first)[3], std::uint64_t points) {
        std::copy(std::begin(first), std::end(first), std::begin(first_));
        for (unsigned a = 0; a < 3 && points > 0; ++a) {
            if (!choose(seen[a], a)) return failure_;
            seen_[a] = seen[a];
        }
        fixed_ = true;
        return {};
    }

    std::string add(const std::string& /*fragment*/, const std::vector<ColumnSlice>& slices) override {
        if (!failure_.empty()) return failure_;
        if (!started_ && !start(slices)) return failure_;
        if (slices.size() != layout_.columns.size()) return fail(m::fill(m::BlockFieldsDiffer, file_.c_str()));
        auto& columns = layout_.columns;
        bool differ = false;
        const std::uint64_t n = slices[layout_.point].count;
        for (std::size_t c = 0; c < columns.size(); ++c) {
            if (*slices[c].name != columns[c].name || *slices[c].type != *columns[c].type)
                return fail(m::fill(m::BlockFieldsDiffer, file_.c_str()));
            columns[c].data = slices[c].data;
            differ |= slices[c].count != n;
        }
        if (differ) {
            std::string counts;
            for (std::size_t c = 0; c < columns.size(); ++c)
                counts +=
                    (counts.empty() ? "" : ", ") + columns[c].name + ' ' + std::to_string(points_ + slices[c].count);
            return fail(m::fill(m::LasCountsDiffer, file_.c_str(), counts.c_str()));
        }
        if (n == 0) return {};
        if (points_ == 0 && !fixed_) std::memcpy(first_, columns[layout_.point].data, sizeof first_);
        if (std::string refused = observe(seen_, columns[layout_.point].data, n, points_, file_); !refused.empty())
            return fail(std::move(refused));
        if (!fixed_ && !reaxe()) return failure_;
        if (!check(n)) return failure_;
        writeRecords(n);
        points_ += n;
        if (!out_.good()) return fail(out_.failure());
        return {};
    }

    LasWritten finish(const Tessel::Grid& grid) override {
        addFieldsOf(grid);
        if (!failure_.empty()) return {failure_, notes_};
        for (std::size_t s = 0; s < std::size(Standards); ++s)
            if (layout_.standard[s] && scanRounded_ > 1e-9 && Standards[s].dimension == Dimension::ScanAngle)
                notes_.push_back(m::fill(m::LasScanAngleRounded, file_.c_str(),
                                         layout_.columns[*layout_.standard[s]].name.c_str(),
                                         shortest(scanRounded_).c_str()));
        // The records before the points as the grid's coordinate system is now; the points move where they
        // take more or less room than the ones written first.
        std::string records = recordsFor(&grid, &notes_);
        if (records.size() != records_.size())
            out_.move(HeaderSize + records_.size(), points_ * recordLength_,
                      static_cast<std::int64_t>(records.size()) - static_cast<std::int64_t>(records_.size()));
        records_ = std::move(records);
        const std::string header = headerBytes() + records_;
        out_.writeAt(0, header.data(), header.size());
        LasWritten written{out_.commit(), std::move(notes_)};
        for (unsigned a = 0; a < 3; ++a)
            if (axes_[a].noteRounding && axes_[a].rounded > 0)
                written.notes.push_back(m::fill(seen_[a].beyond && !options_.scale ? m::LasManyDecimals : m::LasRounded,
                                                file_.c_str(), "XYZ"[a], shortest(axes_[a].scale).c_str(),
                                                shortest(axes_[a].rounded).c_str()));
        return written;
    }

private:
    bool start(const std::vector<ColumnSlice>& slices) {
        started_ = true;
        bool hasPoint = false;
        layout_ = layoutOf(slices, hasPoint);
        if (!hasPoint) return fail(m::fill(m::NoPointField, file_.c_str())).empty();
        recordBase_ = layout_.colour ? 36 : 30;
        if (recordBase_ + layout_.extraBytes > std::numeric_limits<std::uint16_t>::max())
            return fail(m::fill(m::LasTooManyExtras, file_.c_str(), layout_.extraBytes)).empty();
        recordLength_ = recordBase_ + layout_.extraBytes;
        for (std::size_t at = recordBase_; const Extra& extra : layout_.extras) {
            extraAt_.push_back(at);
            at += layout_.columns[extra.column].componentBytes;
        }
        if (!layout_.standard[static_cast<std::size_t>(Dimension::ReturnNumber)]) returnsGiven_ = false;
        if (!out_.open()) return fail(out_.failure()).empty();
        // The coordinate system as far as it is known now; its notes are those of the end.
        records_ = recordsFor(grid_, nullptr);
        const std::string header = headerBytes() + records_;
        out_.write(header.data(), header.size());
        return out_.good() || fail(out_.failure()).empty();
    }

    // The axis of the values seen for axis a, or false with the refusal.
    bool choose(const Seen& seen, unsigned a) {
        std::optional<double> given;
        if (options_.scale) given = (*options_.scale)[a];
        std::string failure;
        const std::optional<Axis> axis = chooseAxis(seen, "XYZ"[a], given, options_, file_, failure);
        if (!axis) return fail(std::move(failure)).empty();
        axes_[a] = *axis;
        // The offset is the first point's value at that scale, whatever the
        // range: it does not depend on where the blocks end, nor move when
        // later blocks widen the range, and every value of a range that the
        // scale takes (at most 2^31 - 1 steps) lies within 2^31 - 1 steps of it.
        Axis& anchored = axes_[a];
        if (anchored.decimals >= 0) {
            const double p = powerOfTen(anchored.decimals);
            anchored.offsetSteps = std::nearbyint(first_[a] * p);
            anchored.offset = anchored.offsetSteps / p;
        } else {
            anchored.offset = std::nearbyint(first_[a] / anchored.scale) * anchored.scale;
        }
        return true;
    }

    // Whether the axes still hold the values seen: the axis the values so far
    // call for has the decimals (or scale) of the present one, whose offset
    // still takes every value in 32 bits.  Where they do not, the axes are
    // chosen again and the records written so far rewritten for them.
    bool reaxe() {
        const Axis old[3] = {axes_[0], axes_[1], axes_[2]};
        bool changed = false;
        for (unsigned a = 0; a < 3; ++a) {
            const Axis present = axes_[a];
            if (!choose(seen_[a], a)) return false;
            const Seen& seen = seen_[a];
            const bool holds = chosen_ && present.decimals == axes_[a].decimals && present.scale == axes_[a].scale &&
                               present.steps(seen.low) >= -MaxSteps && present.steps(seen.high) <= MaxSteps;
            if (holds) {
                axes_[a] = present;
                continue;
            }
            axes_[a].rounded = std::max(axes_[a].rounded, present.rounded);
            axes_[a].noteRounding = axes_[a].noteRounding || present.noteRounding;
            changed = true;
        }
        if (changed && chosen_ && points_ > 0) rewrite(old);
        chosen_ = true;
        return out_.good() || fail(out_.failure()).empty();
    }

    // The integers of the records written so far, from the axes `old` to the present ones.
    void rewrite(const Axis (&old)[3]) {
        const std::uint64_t perPiece = std::max<std::uint64_t>(1, (1u << 20) / recordLength_);
        std::vector<char> piece(static_cast<std::size_t>(perPiece * recordLength_));
        for (std::uint64_t done = 0; done < points_ && out_.good();) {
            const std::uint64_t n = std::min(perPiece, points_ - done);
            const std::uint64_t at = HeaderSize + records_.size() + done * recordLength_;
            if (!out_.readAt(at, piece.data(), static_cast<std::size_t>(n * recordLength_))) return;
            for (std::uint64_t i = 0; i < n; ++i)
                for (unsigned a = 0; a < 3; ++a) {
                    char* field = piece.data() + i * recordLength_ + std::size_t{4} * a;
                    std::int32_t steps = 0;
                    std::memcpy(&steps, field, sizeof steps);
                    steps = static_cast<std::int32_t>(restep(steps, old[a], axes_[a]));
                    std::memcpy(field, &steps, sizeof steps);
                }
            out_.writeAt(at, piece.data(), static_cast<std::size_t>(n * recordLength_));
            done += n;
        }
    }

    // A record's integer at the axis `from` as an integer at the axis `to`:
    // exact between decimal scales where `to` has at least the decimals of
    // `from`; rounded to the nearest step otherwise (a coarser scale, which
    // the notes tell).
    static double restep(std::int32_t steps, const Axis& from, Axis& to) {
        if (from.scale == to.scale && from.offset == to.offset) return steps;
        if (from.decimals >= 0 && to.decimals >= from.decimals) {
            const double whole =
                (static_cast<double>(steps) + from.offsetSteps) * powerOfTen(to.decimals - from.decimals);
            return whole - to.offsetSteps;
        }
        const double value = steps * from.scale + from.offset;
        const double moved = to.steps(value);
        to.noteRounding = true;
        to.rounded = std::max(to.rounded, std::fabs(moved * to.scale + to.offset - value) + from.rounded);
        return moved;
    }

    // The standard dimensions of the block's rows checked, and its points counted by return.
    bool check(std::uint64_t n) {
        for (std::size_t s = 0; s < std::size(Standards); ++s) {
            if (!layout_.standard[s]) continue;
            const Standard& standard = Standards[s];
            const Column& column = layout_.columns[*layout_.standard[s]];
            for (std::uint64_t i = 0; i < n; ++i) {
                const double v = column.component(column.data + i * column.elementBytes, 0);
                if (!(v >= standard.low && v <= standard.high && std::isfinite(v)) ||
                    (standard.whole && v != std::floor(v)))
                    return fail(m::fill(m::LasOutOfDimension, file_.c_str(), column.name.c_str(),
                                        static_cast<unsigned long long>(points_) + i, shortest(v).c_str(),
                                        standard.name.data(), standard.holds.data()))
                        .empty();
                if (standard.dimension == Dimension::ReturnNumber && v >= 1) ++byReturn_[static_cast<int>(v) - 1];
                if (standard.dimension == Dimension::ScanAngle)
                    scanRounded_ =
                        std::max(scanRounded_, std::fabs(std::nearbyint(v / ScanAngleStep) * ScanAngleStep - v));
            }
        }
        if (!returnsGiven_) byReturn_[0] += n;  // every point its first return
        return true;
    }

    // The records of the block's rows, a megabyte at a time.
    void writeRecords(std::uint64_t points) {
        const auto& columns = layout_.columns;
        const std::size_t perWrite = std::max<std::size_t>(1, (1u << 20) / recordLength_);
        buffer_.resize(perWrite * recordLength_);
        std::vector<const char*> current(columns.size());
        // A standard dimension's value in the current row, where a field gives it (the table's order is the enum's).
        auto value = [&](Dimension dimension, double otherwise) {
            const std::optional<std::size_t>& index = layout_.standard[static_cast<std::size_t>(dimension)];
            return index ? columns[*index].component(current[*index], 0) : otherwise;
        };
        auto put = [](char* at, auto v) { std::memcpy(at, &v, sizeof v); };
        for (std::uint64_t row = 0; row < points;) {
            const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(perWrite, points - row));
            std::memset(buffer_.data(), 0, n * recordLength_);
            for (std::size_t i = 0; i < n; ++i) {
                char* record = buffer_.data() + i * recordLength_;
                for (std::size_t c = 0; c < columns.size(); ++c)
                    current[c] = columns[c].data + (row + i) * columns[c].elementBytes;
                double xyz[3];
                std::memcpy(xyz, current[layout_.point], sizeof xyz);
                for (unsigned a = 0; a < 3; ++a) {
                    Axis& axis = axes_[a];
                    const double v = xyz[a];
                    const double steps = axis.steps(v);
                    put(record + std::size_t{4} * a, static_cast<std::int32_t>(steps));
                    if (axis.noteRounding)
                        axis.rounded = std::max(axis.rounded, std::fabs(steps * axis.scale + axis.offset - v));
                }
                put(record + 12, static_cast<std::uint16_t>(value(Dimension::Intensity, 0)));
                const auto returnNumber = static_cast<unsigned>(value(Dimension::ReturnNumber, 1));
                const auto returns =
                    static_cast<unsigned>(value(Dimension::NumberOfReturns, std::max(returnNumber, 1u)));
                put(record + 14, static_cast<std::uint8_t>(returnNumber | (returns << 4)));
                put(record + 16, static_cast<std::uint8_t>(value(Dimension::Classification, 0)));
                put(record + 17, static_cast<std::uint8_t>(value(Dimension::UserData, 0)));
                put(record + 18,
                    static_cast<std::int16_t>(std::nearbyint(value(Dimension::ScanAngle, 0) / ScanAngleStep)));
                put(record + 20, static_cast<std::uint16_t>(value(Dimension::SourceId, 0)));
                put(record + 22, value(Dimension::GpsTime, 0));
                if (layout_.colour) {
                    const Column& colour = columns[*layout_.colour];
                    for (unsigned c = 0; c < 3; ++c)
                        put(record + 30 + std::size_t{2} * c,
                            static_cast<std::uint16_t>(colour.component(current[*layout_.colour], c) * 257));
                }
                for (std::size_t e = 0; e < layout_.extras.size(); ++e) {
                    const Extra& extra = layout_.extras[e];
                    const Column& column = columns[extra.column];
                    std::memcpy(record + extraAt_[e], current[extra.column] + extra.component * column.componentBytes,
                                column.componentBytes);
                }
            }
            out_.write(buffer_.data(), n * recordLength_);
            row += n;
        }
    }

    // The records before the points: the coordinate system and the extra
    // bytes, with the variable-length records' headers; the global
    // encoding's WKT bit goes with them.  Its notes go to `notes`.
    std::string recordsFor(const Tessel::Grid* grid, std::vector<std::string>* notes) {
        std::vector<Vlr> vlrs;
        globalEncoding_ = WktBit;
        const auto note = [&](std::string text) {
            if (notes != nullptr) notes->push_back(std::move(text));
        };
        if (const std::optional<long long> epsg = grid != nullptr ? epsgOf(*grid) : std::nullopt) {
            if (std::optional<std::string> wkt = wktOf(*epsg)) {
                vlrs.push_back({"LASF_Projection", WktRecordId, "OGC WKT", *wkt + '\0'});
            } else if (*epsg > 0 && *epsg <= std::numeric_limits<std::uint16_t>::max()) {
                globalEncoding_ = 0;
                vlrs.push_back({"LASF_Projection", GeoKeyRecordId, "GeoTIFF GeoKeyDirectoryTag", geoKeysOf(*epsg)});
                note(m::fill(canWriteLasWkt() ? m::LasUnknownEpsg : m::LasNoProj, file_.c_str(), *epsg));
            } else {
                note(m::fill(m::LasEpsgNotStored, file_.c_str(), *epsg));
            }
        }
        if (!layout_.extras.empty()) {
            Bytes content;
            for (const Extra& extra : layout_.extras) {
                const Column& column = layout_.columns[extra.column];
                content.zeros(2);
                content.put(column.extraType);
                content.put(std::uint8_t{0});  // no no-data, minimum, maximum, scale or offset
                content.text(extra.name, 32);
                content.zeros(4 + 5 * 24);
                content.text(column.typeName, 32);
            }
            vlrs.push_back({"LASF_Spec", ExtraBytesRecordId, "Extra Bytes Record", content.data()});
        }
        vlrCount_ = vlrs.size();
        Bytes records;
        for (const Vlr& vlr : vlrs) {
            records.put(std::uint16_t{0});
            records.text(vlr.user, 16);
            records.put(vlr.record);
            records.put(static_cast<std::uint16_t>(vlr.content.size()));
            records.text(vlr.description, 32);
            records.text(vlr.content, vlr.content.size());
        }
        return records.data();
    }

    // The header as the points written so far make it.
    std::string headerBytes() const {
        const std::time_t now = std::time(nullptr);
        std::tm utc{};
        gmtime_r(&now, &utc);
        Bytes header;
        header.text("LASF", 4);
        header.put(std::uint16_t{0});  // file source
        header.put(globalEncoding_);
        header.zeros(16);  // project GUID
        header.put(std::uint8_t{1});
        header.put(std::uint8_t{4});
        header.text("OTHER", 32);
        header.text("pallion", 32);
        header.put(static_cast<std::uint16_t>(utc.tm_yday + 1));
        header.put(static_cast<std::uint16_t>(utc.tm_year + 1900));
        header.put(static_cast<std::uint16_t>(HeaderSize));
        header.put(static_cast<std::uint32_t>(HeaderSize + records_.size()));
        header.put(static_cast<std::uint32_t>(vlrCount_));
        // Point format 6 or 7; a compressed writer would set bit 7 here and
        // encode the records in chunks.
        header.put(static_cast<std::uint8_t>(layout_.colour ? 7 : 6));
        header.put(static_cast<std::uint16_t>(recordLength_));
        header.zeros(4 + 5 * 4);  // the legacy counts, 0 for formats 6 and up
        const bool any = points_ > 0;
        for (const Axis& axis : axes_) header.put(any ? axis.scale : 1.0);
        for (const Axis& axis : axes_) header.put(any ? axis.offset : 0.0);
        for (unsigned a = 0; a < 3; ++a) {
            const Axis& axis = axes_[a];
            header.put(any ? axis.steps(seen_[a].high) * axis.scale + axis.offset : 0.0);
            header.put(any ? axis.steps(seen_[a].low) * axis.scale + axis.offset : 0.0);
        }
        header.put(std::uint64_t{0});  // no waveform data
        header.put(std::uint64_t{0});  // no extended records
        header.put(std::uint32_t{0});
        header.put(std::uint64_t{points_});
        for (const std::uint64_t n : byReturn_) header.put(n);
        return header.data();
    }

    std::string file_;
    LasOptions options_;
    const Tessel::Grid* grid_;
    OutputFile out_;
    Layout layout_;
    std::vector<std::size_t> extraAt_;
    std::size_t recordBase_ = 30, recordLength_ = 30, vlrCount_ = 0;
    std::string records_;  // the records before the points, as written
    std::uint16_t globalEncoding_ = WktBit;
    Seen seen_[3];
    double first_[3] = {0, 0, 0};  // the first point
    Axis axes_[3];
    std::uint64_t points_ = 0, byReturn_[15] = {};
    double scanRounded_ = 0;
    std::vector<std::string> notes_;
    std::vector<char> buffer_;
    bool fixed_ = false, chosen_ = false, returnsGiven_ = true;
};

}  // namespace

BlockWriterPtr openLasWriter(const std::string& file, const LasOptions& options, const Tessel::Grid* grid) {
    return BlockWriterPtr(new LasWriter(file, options, grid));
}

LasWritten writeLas(const Tessel::Grid& grid, const std::string& file, const LasOptions& options) {
    const PointColumns checked = pointColumns(grid, file, m::LasCountsDiffer);
    if (!checked.failure.empty()) return {checked.failure, {}};
    const std::vector<GridColumn>& columns = checked.columns;
    const GridColumn* const point = &columns[checked.point];
    const std::uint64_t points = checked.points;
    const Ravelin::StrongPtr<LasWriter, BlockWriter> writer(new LasWriter(file, options, &grid));
    std::vector<ColumnSlice> slices;
    slices.reserve(columns.size());
    for (const GridColumn& column : columns) slices.push_back({&column.field->fieldName(), column.type, nullptr, 0});
    if (std::string failure = writer->add({}, slices); !failure.empty()) return {failure, {}};
    // The grid is at hand: its coordinates' ranges and decimals are seen
    // before anything is written, and the axes fixed from them.
    Seen seen[3];
    for (std::uint64_t first = 0; const auto& [data, count] : point->arrays) {
        if (std::string refused = observe(seen, data, count, first, file); !refused.empty()) return {refused, {}};
        first += count;
    }
    double first[3] = {0, 0, 0};
    if (!point->arrays.empty()) std::memcpy(first, point->arrays[0].first, sizeof first);
    if (std::string failure = writer->fix(seen, first, points); !failure.empty()) return {failure, {}};
    if (std::string failure = feedRuns(*writer, columns); !failure.empty()) return {failure, {}};
    return writer->finish(grid);
}

}  // namespace Pallion::Tools
