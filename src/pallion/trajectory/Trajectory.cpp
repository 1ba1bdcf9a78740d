#include "pallion/trajectory/detail/Trajectory.hpp"

#include <filesystem>

#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/trajectory/detail/FilenameDatum.hpp"
#include "pallion/trajectory/detail/GridAttributes.hpp"
#include "pallion/trajectory/detail/Messages.hpp"
#include "riegl/Riegl.hpp"

namespace Pallion {

namespace {

using Ravelin::ProgressPtr;

// Adjusts the GPS times of each chunk for the file's week day, and keeps the
// first failure in `timeError`, which outlives the converter's call.
struct GpsTimeCallback {
    std::string& timeError;
    std::uint16_t weekDay;

    void operator()(const ChunkPtr& chunk, const std::string& fieldName) const {
        const int day = weekDay;
        Riegl::modifyGPSTime(timeError, day, chunk, fieldName);
    }
    void operator()(const ChunkPtr& chunk, const std::string& fieldName, const std::string&) const {
        (*this)(chunk, fieldName);
    }
};

std::string convertText(Tessel::Grid& grid, const std::string& fileName, const GeoReferenceSystem& geo,
                        const Ravelin::ProgressPtr& progress) {
    std::string timeError;
    Parameter parameter;
    parameter.Files = new Ravelin::StringList{fileName};
    parameter.Parse = std::string(messages::trajectory::TrajectoryParse);
    parameter.Progress = progress;
    parameter.OnFragment = GpsTimeCallback{timeError, geo.weekDay()};
    std::string result = ascii2z9(grid, parameter);
    if (!result.empty()) return result;
    return timeError;
}

std::string convertPofx(Tessel::Grid& grid, const std::string& fileName, const GeoReferenceSystem& geo,
                        const Ravelin::ProgressPtr& progress) {
    std::string timeError;
    const Riegl::ChunkCallback callback = GpsTimeCallback{timeError, geo.weekDay()};
    std::string result = Riegl::pofx2tessel(fileName, grid, geo.EPSGSpatial, callback, progress);
    if (!result.empty()) return result;
    return timeError;
}

}  // namespace

std::string convertTrajectory2Z9(Tessel::Grid& grid, const Ravelin::StringListPtr& files,
                                 const Ravelin::ProgressPtr& progress) {
    if (files.isNull()) return {};
    for (const std::string& entry : *files) {
        const std::string fileName = entry;
        const std::filesystem::path filePath(fileName);
        Ravelin::StrongPtr<GeoReferenceSystem> geo = parseFilenameForGeoDatum(filePath.stem());
        if (geo.isNull()) return std::string(messages::trajectory::GeoReferenceFailed);

        const std::string extension = filePath.extension().string();
        std::string result;
        if (extension == messages::trajectory::TextExtension)
            result = convertText(grid, fileName, *geo, progress);
        else if (extension == messages::trajectory::PofExtension)
            result = convertPOFtoZ9(fileName, grid, geo->EPSGSpatial, progress);
        else if (extension == messages::trajectory::PofxExtension)
            result = convertPofx(grid, fileName, *geo, progress);
        else
            return std::string(messages::trajectory::UnknownExtension) + fileName;
        if (!result.empty()) return result;

        result = addGeoReferenceToGrid(*geo, grid);
        if (!result.empty()) return result;
    }
    return {};
}

}  // namespace Pallion
