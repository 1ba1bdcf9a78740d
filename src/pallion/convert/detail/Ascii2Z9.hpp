// The text table converter: delimited text files into typed fields of a grid.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "pallion/Pallion.hpp"
#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/Parameter.hpp"
#include "pallion/convert/detail/Columns.hpp"
#include "pallion/convert/detail/RowPlan.hpp"
#include "pallion/convert/detail/TokenConversion.hpp"
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
    // Whether the line [line, end), its CR already taken off, is a comment
    // or an empty line, which the opt-in line rules skip.
    bool skipLine(const char* line, const char* end) const;
    // storeLine for the opt-in readings of tokens (whole tokens, decimal
    // commas): gives the failure text of a refused token, else stores the row.
    std::string storeChecked(std::uint64_t line);
    // The failure text and record of a token the whole-token check refused.
    template <class C>
    std::string refuseToken(TokenVerdict verdict, std::uint32_t column, const std::string& token, const char* type,
                            std::uint64_t line);
    // Fills the failure record for the exception that a token of the row in
    // `Tokens` is throwing: the first component, in the order of storeLine,
    // whose conversion throws.
    void noteTokenException(std::uint64_t line);
    // Sets the failure record's kind, file and line, and gives `text`.
    std::string fail(FailureKind kind, std::string text, std::uint64_t line = 0);
    // Splits the line into `Tokens` as far as a row needs it; gives the token count.
    std::size_t splitLine(const char* line, std::size_t length);
    // Counts the row just written, and flushes the block when it is full.
    void finishRow();
    // Plans the fast rows for the chunks the columns hold now.
    void planRows();
    // Lets every column's chunk hold row BlockFill, growing them by up to GrowthStep
    // rows at a time up to ChunkSize: each step's pages are zeroed just before
    // its rows are written, while they are in the cache, and a block is at its
    // full size when it is flushed.
    // False where the host's chunks of the block (BlockChunks) hold no row BlockFill.
    bool makeRoom() { return parameter.BlockFill < grown_ || growColumns(); }
    bool growColumns();
    // The chunks of block FragmentCount from the host (BlockChunks); false
    // where they hold no row BlockFill.
    bool takeHostBlock();
    // Ends the columns' hold on their chunks: the block being filled is lost.
    void releaseColumns();

    template <class F>
    void forEachHolder(F&& f) {
        std::apply([&](auto&... holder) { (f(holder), ...); }, holders);
    }

    // The converter's documented fields keep their names; the constructor's
    // arguments are named apart from them.
    Parameter& parameter;
    Tessel::Grid& grid;
    Holders holders;
    RowPlan plan_;
    RowPlan::Reading reading_;
    // Under any opt-in reading a CR before the line feed belongs to the line end.
    bool lineRules_ = false;
    bool skipRules_ = false;  // comment or empty lines are looked for
    bool checked_ = false;    // tokens go the standard way through storeChecked
    bool fastRows_ = false;
    bool hostBlocks_ = false;  // the host makes the blocks' chunks and stores them
    static constexpr std::uint64_t FirstGrowthStep = 4096;
    static constexpr std::uint64_t GrowthStep = 16384;
    std::uint64_t grown_ = 0;  // the rows every column's chunk holds now
};

}  // namespace Pallion
