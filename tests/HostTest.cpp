// The command-line host: its option checks, the failure context and hints,
// the JSON summary read back, and the preview's picture.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "FailureContext.hpp"
#include "Options.hpp"
#include "Summary.hpp"
#include "TestSupport.hpp"
#include "pallion/Pallion.hpp"

namespace {

host::CommandLine commandLine(std::vector<std::string> words) {
    words.insert(words.begin(), "pallion");
    std::vector<const char*> argv;
    for (const auto& word : words) argv.push_back(word.c_str());
    return host::parseCommandLine(static_cast<int>(argv.size()), argv.data());
}

// Converts `files` as the host would and gives what it prints about the failure.
std::string failureOf(const host::Options& options) {
    Tessel::Grid grid;
    Pallion::Parameter p;
    p.Files = new Ravelin::StringList;
    p.Files->assign(options.files.begin(), options.files.end());
    p.HeaderLines = options.headerLines;
    p.Delimiter = options.delimiter;
    p.Parse = options.parse;
    p.ChunkSize = 2;
    try {
        const std::string result = Pallion::ascii2z9(grid, p);
        return result + '\n' + host::describeFailure(options, p, result, false);
    } catch (const std::exception& e) {
        return std::string(e.what()) + '\n' + host::describeFailure(options, p, e.what(), true);
    }
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

TEST(HostOptions, HelpOnStdoutAndEveryMistakeNamedWithItsRange) {
    const auto help = commandLine({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_TRUE(has(help.out, "--block") && has(help.out, "=Positions:point:0+1+2"));
    EXPECT_TRUE(help.err.empty());

    for (const std::string block : {"4294967296", "10000001", "0", "-1"})
        EXPECT_EQ(commandLine({"--block", block, "f.txt"}).exitStatus, 2) << block;
    EXPECT_EQ(commandLine({"--header", "-1", "f.txt"}).exitStatus, 2);
    EXPECT_TRUE(has(commandLine({"--block", "abc", "f.txt"}).err, "pallion: --block: \"abc\" is not a whole number"));
    EXPECT_EQ(commandLine({}).exitStatus, 2);  // no file
    EXPECT_TRUE(
        has(commandLine({"--trajectory", "--block", "5", "f.txt"}).err, "--block cannot be used with --trajectory"));

    for (const std::string tab : {"t", "tab", "\\t"})
        EXPECT_EQ(commandLine({"--delimiter", tab, "f"}).options->delimiter, '\t');
    EXPECT_EQ(commandLine({"--delimiter", "comma", "f"}).options->delimiter, ',');
    EXPECT_EQ(commandLine({"--delimiter", "semicolon", "f"}).options->delimiter, ';');
    EXPECT_EQ(commandLine({"--delimiter", "|", "f"}).options->delimiter, '|');
    for (const std::string bad : {"", "xy", "commas"}) {
        const auto refused = commandLine({"--delimiter", bad, "f"});
        EXPECT_EQ(refused.exitStatus, 2) << bad;
        EXPECT_TRUE(has(refused.err, "--delimiter: \"" + bad + "\" is not one character")) << refused.err;
    }
    const auto good = commandLine({"--header", "1", "--epsg", "25832", "--block", "100", "a", "b"});
    ASSERT_TRUE(good.options);
    EXPECT_EQ(good.options->files, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(good.options->headerLines, 1u);
    EXPECT_EQ(good.options->epsg, 25832);
    EXPECT_EQ(good.options->block, 100u);
}

TEST(HostOptions, BlockSizeFollowsTheFilesAndStaysWithinTheLibrarysDefault) {
    testsupport::TempDir dir;
    const auto small = dir.write("small.txt", "1 2 3\n4 5 6\n7 8 9\n");
    EXPECT_LT(host::blockSizeFor(host::judgedRows({small}, 0)), 64u);
    EXPECT_GE(host::blockSizeFor(host::judgedRows({small}, 0)), 3u);
    const auto large = dir.write("large.txt", "1 2 3\n");
    std::filesystem::resize_file(large, std::uintmax_t{1} << 30);  // sparse: a gigabyte of short lines, judged
    EXPECT_EQ(host::blockSizeFor(host::judgedRows({large}, 0)), 10'000'000u);
}

TEST(HostFailure, FileLineAndTokenInTheMiddleOfTheSecondFile) {
    testsupport::TempDir dir;
    host::Options options;
    options.headerLines = 1;
    options.files = {dir.write("a.txt", "x y z\n1 2 3\n4 5 6\n7 8 9\n"),
                     dir.write("b.txt", "x y z\n1 2 3\n4 5 6\n7 abc 9\n1 2 3\n")};
    const std::string exception = failureOf(options);
    EXPECT_TRUE(has(exception, "file:  " + options.files[1] + "\n  line:  4\n  text:  7 abc 9\n")) << exception;
    EXPECT_TRUE(has(exception, "token: column 1, \"abc\": not a double")) << exception;

    options.files[1] = dir.write("c.txt", "x y z\n1 2 3\n4 5\n");
    const std::string count = failureOf(options);
    EXPECT_TRUE(
        has(count, "line:  3\n  text:  4 5\n  the line has 2 token(s) split at space; the parse string reads column 2"))
        << count;
}

TEST(HostFailure, HintsForTheCommonCauses) {
    testsupport::TempDir dir;
    host::Options options;
    auto hintFor = [&](const std::string& content) {
        options.files = {dir.write("t.txt", content)};
        return failureOf(options);
    };
    EXPECT_TRUE(has(hintFor("\xEF\xBB\xBF"
                            "1 2 3\n"),
                    "hint: the file begins with a UTF-8 byte order mark"));
    EXPECT_TRUE(has(hintFor("east north height\n1 2 3\n"),
                    "hint: the first line looks like a header; skip it with --header 1"));
    EXPECT_TRUE(has(hintFor("1;2;3\n"),
                    "hint: the line is one token with this delimiter; with --delimiter semicolon it splits into 3"));
    EXPECT_TRUE(has(hintFor("1 2 3\n4 5 6\n\n"), "hint: the file ends with an empty line"));
    EXPECT_TRUE(has(hintFor("1 2 3\n\n4 5 6\n"), "hint: an empty line ends the conversion"));
    EXPECT_TRUE(has(hintFor("1 2  3\n"), "hint: two delimiters in a row make an empty token"));
    // A plain bad number gives its place and no hint.
    const std::string plain = hintFor("1 2 3\n4 5 x\n");
    EXPECT_TRUE(has(plain, "line:  2") && !has(plain, "hint:")) << plain;
}

TEST(HostSummary, JsonReadsBackWithFieldsFragmentsRangesAndAttributes) {
    testsupport::TempDir dir;
    Tessel::Grid grid;
    Pallion::Parameter p;
    p.Files = testsupport::fileList({dir.write("pts.txt", "1 5 0.2 \"a\"\n3 4 7 x\n2 6 0.5 y\n")});
    p.Parse = "P:point:0+1+2,Height:float:2";
    p.ChunkSize = 2;
    p.EPSG = 31467;
    ASSERT_EQ(Pallion::ascii2z9(grid, p), "");
    const auto json = nlohmann::json::parse(host::jsonSummary(grid, ""));
    EXPECT_EQ(json["result"], "");
    ASSERT_EQ(json["fields"].size(), 2u);
    const auto& points = json["fields"][0];
    EXPECT_EQ(points["name"], "P");
    EXPECT_EQ(points["elements"], 3);
    EXPECT_EQ(points["fragments"].size(), 2u);
    EXPECT_EQ(points["fragments"][1]["name"], "pts1");
    EXPECT_EQ(points["fragments"][1]["elements"], 1);
    EXPECT_EQ(points["min"], (std::vector<double>{1, 4, 0.2}));
    EXPECT_EQ(points["max"], (std::vector<double>{3, 6, 7}));
    // A float field's values as written, not widened: 0.2f shows as 0.2.
    EXPECT_EQ(json["fields"][1]["min"][0], 0.2);
    EXPECT_EQ(json["fields"][1]["max"][0], 7.0);
    EXPECT_EQ(json["attributes"]["EPSG"][0], 31467);
    EXPECT_EQ(json["notes"][0]["converter"], "ascii2z9");

    // The preview is a PNG as wide as the points reach (x spans 2, y spans 2: a square).
    const auto png = (dir.path() / "p.png").string();
    ASSERT_EQ(host::writePreview(grid, png, 64), "");
    std::ifstream in(png, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    ASSERT_GT(bytes.size(), 24u);
    EXPECT_EQ(bytes.substr(1, 3), "PNG");
    auto bigEndian = [&](std::size_t at) {
        return (std::uint32_t(std::uint8_t(bytes[at])) << 24) | (std::uint32_t(std::uint8_t(bytes[at + 1])) << 16) |
               (std::uint32_t(std::uint8_t(bytes[at + 2])) << 8) | std::uint8_t(bytes[at + 3]);
    };
    EXPECT_EQ(bigEndian(16), 64u);
    EXPECT_EQ(bigEndian(20), 64u);
    Tessel::Grid empty;
    EXPECT_EQ(host::writePreview(empty, png), "no point field with elements to draw");
}
