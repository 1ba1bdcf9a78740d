#include "pallion/convert/detail/RowPlan.hpp"

#include <algorithm>

#include "pallion/convert/detail/FastNumbers.hpp"

namespace Pallion {

RowPlan::Kind RowPlan::kindOf(bool floating, bool isSigned, std::size_t width) {
    if (floating) return width == sizeof(double) ? Kind::Double : Kind::Float;
    if (width == 1) return Kind::Bits8;
    if (width == 2) return Kind::Bits16;
    return isSigned ? Kind::Bits32 : Kind::UBits32;  // the same 32 bits, apart only for a range
}

void RowPlan::start(char lineDelimiter, std::uint32_t highest, Reading reading) {
    delimiter_ = lineDelimiter;
    mode_ = static_cast<std::uint8_t>((reading.wholeTokens ? 1 : 0) | (reading.whitespace ? 2 : 0) |
                                      (reading.decimalComma ? 4 : 0));
    delimiterInNumbers_ = detail::isDigit(lineDelimiter) || std::strchr(".eE+-", lineDelimiter) != nullptr ||
                          (reading.decimalComma && lineDelimiter == ',');
    if (lineDelimiter == '\0') delimiterInNumbers_ = false;  // strchr finds the terminator
    if (reading.whitespace) delimiterInNumbers_ = false;     // blanks end every number
    highestColumn_ = highest;
    pending_.clear();
    targets_.clear();
    tokens_.clear();
}

void RowPlan::finish() {
    std::stable_sort(pending_.begin(), pending_.end(),
                     [](const Pending& a, const Pending& b) { return a.column < b.column; });
    for (const Pending& p : pending_) {
        if (tokens_.empty() || tokens_.back().column != p.column)
            tokens_.push_back({p.column, static_cast<std::uint32_t>(targets_.size()), 0});
        targets_.push_back(p.target);
        ++tokens_.back().targetCount;
    }
    if (tokens_.empty() || tokens_.back().column < highestColumn_) tokens_.push_back({highestColumn_, 0, 0});
    uniform_ = targets_.empty() ? Kind::Mixed : targets_.front().kind;
    for (const Target& target : targets_)
        if (target.kind != uniform_) uniform_ = Kind::Mixed;
    dense_ = !delimiterInNumbers_ && !targets_.empty() && tokens_.size() == targets_.size();
    for (std::uint32_t i = 0; i < tokens_.size() && dense_; ++i)
        dense_ = tokens_[i].column == i && tokens_[i].targetCount == 1;
    pending_.clear();
}

bool RowPlan::storePlain(const char* line, const char* end, std::uint64_t row) const {
    // One kind for every target, as in a table of points and doubles, takes
    // the choice of conversion out of the loop.
    // A dense plan, one component from each of the tokens 0, 1, 2, ... and
    // no delimiter that a number could hold, needs no bookkeeping of tokens.
    if (dense_) {
        switch (uniform_) {
            case Kind::Double:
                return storeDense<Kind::Double>(line, end, row);
            case Kind::Float:
                return storeDense<Kind::Float>(line, end, row);
            default:
                return storeDense<Kind::Mixed>(line, end, row);
        }
    }
    switch (uniform_) {
        case Kind::Double:
            return storeRow<Kind::Double>(line, end, row);
        case Kind::Float:
            return storeRow<Kind::Float>(line, end, row);
        default:
            return storeRow<Kind::Mixed>(line, end, row);
    }
}

template <RowPlan::Kind Only, bool Whole, char Point>
inline bool RowPlan::convertInto(Kind kind, const char* p, const char* stop, std::byte* into, const char*& numberEnd) {
    const auto store = [&]<class C>() {
        C value;
        if (!detail::fastNumber<C, Point>(p, stop, value, numberEnd)) return false;
        std::memcpy(into, &value, sizeof value);
        return true;
    };
    // A whole token must fit its type: the int's value is looked at before its low bits are kept.
    const auto storeWithin = [&]<class C>(std::int64_t lowest, std::int64_t highest) {
        int wide;
        if (!detail::fastNumber<int>(p, stop, wide, numberEnd) || wide < lowest || wide > highest) return false;
        const auto value = static_cast<C>(wide);
        std::memcpy(into, &value, sizeof value);
        return true;
    };
    switch (Only == Kind::Mixed ? kind : Only) {
        case Kind::Double:
            return store.template operator()<double>();
        case Kind::Float:
            return store.template operator()<float>();
        case Kind::Bits8:
            if constexpr (Whole) return storeWithin.template operator()<std::uint8_t>(0, 255);
            return store.template operator()<std::uint8_t>();
        case Kind::Bits16:
            if constexpr (Whole) return storeWithin.template operator()<std::uint16_t>(0, 65535);
            return store.template operator()<std::uint16_t>();
        case Kind::UBits32:
            // Above 2147483647 the standard way decides, as it does for an int.
            if constexpr (Whole) return storeWithin.template operator()<std::uint32_t>(0, 2147483647);
            return store.template operator()<std::uint32_t>();
        case Kind::Bits32:
        case Kind::Mixed:  // never a target's kind
            return store.template operator()<std::uint32_t>();
    }
    return false;
}

bool RowPlan::storeRead(const char* line, const char* end, std::uint64_t row) const {
    switch (mode_) {
        case 1:
            return storeIn<true, false, '.'>(line, end, row);
        case 2:
            return storeIn<false, true, '.'>(line, end, row);
        case 3:
            return storeIn<true, true, '.'>(line, end, row);
        case 4:
            return storeIn<false, false, ','>(line, end, row);
        case 5:
            return storeIn<true, false, ','>(line, end, row);
        case 6:
            return storeIn<false, true, ','>(line, end, row);
        case 7:
            return storeIn<true, true, ','>(line, end, row);
        default:
            return storePlain(line, end, row);
    }
}

template <bool Whole, bool Blanks, char Point>
bool RowPlan::storeIn(const char* line, const char* end, std::uint64_t row) const {
    if (dense_) {
        switch (uniform_) {
            case Kind::Double:
                return storeDense<Kind::Double, Whole, Blanks, Point>(line, end, row);
            case Kind::Float:
                return storeDense<Kind::Float, Whole, Blanks, Point>(line, end, row);
            default:
                return storeDense<Kind::Mixed, Whole, Blanks, Point>(line, end, row);
        }
    }
    switch (uniform_) {
        case Kind::Double:
            return storeRow<Kind::Double, Whole, Blanks, Point>(line, end, row);
        case Kind::Float:
            return storeRow<Kind::Float, Whole, Blanks, Point>(line, end, row);
        default:
            return storeRow<Kind::Mixed, Whole, Blanks, Point>(line, end, row);
    }
}

template <RowPlan::Kind Only, bool Whole, bool Blanks, char Point>
bool RowPlan::storeDense(const char* p, const char* end, std::uint64_t row) const {
    const Target* target = targets_.data();
    const Target* const last = target + targets_.size();
    // Blanks before a number are skipped as the standard functions skip them.
    if constexpr (Whole || Blanks) p = skipPads<Blanks>(p, end);
    for (;;) {
        if (p == end) return false;  // the line has no such token
        const char* numberEnd = p;
        if (!convertInto<Only, Whole, Point>(target->kind, p, end, target->rows + row * target->stride + target->offset,
                                             numberEnd))
            return false;
        if constexpr (Whole || Blanks) {
            // Whole: only blanks may stand between the number and the end of its token.
            const char* next = Whole ? skipPads<Blanks>(numberEnd, end) : numberEnd;
            const bool atBlank = Blanks && numberEnd != end && isPad<true>(*numberEnd);
            if (++target == last) return !Whole || next == end || atBlank || (!Blanks && *next == delimiter_);
            if constexpr (Blanks) {
                if (!atBlank) {
                    if (Whole) return false;
                    while (next != end && !isPad<true>(*next)) ++next;
                }
                p = skipPads<true>(next, end);
            } else {
                if (next != end && *next == delimiter_) {
                    p = skipPads<false>(next + 1, end);
                } else {
                    if (Whole || next == end) return false;
                    const void* cut = std::memchr(next, delimiter_, static_cast<std::size_t>(end - next));
                    p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
                }
            }
            continue;
        }
        if (++target == last) return true;
        // The token ends at the first delimiter behind its number: usually right there.
        if (numberEnd != end && *numberEnd == delimiter_) {
            p = numberEnd + 1;
        } else {
            const void* cut = std::memchr(numberEnd, delimiter_, static_cast<std::size_t>(end - numberEnd));
            p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
        }
    }
}

template <RowPlan::Kind Only, bool Whole, bool Blanks, char Point>
bool RowPlan::storeRow(const char* p, const char* end, std::uint64_t row) const {
    std::uint32_t index = 0;  // the token that starts at p
    if constexpr (Blanks) p = skipPads<true>(p, end);
    for (const Token& token : tokens_) {
        for (; index < token.column; ++index) {
            if constexpr (Blanks) {
                if (p == end) return false;
                while (p != end && !isPad<true>(*p)) ++p;
                p = skipPads<true>(p, end);
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
            p = skipPads<true>(q, end);
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
