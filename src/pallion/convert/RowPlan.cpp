#include "pallion/convert/detail/RowPlan.hpp"

#include <algorithm>

#include "pallion/convert/detail/FastNumbers.hpp"

namespace Pallion {

RowPlan::Kind RowPlan::kindOf(bool floating, std::size_t width) {
    if (floating) return width == sizeof(double) ? Kind::Double : Kind::Float;
    if (width == 1) return Kind::Bits8;
    if (width == 2) return Kind::Bits16;
    return Kind::Bits32;  // int and unsigned int alike: the same 32 bits
}

void RowPlan::start(char lineDelimiter, std::uint32_t highest) {
    delimiter_ = lineDelimiter;
    delimiterInNumbers_ = detail::isDigit(lineDelimiter) || std::strchr(".eE+-", lineDelimiter) != nullptr;
    if (lineDelimiter == '\0') delimiterInNumbers_ = false;  // strchr finds the terminator
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

bool RowPlan::store(const char* line, const char* end, std::uint64_t row) const {
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

template <RowPlan::Kind Only>
inline bool RowPlan::convertInto(Kind kind, const char* p, const char* stop, std::byte* into, const char*& numberEnd) {
    const auto store = [&]<class C>() {
        C value;
        if (!detail::fastNumber(p, stop, value, numberEnd)) return false;
        std::memcpy(into, &value, sizeof value);
        return true;
    };
    switch (Only == Kind::Mixed ? kind : Only) {
        case Kind::Double:
            return store.template operator()<double>();
        case Kind::Float:
            return store.template operator()<float>();
        case Kind::Bits8:
            return store.template operator()<std::uint8_t>();
        case Kind::Bits16:
            return store.template operator()<std::uint16_t>();
        case Kind::Bits32:
        case Kind::Mixed:  // never a target's kind
            return store.template operator()<std::uint32_t>();
    }
    return false;
}

template <RowPlan::Kind Only>
bool RowPlan::storeDense(const char* p, const char* end, std::uint64_t row) const {
    const Target* target = targets_.data();
    const Target* const last = target + targets_.size();
    for (;;) {
        if (p == end) return false;  // the line has no such token
        const char* numberEnd = p;
        if (!convertInto<Only>(target->kind, p, end, target->rows + row * target->stride + target->offset, numberEnd))
            return false;
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

template <RowPlan::Kind Only>
bool RowPlan::storeRow(const char* p, const char* end, std::uint64_t row) const {
    std::uint32_t index = 0;  // the token that starts at p
    for (const Token& token : tokens_) {
        for (; index < token.column; ++index) {
            const void* cut = std::memchr(p, delimiter_, static_cast<std::size_t>(end - p));
            if (cut == nullptr) return false;
            p = static_cast<const char*>(cut) + 1;
        }
        if (p == end) return false;  // the line has no such token
        if (token.targetCount == 0) return true;

        const char* stop = end;
        if (delimiterInNumbers_)
            if (const void* cut = std::memchr(p, delimiter_, static_cast<std::size_t>(end - p)))
                stop = static_cast<const char*>(cut);
        const char* numberEnd = p;
        for (std::uint32_t t = token.firstTarget; t < token.firstTarget + token.targetCount; ++t) {
            const Target& target = targets_[t];
            std::byte* into = target.rows + row * target.stride + target.offset;
            const bool stored = convertInto<Only>(target.kind, p, stop, into, numberEnd);
            if (!stored) return false;
        }
        // The token ends at the first delimiter behind its number: usually right there.
        const void* cut = numberEnd != end && *numberEnd == delimiter_
                              ? numberEnd
                              : std::memchr(numberEnd, delimiter_, static_cast<std::size_t>(end - numberEnd));
        p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
        ++index;
    }
    return true;
}

}  // namespace Pallion
