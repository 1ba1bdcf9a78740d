// The fast number conversion against std::stod, std::stof and std::stoi on
// any text: the same bits, or the same exception kind and text.
#include "FuzzSupport.hpp"
#include "NumberTokens.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string token(reinterpret_cast<const char*>(data), size);
    if (!numbertokens::sameAsStandard<double>(token)) fuzzsupport::finding("double differs: \"" + token + '"');
    if (!numbertokens::sameAsStandard<float>(token)) fuzzsupport::finding("float differs: \"" + token + '"');
    if (!numbertokens::sameAsStandard<int>(token)) fuzzsupport::finding("int differs: \"" + token + '"');
    return 0;
}
