// What a trajectory file's name says about it: project, file number, the EPSG
// codes of its spatial and height reference, and its date.
#pragma once

#include <string>

#include "pallion/memory/Pointers.hpp"
#include "tellus/Chronometry.hpp"

namespace Pallion {

class GeoReferenceSystem : public Ravelin::ReferenceBase<GeoReferenceSystem> {
public:
    GeoReferenceSystem(const std::string& name, const int& fileNr, const int& epsgSpatial, const int& epsgHeight,
                       const std::string& date);

    // Six lines: Name, FileNr, EPSGSpatial, EPSGHeight, Date and WeekDay with its legend.
    std::string speak() const;

    std::uint16_t weekDay() const { return Chrono.WeekDay; }

    const std::string Name;
    const int FileNr;
    const int EPSGSpatial;
    const int EPSGHeight;
    const Tellus::Chronometry Chrono;
    const std::string Date;
};

}  // namespace Pallion
