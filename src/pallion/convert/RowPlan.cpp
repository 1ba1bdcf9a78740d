#include "pallion/convert/detail/RowPlan.hpp"

#include <algorithm>

#include "pallion/convert/detail/RowPlanRows.hpp"

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
    if (mode_ != 0) chosen_ = chooseStore();
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

}  // namespace Pallion
