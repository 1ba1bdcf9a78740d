#include "pallion/convert/Parameter.hpp"

#include "pallion/convert/detail/Messages.hpp"

namespace Pallion {

std::string Parameter::speak() const {
    namespace M = messages::convert;
    std::string text;
    text.append(M::SpeakDelimiter).append(1, Delimiter).append(M::SpeakDelimiterEnd);
    text.append(M::SpeakHeaderLines).append(std::to_string(HeaderLines)).append(M::SpeakEnd);
    text.append(M::SpeakParse).append(Parse).append(M::SpeakEnd);
    text.append(M::SpeakChunkSize).append(std::to_string(ChunkSize)).append(M::SpeakEnd);
    text.append(M::SpeakEPSG).append(std::to_string(EPSG)).append(M::SpeakEnd);
    return text;
}

}  // namespace Pallion
