#include "convert/RowPlan.hpp"

#include <algorithm>

namespace Pallion {

void RowPlan::start(char lineDelimiter, std::uint32_t highest) {
    delimiter = lineDelimiter;
    delimiterInNumbers = detail::isDigit(lineDelimiter) || std::strchr(".eE+-", lineDelimiter) != nullptr;
    if (lineDelimiter == '\0') delimiterInNumbers = false;  // strchr finds the terminator
    highestColumn = highest;
    pending.clear();
    targets.clear();
    tokens.clear();
}

void RowPlan::finish() {
    std::stable_sort(pending.begin(), pending.end(),
                     [](const Pending& a, const Pending& b) { return a.column < b.column; });
    for (const Pending& p : pending) {
        if (tokens.empty() || tokens.back().column != p.column)
            tokens.push_back({p.column, static_cast<std::uint32_t>(targets.size()), 0});
        targets.push_back(p.target);
        ++tokens.back().targetCount;
    }
    if (tokens.empty() || tokens.back().column < highestColumn) tokens.push_back({highestColumn, 0, 0});
    pending.clear();
}

bool RowPlan::store(const char* p, const char* end, std::uint64_t row) const {
    std::uint32_t index = 0;  // the token that starts at p
    for (const Token& token : tokens) {
        for (; index < token.column; ++index) {
            const void* cut = std::memchr(p, delimiter, static_cast<std::size_t>(end - p));
            if (cut == nullptr) return false;
            p = static_cast<const char*>(cut) + 1;
        }
        if (p == end) return false;  // the line has no such token
        if (token.targetCount == 0) return true;

        const char* stop = end;
        if (delimiterInNumbers)
            if (const void* cut = std::memchr(p, delimiter, static_cast<std::size_t>(end - p)))
                stop = static_cast<const char*>(cut);
        const char* numberEnd = p;
        for (std::uint32_t t = token.firstTarget; t < token.firstTarget + token.targetCount; ++t) {
            const Target& target = targets[t];
            if (!target.convert(p, stop, target.rows + row * target.stride + target.offset, numberEnd)) return false;
        }
        // The token ends at the first delimiter behind its number: usually right there.
        const void* cut = numberEnd != end && *numberEnd == delimiter
                              ? numberEnd
                              : std::memchr(numberEnd, delimiter, static_cast<std::size_t>(end - numberEnd));
        p = cut != nullptr ? static_cast<const char*>(cut) + 1 : end;
        ++index;
    }
    return true;
}

}  // namespace Pallion
