// Every text of the Python package, in one place: what the module says about
// an argument it refuses before a conversion starts, and the texts of the
// package's .py files, which read them from the module.
#pragma once

#include <string_view>

namespace Pallion::Python::messages {

inline constexpr std::string_view NotAPath =
    "files: expected a path (str, bytes or os.PathLike), a file object with read() or fileno(), or a list of "
    "them, not %s";
inline constexpr std::string_view NoFiles = "files: the list is empty";
inline constexpr std::string_view NotAText = "%s: expected a str, not %s";
inline constexpr std::string_view NotAWholeNumber = "%s: expected a whole number, not %s";
inline constexpr std::string_view OutOfRange = "%s: %lld is outside %lld..%lld";
inline constexpr std::string_view UnknownDelimiter =
    "delimiter: \"%s\" is neither one character nor a name (tab, comma, semicolon, space, pipe, whitespace) nor "
    "\"auto\"";
inline constexpr std::string_view NotCallable = "progress: expected a callable or None, not %s";
inline constexpr std::string_view UnknownColumn = "usecols: \"%s\" is not among the names (%s)";
inline constexpr std::string_view ColumnWithoutNames = "usecols: \"%s\" names a column, but the table has no names";
inline constexpr std::string_view ByteRangePair =
    "byte_range: expected None or a tuple (begin, end) of whole numbers, end None for the file's end, not %s";
inline constexpr std::string_view ByteRangeFile =
    "byte_range: %s is not a regular uncompressed file; only such a file is read in part";
inline constexpr std::string_view HeaderWord = "header: expected a whole number, None, \"auto\" or \"infer\", not %s";
inline constexpr std::string_view BadLasScale =
    "las_scale: expected one positive number for x, y and z or three (sx, sy, sz), not \"%s\"";
// For the package's .py files, which take them from the module.
inline constexpr std::string_view UnequalCounts =
    "to_pandas: the fields hold different numbers of elements (%s); one DataFrame needs equal counts";
inline constexpr std::string_view FilesPerPartition = "files_per_partition: expected a whole number from 1 up, not %r";
inline constexpr std::string_view ByteRangeWithMaxRows = "byte_range: not with max_rows, which reads from the start";
inline constexpr std::string_view BlockSize =
    "blocksize: expected None, a whole number of bytes from 1 up or a size such as \"256MB\" or \"64 MiB\", not %r";
inline constexpr std::string_view NulInPath = "files: embedded null byte in %r";
inline constexpr std::string_view NoMatch = "files: no file matches the pattern %r";
inline constexpr std::string_view NotAFileObject =
    "files: %s is neither a path nor a file object; pass a path (str, bytes, os.PathLike), an object with read() "
    "or fileno(), or a list of them";
inline constexpr std::string_view NotANamedPath =
    "files: %s is no path; trajectory files are given by path (str, bytes, os.PathLike), whose name says what they "
    "hold";
inline constexpr std::string_view RowsPerBlock = "rows: expected a whole number from 1 up, not %r";
inline constexpr std::string_view NoOpen3d = "to_open3d: open3d is not installed (%s)";
inline constexpr std::string_view NoPositions = "to_open3d: the grid has no point field \"Positions\"";
inline constexpr std::string_view WrongExtension = "%s: the file's name ends in %s, not as %r does";
inline constexpr std::string_view NotWritable =
    "%s: only a grid that a conversion made can be written; this one was rebuilt from its arrays";

}  // namespace Pallion::Python::messages
