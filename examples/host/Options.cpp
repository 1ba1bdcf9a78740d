#include "Options.hpp"

#include <algorithm>
#include <limits>
#include <sstream>

#include <CLI/CLI.hpp>

#include "HostMessages.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/convert/detail/LineReader.hpp"

namespace host {

std::optional<char> delimiterFromName(const std::string& name) {
    if (name == "tab" || name == "t" || name == "\\t" || name == "\t") return '\t';
    if (name == "comma") return ',';
    if (name == "semicolon") return ';';
    if (name == "space") return ' ';
    if (name.size() == 1) return name[0];
    return std::nullopt;
}

std::uint64_t judgedRows(const std::vector<std::string>& files, std::uint32_t headerLines) {
    std::uint64_t rows = 0;
    for (const std::string& name : files) {
        const std::uint64_t lines = Pallion::estimateLines(name, headerLines);
        if (lines != Pallion::UnknownLineCount) rows += lines;
    }
    return rows;
}

std::uint32_t blockSizeFor(std::uint64_t rows) {
    const std::uint64_t largest = Pallion::Parameter().ChunkSize;
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(rows + rows / 4 + 16, 1, largest));
}

CommandLine parseCommandLine(int argc, const char* const* argv) {
    namespace m = messages;
    CommandLine result;
    Options options;
    std::int64_t header = 0, epsg = 0, block = 0;
    std::string delimiter = "space";

    // Before the range check, so that "abc" is not called out of range.
    const CLI::Validator wholeNumber(
        [](std::string& text) -> std::string {
            const std::size_t digits = text.find_first_not_of("0123456789", text.rfind('-', 0) == 0 ? 1 : 0);
            return digits == std::string::npos && text != "-" && !text.empty()
                       ? std::string()
                       : "\"" + text + "\" is not a whole number";
        },
        "", "whole number");
    CLI::App app{std::string(m::Description), std::string(m::Program)};
    app.get_formatter()->column_width(26);
    app.add_option("--header", header, std::string(m::HeaderHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{std::numeric_limits<std::uint32_t>::max()}))
        ->capture_default_str();
    app.add_option("--delimiter", delimiter, std::string(m::DelimiterHelp))->capture_default_str();
    app.add_option("--block", block, std::string(m::BlockHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{Pallion::Parameter().ChunkSize}));
    app.add_option("--epsg", epsg, std::string(m::EpsgHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{std::numeric_limits<std::int32_t>::max()}));
    app.add_option("--parse", options.parse, std::string(m::ParseHelp))->capture_default_str();
    app.add_flag("--trajectory", options.trajectory, std::string(m::TrajectoryHelp));
    app.add_flag("--json", options.json, std::string(m::JsonHelp));
    app.add_option("--preview", options.preview, std::string(m::PreviewHelp))->type_name("FILE.png");
    app.add_option("files", options.files, std::string(m::FilesHelp))->required()->type_name("FILE");

    std::ostringstream out, err;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help answers on stdout with 0; a mistake on stderr with 2, named after the program.
        result.exitStatus = app.exit(e, out, err) == 0 ? 0 : 2;
        result.out = out.str();
        result.err = err.str().empty() ? std::string() : std::string(m::Prefix) + err.str();
        return result;
    }
    const auto named = delimiterFromName(delimiter);
    if (!named) {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + messages::fill(m::BadDelimiter, delimiter.c_str()) + '\n';
        return result;
    }
    if (options.trajectory && app.count("--block") > 0) {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + std::string(m::BlockWithTrajectory) + '\n';
        return result;
    }
    options.delimiter = *named;
    options.headerLines = static_cast<std::uint32_t>(header);
    if (app.count("--epsg") > 0) options.epsg = static_cast<std::int32_t>(epsg);
    if (app.count("--block") > 0) options.block = static_cast<std::uint32_t>(block);
    result.options = options;
    return result;
}

}  // namespace host
