#include "pallion/trajectory/detail/FilenameDatum.hpp"

#include <stdexcept>
#include <vector>

#include "pallion/convert/detail/Parse.hpp"
#include "pallion/trajectory/detail/Messages.hpp"
#include "ravelin/Console.hpp"

namespace Pallion {

int stoiAfterPrefix(std::string text, int prefix) {
    text.erase(0, std::min<std::size_t>(text.size(), static_cast<std::size_t>(prefix)));
    return std::stoi(text);
}

Ravelin::StrongPtr<GeoReferenceSystem> parseFilenameForGeoDatum(const std::filesystem::path& stem) {
    const std::string text = stem.string();
    std::vector<std::string> pieces;
    split(text.data(), text.size(), pieces, '_');
    if (pieces.size() != 6) {
        Ravelin::Console console;
        console << std::string(messages::trajectory::LayoutDoesNotFit) + text;
        return {};
    }
    const int height = stoiAfterPrefix(pieces[5], 4);
    const int spatial = stoiAfterPrefix(pieces[4], 4);
    const int fileNr = stoiAfterPrefix(pieces[2], 0);
    return Ravelin::StrongPtr<GeoReferenceSystem>(
        new GeoReferenceSystem(pieces[1], fileNr, spatial, height, pieces[3]));
}

std::string checkTrajectoryName(const std::string& stem) {
    using namespace messages::trajectory;
    const std::string& text = stem;
    std::vector<std::string> pieces;
    split(text.data(), text.size(), pieces, '_');
    if (pieces.size() != 6)
        return std::string(NamePieceCount) + text + std::string(NamePieceCountHas) + std::to_string(pieces.size()) +
               std::string(NamePieceCountEnd) + std::string(NameLayout);

    auto wrong = [&](std::size_t index, std::string_view meaning) {
        return std::string(NamePiece) + std::to_string(index) + std::string(meaning) + std::string(NamePieceOf) + text +
               std::string(NamePieceIs) + pieces[index];
    };
    struct NumberPiece {
        std::size_t index;
        int prefix;
        std::string_view meaning;
    };
    for (const NumberPiece& piece :
         {NumberPiece{5, 4, HeightPiece}, NumberPiece{4, 4, SpatialPiece}, NumberPiece{2, 0, FileNumberPiece}}) {
        try {
            (void)stoiAfterPrefix(pieces[piece.index], piece.prefix);
        } catch (const std::logic_error&) {  // what std::stoi throws: invalid_argument, out_of_range
            return wrong(piece.index, piece.meaning) + std::string(NamePieceNoNumber) +
                   (piece.prefix > 0 ? std::string(NamePieceNoNumberAfter) : std::string()) + std::string(NameLayout);
        }
    }
    try {
        const Tellus::Chronometry date(pieces[3]);
    } catch (const std::invalid_argument& failure) {
        return wrong(3, DatePiece) + std::string(NamePieceNoDate) + failure.what() + std::string(NameLayout);
    }
    return {};
}

}  // namespace Pallion
