#include "riegl/Riegl.hpp"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ravelin/Cacheable.hpp"
#include "tessel/Grid.hpp"
#include "tessel/MemBase.hpp"

namespace Riegl {

namespace {

constexpr char PofMagic[8] = {'P', 'A', 'L', 'P', 'O', 'F', '1', '\0'};
constexpr char PofxMagic[8] = {'P', 'A', 'L', 'P', 'O', 'F', 'X', '1'};
constexpr std::uint64_t RecordsPerFragment = 10000000;
constexpr std::size_t HeaderBytes = 24;
constexpr double SecondsPerDay = 86400.0;
// The element types of the fields, as the grid library names its registered types.
constexpr const char* PointTypeName = "Quillon::PhysicalSpace::point";
constexpr const char* DoubleTypeName = "double";

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// The registered type of that name, or null when no library registered it.
const Tessel::TesselTypeIndex* registeredType(const std::string& name) {
    static const std::vector<Tessel::TesselTypeIndex> known = Tessel::MemBase::registeredTypeIndices();
    for (const Tessel::TesselTypeIndex& index : known)
        if (index.typeName == name) return &index;
    return nullptr;
}

// A one-dimensional array of `count` elements of a registered type, made by the grid library.
Tessel::MemBase::Array makeArray(const Tessel::TesselTypeIndex& type, std::uint64_t count) {
    return Tessel::MemBase::create(type, Tessel::DynamicSize{count});
}

void store(Tessel::Grid& grid, const std::string& field, const std::string& fragmentName,
           const Tessel::MemBase::Array& array, const ChunkCallback* callback) {
    Tessel::FieldPtr target = grid[field];
    const Tessel::FragmentPtr fragment = target->makeFragmentID(fragmentName);
    if (callback != nullptr && *callback) (*callback)(array->chunkPointer(), field);
    target->setPersistentData(array, fragment, Ravelin::Cache::MemCache(), std::string());
}

std::string read(const char* function, const char (&magic)[8], const std::string& fileName, Tessel::Grid& grid,
                 int epsg, const ChunkCallback* callback, const Ravelin::ProgressPtr& progress) {
    const std::string prefix = std::string(function) + ": ";
    std::error_code ignored;
    if (std::filesystem::is_directory(fileName, ignored)) return prefix + "cannot open file: " + fileName;
    File file(std::fopen(fileName.c_str(), "rb"));
    if (!file) return prefix + "cannot open file: " + fileName;

    unsigned char header[HeaderBytes];
    if (std::fread(header, 1, HeaderBytes, file.get()) != HeaderBytes || std::memcmp(header, magic, 8) != 0)
        return prefix + "not a trajectory file of this layout: " + fileName;
    std::int32_t fileEpsg;
    std::uint64_t count;
    std::memcpy(&fileEpsg, header + 8, 4);
    std::memcpy(&count, header + 16, 8);
    if (fileEpsg != 0 && epsg > 0 && fileEpsg != epsg)
        return prefix + "file holds EPSG " + std::to_string(fileEpsg) + ", its name says " + std::to_string(epsg) +
               ": " + fileName;
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    const std::uint64_t held = size < 0 ? 0 : (static_cast<std::uint64_t>(size) - HeaderBytes) / sizeof(Record);
    if (held != count || static_cast<std::uint64_t>(size) != HeaderBytes + count * sizeof(Record))
        return prefix + "truncated file: " + std::to_string(count) + " records announced, " + std::to_string(held) +
               " present: " + fileName;
    std::fseek(file.get(), static_cast<long>(HeaderBytes), SEEK_SET);

    const Tessel::TesselTypeIndex* pointType = registeredType(PointTypeName);
    const Tessel::TesselTypeIndex* doubleType = registeredType(DoubleTypeName);
    if (pointType == nullptr || doubleType == nullptr) return prefix + "element types not registered";

    grid.makeCartesianRepresentation(3, std::string(), 0);
    const std::uint64_t step = count > 99 ? count / 100 : 1;
    std::uint64_t done = 0;
    std::uint64_t block = 0;
    std::vector<Record> records;
    do {
        const std::uint64_t n = std::min<std::uint64_t>(RecordsPerFragment, count - done);
        // A point is three doubles side by side; the arrays come zeroed.
        const Tessel::MemBase::Array positions = makeArray(*pointType, n);
        Tessel::MemBase::Array columns[4];
        for (auto& column : columns) column = makeArray(*doubleType, n);
        auto* xyz = static_cast<double*>(positions->rawData());
        double* values[4];
        for (int c = 0; c < 4; ++c) values[c] = static_cast<double*>(columns[c]->rawData());
        records.resize(std::min<std::uint64_t>(n, 65536));
        for (std::uint64_t i = 0; i < n;) {
            const std::size_t batch = static_cast<std::size_t>(std::min<std::uint64_t>(records.size(), n - i));
            if (std::fread(records.data(), sizeof(Record), batch, file.get()) != batch)
                return prefix + "read error: " + fileName;
            for (std::size_t r = 0; r < batch; ++r, ++i) {
                const Record& rec = records[r];
                values[0][i] = rec[0];
                xyz[3 * i] = rec[1];
                xyz[3 * i + 1] = rec[2];
                xyz[3 * i + 2] = rec[3];
                values[1][i] = rec[4];
                values[2][i] = rec[5];
                values[3][i] = rec[6];
                const std::uint64_t index = done + i;
                if (progress && index % step == 0 &&
                    !progress->report("Read record nr.:", static_cast<std::uint32_t>(index),
                                      static_cast<std::uint32_t>(count)))
                    return prefix + "user interruption";
            }
        }
        const std::string name = std::filesystem::path(fileName).stem().string() + std::to_string(block);
        store(grid, "Positions", name, positions, callback);
        store(grid, "GPSTime", name, columns[0], callback);
        store(grid, "Roll", name, columns[1], callback);
        store(grid, "Pitch", name, columns[2], callback);
        store(grid, "Yaw", name, columns[3], callback);
        done += n;
        ++block;
        // Each stored block is reported too, so a stop asked for then still ends the reading.
        if (progress &&
            !progress->report("Read record nr.:", static_cast<std::uint32_t>(done), static_cast<std::uint32_t>(count)))
            return prefix + "user interruption";
    } while (done < count);
    return {};
}

}  // namespace

std::string pofx2tessel(const std::string& fileName, Tessel::Grid& grid, const int& epsg, const ChunkCallback& callback,
                        const Ravelin::ProgressPtr& progress) {
    return read("pofx2tessel", PofxMagic, fileName, grid, epsg, &callback, progress);
}

void modifyGPSTime(std::string& failure, const int& weekDay, const ChunkPtr& chunk, const std::string& fieldName) {
    if (fieldName != "GPSTime") return;
    auto fail = [&](const std::string& text) {
        if (failure.empty()) failure = "modifyGPSTime: " + text;
    };
    if (weekDay < 0 || weekDay > 6) return fail("week day " + std::to_string(weekDay) + " is not from 0 to 6");
    if (chunk.isNull() || chunk->elementType() != typeid(double)) return fail("the GPSTime chunk holds no doubles");
    double* const times = static_cast<double*>(chunk->rawData());
    const std::size_t count = chunk->elementCount();
    const double start = weekDay * SecondsPerDay;
    for (std::size_t i = 0; i < count; ++i) {
        const double t = times[i];
        const double ofDay = t - start;
        if (!(ofDay >= 0.0 && ofDay < SecondsPerDay)) {
            char text[160];
            std::snprintf(text, sizeof text, "GPS time %.6f does not lie within week day %d", t, weekDay);
            return fail(text);
        }
    }
    for (std::size_t i = 0; i < count; ++i) times[i] -= start;
}

bool writeTrajectoryFile(const std::string& fileName, bool extended, std::int32_t epsg,
                         const std::vector<Record>& records) {
    File file(std::fopen(fileName.c_str(), "wb"));
    if (!file) return false;
    unsigned char header[HeaderBytes] = {};
    std::memcpy(header, extended ? PofxMagic : PofMagic, 8);
    std::memcpy(header + 8, &epsg, 4);
    const std::uint64_t count = records.size();
    std::memcpy(header + 16, &count, 8);
    return std::fwrite(header, 1, HeaderBytes, file.get()) == HeaderBytes &&
           std::fwrite(records.data(), sizeof(Record), records.size(), file.get()) == records.size();
}

}  // namespace Riegl

namespace Pallion {

std::string convertPOFtoZ9(const std::string& fileName, Tessel::Grid& grid, const int& epsg,
                           const Ravelin::ProgressPtr& progress) {
    return Riegl::read("convertPOFtoZ9", Riegl::PofMagic, fileName, grid, epsg, nullptr, progress);
}

}  // namespace Pallion
