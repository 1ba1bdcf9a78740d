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
// checkTrajectoryName: which piece of a name fails, and the layout it must have.
inline constexpr std::string_view NameLayout =
    "; the layout is six pieces parted by underscores: anything_project_fileNumber_date_xxxxEPSG_xxxxEPSG "
    "(the last two: four characters, then the EPSG code of the spatial and of the height reference)";
inline constexpr std::string_view NamePieceCount = "parseFilenameForGeoDatum: the name \"";
inline constexpr std::string_view NamePieceCountHas = "\" has ";
inline constexpr std::string_view NamePieceCountEnd = " pieces, not six";
inline constexpr std::string_view NamePiece = "parseFilenameForGeoDatum: piece ";
inline constexpr std::string_view NamePieceOf = " of the name \"";
inline constexpr std::string_view NamePieceIs = "\", \"";
inline constexpr std::string_view NamePieceNoNumber = "\", is no number from -2147483648 to 2147483647";
inline constexpr std::string_view NamePieceNoNumberAfter = " behind its first four characters";
inline constexpr std::string_view NamePieceNoDate = "\", is no date: ";
inline constexpr std::string_view FileNumberPiece = " (the file number)";
inline constexpr std::string_view DatePiece = " (the date)";
inline constexpr std::string_view SpatialPiece = " (the EPSG code of the spatial reference)";
inline constexpr std::string_view HeightPiece = " (the EPSG code of the height reference)";
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
