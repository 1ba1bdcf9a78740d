// Every text the command-line host prints of its own, in one place.  The
// library's texts and exceptions are printed as they come, with these around them.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace host::messages {

// A text of this file with its printf conversions filled in.
template <class... Values>
std::string fill(std::string_view pattern, Values... values) {
    char text[512];
    std::snprintf(text, sizeof text, std::string(pattern).c_str(), values...);
    return text;
}

inline constexpr std::string_view Program = "pallion";
inline constexpr std::string_view Description =
    "Converts delimited text tables of points (or trajectory files with --trajectory) into the fields of a grid,\n"
    "and prints what the grid holds.";
inline constexpr std::string_view Prefix = "pallion: ";

// Options.
inline constexpr std::string_view HeaderHelp =
    "lines skipped at the head of every file; auto: one where the first line is not numbers or is a .pts point "
    "count, else none";
inline constexpr std::string_view BadHeader = "\"%s\" is neither auto nor a whole number from 0 to 4294967295";
inline constexpr std::string_view DelimiterHelp =
    "the byte between columns: one character, or tab (also t or \\t), comma, semicolon, space, pipe; auto: the "
    "one of blank, tab, comma, semicolon and | that gives the same column count on the first lines";
inline constexpr std::string_view BlockHelp =
    "rows per block (fragment); default: picked from the files' sizes, at most 10000000";
inline constexpr std::string_view EpsgHelp =
    "EPSG code of the coordinates, stored as the attribute EPSG; default: none, no attribute stored";
inline constexpr std::string_view ParseHelp =
    "which columns go to which field: Name:type:c0[+c1+c2],... with the types point, tvector, double, float, "
    "int, uint8_t, uint16_t, uint32_t, rgb; a column is a number counted from 0 or a header name; auto: fields "
    "from the header's names (X/Y/Z a point, R/G/B or Red/Green/Blue an rgb, NX/NY/NZ a tvector, Intensity a "
    "float, any other a double), the .pts columns, or else Positions:point:0+1+2";
inline constexpr std::string_view TrajectoryHelp =
    "read trajectory files (.txt, .pof, .pofx) named Project_Name_Number_Date_EPSGcode_EPSGcode, "
    "e.g. QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt";
inline constexpr std::string_view JsonHelp = "print a summary as JSON on stdout instead of the text summary";
inline constexpr std::string_view PreviewHelp =
    "write a top-down picture of the first point field to this PNG file, coloured by height or by the first rgb field";
inline constexpr std::string_view FilesHelp = "the files to convert, read in this order into the same fields";
inline constexpr std::string_view BadDelimiter =
    "--delimiter: \"%s\" is not one character nor one of auto, tab, t, \\t, comma, semicolon, space, pipe";
inline constexpr std::string_view BlockWithTrajectory =
    "--block cannot be used with --trajectory: trajectory files are read with the library's own block size";

// Failure context.
inline constexpr std::string_view StoppedByException = "conversion stopped by an exception: ";
inline constexpr std::string_view HintTrajectoryName =
    "hint: a trajectory file's stem has six pieces joined by '_': Project_Name_Number_Date_EPSGcode_EPSGcode,\n"
    "      e.g. QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt: Number a whole number, Date YYYYMMDD,\n"
    "      then the spatial and the height reference, each four letters and the code's digits";
inline constexpr std::string_view Interrupted = "stopped; the blocks read so far are kept";

// Preview.
inline constexpr std::string_view PreviewFailed = "--preview: ";
inline constexpr std::string_view NothingToDraw = "no point field with elements to draw";
inline constexpr std::string_view CannotWrite = "cannot write ";

// Progress.
inline constexpr std::string_view Reading = "reading";

}  // namespace host::messages
