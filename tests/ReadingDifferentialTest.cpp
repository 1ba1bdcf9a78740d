// The fast reading path against the plain reading, on generated tables that
// mix plain rows with every kind of line that ends or bends a conversion:
// the same result or exception, counters, tokens, progress reports, hook
// calls and fragment bytes.
#include <gtest/gtest.h>

#include <cfenv>
#include <random>

#include "ReferenceConversion.hpp"
#include "TestSupport.hpp"

namespace {

#ifdef PALLION_SANITIZE
constexpr int CaseCount = 400;
#else
constexpr int CaseCount = 4000;
#endif

class TableMaker {
public:
    explicit TableMaker(std::uint64_t seed) : random(seed) {}

    reference::Settings settings(const testsupport::TempDir& dir, int index) {
        static const char delimiters[] = {' ', ' ', ',', 't', ';', 'e', '.', '1'};
        reference::Settings s;
        s.parse = reference::ParseStrings[below(std::size(reference::ParseStrings))];
        s.delimiter = delimiters[below(std::size(delimiters))];
        s.headerLines = static_cast<std::uint32_t>(below(4) == 0 ? below(3) : 0);
        s.chunkSize = static_cast<std::uint32_t>(1 + below(5));
        s.stopAtReport = below(10) == 0 ? 1 + below(6) : 0;
        const char split = s.delimiter == 't' ? '\t' : s.delimiter;
        const std::size_t fileCount = 1 + below(2);
        for (std::size_t f = 0; f < fileCount; ++f)
            s.files.push_back(
                dir.write("t" + std::to_string(index) + "_" + std::to_string(f) + ".v.txt", table(split)));
        return s;
    }

private:
    std::uint64_t below(std::uint64_t n) { return random() % n; }

    std::string number(char split) {
        std::string text;
        switch (below(8)) {
            case 0:
                text = std::to_string(static_cast<std::int64_t>(below(2000)) - 1000);
                break;
            case 1:
                text = std::to_string(below(100000)) + "." + std::to_string(below(1000));
                break;
            case 2:
                text = "-" + std::to_string(below(100)) + "." + std::to_string(below(100000));
                break;
            case 3:
                text = std::to_string(below(10)) + "e" + std::to_string(below(30));
                break;
            case 4:
                text = "0." + std::string(below(4), '0') + std::to_string(below(1000));
                break;
            default:
                text = std::to_string(below(1000)) + "." + std::to_string(below(10));
                break;
        }
        // A delimiter that can stand inside a number must not stand inside this one.
        for (char& c : text)
            if (c == split) c = c == '1' ? '2' : '0';
        return text == "" ? "0" : text;
    }

    // Seldom: a token or a line end that the fast path must hand to the standard way.
    std::string oddity() {
        static const char* const odd[] = {"abc",        "+7",   " 3", "0x1p3", "1e-310", "inf", "",    "12abc",
                                          "2147483648", "1e39", "-",  "\r",    "300",    "-1",  "nan", "4.5e+"};
        return odd[below(std::size(odd))];
    }

    std::string table(char split) {
        std::string text;
        const std::size_t lines = below(30);
        for (std::size_t line = 0; line < lines; ++line) {
            const std::size_t lineStart = text.size();
            const std::size_t tokens = below(12) == 0 ? below(4) : 4 + below(3);
            for (std::size_t t = 0; t < tokens; ++t) {
                if (t > 0) text += split;
                text += below(40) == 0 ? oddity() : number(split);
            }
            switch (below(40)) {
                case 0:
                    text += split;
                    break;  // one trailing delimiter
                case 1:
                    text += '\r';
                    break;  // a CRLF line end
                case 2:     // a NUL ends the line for the splitter, wherever it stands
                    text.insert(
                        text.begin() + static_cast<std::ptrdiff_t>(lineStart + below(text.size() - lineStart + 1)),
                        '\0');
                    break;
                case 3:
                    text = text + split + split;
                    break;
                default:
                    break;
            }
            if (line + 1 < lines || below(2) == 0) text += '\n';
        }
        return text;
    }

    std::mt19937_64 random;
};

// Generated tables, each read both ways; `cases` of them, from `seed`.
void compareReadings(std::uint64_t seed, int cases) {
    testsupport::TempDir dir;
    TableMaker maker(seed);
    int differences = 0;
    int failures = 0, exceptions = 0, successes = 0;
    for (int i = 0; i < cases && differences < 5; ++i) {
        const reference::Settings settings = maker.settings(dir, i);
        const reference::Outcome expected = reference::plainReading(settings);
        const reference::Outcome got = reference::libraryReading(settings);
        if (!(got == expected)) {
            ++differences;
            ADD_FAILURE() << "case " << i << " (" << settings.files.front() << ", parse " << settings.parse
                          << ", delimiter '" << settings.delimiter << "', header " << settings.headerLines << ", block "
                          << settings.chunkSize << ")\n  plain:   " << expected << "\n  library: " << got;
        }
        failures += !expected.result.empty();
        exceptions += !expected.exception.empty();
        successes += expected.result.empty() && expected.exception.empty();
    }
    // The tables must reach every way out, or the comparison proves little.
    EXPECT_GT(failures, cases / 20);
    EXPECT_GT(exceptions, cases / 20);
    EXPECT_GT(successes, cases / 20);
}

}  // namespace

TEST(ReadingDifferential, FastPathAgreesWithThePlainReading) { compareReadings(42, CaseCount); }

// Rounding upward, the standard functions give other values than the fast
// way would; the rows must still be theirs.
TEST(ReadingDifferential, AgreesUnderAnotherRoundingMode) {
    ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
    compareReadings(7, CaseCount / 10);
    std::fesetround(FE_TONEAREST);
}
