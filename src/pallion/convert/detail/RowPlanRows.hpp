// The row loops of RowPlan, for every reading: included by RowPlan.cpp, which
// instantiates the plain reading's, and by RowPlanReadings.cpp, which
// instantiates the opt-in readings'.  Two translation units, so that the
// compiler's inlining of the number conversion into the plain loops is not
// shared out among the many loops of the readings.
#pragma once

#include <cstring>

#include "pallion/convert/detail/FastNumbers.hpp"
#include "pallion/convert/detail/RowPlan.hpp"

namespace Pallion {

namespace detail {

// The number at p as C, written to `into`; always inlined into the row loops, as fastNumber is.
template <class C, char Point>
[[gnu::always_inline]] inline bool storeNumber(const char* p, const char* stop, std::byte* into,
                                               const char*& numberEnd) {
    C value;
    if (!fastNumber<C, Point>(p, stop, value, numberEnd)) return false;
    std::memcpy(into, &value, sizeof value);
    return true;
}

// The same for a whole token of an integer type: the int's value must lie in
// [lowest, highest] before C keeps its low bits.
template <class C>
[[gnu::always_inline]] inline bool storeWithin(const char* p, const char* stop, std::byte* into, const char*& numberEnd,
                                               std::int64_t lowest, std::int64_t highest) {
    int wide;
    if (!fastNumber<int>(p, stop, wide, numberEnd) || wide < lowest || wide > highest) return false;
    const auto value = static_cast<C>(wide);
    std::memcpy(into, &value, sizeof value);
    return true;
}

}  // namespace detail

template <RowPlan::Kind Only, bool Whole, char Point>
[[gnu::always_inline]] inline bool RowPlan::convertInto(Kind kind, const char* p, const char* stop, std::byte* into,
                                                        const char*& numberEnd) {
    using detail::storeNumber;
    using detail::storeWithin;
    switch (Only == Kind::Mixed ? kind : Only) {
        case Kind::Double:
            return storeNumber<double, Point>(p, stop, into, numberEnd);
        case Kind::Float:
            return storeNumber<float, Point>(p, stop, into, numberEnd);
        case Kind::Bits8:
            if constexpr (Whole) return storeWithin<std::uint8_t>(p, stop, into, numberEnd, 0, 255);
            return storeNumber<std::uint8_t, Point>(p, stop, into, numberEnd);
        case Kind::Bits16:
            if constexpr (Whole) return storeWithin<std::uint16_t>(p, stop, into, numberEnd, 0, 65535);
            return storeNumber<std::uint16_t, Point>(p, stop, into, numberEnd);
        case Kind::UBits32:
            // Above 2147483647 the standard way decides, as it does for an int.
            if constexpr (Whole) return storeWithin<std::uint32_t>(p, stop, into, numberEnd, 0, 2147483647);
            return storeNumber<std::uint32_t, Point>(p, stop, into, numberEnd);
        case Kind::Bits32:
        case Kind::Mixed:  // never a target's kind
            return storeNumber<std::uint32_t, Point>(p, stop, into, numberEnd);
    }
    return false;
}

template <RowPlan::Kind Only, bool Whole, bool Blanks, char Point>
inline bool RowPlan::storeDense(const char* p, const char* end, std::uint64_t row) const {
    const Target* target = targets_.data();
    const Target* const last = target + targets_.size();
    if constexpr (Blanks) {
        end = withoutTrailingBlanks(p, end);
        if (p != end) p = skipRun(p, end);
    }
    for (;;) {
        if (p == end) return false;  // the line has no such token
        const char* numberEnd = p;
        std::byte* into = target->rows + row * target->stride + target->offset;
        if (!convertInto<Only, Whole, Point>(target->kind, p, end, into, numberEnd)) {
            // Blanks before a number, which the standard functions skip: looked for only here, off the usual way.
            if (!Whole || Blanks || !isPad<false>(*p)) return false;
            p = skipPads<false>(p, end);
            if (p == end || !convertInto<Only, Whole, Point>(target->kind, p, end, into, numberEnd)) return false;
        }
        if (++target == last) {
            if constexpr (!Whole) return true;
            // Only blanks may stand between the number and the end of its token.
            if (numberEnd == end) return true;
            if constexpr (Blanks) return isPad<true>(*numberEnd);
            const char* after = skipPads<false>(numberEnd, end);
            return after == end || *after == delimiter_;
        }
        if constexpr (Blanks) {
            // The token ends at the first blank behind its number: usually right there.
            if (numberEnd != end && isPad<true>(*numberEnd)) {
                p = numberEnd + 1;
            } else {
                if constexpr (Whole) return false;
                p = numberEnd;
                while (p != end && !isPad<true>(*p)) ++p;
                if (p == end) return false;  // the line has no further token
            }
            p = skipRun(p, end);
        } else if (numberEnd != end && *numberEnd == delimiter_) {
            // The token ends at the first delimiter behind its number: usually right there.
            p = numberEnd + 1;
        } else if constexpr (Whole) {
            const char* after = skipPads<false>(numberEnd, end);
            if (after == end || *after != delimiter_) return false;
            p = after + 1;
        } else {
            const void* cut = std::memchr(numberEnd, delimiter_, static_cast<std::size_t>(end - numberEnd));
            p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
        }
    }
}

template <RowPlan::Kind Only, bool Whole, bool Blanks, char Point>
inline bool RowPlan::storeRow(const char* p, const char* end, std::uint64_t row) const {
    std::uint32_t index = 0;  // the token that starts at p
    if constexpr (Blanks) {
        end = withoutTrailingBlanks(p, end);
        if (p != end) p = skipRun(p, end);
    }
    for (const Token& token : tokens_) {
        for (; index < token.column; ++index) {
            if constexpr (Blanks) {
                while (p != end && !isPad<true>(*p)) ++p;
                if (p == end) return false;
                p = skipRun(p, end);
            } else {
                const void* cut = std::memchr(p, delimiter_, static_cast<std::size_t>(end - p));
                if (cut == nullptr) return false;
                p = static_cast<const char*>(cut) + 1;
            }
        }
        if (p == end) return false;  // the line has no such token
        if (token.targetCount == 0) return true;

        const char* stop = end;
        if (delimiterInNumbers_)
            if (const void* cut = std::memchr(p, delimiter_, static_cast<std::size_t>(end - p)))
                stop = static_cast<const char*>(cut);
        // Blanks before a number are skipped as the standard functions skip them.
        const char* number = Whole && !Blanks ? skipPads<false>(p, stop) : p;
        const char* numberEnd = number;
        const char* tokenEnd = nullptr;  // Whole: where the token's blanks behind the number end
        for (std::uint32_t t = token.firstTarget; t < token.firstTarget + token.targetCount; ++t) {
            const Target& target = targets_[t];
            std::byte* into = target.rows + row * target.stride + target.offset;
            const bool stored = convertInto<Only, Whole, Point>(target.kind, number, stop, into, numberEnd);
            if (!stored) return false;
            if constexpr (Whole) {
                // Every reading of the token must take it in full, up to the blanks behind it.
                if constexpr (Blanks) {
                    if (numberEnd != end && !isPad<true>(*numberEnd)) return false;
                    tokenEnd = numberEnd;
                } else {
                    const char* after = skipPads<false>(numberEnd, stop);
                    if (after != stop && (stop != end || *after != delimiter_)) return false;
                    tokenEnd = after;
                }
            }
        }
        if constexpr (Blanks) {
            const char* q = Whole ? tokenEnd : numberEnd;
            while (q != end && !isPad<true>(*q)) ++q;
            p = q == end ? end : skipRun(q, end);
        } else {
            const char* from = Whole ? tokenEnd : numberEnd;
            // The token ends at the first delimiter behind its number: usually right there.
            const void* cut = from != end && *from == delimiter_
                                  ? from
                                  : std::memchr(from, delimiter_, static_cast<std::size_t>(end - from));
            p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
        }
        ++index;
    }
    return true;
}

}  // namespace Pallion
