// Every text the text table converter gives back or notes, in one place.  A failure text
// begins with the name of the function that found the failure.
#pragma once

#include <string_view>

namespace Pallion::messages::convert {

// The parse string.
inline constexpr std::string_view ParseStringWrong = "\nparseUserInputToContainer: parse string wrong: ";
inline constexpr std::string_view ColumnNumberWrong = "parseUserInputToContainer: column number wrong: ";
inline constexpr std::string_view TypeNotSupported = "parseUserInputToContainer: type not supported: ";
// checkParseString: "... column \"-1\" is no column number (0 to 2147483647) in the entry
// \"P:double:-1\" of the parse string: P:double:-1"
inline constexpr std::string_view ColumnNotANumber = "parseUserInputToContainer: column \"";
inline constexpr std::string_view ColumnNotANumberEntry = "\" is no column number (0 to 2147483647) in the entry \"";
inline constexpr std::string_view ColumnNotANumberParse = "\" of the parse string: ";

// The reading loop.
inline constexpr std::string_view NoInputFiles = "Ascii2Z9::run: no input files";
inline constexpr std::string_view NoContainer = "Ascii2Z9::run: container typeid field-name and column-number";
inline constexpr std::string_view ChunkSizeZero = "Ascii2Z9::run: ChunkSize is 0: a block needs at least one row";
inline constexpr std::string_view CannotOpenFile = "Ascii2Z9::run: cannot open file: ";
inline constexpr std::string_view UserInterruption = "Ascii2Z9::run: user interruption";
// "... cannot read file: <name>: <why>", where a host's Source failed part-way.
inline constexpr std::string_view CannotReadFile = "Ascii2Z9::run: cannot read file: ";
inline constexpr std::string_view CannotReadWhy = ": ";
inline constexpr std::string_view ColumnIndexOutOfRange =
    "Ascii2Z9::run: User column index out of range: Highest Column Index: ";
inline constexpr std::string_view TokensInLine = ". Number of tokens in this line: ";
inline constexpr std::string_view ProgressReadLine = "Read line nr.:";
// A conversion into a host's blocks that meets more rows than they hold:
// "... more rows than the memory of block <n> holds: file: <name>"
inline constexpr std::string_view BlockMemoryFull = "Ascii2Z9::run: more rows than the memory of block ";
inline constexpr std::string_view BlockMemoryFullFile = " holds: file: ";
// "... of <limit> bytes: line <n> of file: <name>"
inline constexpr std::string_view LineTooLong = "Ascii2Z9::run: line longer than the line-size limit of ";
inline constexpr std::string_view LineTooLongAt = " bytes: line ";
inline constexpr std::string_view LineTooLongFile = " of file: ";
// A token refused by the whole-token check:
// "Ascii2Z9::run: not a number in full for int: \"12abc\" in column 3 of line 7 of file: a.txt;
//  it would be stored as 12"; for a value outside the type, "... out of range for uint8_t: ...";
// where the reading without the check throws, "...; the plain reading throws std::invalid_argument".
inline constexpr std::string_view TokenNotWhole = "Ascii2Z9::run: not a number in full for ";
inline constexpr std::string_view TokenOutOfRange = "Ascii2Z9::run: out of range for ";
inline constexpr std::string_view TokenQuote = ": \"";
inline constexpr std::string_view TokenColumn = "\" in column ";
inline constexpr std::string_view TokenLine = " of line ";
inline constexpr std::string_view TokenFile = " of file: ";
inline constexpr std::string_view TokenWouldBeStored = "; it would be stored as ";
inline constexpr std::string_view TokenPlainThrows = "; the plain reading throws std::";
inline constexpr std::string_view InvalidArgument = "invalid_argument";
inline constexpr std::string_view OutOfRange = "out_of_range";

// The settings as noted in a grid.
inline constexpr std::string_view SpeakDelimiter = "\nDelimiter: <";
inline constexpr std::string_view SpeakDelimiterEnd = "> ";
inline constexpr std::string_view SpeakHeaderLines = "\nHeaderLines: ";
inline constexpr std::string_view SpeakParse = "\nParse: ";
inline constexpr std::string_view SpeakChunkSize = "\nChunkSize: ";
inline constexpr std::string_view SpeakEPSG = "\nEPSG: ";
inline constexpr std::string_view SpeakEnd = " ";
inline constexpr std::string_view TextConverterName = "ascii2z9";

// Names in the grid.
inline constexpr std::string_view EPSGAttribute = "EPSG";

}  // namespace Pallion::messages::convert
