// The arguments of a table conversion, as the package's .py files hand them
// on, checked and turned into the shared table options.  Paths arrive as
// bytes, already expanded (~, patterns) by the package.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include <pybind11/pybind11.h>

#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/TableOptions.hpp"

namespace Pallion::Python {

struct TableCall {
    Tools::TableOptions options;
    bool autoParse = true;                                          // the parse string is to be built from names
    bool strict = true;                                             // every token whole, refused otherwise
    bool whitespace = false;                                        // runs of blanks and tabs separate
    std::string comments;                                           // a prefix of lines to skip; empty: none
    std::vector<std::string> names;                                 // the columns' names of a headerless table
    std::vector<std::variant<std::uint32_t, std::string>> usecols;  // columns picked, by number or name
};

std::vector<std::string> pathsOf(const pybind11::handle& files);

TableCall tableCall(const pybind11::handle& files, const pybind11::handle& parse, const pybind11::handle& delimiter,
                    const pybind11::handle& header, const pybind11::handle& skiprows, const pybind11::handle& block,
                    const pybind11::handle& epsg, const pybind11::handle& comments, const pybind11::handle& names,
                    const pybind11::handle& usecols, bool strict);

// The threads a conversion may use: None, the machine's cores (0); else a whole number from 0 to 1024.
unsigned threadsOf(const pybind11::handle& threads);

// Fits the resolved options to what the call names: the given names stand
// for a header's, and picked columns make the parse string (one double field
// per column, under its name, or "column<n>" where the table has none).
void applyNames(const TableCall& call, Tools::Resolved& resolved);

// Whether `file` can be read in part: a regular file whose name announces no
// compression.
bool readableInPart(const std::string& file);

// The byte range of every file that `byteRange` names: None (the whole
// files), or (begin, end) with end None for the file's end.  Only regular,
// uncompressed files are read in part; others are refused (ValueError).
void applyByteRange(TableCall& call, const pybind11::handle& byteRange);

// The readings the call names, set on the filled Parameter: whole tokens as
// `strict` says; whitespace, comment lines and skipped empty lines only where
// named, so that what was guessed for them stays.
void applyReading(const TableCall& call, Parameter& parameter);

}  // namespace Pallion::Python
