// The fast way from a line to a row: which tokens a row needs, in the order
// of the line, and where each of their numbers goes.
//
// A row is read in one pass from left to right.  The number parser finds the
// end of each token it reads, so tokens that a column names are not searched
// for their delimiter first; only the tokens that no column names are skipped
// with a search.  Whenever a line is anything but plain — a token missing, a
// number the fast conversion does not take — `store` gives false, and the
// caller reads the line the standard way, which decides the value, the
// exception or the failure text.  Where `store` succeeds it has written
// exactly what the standard way writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/detail/Columns.hpp"

namespace Pallion {

class RowPlan {
public:
    // The opt-in readings a plan follows; all off is the plain reading.
    struct Reading {
        bool wholeTokens = false;   // a number in full, blanks around it, within its type
        bool whitespace = false;    // runs of blanks and tabs separate; the delimiter is not used
        bool decimalComma = false;  // ',' is the decimal separator
    };

    // Plans the rows of a line split at `delimiter`, in which a row needs the
    // tokens up to `highestColumn`.
    void start(char delimiter, std::uint32_t highestColumn, Reading reading);

    // Adds the components of one column, written into its present chunk.
    template <class T>
    void add(ColumnContainer<T>& column) {
        using Traits = Tessel::ElementTraits<T>;
        using C = typename Traits::Component;
        static_assert(sizeof(T) == Traits::components * sizeof(C), "components lie side by side");
        auto* rows = reinterpret_cast<std::byte*>(column.rows);
        for (unsigned i = 0; i < Traits::components; ++i)
            pending_.push_back({column.Columns[i],
                                {rows, sizeof(T), i * sizeof(C),
                                 kindOf(std::is_floating_point_v<C>, std::is_signed_v<C>, sizeof(C))}});
    }

    // Orders what was added by token; call once after the last add.
    void finish();

    // Writes row `row` from the line [line, end), which holds no NUL.  False,
    // with the counters untouched, where the line needs the standard way.
    bool store(const char* line, const char* end, std::uint64_t row) const {
        if (mode_ == 0) return storePlain(line, end, row);
        return (this->*chosen_)(line, end, row);
    }

private:
    // What a component is read as: a floating one as std::stod or std::stof
    // would read it, an integer one as std::stoi, keeping the low bits of its
    // width.  A small set, so that the conversion is chosen by a switch and
    // inlined into the row loop.
    // Mixed stands for a plan whose targets are of several kinds.
    // UBits32 is an unsigned int, apart from Bits32 (an int) only where a
    // whole token must fit its type.
    enum class Kind : std::uint8_t { Double, Float, Bits8, Bits16, Bits32, UBits32, Mixed };
    static Kind kindOf(bool floating, bool isSigned, std::size_t width);

    struct Target {
        std::byte* rows;
        std::size_t stride;
        std::size_t offset;
        Kind kind;
    };
    struct Token {
        std::uint32_t column;
        std::uint32_t firstTarget;
        std::uint32_t targetCount;  // 0 for the highest column when no column reads it
    };
    struct Pending {
        std::uint32_t column;
        Target target;
    };

    // The rows of the plain reading; those of the opt-in readings go through
    // the one function that finish() chose for the plan and the readings.
    bool storePlain(const char* line, const char* end, std::uint64_t row) const;
    using StoreFunction = bool (RowPlan::*)(const char*, const char*, std::uint64_t) const;
    StoreFunction chooseStore() const;
    template <bool Whole, bool Blanks, char Point>
    StoreFunction chooseIn() const;

    // `store` for a plan whose targets are all of kind Only, or of any kinds.
    // Whole: every token read is a number in full and fits its type; Blanks:
    // runs of blanks and tabs separate; Point: the decimal separator.
    template <Kind Only, bool Whole = false, bool Blanks = false, char Point = '.'>
    bool storeRow(const char* line, const char* end, std::uint64_t row) const;
    template <Kind Only, bool Whole = false, bool Blanks = false, char Point = '.'>
    bool storeDense(const char* line, const char* end, std::uint64_t row) const;
    // Converts the number at the start of [p, stop) into the component at
    // `into`, of kind Only or, for Mixed, of `kind`; gives the number's end.
    // Whole: false also for an integer outside its type's range.
    template <Kind Only, bool Whole = false, char Point = '.'>
    static bool convertInto(Kind kind, const char* p, const char* stop, std::byte* into, const char*& numberEnd);

    // A blank or tab that pads a token (and is not the delimiter), or, with
    // Blanks, one that separates tokens.
    template <bool Blanks>
    bool isPad(char c) const {
        return (c == ' ' || c == '\t') && (Blanks || c != delimiter_);
    }
    template <bool Blanks>
    [[gnu::always_inline]] const char* skipPads(const char* p, const char* end) const {
        while (p != end && isPad<Blanks>(*p)) ++p;
        return p;
    }

    // With runs of blanks: a line's end moved back before its trailing blanks
    // and tabs, which hold no token.  A number's end never lies among them.
    static const char* withoutTrailingBlanks(const char* line, const char* end) {
        while (end != line && (end[-1] == ' ' || end[-1] == '\t')) --end;
        return end;
    }
    // The end of the run of blanks and tabs at p, in a line that ends in
    // neither and of which p is no further than the last byte: the run ends
    // inside the line, so that the byte by byte steps need not look at the
    // line's end.  A single blank, the most common run, costs one look;
    // longer runs go four blanks at a time, then byte by byte.  Every
    // step is a branch: the runs of aligned columns have the same lengths
    // from row to row, which the branch predictor learns, so that the next
    // number is read ahead, where a skip whose length is computed from the
    // bytes (the lowest set bit of a word or a vector's mask) would hold that
    // number up until those bytes have been loaded and looked at.
    [[gnu::always_inline]] static const char* skipRun(const char* p, const char* end) {
        if (*p != ' ' && *p != '\t') return p;
        while (end - p >= 4) {
            std::uint32_t four;
            std::memcpy(&four, p, sizeof four);
            if (four != 0x20202020u) break;
            p += 4;
        }
        while (*p == ' ' || *p == '\t') ++p;
        return p;
    }

    char delimiter_ = ' ';
    std::uint8_t mode_ = 0;  // the opt-in readings as bits: 1 whole tokens, 2 whitespace, 4 decimal comma
    StoreFunction chosen_ = &RowPlan::storePlain;
    Kind uniform_ = Kind::Mixed;  // the one kind of all targets, or Mixed
    bool dense_ = false;          // each of the tokens 0 to n-1 read by one target, no other token needed
    // A delimiter that can stand inside a number ('.', 'e', a digit, ...) would
    // be read as part of it; the token's end is then found before its number.
    bool delimiterInNumbers_ = false;
    std::uint32_t highestColumn_ = 0;
    std::vector<Pending> pending_;
    std::vector<Target> targets_;
    std::vector<Token> tokens_;
};

}  // namespace Pallion
