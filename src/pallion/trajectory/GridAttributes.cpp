#include "pallion/trajectory/detail/GridAttributes.hpp"

#include "pallion/memory/Chunk.hpp"
#include "pallion/trajectory/detail/Messages.hpp"

namespace Pallion {

namespace {

template <class T>
std::string addAttribute(Tessel::Grid& grid, const std::string& name, const T& value, bool append) {
    Ravelin::Attributes& attributes = grid.attributes();
    Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> chunk(attributes.getAttribute(name));
    if (chunk.isNull()) {
        // Absent, or a chunk of another type, which is replaced.
        Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> fresh(new Ravelin::Chunk<T>(1));
        (*fresh)[0] = value;
        attributes.setAttribute(name, Ravelin::ChunkPtr(fresh));
    } else if (append || chunk->empty()) {
        // A chunk without elements has nothing to compare with: it takes this value.
        chunk->push_back(value);
        attributes.setAttribute(name, Ravelin::ChunkPtr(chunk));
    } else if (!((*chunk)[0] == value)) {
        return std::string(messages::trajectory::AttributeMismatch) + name +
               std::string(messages::trajectory::AttributeMismatchEnd);
    }
    grid.setTimeStamp(Ravelin::Ageable::tick());
    return {};
}

}  // namespace

std::string addAttributeToGrid(Tessel::Grid& grid, const std::string& name, unsigned int value, const bool& append) {
    return addAttribute(grid, name, value, append);
}

std::string addAttributeToGrid(Tessel::Grid& grid, const std::string& name, const std::string& value,
                               const bool& append) {
    return addAttribute(grid, name, value, append);
}

std::string addGeoReferenceToGrid(const GeoReferenceSystem& geo, Tessel::Grid& grid) {
    std::string failure = addAttributeToGrid(grid, std::string(messages::trajectory::EPSGSpatialAttribute),
                                             static_cast<unsigned int>(geo.EPSGSpatial), false);
    if (failure.empty())
        failure = addAttributeToGrid(grid, std::string(messages::trajectory::EPSGHeightAttribute),
                                     static_cast<unsigned int>(geo.EPSGHeight), false);
    if (failure.empty())
        failure = addAttributeToGrid(grid, std::string(messages::trajectory::WeekDayAttribute),
                                     static_cast<unsigned int>(geo.weekDay()), true);
    if (failure.empty())
        failure = addAttributeToGrid(grid, std::string(messages::trajectory::DateAttribute), geo.Date, true);
    if (failure.empty())
        failure = addAttributeToGrid(grid, std::string(messages::trajectory::ProjectAttribute), geo.Name, false);
    return failure;
}

}  // namespace Pallion
