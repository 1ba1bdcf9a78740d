// Every text the trajectory conversion gives back, shows or stores, in one
// place.  A failure text begins with the name of the function that found it.
#pragma once

#include <string_view>

namespace Pallion::messages::trajectory {

// The parse string of a .txt trajectory: GPS time, position, roll, pitch, yaw.
inline constexpr std::string_view TrajectoryParse =
    "Positions:point:1+2+3,GPSTime:double:0,Roll:double:4,Pitch:double:5,Yaw:double:6";
inline constexpr std::string_view GeoReferenceFailed = "convertTrajectory2Z9: could not initialise GeoReferenceSystem";
inline constexpr std::string_view UnknownExtension = "convertTrajectory2Z9: unknown file extension: ";
inline constexpr std::string_view LayoutDoesNotFit =
    "parseFilenameForGeoDatum: QVT Parse layout for trajectory does not fit: ";
inline constexpr std::string_view AttributeMismatch = "addAttributeToGrid:: Different ";
inline constexpr std::string_view AttributeMismatchEnd = "! cannot merge file.";
inline constexpr std::string_view WeekDayLegend = " (Sun=0, Mo=1,Tu=2,We=3,Th=4,Fr=5,Sa=6)";

inline constexpr std::string_view TextExtension = ".txt";
inline constexpr std::string_view PofExtension = ".pof";
inline constexpr std::string_view PofxExtension = ".pofx";

// The attributes a trajectory file leaves in the grid.
inline constexpr std::string_view EPSGSpatialAttribute = "EPSG_SPATIAL";
inline constexpr std::string_view EPSGHeightAttribute = "EPSG_HEIGHT";
inline constexpr std::string_view WeekDayAttribute = "WeekDay";
inline constexpr std::string_view DateAttribute = "Date";
inline constexpr std::string_view ProjectAttribute = "NameOfProject";

}  // namespace Pallion::messages::trajectory
