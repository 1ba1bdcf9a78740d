#include "pallion/trajectory/FilenameDatum.hpp"

#include <vector>

#include "pallion/convert/Parse.hpp"
#include "pallion/trajectory/Messages.hpp"
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

}  // namespace Pallion
