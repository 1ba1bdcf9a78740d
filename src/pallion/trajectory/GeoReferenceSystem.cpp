#include "pallion/trajectory/detail/GeoReferenceSystem.hpp"

#include "pallion/trajectory/detail/Messages.hpp"

namespace Pallion {

GeoReferenceSystem::GeoReferenceSystem(const std::string& name, const int& fileNr, const int& epsgSpatial,
                                       const int& epsgHeight, const std::string& date)
    : Name(name),
      FileNr(fileNr),
      EPSGSpatial(epsgSpatial),
      EPSGHeight(epsgHeight),
      Chrono(date),
      Date(Chrono.ddmmyyyy('.')) {}

std::string GeoReferenceSystem::speak() const {
    return "Name=" + Name + "\nFileNr=" + std::to_string(FileNr) + "\nEPSGSpatial=" + std::to_string(EPSGSpatial) +
           "\nEPSGHeight=" + std::to_string(EPSGHeight) + "\nDate=" + Date +
           "\nWeekDay=" + std::to_string(Chrono.WeekDay) + std::string(messages::trajectory::WeekDayLegend);
}

}  // namespace Pallion
