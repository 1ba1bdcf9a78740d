// Every text the host helpers make, in one place: the context of a failure
// and its hints.  A hint names the option that mends the cause in the words
// of the host that shows it (a command-line option or a keyword argument).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace Pallion::Tools::messages {

// A text of this file with its printf conversions filled in.
template <class... Values>
std::string fill(std::string_view pattern, Values... values) {
    const std::string format(pattern);
    std::string text(static_cast<std::size_t>(std::snprintf(nullptr, 0, format.c_str(), values...)), '\0');
    std::snprintf(text.data(), text.size() + 1, format.c_str(), values...);
    return text;
}

// Failure context.
// What the rows of ranges converted side by side are reported as.
inline constexpr std::string_view RangesProgress = "Read line nr.:";
inline constexpr std::string_view AtFile = "  file:  ";
inline constexpr std::string_view AtLine = "  line:  ";
inline constexpr std::string_view TheLine = "  text:  ";
inline constexpr std::string_view TokenFailed = "  token: column %u, \"%s\": %s";
inline constexpr std::string_view TokensMissing =
    "  the line has %zu token(s) split at %s; the parse string reads column %u, so it needs %u";
inline constexpr std::string_view NotA = "not a ";
inline constexpr std::string_view OutOfRangeFor = "out of range for a ";
inline constexpr std::string_view WholeNumberKind = "32-bit whole number";
// Where the conversion's failure texts (a refused token, a line too long) name
// a line: the number that a conversion of a byte range counts from the
// range's first line, and the host makes absolute.
inline constexpr std::string_view LineOfFile = "line %llu of file: %s";

// Hints; %s is the option in the host's own words.
inline constexpr std::string_view HintBom =
    "hint: the file begins with a UTF-8 byte order mark (EF BB BF); save it without one, or skip the first line "
    "with %s";
inline constexpr std::string_view HintHeader = "hint: the first line looks like a header; skip it with %s";
inline constexpr std::string_view HintDelimiter =
    "hint: the line is one token with this delimiter; with %s it splits into %zu";
inline constexpr std::string_view HintEmptyAtEnd =
    "hint: the file ends with an empty line, and an empty line ends the conversion: remove it";
inline constexpr std::string_view HintEmptyLine = "hint: an empty line ends the conversion; no line is ever skipped";
inline constexpr std::string_view HintCannotOpen = "hint: %s: %s";
inline constexpr std::string_view IsADirectory = "is a directory";
inline constexpr std::string_view HintLineLimit =
    "hint: a longer line is read with %s BYTES; a file without line ends (or /dev/zero) is one endless line";
inline constexpr std::string_view HintEmptyToken =
    "hint: two delimiters in a row make an empty token; blanks are not merged";

// What was guessed, one line each; the last word in brackets says from what.
inline constexpr std::string_view GuessedDelimiter = "delimiter: %s (guessed: %zu columns on every sampled line)";
inline constexpr std::string_view GuessedDelimiterMost = "delimiter: %s (guessed: %zu columns on most sampled lines)";
inline constexpr std::string_view GuessedDelimiterNone = "delimiter: space (guessed: no delimiter splits the lines)";
inline constexpr std::string_view GuessedHeader = "header lines: 1 (guessed: the first line is words, not numbers)";
inline constexpr std::string_view GuessedPointCount = "header lines: 1 (guessed: a point count, as .pts files begin)";
inline constexpr std::string_view GuessedNoHeader = "header lines: 0 (guessed: the first line is mostly numbers)";
inline constexpr std::string_view ParseFromNames = "parse: %s (from the header's names)";
inline constexpr std::string_view ParseForPts = "parse: %s (the .pts columns)";
inline constexpr std::string_view ParseDefault = "parse: %s (columns without names: a point from the first three)";
inline constexpr std::string_view ParseColumns =
    "parse: %s (columns without names: a point from the first three, then a double field ColumnN for each further "
    "column N, counted from 0)";
inline constexpr std::string_view GuessedWhitespace =
    "delimiter: whitespace (guessed: %zu columns split at runs of blanks and tabs on %s)";
inline constexpr std::string_view GuessedComments = "comments: %s (guessed: the first lines begin with it)";
inline constexpr std::string_view GuessedDecimalComma =
    "decimal comma: yes (guessed: numbers such as \"%s\" hold one comma each between digits)";
inline constexpr std::string_view GuessedHeaderAt =
    "header lines: %u (guessed: line %u is words, not numbers; the lines above it are comments or empty)";
inline constexpr std::string_view GuessedCommentNames =
    "header lines: 0 (guessed: the comment on line %u gives the names of the %zu columns)";
inline constexpr std::string_view NamesMadeUnique = "names: %s (a name given twice gets .1, .2 behind it)";
inline constexpr std::string_view OtherColumnCount = "line %u has %zu columns where the others have %zu: %s";
inline constexpr std::string_view ExtraColumnsIgnored = "the columns beyond the named ones are not read";
inline constexpr std::string_view FewerColumnsFail = "the conversion stops there if it needs a missing column";
inline constexpr std::string_view ParseNamesReplaced = "parse: %s (header names as column numbers)";
inline constexpr std::string_view NotReadAhead =
    "%s is not a regular file and is not read ahead: nothing guessed (delimiter %s, header lines %u, parse %s)";

// Options that cannot be used.
inline constexpr std::string_view NameNotInHeader =
    "parse string: column \"%s\" of the entry \"%s\" is not a name in the header; the header's names: %s";
inline constexpr std::string_view NameWithoutHeader =
    "parse string: column \"%s\" of the entry \"%s\" is a name, but %s has no header line to find it in";
inline constexpr std::string_view NameNotReadAhead =
    "parse string: column \"%s\" of the entry \"%s\" is a name, but %s is not a regular file and is not read "
    "ahead for its header; give column numbers";
inline constexpr std::string_view WideBom =
    "%s begins with a %s byte order mark: it is not 8-bit text; save it as UTF-8 (without a byte order mark) or "
    "ASCII";
inline constexpr std::string_view CannotRead = "cannot read %s: %s";
// Why a compressed file could not be read, where the decompressor gives no word.
inline constexpr std::string_view CompressedUnknown = "the compressed stream could not be read";
inline constexpr std::string_view CompressedMoreMembers = "the zip archive holds more than one member";
inline constexpr std::string_view GzipTruncated = "truncated gzip input";
inline constexpr std::string_view GzipDamaged = "the gzip data is damaged";
inline constexpr std::string_view ZstdTruncated = "truncated zstd input";
inline constexpr std::string_view FieldTwice =
    "parse string: the field \"%s\" is named by two entries (\"%s\" and \"%s\"); give each field its own name";
inline constexpr std::string_view HeaderCountDiffers =
    "%s: the header (line %u) has %zu name(s), but the data has %zu column(s) (line %u); a header must name "
    "every column";
inline constexpr std::string_view CrOnlyLineEnds =
    "%s has CR-only line ends (a carriage return without a line feed): the whole file would be one line; "
    "convert the line ends to LF or CRLF";

// Every file of a list is held against the first, before anything is read.
inline constexpr std::string_view OtherHeaderNames =
    "%s: the header names %s, but the first file %s names %s; every file must have the first file's header";
inline constexpr std::string_view OtherHeaderOrder =
    "%s: the header names the columns of the first file %s in another order (%s); columns are not mapped by "
    "name: write the columns in one order, or convert the files apart";
inline constexpr std::string_view OtherHeaderMissing =
    "%s: line %u is data, but the first file %s has a header there (%s); every file must have the first file's "
    "header";
inline constexpr std::string_view OtherHeaderExtra =
    "%s: line %u is words (%s), but the first file %s has no header there; every file must be written as the first";
inline constexpr std::string_view OtherColumns =
    "%s: the data has %zu column(s) (line %u), but the first file %s has %zu; every file must have as many";

// Output files.
inline constexpr std::string_view CannotWriteFile = "cannot write %s: %s";
inline constexpr std::string_view UnknownFormat =
    "cannot write %s: the format is taken from the extension, .ply, .h5 or .las";
inline constexpr std::string_view NoHdf5 =
    "cannot write %s: this build has no HDF5 (libhdf5-dev); build it again with it";
inline constexpr std::string_view NoPointField = "cannot write %s: no point field to give x, y, z";
inline constexpr std::string_view CountsDiffer =
    "cannot write %s: a PLY vertex takes one element of every field, but the fields' element counts differ: %s";
inline constexpr std::string_view BlockFieldsDiffer =
    "cannot write %s: a block does not hold the fields of the first block, in their order and types";
inline constexpr std::string_view Hdf5Failed = "HDF5 failed to %s";  // after "cannot write FILE: "
inline constexpr std::string_view StoppedBySignal = "cannot write %s: stopped by signal %d; nothing was written";
inline constexpr std::string_view IsAFolder = "cannot write %s: it is a folder";
inline constexpr std::string_view HardLinks =
    "cannot write %s: it has %llu hard links, and a new file under one name would leave the others with the old "
    "contents; remove the other links, or write to another name";
inline constexpr std::string_view FolderProblem = "cannot write %s: the folder %s: %s";
inline constexpr std::string_view BadHdf5Name =
    "cannot write %s: the field name \"%s\" cannot be an HDF5 group name (%s); rename it in the parse string";
inline constexpr std::string_view Hdf5NameSlash = "it holds a '/'";
inline constexpr std::string_view Hdf5NameDot = "it is empty or \".\"";
inline constexpr std::string_view Hdf5NameNotes = "the group \"notes\" holds the grid's notes";

// LAS output; %c is the axis, the numbers are printed as they are stored.
inline constexpr std::string_view LasCountsDiffer =
    "cannot write %s: a LAS point record takes one element of every field, but the fields' element counts differ: %s";
inline constexpr std::string_view LasNotFinite = "cannot write %s: %c of point %llu is %s; a LAS coordinate is finite";
inline constexpr std::string_view LasOutOfDimension =
    "cannot write %s: field %s, element %llu, is %s; the LAS dimension %s holds %s";
inline constexpr std::string_view LasTooWide =
    "cannot write %s: %c spans %s to %s; at the scale %s (the most decimals in the values, %d) that is %s steps, "
    "more than the 2147483647 of a LAS coordinate; %s %s fits, rounding %c by up to %s";
inline constexpr std::string_view LasTooWideAtAnyDecimals =
    "cannot write %s: %c spans %s to %s, more than 2147483647 steps of a LAS coordinate at any scale from 1 to "
    "1e-09; %s %s fits, rounding %c by up to %s";
inline constexpr std::string_view LasTooWideAtScale =
    "cannot write %s: %c spans %s to %s; at the scale %s that is %s steps, more than the 2147483647 of a LAS "
    "coordinate";
inline constexpr std::string_view LasRounded = "%s: %c is stored at the scale %s, which rounds it by up to %s";
inline constexpr std::string_view LasManyDecimals =
    "%s: %c holds values with more than 9 decimals; stored at the scale %s, rounded by up to %s";
inline constexpr std::string_view LasScanAngleRounded =
    "%s: ScanAngle is stored in steps of 0.006 degrees, which round the field %s by up to %s degrees";
inline constexpr std::string_view LasNoProj =
    "%s: this build has no PROJ (libproj-dev): EPSG:%lld is stored as a GeoTIFF key, without WKT";
inline constexpr std::string_view LasUnknownEpsg =
    "%s: EPSG:%lld is not in PROJ's database: stored as a GeoTIFF key, without WKT";
inline constexpr std::string_view LasEpsgNotStored =
    "%s: EPSG:%lld is neither in PROJ's database nor a GeoTIFF key (1 to 65535): the file names no coordinate system";
inline constexpr std::string_view LasTooManyExtras =
    "cannot write %s: the extra fields take %zu bytes a point, more than a LAS point record holds";
inline constexpr std::string_view IntensityRange = "whole numbers from 0 to 65535";
inline constexpr std::string_view FourBitRange = "whole numbers from 0 to 15";
inline constexpr std::string_view ByteRange = "whole numbers from 0 to 255";
inline constexpr std::string_view AngleRange = "degrees from -180 to 180";
inline constexpr std::string_view AnyFinite = "finite numbers";

// Reading the grid back.
inline constexpr std::string_view SharedFragmentName =
    "field %s: the fragment name \"%s\" is stored %zu times (a file's name with its block number glued on, "
    "as a11 block 0 and a1 block 10 both give a110); the rows stay in file order here, but a grid library that "
    "keeps one array per name would let the later block replace the earlier: rename a file or change the block size";

// Pre-flight check.
inline constexpr std::string_view CutShort =
    "%s, line %llu, column %u: \"%s\" is read as %s; the standard conversion stops where the number ends";
inline constexpr std::string_view OutOfRange =
    "%s, line %llu, column %u: %s is out of range for %s and is stored as %s";

}  // namespace Pallion::Tools::messages
