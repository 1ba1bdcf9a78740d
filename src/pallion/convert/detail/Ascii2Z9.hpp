// The text table converter: delimited text files into typed fields of a grid.
#pragma once

#include <string>
#include <tuple>

#include "pallion/Pallion.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/Parameter.hpp"
#include "pallion/convert/detail/Columns.hpp"
#include "pallion/convert/detail/RowPlan.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

namespace detail {
template <class Tuple>
struct HoldersOf;
template <class... T>
struct HoldersOf<std::tuple<T...>> {
    using type = std::tuple<TypedColumns<T>...>;
};
}  // namespace detail

// One conversion: lives for one call of ascii2z9.
class Ascii2Z9 {
public:
    using Holders = detail::HoldersOf<Tessel::ElementTypes>::type;

    Ascii2Z9(Parameter& settings, Tessel::Grid& output) : parameter(settings), grid(output) {}
    Ascii2Z9(const Ascii2Z9&) = delete;
    Ascii2Z9& operator=(const Ascii2Z9&) = delete;

    std::string run();

    template <class T>
    void openColumns(TypedColumns<T>& holder);
    void storeLine();
    void flushBlock();
    void flushRemainder();

private:
    std::string readFile(const std::string& name);
    // Splits the line into `Tokens` as far as a row needs it; gives the token count.
    std::size_t splitLine(const char* line, std::size_t length);
    // Counts the row just written, and flushes the block when it is full.
    void finishRow();
    // Plans the fast rows for the chunks the columns hold now.
    void planRows();

    template <class F>
    void forEachHolder(F&& f) {
        std::apply([&](auto&... holder) { (f(holder), ...); }, holders);
    }

    // The converter's documented fields keep their names; the constructor's
    // arguments are named apart from them.
    Parameter& parameter;  // NOLINT(readability-identifier-naming)
    Tessel::Grid& grid;    // NOLINT(readability-identifier-naming)
    Holders holders;       // NOLINT(readability-identifier-naming)
    RowPlan plan_;
    bool fastRows_ = false;
};

}  // namespace Pallion
