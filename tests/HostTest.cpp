// The command-line host: its options, the guesses, the failure context and hints, its summary, picture and runs.
#include <gtest/gtest.h>

#include <fstream>

#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include "Options.hpp"
#include "Summary.hpp"
#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"
#include "pallion/tools/FailureContext.hpp"
#include "pallion/tools/Lines.hpp"
#include "pallion/tools/OutputFile.hpp"
#include "pallion/tools/Sniff.hpp"
#include "pallion/tools/Writers.hpp"

namespace {

host::CommandLine commandLine(std::vector<std::string> words) {
    words.insert(words.begin(), "pallion");
    std::vector<const char*> argv;
    for (const auto& word : words) argv.push_back(word.c_str());
    return host::parseCommandLine(static_cast<int>(argv.size()), argv.data());
}

// Converts `files` as the host would and gives what it prints about the failure.
std::string failureOf(Pallion::Tools::TableOptions options) {
    Tessel::Grid grid;
    Pallion::Parameter p;
    options.block = 2;
    Pallion::Tools::fillParameter(p, options, Pallion::Tools::resolveOptions(options), std::nullopt);
    p.SkipEmptyLines = p.WholeTokens = false;  // the hints of the plain reading
    try {
        const std::string result = Pallion::ascii2z9(grid, p);
        return result + '\n' + Pallion::Tools::describeFailure(p).text();
    } catch (const std::exception& e) {
        return std::string(e.what()) + '\n' + Pallion::Tools::describeFailure(p).text();
    }
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(HostOptions, HelpOnStdoutAndEveryMistakeNamedWithItsRange) {
    const auto help = commandLine({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_TRUE(has(help.out, "--parse TEXT=auto"));
    // The bounds are the library's: at least one row, at most its default block.
    for (const auto& [words, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--block", "10000001", "f"}, "--block"},
             {{"--block", "0", "f"}, "--block"},
             {{"--header", "-1", "f"}, "--header: \"-1\" is neither auto nor a whole number"},
             {{"--block", "abc", "f"}, "pallion: --block: \"abc\" is not a whole number"},
             {{"--trajectory", "--block", "5", "f"}, "--block cannot be used with --trajectory"},
             {{"--delimiter", "", "f"}, "--delimiter: \"\" is not one character"},
             {{"--delimiter", "commas", "f"}, "--delimiter: \"commas\" is not one character"},
             {{"--decimal-comma", "--decimal-point", "f"}, "--decimal-comma and --decimal-point cannot be used"},
         }) {
        const auto refused = commandLine(words);
        EXPECT_EQ(refused.exitStatus, 2) << message;
        EXPECT_TRUE(has(refused.err, message)) << refused.err;
    }
    for (const auto& [name, want] : std::vector<std::pair<std::string, char>>{
             {"\\t", '\t'}, {"semicolon", ';'}, {"|", '|'}, {"whitespace", Pallion::Tools::WhitespaceDelimiter}})
        EXPECT_EQ(commandLine({"--delimiter", name, "f"}).options->table.delimiter, want) << name;
    const auto good = commandLine({"--header", "1", "a", "b"});
    ASSERT_TRUE(good.options);
    EXPECT_FALSE(good.options->table.lenient || good.options->table.comments || good.options->table.decimalComma);
    const auto named = commandLine({"--lenient", "--comments", "none", "--decimal-point", "a"});
    ASSERT_TRUE(named.options);
    EXPECT_TRUE(named.options->table.lenient);
    EXPECT_EQ(named.options->table.comments, "");
    EXPECT_EQ(named.options->table.decimalComma, false);
    EXPECT_EQ(good.options->table.files, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(good.options->table.headerLines, 1u);
}

TEST(HostOptions, BlockSizeFollowsTheFilesAndStaysWithinTheLibrarysDefault) {
    testsupport::TempDir dir;
    const auto small = dir.write("small.txt", "1 2 3\n4 5 6\n7 8 9\n");
    const auto smallBlock = Pallion::Tools::blockSizeFor(*Pallion::Tools::judgedRows({small}));
    EXPECT_TRUE(smallBlock >= 3u && smallBlock < 64u) << smallBlock;
    EXPECT_EQ(Pallion::Tools::blockSizeFor(std::uint64_t{1} << 40), 10'000'000u);
    // One outlying first line does not decide: 1 MB of it above 100000 short rows.
    std::string rows = std::string(1'000'000, '7') + '\n';
    for (int i = 0; i < 100'000; ++i) rows += "1 2 3\n";
    const auto judged = Pallion::Tools::judgedRows({dir.write("outlier.txt", rows)});
    EXPECT_TRUE(*judged > 100'000u && *judged < 400'000u) << *judged;
    // A FIFO among the files is not measured (the host's FIFO run checks the block it then gets).
    const auto fifo = (dir.path() / "fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(Pallion::Tools::judgedRows({small, fifo}));
    // A byte range's block is judged from its share of the bytes, not from the whole file's rows.
    Pallion::Tools::TableOptions options;
    options.files = {dir.write("even.txt", rows.substr(1'000'001))};
    options.rangeBegin = 150'000;
    options.rangeEnd = 300'000;
    Pallion::Parameter p;
    Pallion::Tools::fillParameter(p, options, Pallion::Tools::namedOptions(options),
                                  Pallion::Tools::judgedRows(options.files));
    EXPECT_TRUE(p.ChunkSize > 25'000u && p.ChunkSize < 40'000u) << p.ChunkSize;
    EXPECT_EQ(p.RangeBegin, 150'000u);
    EXPECT_EQ(p.RangeEnd, 300'000u);
}

// What the first lines of a table make of the options left to guess, and what a named option keeps.
TEST(HostSniff, DelimiterHeaderAndFieldsFromTheFirstLines) {
    testsupport::TempDir dir;
    struct Case {
        std::string content;
        char wantDelimiter;
        std::uint32_t wantHeader;
        std::string wantParse;                                            // or the start of the failure
        std::string delimiter = "auto", header = "auto", parse = "auto";  // as named
    };
    const std::string xyz = "Positions:point:0+1+2";
    const std::vector<Case> cases = {
        {"1 2 3\n4 5 6\n", ' ', 0, xyz},
        {"1,5;2\n3,5;4\n", ';', 0, xyz},
        {"x;y;z\n512348,123;5403210,456;312,5\n", ';', 1, xyz},
        {"a\tb\tc\td\n1\t2\t3\t4\n", '\t', 1, "a:double:0,b:double:1,c:double:2,d:double:3"},
        {"1|2|3\n", '|', 0, xyz},
        {"\"Red\",\"Green\",\"X\",\"Y\",\"Blue\",\"Z\"\n0,0,1.5,2.5,0,3.5\n", ',', 1,
         "Positions:point:2+3+5,Colours:rgb:0+1+4"},
        {"X,Y,Z,Intensity,ReturnNumber,nx,NY,Nz,R,G,B\n1,2,3,4,5,6,7,8,9,10,11\n", ',', 1,
         "Positions:point:0+1+2,Colours:rgb:8+9+10,Normals:tvector:5+6+7,Intensity:float:3,ReturnNumber:double:4"},
        // .pts: a point count, then x y z with intensity, colours, or both.
        {"2\n1 2 3 9\n4 5 6 9\n", ' ', 1, xyz + ",Intensity:float:3"},
        {"1\n1 2 3 9 8 7\n", ' ', 1, xyz + ",Colours:rgb:3+4+5"},
        {"1\r\n1 2 3 5 9 8 7\r\n", ' ', 1, xyz + ",Intensity:float:3,Colours:rgb:4+5+6"},
        {"3\n1 2 3 9\n", ' ', 1, xyz + ",Intensity:float:3", "auto", "1"},
        {"Z, Y, X\n\n\n\n1 , 2 , 3\n", ',', 4, "Positions:point:2+1+0", "comma", "4"},
        // What the user names stays, and names in the parse string become numbers.
        {"x y z\n1 2 3\n", ',', 0, "P:point:0+1+2", "comma", "0", "P:point:0+1+2"},
        {"east,north,up\n1,2,3\n", ',', 1, "P:point:1+0+2", "auto", "auto", "P:point:north+east+UP"},
        {"east,north,up\n1,2,3\n", ',', 1,
         "parse string: column \"h\" of the entry \"P:point:north+east+h\" is not a name in the header; "
         "the header's names: east, north, up",
         "auto", "auto", "P:point:north+east+h"},
        {"1 2 3\n", ' ', 0, "parseUserInputToContainer: column \"4294967296\" is no column number", "auto", "auto",
         "P:double:4294967296"},
        {"\xFF\xFE 1 2\n", ' ', 0, "t.txt begins with a UTF-16 LE byte order mark"},
    };
    for (const Case& c : cases) {
        Pallion::Tools::TableOptions options;
        options.files = {dir.write("t.txt", c.content)};
        if (c.delimiter != "auto") options.delimiter = Pallion::Tools::delimiterFromName(c.delimiter);
        if (c.header != "auto") options.headerLines = static_cast<std::uint32_t>(std::stoul(c.header));
        options.parse = c.parse;
        const auto resolved = Pallion::Tools::resolveOptions(options);
        if (!resolved.failure.empty()) {
            EXPECT_TRUE(has(resolved.failure, c.wantParse)) << c.content << ": " << resolved.failure;
            continue;
        }
        EXPECT_EQ(resolved.delimiter, c.wantDelimiter) << c.content;
        EXPECT_EQ(resolved.headerLines, c.wantHeader) << c.content;
        EXPECT_EQ(resolved.parse, c.wantParse) << c.content;
        // What was left to guess is told, one line each; what was named is not.
        const auto told = [&](const std::string& start) {
            return std::ranges::any_of(resolved.guessed, [&](const auto& line) { return line.starts_with(start); });
        };
        EXPECT_EQ(told("delimiter: "), c.delimiter == "auto") << c.content;
        EXPECT_EQ(told("header lines: "), c.header == "auto") << c.content;
    }
}

TEST(HostFailure, FileLineTokenAndHintsForTheCommonCauses) {
    testsupport::TempDir dir;
    Pallion::Tools::TableOptions options;
    options.headerLines = 1;
    options.parse = "Positions:point:0+1+2";
    options.files = {dir.write("a.txt", "x y z\n1 2 3\n4 5 6\n7 8 9\n"),
                     dir.write("b.txt", "x y z\n1 2 3\n4 5 6\n7 abc 9\n1 2 3\n")};
    const std::string exception = failureOf(options);
    EXPECT_TRUE(has(exception, "file:  " + options.files[1] + "\n  line:  4\n  text:  7 abc 9\n")) << exception;
    EXPECT_TRUE(has(exception, "token: column 1, \"abc\": not a double")) << exception;

    options.headerLines = 0;
    options.delimiter = ' ';
    // A long failing line is read again only in part, and shown cut with its length.
    const std::string longLine = "1 2 " + std::string(3'000'000, '7') + "x\n";
    EXPECT_EQ(Pallion::Tools::lineOf(dir.write("long.txt", longLine), 1).line.size(), 64u * 1024);
    for (const auto& [content, part] : std::vector<std::pair<std::string, std::string>>{
             {"1 2 3\n4 5\n",
              "line:  2\n  text:  4 5\n  the line has 2 token(s) split at space; the parse string reads column 2"},
             {longLine, "7777... (3000005 bytes)\n  token: column 2"},
             {std::string("\xEF\xBB\xBF") + "1 2 3\n", "hint: the file begins with a UTF-8 byte order mark"},
             {"east north height\n1 2 3\n", "hint: the first line looks like a header; skip it with --header 1"},
             {"1;2;3\n",
              "hint: the line is one token with this delimiter; with --delimiter semicolon it splits into 3"},
             {"1 2 3\n4 5 6\n\n", "hint: the file ends with an empty line"},
             {"1 2 3\n\n4 5 6\n", "hint: an empty line ends the conversion"},
             {"1 2  3\n", "hint: two delimiters in a row make an empty token"},
             {"1 2 3\n4 5 x\n", ""},  // a plain bad number gets no hint
         }) {
        options.files = {dir.write("t.txt", content)};
        const std::string failure = failureOf(options);
        EXPECT_TRUE(part.empty() ? !has(failure, "hint:") : has(failure, part)) << failure.substr(0, 400);
    }
}

TEST(HostFailure, ARangeTellsTheLineOfTheWholeFile) {
    // Every range that holds the bad line, begun on any byte before it (inside
    // the header, on a CR, on a line feed), names the line as the whole file does.
    testsupport::TempDir dir;
    const std::string table = "x y z\r\n1 2 3\r\n40 50 60\r\n7 8 9\n";
    for (const auto& [bad, limit, line] : std::vector<std::tuple<std::string, std::uint64_t, std::uint64_t>>{
             {"1 2 3x\n", 0, 5},
             {"1 2 " + std::string(40, '3') + "\n", 30, 5},
         }) {
        const std::string file = dir.write("r.txt", table + bad + "4 5 6\n");
        const std::string expected = "line " + std::to_string(line) + " of file: " + file;
        for (std::uint64_t begin = 0; begin <= table.size(); ++begin) {
            Pallion::Tools::TableOptions options;
            options.files = {file};
            options.headerLines = 1;
            options.delimiter = ' ';
            options.parse = "Positions:point:0+1+2";
            options.rangeBegin = begin;
            if (limit) options.lineSizeLimit = limit;
            Tessel::Grid grid;
            Pallion::Parameter p;
            Pallion::Tools::fillParameter(p, options, Pallion::Tools::resolveOptions(options), std::nullopt);
            p.WholeTokens = true;
            std::string failure = Pallion::ascii2z9(grid, p);
            Pallion::Tools::countLinesFromFileStart(p, failure, Pallion::Tools::linesBeforeRange(file, begin));
            EXPECT_EQ(p.Failure.Line, line) << begin;
            EXPECT_TRUE(has(failure, expected)) << begin << ": " << failure;
            if (limit == 0) {
                EXPECT_EQ(Pallion::Tools::describeFailure(p).line, bad.substr(0, bad.size() - 1)) << begin;
            }
        }
    }
}

TEST(HostSummary, JsonReadsBackWithFieldsFragmentsRangesAndAttributes) {
    testsupport::TempDir dir;
    Tessel::Grid grid;
    // Bytes that are not UTF-8 in a field name still give JSON, which says that it replaced them.
    auto p = testsupport::tableParameter({dir.write("pts.txt", "1 5 0.2 \"a\"\n3 4 7 x\n2 6 0.5 y\n")},
                                         "P:point:0+1+2,H\xff\xfe:float:2", 2);
    p.EPSG = 31467;
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    const auto json = nlohmann::json::parse(host::jsonSummary(grid, host::RunReport{}));
    ASSERT_EQ(json["fields"].size(), 2u);
    const auto& points = json["fields"][0];
    EXPECT_EQ(points["elements"], 3);
    EXPECT_EQ(points["fragments"][1], (nlohmann::json{{"name", "pts1"}, {"elements", 1}}));
    EXPECT_EQ(points["min"], (std::vector<double>{1, 4, 0.2}));
    EXPECT_EQ(points["max"], (std::vector<double>{3, 6, 7}));
    // A float field's values as written, not widened: 0.2f shows as 0.2.
    EXPECT_EQ(json["fields"][1]["min"][0], 0.2);
    EXPECT_EQ(json["fields"][1]["max"][0], 7.0);
    EXPECT_EQ(json["attributes"]["EPSG"][0], 31467);
    EXPECT_EQ(json["notes"][0]["converter"], "ascii2z9");
    EXPECT_EQ(json["invalid_utf8_replaced"], true);
    EXPECT_EQ(json["fields"][1]["name"], "H\xEF\xBF\xBD\xEF\xBF\xBD");
}

// The preview read back pixel by pixel: points coloured by the rgb field before them, a nan point left out, y up.
TEST(HostSummary, PreviewColoursEachPointByItsRgbAndSkipsNan) {
    testsupport::TempDir dir;
    Tessel::Grid grid;
    auto p = testsupport::tableParameter(
        {dir.write("c.txt", "0 0 0 255 0 0\n1 0 0 0 255 0\nnan 0.5 0 9 9 9\n0 1 5 0 0 255\n")},
        "C:rgb:3+4+5,P:point:0+1+2");
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    const auto png = (dir.path() / "p.png").string();
    ASSERT_EQ(host::writePreview(grid, png, 64), "");

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, png.c_str()));
    image.format = PNG_FORMAT_RGB;
    std::vector<png_byte> pixels(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    ASSERT_EQ((std::pair<unsigned, unsigned>(image.width, image.height)), std::pair(64u, 64u));
    std::vector<png_byte> expected(pixels.size(), 24);  // the background; the nan point is nowhere
    auto set = [&](unsigned x, unsigned y, std::array<png_byte, 3> rgb) {
        std::copy(rgb.begin(), rgb.end(), &expected[(y * 64 + x) * 3]);
    };
    set(0, 63, {255, 0, 0});   // (0, 0), bottom left
    set(63, 63, {0, 255, 0});  // (1, 0), bottom right
    set(0, 0, {0, 0, 255});    // (0, 1), top left
    EXPECT_TRUE(pixels == expected);

    Tessel::Grid empty;
    EXPECT_EQ(host::writePreview(empty, png), "no point field with elements to draw");
}

namespace {

struct HostRun {
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

// Runs the built host through the shell with `arguments` (already quoted where needed).
HostRun runHost(const testsupport::TempDir& dir, const std::string& arguments) {
    const auto out = dir.path() / "host.out", err = dir.path() / "host.err";
    const std::string shell = "P='" + std::string(PALLION_HOST_BINARY) + "'; cd '" + dir.path().string() + "' && " +
                              arguments + " >'" + out.string() + "' 2>'" + err.string() + "'";
    const int raw = std::system(shell.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

}  // namespace

// The host reads a FIFO and a pipe once, with nothing read ahead, and gets every row; standard input is "-".
TEST(HostInput, FifoAndPipeGiveEveryRowOfTheFile) {
    testsupport::TempDir dir;
    std::string rows;
    for (int i = 0; i < 100'000; ++i) rows += std::to_string(i) + " 1 2\n";
    dir.write("rows.txt", rows);
    ASSERT_EQ(mkfifo((dir.path() / "fifo").c_str(), 0600), 0);
    for (const std::string& input : {std::string("(cat rows.txt > fifo &) && timeout 60 $P -q --json fifo"),
                                     std::string("cat rows.txt | timeout 60 $P -q --json -")}) {
        const auto run = runHost(dir, input);
        ASSERT_EQ(run.status, 0) << input << '\n' << run.err;
        const auto field = nlohmann::json::parse(run.out)["fields"][0];
        EXPECT_EQ(field["elements"], 100'000) << input;
        EXPECT_EQ(field["max"][0], 99'999) << input;
        // Not judged: one block of the library's default size, not a few rows.
        EXPECT_EQ(field["fragments"].size(), 1u) << input;
    }
}

// Warnings of the pre-flight check, a refusal with --strict, and a write into a missing folder.
TEST(HostInput, PreflightStrictHeaderNamesAndOutputFailures) {
    testsupport::TempDir dir;
    dir.write("euro.csv", "x;y;z\n512348,123;5403210,456;312,5\n");
    dir.write("types.txt", "1 2 3 300 6abc\n");
    dir.write("ok.txt", "1 2 3\n");
    ASSERT_EQ(mkfifo((dir.path() / "silent").c_str(), 0600), 0);
    const std::string types = "$P --lenient --parse P:point:0+1+2,A:uint8_t:3,B:int:4 types.txt";
    for (const auto& [command, status, part] : std::vector<std::tuple<std::string, int, std::string>>{
             {"$P --lenient --decimal-point euro.csv", 0,
              "warning: euro.csv, line 2, column 0: \"512348,123\" is read as 512348"},
             {"$P --lenient --strict --decimal-point euro.csv --output e.ply", 1, "--strict:"},
             {types, 0, "column 3: 300 is out of range for uint8_t (0 to 255) and is stored as 44"},
             {types, 0, "column 4: \"6abc\" is read as 6"},
             {"$P -q ok.txt --output no/such/folder/out.ply", 1,
              "cannot write no/such/folder/out.ply: the folder no/such/folder: No such file"},
             {"$P -q ok.txt --output out.xyz", 2, ""},
             {"$P -q absent.txt", 1, "hint: absent.txt: No such file or directory"},
             {"$P -q .", 1, "hint: .: is a directory"},
             // Ctrl-C while the open of a FIFO without a writer blocks: it returns, and the status is 130.
             {"timeout --preserve-status -k 5 -s INT 1 $P -q silent", 130, ""},
         }) {
        const auto run = runHost(dir, command);
        EXPECT_EQ(run.status, status) << command << '\n' << run.err;
        EXPECT_TRUE(has(run.err, part)) << command << '\n' << run.err;
    }
    EXPECT_EQ(
        nlohmann::json::parse(runHost(dir, "$P --json --lenient --decimal-point euro.csv").out)["warnings"].size(), 3u);
    // With the defaults the comma is a decimal comma, said in the guesses and the options, and nothing is warned.
    const auto json = nlohmann::json::parse(runHost(dir, "$P --json euro.csv").out);
    EXPECT_EQ(json["options"]["delimiter"], "semicolon");
    EXPECT_EQ(json["options"]["decimal_comma"], true);
    EXPECT_EQ(json["options"]["lenient"], false);
    EXPECT_TRUE(json["warnings"].empty());
    EXPECT_TRUE(has(json["guessed"].dump(), "decimal comma: yes")) << json["guessed"];
    EXPECT_EQ(json["fields"][0]["min"], (std::vector<double>{512348.123, 5403210.456, 312.5}));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "e.ply"));  // refused by --strict
}

// A PLY file needs one count for all fields; a refused or failed write leaves no file behind.
TEST(HostOutput, PlyRefusesDifferentCountsAndLeavesNothingBehind) {
    testsupport::TempDir dir;
    Tessel::Grid grid;
    auto p = testsupport::tableParameter({dir.write("a.txt", "1 2 3\n")}, "P:point:0+1+2,H:float:0,H:float:1");
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");  // H gets two elements of each row
    const auto ply = (dir.path() / "out.ply").string();
    EXPECT_EQ(Pallion::Tools::writePly(grid, ply),
              "cannot write " + ply +
                  ": a PLY vertex takes one element of every field, but the fields' element counts differ: "
                  "P 1, H 2");
    const auto folder = dir.path() / "locked";
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    if (::geteuid() != 0) {  // root writes anywhere
        EXPECT_TRUE(has(Pallion::Tools::writeGrid(grid, (folder / "x.h5").string()), "Permission denied"));
    }
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    // a.txt and the folder: no temporary file
    EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator(dir.path()), {}), 2);
}

namespace {

// The names of a folder's entries, sorted.
std::vector<std::string> entries(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

}  // namespace

// An output is refused before anything is read where it would replace an input or cannot be written; what is
// accepted replaces a symlink's target, keeps the mode, and takes any case of the extension and a long name.
TEST(HostOutput, InputsAreNeverReplacedAndOutputsAreCheckedFirst) {
    testsupport::TempDir dir;
    const std::string table = "1 2 3\n4 5 6\n";
    dir.write("a.txt", table);
    dir.write("same.ply", table);
    std::filesystem::create_symlink("a.txt", dir.path() / "link.ply");
    std::filesystem::create_hard_link(dir.path() / "a.txt", dir.path() / "hard.ply");
    dir.write("shared.ply", "old");
    std::filesystem::create_hard_link(dir.path() / "shared.ply", dir.path() / "other.ply");
    std::filesystem::create_directory(dir.path() / "dir.ply");
    const std::string longName = std::string(240, 'n') + ".ply";  // 244 bytes, and a temporary name within 255
    for (const auto& [command, status, part] : std::vector<std::tuple<std::string, int, std::string>>{
             {"$P -q same.ply -o same.ply", 2, "--output: same.ply is the input same.ply"},
             {"$P -q same.ply -o ./sub/../same.ply", 2, "is the input same.ply"},
             {"$P -q a.txt -o link.ply", 2, "--output: link.ply is the input a.txt"},
             {"$P -q a.txt -o hard.ply", 2, "--output: hard.ply is the input a.txt"},
             {"$P -q a.txt --preview a.txt", 2, "--preview: a.txt is the input a.txt"},
             {"$P -q a.txt -o x.ply --preview x.ply", 2, "--output and --preview name one file"},
             {"$P -q a.txt -o shared.ply", 1, "it has 2 hard links"},
             {"$P -q a.txt --preview no/p.png", 1, "--preview: cannot write no/p.png: the folder no: No such"},
             {"$P -q a.txt -o dir.ply", 1, "cannot write dir.ply: it is a folder"},
             {"$P -q a.txt -o x.Ply -q", 0, ""},
             {"$P -q a.txt -o x.HDF5", 0, ""},
             {"$P -q a.txt -o " + longName, 0, ""},
         }) {
        const auto run = runHost(dir, command);
        EXPECT_EQ(run.status, status) << command << '\n' << run.err;
        EXPECT_TRUE(has(run.err, part)) << command << '\n' << run.err;
    }
    for (const char* input : {"a.txt", "same.ply"}) EXPECT_EQ(slurp(dir.path() / input), table) << input;
    EXPECT_EQ(slurp(dir.path() / "other.ply"), "old");
    EXPECT_TRUE(slurp(dir.path() / longName).starts_with("ply\n"));

    // A symlink stays and its target gets the new contents; a replaced file keeps its mode.
    dir.write("target.ply", "old");
    ::chmod((dir.path() / "target.ply").c_str(), 0640);
    std::filesystem::create_symlink("target.ply", dir.path() / "out.ply");
    ASSERT_EQ(runHost(dir, "$P -q a.txt -o out.ply").status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(dir.path() / "out.ply"));
    EXPECT_TRUE(slurp(dir.path() / "target.ply").starts_with("ply\n"));
    struct stat status {};
    ASSERT_EQ(::stat((dir.path() / "target.ply").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    for (const auto& name : entries(dir.path())) EXPECT_FALSE(name.ends_with(".tmp")) << name;
}

// INT, TERM and HUP stop a conversion that waits on its input: 128 and the signal's number, no output, no
// temporary file; the same three stop a write at once once asked before it, and nothing is committed.
TEST(HostOutput, SignalsStopWithTheirStatusAndCommitNothing) {
    testsupport::TempDir dir;
    ASSERT_EQ(mkfifo((dir.path() / "fifo").c_str(), 0600), 0);
    for (const auto& [signal, status] :
         std::vector<std::pair<std::string, int>>{{"INT", 130}, {"TERM", 143}, {"HUP", 129}}) {
        const auto run = runHost(dir, "((printf '1 2 3\\n'; sleep 3) > fifo &) && timeout --preserve-status -s " +
                                          signal + " 1 $P -q --json fifo -o out.ply --preview out.png");
        EXPECT_EQ(run.status, status) << signal << '\n' << run.err;
        // Stopped by the host, not killed: it says so, and the JSON tells the status.
        EXPECT_TRUE(has(run.err, "stopped; the blocks read so far are kept")) << signal << '\n' << run.err;
        const auto json = nlohmann::json::parse(run.out, nullptr, false);
        EXPECT_TRUE(json.is_object() && json["status"] == status) << signal << '\n' << run.out;
        EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"fifo", "host.err", "host.out"})) << signal;
    }
    Tessel::Grid grid;
    auto p = testsupport::tableParameter({dir.write("a.txt", "1 2 3\n")}, "P:point:0+1+2");
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    Pallion::Tools::requestStop(15);
    for (const std::string name : {"s.ply", "s.h5", "s.png"}) {
        const auto file = (dir.path() / name).string();
        const std::string failure =
            name.ends_with(".png") ? host::writePreview(grid, file) : Pallion::Tools::writeGrid(grid, file);
        EXPECT_EQ(failure, "cannot write " + file + ": stopped by signal 15; nothing was written");
    }
    Pallion::Tools::clearStop();
    EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"a.txt", "fifo", "host.err", "host.out"}));
}

// Every outcome answers in JSON with its status, and a failed run never claims success.
TEST(HostSummary, JsonForEveryOutcome) {
    testsupport::TempDir dir;
    dir.write("ok.txt", "1 2 3\n");
    dir.write("named.txt", "east north up\n1 2 3\n");
    dir.write("wide.txt", std::string("\xFF\xFE", 2) + "1 2 3\n");
    dir.write("esc.txt", "x y z \x1b]0;pwned\x07\n1 2 3 4\n");
    for (const auto& [command, status, result] : std::vector<std::tuple<std::string, int, std::string>>{
             {"$P --json --block 0 ok.txt", 2, "--block"},
             {"$P --json --parse P:point:0+1+nope named.txt", 2, "is not a name in the header"},
             {"$P --json --parse bad ok.txt", 2, "parse string"},
             {"$P --json wide.txt", 1, "UTF-16 LE byte order mark"},
             {"$P --json -o no/x.ply ok.txt", 1, "cannot write no/x.ply"},
             {"$P --json absent.txt", 1, "absent.txt"},
             {"$P --json --parse P:point:0+1+2,H:float:0,H:float:1 -o c.ply ok.txt", 2, "named by two entries"},
             {"cat ok.txt | $P --json --strict -", 0, ""},
             {"$P --json esc.txt", 0, ""},
         }) {
        const auto run = runHost(dir, command);
        EXPECT_EQ(run.status, status) << command << '\n' << run.err;
        const auto json = nlohmann::json::parse(run.out, nullptr, false);
        ASSERT_FALSE(json.is_discarded()) << command << '\n' << run.out;
        EXPECT_EQ(json["status"], status) << command;
        EXPECT_EQ(json["result"].get<std::string>().empty(), result.empty()) << command;
        EXPECT_TRUE(has(json["result"], result)) << command << '\n' << json["result"];
        // Bytes from a file reach stderr escaped, never as a control sequence.
        EXPECT_EQ(run.err.find_first_of("\x1b\x07"), std::string::npos) << command;
    }
    const auto missing = nlohmann::json::parse(runHost(dir, "$P --json absent.txt").out);
    EXPECT_TRUE(has(missing["failure"]["hints"][0], "No such file")) << missing;
    // --strict says what it could not look at.
    const auto piped = nlohmann::json::parse(runHost(dir, "cat ok.txt | $P --json --strict -").out);
    EXPECT_TRUE(has(piped["warnings"][0], "- is not a regular file")) << piped;
}

// Control bytes as a terminal cannot take them as commands; a picture of coordinates at +-1e308 is drawn.
TEST(HostSummary, ControlBytesEscapedAndExtremeSpansDrawn) {
    for (const auto& [raw, want] : std::vector<std::pair<std::string, std::string>>{
             {"a\x1b]0;t\x07z", "a\\x1b]0;t\\x07z"},
             {std::string("\r\t\0\x7f\x1f", 5), "\\r\\t\\0\\x7f\\x1f"},
             {"caf\xc3\xa9 ~", "caf\xc3\xa9 ~"},
         })
        EXPECT_EQ(Pallion::Tools::shown(raw, 100), want);
    EXPECT_EQ(Pallion::Tools::shownLines("a\x1b\nb\tc"), "a\\x1b\nb\tc");

    testsupport::TempDir dir;
    Tessel::Grid grid;
    auto p = testsupport::tableParameter({dir.write("far.txt", "-1e308 -1e308 0\n1e308 1e308 1\n0 0 0.5\n")},
                                         "P:point:0+1+2");
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    const auto png = (dir.path() / "far.png").string();
    ASSERT_EQ(host::writePreview(grid, png, 8), "");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, png.c_str()));
    EXPECT_EQ((std::pair<unsigned, unsigned>(image.width, image.height)), std::pair(8u, 8u));
    png_image_free(&image);
}

// A compressed table gives the program the summary of its plain text: guesses,
// fields, fragments and the failing line with its context; a truncated one
// fails with the file's name.
TEST(HostInput, CompressedTablesReadAsTheirPlainText) {
    testsupport::TempDir dir;
    std::string rows = "X Y Z Intensity\n";
    for (int i = 0; i < 30'000; ++i)
        rows += std::to_string(i) + ".5 " + std::to_string(i % 97) + " 2.25 " + std::to_string(i % 7) + "\n";
    rows += "1 2 3\n";  // one token short: the failure names this line
    dir.write("pts", rows);
    const auto plain = runHost(dir, "$P --json --block 1000 pts");
    ASSERT_EQ(plain.status, 1) << plain.err;
    ASSERT_EQ(nlohmann::json::parse(plain.out)["failure"]["line"], 30'002);
    const std::pair<const char*, const char*> formats[] = {{"gzip -k pts", "pts.gz"},
                                                           {"bzip2 -k pts", "pts.bz2"},
                                                           {"xz -k pts", "pts.xz"},
                                                           {"zstd -q -k pts", "pts.zst"},
                                                           {"zip -q pts.zip pts", "pts.zip"}};
    for (const auto& [command, name] : formats) {
        SCOPED_TRACE(name);
        if (std::system((std::string("cd '") + dir.path().string() + "' && " + command).c_str()) != 0) {
            std::cout << "skipped: " << command << " failed\n";
            continue;
        }
        const auto run = runHost(dir, std::string("$P --json --block 1000 ") + name);
        EXPECT_EQ(run.status, 1) << run.err;
        nlohmann::json summary = nlohmann::json::parse(run.out);
        EXPECT_EQ(summary["failure"]["file"], name);
        summary["failure"]["file"] = "pts";
        EXPECT_EQ(summary, nlohmann::json::parse(plain.out));

        const std::string whole = slurp(dir.path() / name);
        dir.write(std::string("cut-") + name, whole.substr(0, whole.size() / 2));
        const auto cut = runHost(dir, std::string("$P -q --block 1000 cut-") + name);
        EXPECT_EQ(cut.status, 1);
        EXPECT_NE(cut.err.find(std::string("cannot read file: cut-") + name), std::string::npos) << cut.err;
    }
}
