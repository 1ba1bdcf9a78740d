// The fast reading path against the plain reading of ReferenceConversion.hpp,
// first on tricky files, each with the exact text or exception it ends with,
// then on generated tables that mix plain rows with every kind of odd line.
#include <gtest/gtest.h>

#include <cfenv>
#include <random>

#include "RangedReading.hpp"
#include "ReferenceConversion.hpp"
#include "TestSupport.hpp"

using namespace std::string_literals;

namespace {

// A file listed but not written, and the temporary directory itself listed as a file.
const std::string Missing = "<missing>", Directory = "<directory>";

struct Tricky {
    std::string name = "";  // the first file's stem; further files add _1, _2
    std::vector<std::string> files = {};
    std::string parse = "Positions:point:0+1+2";
    char delimiter = ' ';
    std::uint32_t header = 0, chunk = 2;
    std::size_t stopAt = 0;
    std::string ends = "";  // result text, or "kind: what()" of the exception; {dir} stands for the directory
};

const std::string Run = "Ascii2Z9::run: ", Stod = "invalid_argument: stod";

std::string outOfRange(std::uint32_t highest, int tokens) {
    return Run + "User column index out of range: Highest Column Index: " + std::to_string(highest) +
           ". Number of tokens in this line: " + std::to_string(tokens);
}

std::string lines(const std::string& line, int count) {
    std::string text;
    while (count-- > 0) text += line;
    return text;
}

const std::string Ints = "I:int:0,U8:uint8_t:1,U16:uint16_t:2,U32:uint32_t:3,F:float:4,C:rgb:1+2+3";
const std::string PointInt = "P:point:0+1+2,I:int:3", Int = "V:int:0";

// The exits before any file is read (no files, no field, a wrong parse string) are ConvertTest's.
const Tricky TrickyFiles[] = {
    {.name = "crlf", .files = {"1.5 -2 3e2\r\n4 5 6\r\n"}},
    {.name = "lone_cr", .files = {"1 2 3\r\n4 5 \r\n"}, .ends = Stod},
    {.name = "nul", .files = {"1 2 3\0 junk\r\n4 5 6\r\n"s}},
    {.name = "nul_early", .files = {"1 2 3 4\n5 6 7\0 8\n"s}, .parse = PointInt, .ends = outOfRange(3, 3)},
    {.name = "delimiter_e", .files = {"1e2e3\n-4.5e+6e7\n"}, .delimiter = 'e'},
    {.name = "unusual", .files = {"0x1p3 +4 \t5 -0\n12abc 1.5.5 .5 2147483647\n1 2 3 4 5 6\n"}, .parse = PointInt},
    {.name = "empty_line", .files = {"1 2 3\n\n4 5 6\n"}, .ends = outOfRange(2, 0)},
    {.name = "short_line", .files = {"1 2 3\n4 5\n"}, .ends = outOfRange(2, 2)},
    {.name = "trailing_delimiters", .files = {"1,2,3,\n4,5,6,,\n"}, .delimiter = ','},
    {.name = "two_blanks", .files = {"1  2 3\n"}, .ends = Stod},
    {.name = "empty", .files = {""}},
    {.name = "blocks_over_two_files",
     .files = {"1 10\n2 20\n3 30\n", "4 40\n5 50"},
     .parse = "A:int:0,B:double:1,C:uint16_t:1"},
    {.name = "block_full_at_the_end", .files = {"1 2 3\n4 5 6\n7 8 9\n10 11 12\n"}},
    {.name = "headers", .files = {"x y z\n1 2 3\n", "u v w\n4 5 6\n"}, .header = 1},
    {.name = "header_beyond_the_end", .files = {"x\n", "1 2 3\n"}, .header = 3},
    {.name = "narrowing",
     .files = {"1.5 300 70000 -1 7,5\n1e5 256 -1 2147483647 1e38\n12abc -1 0 0 0x10\n+5 0 0 0 -0\r\n"},
     .parse = Ints,
     .chunk = 16},
    {.name = "float_overflow", .files = {"1 2 3 4 5\n1 2 3 4 1e39x\n"}, .parse = Ints, .ends = "out_of_range: stof"},
    {.name = "subnormal", .files = {"1 2 3\n4 1e-310 6\n"}, .ends = "out_of_range: stod"},
    {.name = "uint32_range", .files = {"2147483648\n"}, .parse = "A:uint32_t:0", .ends = "out_of_range: stoi"},
    // The int column stands first in line and parse string, yet the double holder converts first.
    {.name = "first_holder_decides", .files = {"1 2\nx y\n"}, .parse = "A:int:0,B:double:1", .ends = Stod},
    {.name = "negative_column", .files = {"1 2 3\n"}, .parse = "A:int:-1", .ends = outOfRange(4294967295u, 3)},
    {.name = "tabs", .files = {"1\t2.5\t3\t9\t0\n"}, .parse = "V:tvector:2+1+0,S:int:3+0+4", .delimiter = 't'},
    {.name = "scalar_of_three_columns", .files = {"1 2 3 9\n"}, .parse = "S:int:3+0+4", .ends = outOfRange(4, 4)},
    {.name = "scan.part.2", .files = {"1.5 2.5\n"}, .parse = "Same:double:0,Same:float:1"},
    {.name = "interrupted", .files = {"0\n1\n2\n3\n"}, .parse = Int, .stopAt = 3, .ends = Run + "user interruption"},
    {.name = "reports_every_fifth_line", .files = {lines("7\n", 250)}, .parse = Int, .chunk = 1000},
    {.name = "missing", .files = {"1 2 3\n", Missing}, .ends = Run + "cannot open file: {dir}/missing_1.txt"},
    {.name = "directory", .files = {Directory}, .ends = Run + "cannot open file: {dir}"},
    {.name = "zero_block", .files = {""}, .chunk = 0, .ends = Run + "ChunkSize is 0: a block needs at least one row"},
};

class TableMaker {
public:
    // `readings`: each table also draws the opt-in readings, and lines and tokens that they read otherwise.
    explicit TableMaker(std::uint64_t seed, bool readings = false) : random(seed), withReadings(readings) {}

    reference::Settings settings(const testsupport::TempDir& dir, int index) {
        static const char delimiters[] = {' ', ' ', ',', 't', ';', 'e', '.', '1'};
        reference::Settings s;
        s.parse = reference::ParseStrings[below(std::size(reference::ParseStrings))];
        s.delimiter = delimiters[below(std::size(delimiters))];
        s.headerLines = static_cast<std::uint32_t>(below(4) == 0 ? below(3) : 0);
        s.chunkSize = static_cast<std::uint32_t>(1 + below(5));
        s.stopAtReport = below(10) == 0 ? 1 + below(6) : 0;
        if (withReadings) {
            s.wholeTokens = below(3) != 0;
            s.whitespace = below(3) == 0;
            s.skipEmptyLines = below(2) == 0;
            s.decimalComma = below(3) == 0;
            s.commentPrefix = below(3) == 0 ? "#" : below(2) == 0 ? "//" : "";
        }
        readings = s;
        // Under the whole-token check a decimal in an integer column is refused: half the tables hold small integers
        // only.
        smallIntegers = s.wholeTokens && below(2) == 0;
        const char split = s.delimiter == 't' ? '\t' : s.delimiter;
        for (std::size_t f = 0, count = 1 + below(2); f < count; ++f)
            s.files.push_back(dir.write(std::to_string(index) + "_" + std::to_string(f) + ".v.txt", table(split)));
        return s;
    }

private:
    std::uint64_t below(std::uint64_t n) { return random() % n; }

    std::string number(char split) {
        const std::uint64_t shape = below(8), a = below(100000), b = below(1000);
        std::string text = shape == 0   ? std::to_string(static_cast<std::int64_t>(a % 2000) - 1000)
                           : shape == 1 ? std::to_string(a) + "." + std::to_string(b)
                           : shape == 2 ? "-" + std::to_string(b % 100) + "." + std::to_string(a)
                           : shape == 3 ? std::to_string(b % 10) + "e" + std::to_string(a % 30)
                           : shape == 4 ? "0." + std::string(a % 4, '0') + std::to_string(b)
                                        : std::to_string(b) + "." + std::to_string(a % 10);
        if (smallIntegers) text = std::to_string(b % 200);
        // A delimiter that can stand inside a number must not stand inside this one.
        for (char& c : text) {
            if (readings.decimalComma && c == '.') c = ',';
            if (c == split) c = c == '1' ? '2' : '0';
        }
        return text == "" ? "0" : text;
    }

    // Seldom: a token or a line end that the fast path must hand to the standard way.
    std::string oddity() {
        static const char* const odd[] = {"abc",        "+7",   " 3", "0x1p3", "1e-310", "inf", "",    "12abc",
                                          "2147483648", "1e39", "-",  "\r",    "300",    "-1",  "nan", "4.5e+"};
        // Tokens the opt-in readings take apart: padded, out of the type's range, a comma or a point too many.
        static const char* const read[] = {" 7 ",   "5\t",   "\t-2.5", "3000000000", "-5",  "70000", "1,5",
                                           "1.5.5", "2,5e1", "0x10",   "4294967295", "1e2", "5.9",   "+ 5"};
        if (withReadings && below(2) == 0) return read[below(std::size(read))];
        return odd[below(std::size(odd))];
    }

    // Seldom, with the opt-in readings: a line that a reading skips or keeps.
    std::string oddLine() {
        static const char* const lines[] = {"", "  \t", "\r", "# x y z", "// comment", " # 1 2 3", "#", "1 2 3 # 4"};
        return lines[below(std::size(lines))];
    }

    // The text between two tokens: the delimiter, or with runs of blanks a run
    // of one to three, or of up to eleven as aligned columns have them.
    std::string separator(char split) {
        if (!readings.whitespace || below(3) == 0) return std::string(1, split);
        std::string run;
        for (std::uint64_t i = 0, n = below(3) == 0 ? 4 + below(8) : 1 + below(3); i < n; ++i)
            run += below(8) == 0 ? '\t' : ' ';
        return run;
    }

    std::string table(char split) {
        std::string text;
        const std::size_t lines = below(30);
        for (std::size_t line = 0; line < lines; ++line) {
            const std::size_t lineStart = text.size();
            if (withReadings && below(14) == 0) {
                text += oddLine() + '\n';
                continue;
            }
            if (readings.whitespace && below(4) == 0) text += below(2) == 0 ? "  " : "\t";
            const std::size_t tokens = below(withReadings ? 40 : 12) == 0 ? below(4) : 4 + below(3);
            for (std::size_t t = 0; t < tokens; ++t) {
                if (t > 0) text += separator(split);
                text += below(withReadings ? 150 : 40) == 0 ? oddity() : number(split);
            }
            // Seldom: a trailing delimiter, a CRLF end, a NUL (which ends the line for the splitter,
            // wherever it stands), two trailing delimiters.
            const std::uint64_t bend = below(40);
            if (bend == 0) text += split;
            if (bend == 1) text += '\r';
            if (bend == 2) text.insert(lineStart + below(text.size() - lineStart + 1), 1, '\0');
            if (bend == 3) text += std::string(2, split);
            if (bend == 4 && readings.whitespace) text += separator(split);
            if (line + 1 < lines || below(2) == 0) text += '\n';
        }
        return text;
    }

    std::mt19937_64 random;
    bool withReadings;
    bool smallIntegers = false;
    reference::Settings readings;  // the settings of the table being made
};

// The long run, with PALLION_LONG_TESTS (the README's test command and CI); a
// short one otherwise.
#if defined(PALLION_LONG_TESTS) && !defined(PALLION_SANITIZE)
constexpr int CaseCount = 4000;
#elif defined(PALLION_LONG_TESTS)
constexpr int CaseCount = 400;
#else
constexpr int CaseCount = 200;
#endif

// Generated tables, each read both ways; `cases` of them, from `seed`.
void compareReadings(std::uint64_t seed, int cases, bool readings = false) {
    testsupport::TempDir dir;
    TableMaker maker(seed, readings);
    int differences = 0, failures = 0, exceptions = 0, successes = 0;
    for (int i = 0; i < cases && differences < 5; ++i) {
        const reference::Settings settings = maker.settings(dir, i);
        const reference::Outcome expected = reference::plainReading(settings);
        const reference::Outcome got = reference::libraryReading(settings);
        if (!(got == expected)) {
            ++differences;
            ADD_FAILURE() << "case " << i << " (" << settings.files.front() << ", parse " << settings.parse
                          << ", delimiter '" << settings.delimiter << "', header " << settings.headerLines << ", block "
                          << settings.chunkSize << ", whole " << settings.wholeTokens << ", whitespace "
                          << settings.whitespace << ", empty " << settings.skipEmptyLines << ", comma "
                          << settings.decimalComma << ", comment '" << settings.commentPrefix
                          << "')\n  plain:   " << expected << "\n  library: " << got;
        }
        failures += !expected.result.empty();
        exceptions += !expected.exception.empty();
        successes += expected.result.empty() && expected.exception.empty();
    }
    // The tables must reach every way out, or the comparison proves little.
    EXPECT_GT(failures, cases / 20);
    EXPECT_GT(exceptions, readings ? cases / 100 : cases / 20);
    EXPECT_GT(successes, cases / 20);
}

}  // namespace

TEST(ReadingDifferential, TrickyFilesEndAsThePlainReadingWithTheirExactTexts) {
    testsupport::TempDir dir;
    for (const Tricky& tricky : TrickyFiles) {
        reference::Settings s{.headerLines = tricky.header,
                              .parse = tricky.parse,
                              .delimiter = tricky.delimiter,
                              .chunkSize = tricky.chunk,
                              .stopAtReport = tricky.stopAt};
        for (std::size_t i = 0; i < tricky.files.size(); ++i) {
            std::string name = tricky.name;
            if (i > 0) name += '_' + std::to_string(i);
            name += ".txt";
            const std::string& bytes = tricky.files[i];
            s.files.push_back(bytes == Directory ? dir.path().string()
                              : bytes == Missing ? (dir.path() / name).string()
                                                 : dir.write(name, bytes));
        }
        const reference::Outcome expected = reference::plainReading(s);
        const reference::Outcome got = reference::libraryReading(s);
        EXPECT_EQ(got, expected) << tricky.name;
        std::string text = tricky.ends;
        if (const auto at = text.find("{dir}"); at != std::string::npos) text.replace(at, 5, dir.path().string());
        EXPECT_EQ(got.exception.empty() ? got.result : got.exception, text) << tricky.name;
    }
}

TEST(ReadingDifferential, GeneratedTablesEndAsThePlainReading) { compareReadings(42, CaseCount); }

// The same with the opt-in readings drawn for each table: whole tokens, runs
// of blanks, comment and empty lines, decimal commas, in every combination.
TEST(ReadingDifferential, GeneratedTablesEndAsThePlainReadingUnderTheOptInReadings) {
    compareReadings(1234, CaseCount, true);
}

// Rounding upward, the standard functions give other values than the fast
// way would; the rows must still be theirs.
TEST(ReadingDifferential, AgreesUnderAnotherRoundingMode) {
    ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
    compareReadings(7, CaseCount / 10);
    std::fesetround(FE_TONEAREST);
}

// The same tables cut into 1 to 8 ranges of equal bytes, converted side by
// side, give the grid of the one conversion: fields, fragments and their
// names, values, notes, attributes, the counters, the failure and its line.
TEST(ReadingDifferential, GeneratedTablesInRangesOnOneToEightThreadsGiveTheSequentialGrid) {
    testsupport::TempDir dir;
    for (const bool readings : {false, true}) {
        TableMaker maker(99 + readings, readings);
        int differences = 0;
        for (int i = 0; i < CaseCount / 4 && differences < 3; ++i) {
            reference::Settings settings = maker.settings(dir, i);
            settings.stopAtReport = 0;
            const ranged::Shot expected = ranged::sequential(settings);
            std::uint64_t size = 0;
            for (const std::string& file : settings.files)
                size = std::max<std::uint64_t>(size, std::filesystem::file_size(file));
            for (unsigned threads = 1; threads <= 8; ++threads) {
                std::vector<std::uint64_t> cuts;
                for (unsigned k = 1; k < threads; ++k) cuts.push_back(size * k / threads);
                const ranged::Shot got = ranged::inRanges(settings, cuts, threads);
                if (got == expected) continue;
                ++differences;
                ADD_FAILURE() << "case " << i << " (" << settings.files.front() << ") on " << threads
                              << " threads\n  sequential: " << expected << "\n  ranges:     " << got;
                break;
            }
        }
    }
}
