// Every text the command-line host prints of its own, in one place.  The
// library's texts and exceptions are printed as they come, with these around them.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "pallion/tools/Messages.hpp"

namespace host::messages {

// A text of this file with its printf conversions filled in, as the host helpers fill theirs.
using Pallion::Tools::messages::fill;

inline constexpr std::string_view Program = "pallion";
inline constexpr std::string_view Description =
    "Converts delimited text tables of points (or trajectory files with --trajectory) into the fields of a grid,\n"
    "prints what the grid holds, and writes it to a PLY, HDF5 or LAS file with --output.  The delimiter, the header\n"
    "lines and the fields are guessed from the first lines of the first file where no option names them, and\n"
    "every guess is printed.  A pipe, a FIFO or standard input (-) is read once and nothing is guessed.";
inline constexpr std::string_view Prefix = "pallion: ";

// Options.
inline constexpr std::string_view HeaderHelp =
    "lines skipped at the head of every file; auto: one where the first line is mostly words or a .pts point "
    "count, else none";
inline constexpr std::string_view BadHeader = "\"%s\" is neither auto nor a whole number from 0 to 4294967295";
inline constexpr std::string_view DelimiterHelp =
    "the byte between columns: one character, or tab (also t or \\t), comma, semicolon, space, pipe; whitespace: "
    "any run of blanks and tabs, none at either end; auto: the one of these whose tokens are numbers with the same "
    "column count on the first lines (runs of blanks give whitespace)";
inline constexpr std::string_view CommentsHelp =
    "lines that begin with this prefix are skipped (none: no comment lines); auto: # or // where the first line "
    "begins with it, and a last comment line above the data with as many words as the data has columns names them";
inline constexpr std::string_view DecimalCommaHelp =
    "read ',' as the decimal separator (\"512,5\" as 512.5); guessed where (nearly) every comma of the first rows "
    "stands between digits and the delimiter is not a comma";
inline constexpr std::string_view DecimalPointHelp = "read ',' as no decimal separator, whatever the first rows hold";
inline constexpr std::string_view LenientHelp =
    "read tokens as the plain conversion does: a number followed by other bytes (\"3.5kg\", \"12abc\") is stored "
    "as its number and an integer out of its type's range wraps; the check of the first 1000 rows then warns of "
    "such tokens.  Without it, such a token stops the conversion with its file, line and column";
inline constexpr std::string_view BlockHelp =
    "rows per block, stored as one fragment of every field; default: picked from the files' sizes, at most 10000000";
inline constexpr std::string_view ThreadsHelp =
    "threads that convert one large regular file side by side, into the same grid as one thread; default 0: "
    "the machine's cores.  Standard input, pipes, compressed and small files are read by one thread";
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
    "write a top-down picture of the first point field to this PNG file, coloured by height or by the first rgb "
    "field; written as --output is";
inline constexpr std::string_view OutputHelp =
    "write the grid to this file after a conversion that read everything: .ply (binary PLY, one vertex per row: "
    "the point field as x y z, rgb as red green blue, tvector as nx ny nz, every scalar field a property), .h5 "
    "(HDF5: the whole grid, a group per field listing its fragments' datasets in order) or .las (LAS 1.4, point "
    "format 6 or 7 with rgb; standard dimensions from the field names, every other field as extra bytes; coordinates "
    "exact at their decimals, 8-bit colours as v*257), in any case (.PLY, .hdf5, .LAS); written under a temporary "
    "name and renamed when complete.  It may not be an input.  An existing file keeps its permissions and a symlink "
    "its target, which gets the new contents; a file with other hard links is refused, since the other names would "
    "keep the old contents";
inline constexpr std::string_view StrictHelp =
    "fail before converting where the check of the first 1000 rows (which a --lenient run always makes) finds a "
    "token that the standard conversion cuts short (\"11,5\" read as 11) or an integer out of its type's range (300 in "
    "a uint8_t stored as 44)";
inline constexpr std::string_view MaxLineHelp =
    "the longest line, in bytes, that is read before the conversion stops with a message (default: the library's, "
    "256 MiB)";
inline constexpr std::string_view QuietHelp =
    "print no guesses, warnings or progress bar; the summary and failures still";
inline constexpr std::string_view VersionHelp = "print the version and exit";
inline constexpr std::string_view BadOutput =
    "--output: \"%s\": the format is taken from the extension, which must be .ply, .h5, .hdf5 or .las (in any case)";
inline constexpr std::string_view LasScaleHelp =
    "the scale of a .las file's coordinates, one for x, y and z or three as SX,SY,SZ; default: 10^-d per axis, d the "
    "most decimals in its values, so that every coordinate reads back as written";
inline constexpr std::string_view BadLasScale = "\"%s\" is not one positive number nor three joined by commas";
inline constexpr std::string_view LasScaleWithoutLas = "--las-scale is for an --output file ending in .las";
inline constexpr std::string_view Examples =
    "Examples:\n"
    "  pallion points.txt                      guess the delimiter, header and fields, print a summary\n"
    "  pallion scan.pts --output scan.ply      a .pts file into a PLY file for a point viewer\n"
    "  cat a.txt | pallion - --output a.h5     standard input into an HDF5 file (nothing is guessed)\n"
    "  pallion --header 1 --delimiter comma --parse \"P:point:X+Y+Z,I:float:Intensity\" table.csv\n"
    "  pallion --delimiter whitespace --comments \"#\" aligned.txt\n"
    "  pallion --lenient --strict export.csv   the plain reading, refused where the first rows would be cut\n"
    "Exit status: 0 done, 1 a conversion or write failed, 2 a usage error, 130 stopped by Ctrl-C (SIGINT),\n"
    "143 by SIGTERM, 129 by SIGHUP; a stopped run writes no output file.";
inline constexpr std::string_view FilesHelp =
    "the files to convert, read in this order into the same fields; - is standard input";
inline constexpr std::string_view BadDelimiter =
    "--delimiter: \"%s\" is not one character nor one of auto, tab, t, \\t, comma, semicolon, space, pipe, "
    "whitespace";
inline constexpr std::string_view DecimalBoth = "--decimal-comma and --decimal-point cannot be used together";
inline constexpr std::string_view BlockWithTrajectory =
    "--block cannot be used with --trajectory: trajectory files are read with the library's own block size";

// Failure context.
inline constexpr std::string_view StoppedByException = "conversion stopped by an exception: ";
inline constexpr std::string_view HintTrajectoryName =
    "hint: a trajectory file's stem has six pieces joined by '_': Project_Name_Number_Date_EPSGcode_EPSGcode,\n"
    "      e.g. QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt: Number a whole number, Date YYYYMMDD,\n"
    "      then the spatial and the height reference, each four letters and the code's digits";
inline constexpr std::string_view Interrupted = "stopped; the blocks read so far are kept";
inline constexpr std::string_view StoppedBySignal = "stopped by signal %d before anything was written";

// Output files, checked before anything is read.
inline constexpr std::string_view OutputIsInput =
    "%s: %s is the input %s; writing it would destroy the input: choose another name";
inline constexpr std::string_view OutputIsPreview = "--output and --preview name one file, %s: choose two names";

// Pre-flight check.
inline constexpr std::string_view Warning = "warning: ";
inline constexpr std::string_view MoreWarnings = "... and %llu more such token(s) in the first %llu row(s)";
inline constexpr std::string_view StrictNotChecked =
    "--strict: %s is not a regular file and is not read ahead: none of its rows were checked";
inline constexpr std::string_view StrictRefused =
    "--strict: the first rows hold tokens that the conversion would store otherwise than written; nothing was "
    "converted";

// Summary.
inline constexpr std::string_view PartialSummary =
    "partial: the conversion stopped; this is what was read before it stopped";
inline constexpr std::string_view NoFragment = "(no fragment)";

// Preview.
inline constexpr std::string_view PreviewFailed = "--preview: ";
inline constexpr std::string_view NothingToDraw = "no point field with elements to draw";
inline constexpr std::string_view PngFailed = "the PNG library failed to write the picture";

// Progress.
inline constexpr std::string_view Reading = "reading";

}  // namespace host::messages
