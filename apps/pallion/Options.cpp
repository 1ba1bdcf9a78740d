#include "Options.hpp"

#include <algorithm>
#include <limits>
#include <sstream>

#include <CLI/CLI.hpp>

#include "HostMessages.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/LasWriter.hpp"
#include "pallion/tools/Writers.hpp"

namespace host {

CommandLine parseCommandLine(int argc, const char* const* argv) {
    namespace m = messages;
    CommandLine result;
    Options options;
    std::int64_t epsg = 0, block = 0, maxLine = 0, threads = 0;
    std::string header = "auto", delimiter = "auto", comments = "auto", lasScale;
    bool decimalComma = false, decimalPoint = false;

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
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                if (text == "auto") return {};
                const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
                if (digits && text.size() <= 10 && std::stoull(text) <= std::numeric_limits<std::uint32_t>::max())
                    return {};
                return messages::fill(m::BadHeader, text.c_str());
            },
            "", "auto or whole number"))
        ->capture_default_str();
    app.add_option("--delimiter", delimiter, std::string(m::DelimiterHelp))->capture_default_str();
    app.add_option("--comments", comments, std::string(m::CommentsHelp))->capture_default_str()->type_name("PREFIX");
    app.add_flag("--decimal-comma", decimalComma, std::string(m::DecimalCommaHelp));
    app.add_flag("--decimal-point", decimalPoint, std::string(m::DecimalPointHelp));
    app.add_flag("--lenient", options.table.lenient, std::string(m::LenientHelp));
    app.add_option("--block", block, std::string(m::BlockHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{Pallion::DefaultChunkSize}));
    app.add_option("--threads", threads, std::string(m::ThreadsHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{1024}));
    app.add_option("--epsg", epsg, std::string(m::EpsgHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{std::numeric_limits<std::int32_t>::max()}));
    app.add_option("--parse", options.table.parse, std::string(m::ParseHelp))->capture_default_str();
    app.add_flag("--trajectory", options.trajectory, std::string(m::TrajectoryHelp));
    app.add_flag("--json", options.json, std::string(m::JsonHelp));
    app.add_option("--preview", options.preview, std::string(m::PreviewHelp))->type_name("FILE.png");
    app.add_option("-o,--output", options.output, std::string(m::OutputHelp))->type_name("FILE.ply|FILE.h5|FILE.las");
    app.add_option("--las-scale", lasScale, std::string(m::LasScaleHelp))
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                return Pallion::Tools::parseLasScale(text) ? std::string()
                                                           : messages::fill(m::BadLasScale, text.c_str());
            },
            "", ""))
        ->type_name("S|SX,SY,SZ");
    app.add_flag("--strict", options.strict, std::string(m::StrictHelp));
    app.add_option("--max-line", maxLine, std::string(m::MaxLineHelp))
        ->check(wholeNumber)
        ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()))
        ->type_name("BYTES");
    app.add_flag("-q,--quiet", options.quiet, std::string(m::QuietHelp));
    app.set_version_flag("--version", std::string(m::Program) + ' ' + PALLION_VERSION, std::string(m::VersionHelp));
    app.footer(std::string(m::Examples));
    app.add_option("files", options.table.files, std::string(m::FilesHelp))->required()->type_name("FILE");

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
    const auto named = Pallion::Tools::delimiterFromName(delimiter);
    if (!named && delimiter != "auto") {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + messages::fill(m::BadDelimiter, delimiter.c_str()) + '\n';
        return result;
    }
    if (options.trajectory && app.count("--block") > 0) {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + std::string(m::BlockWithTrajectory) + '\n';
        return result;
    }
    if (decimalComma && decimalPoint) {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + std::string(m::DecimalBoth) + '\n';
        return result;
    }
    if (delimiter != "auto") options.table.delimiter = *named;
    if (comments != "auto") options.table.comments = comments == "none" ? std::string() : comments;
    if (decimalComma || decimalPoint) options.table.decimalComma = decimalComma;
    if (header != "auto") options.table.headerLines = static_cast<std::uint32_t>(std::stoul(header));
    if (app.count("--epsg") > 0) options.table.epsg = static_cast<std::int32_t>(epsg);
    if (app.count("--block") > 0) options.table.block = static_cast<std::uint32_t>(block);
    options.table.threads = static_cast<unsigned>(threads);
    if (app.count("--max-line") > 0) options.table.lineSizeLimit = static_cast<std::uint64_t>(maxLine);
    if (!options.output.empty() &&
        Pallion::Tools::outputFormatOf(options.output) == Pallion::Tools::OutputFormat::Unknown) {
        result.exitStatus = 2;
        result.err = std::string(m::Prefix) + messages::fill(m::BadOutput, options.output.c_str()) + '\n';
        return result;
    }
    if (!lasScale.empty()) {
        if (Pallion::Tools::outputFormatOf(options.output) != Pallion::Tools::OutputFormat::Las) {
            result.exitStatus = 2;
            result.err = std::string(m::Prefix) + std::string(m::LasScaleWithoutLas) + '\n';
            return result;
        }
        options.lasScale = Pallion::Tools::parseLasScale(lasScale);
    }
    result.options = options;
    return result;
}

}  // namespace host
