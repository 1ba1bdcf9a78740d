// The comparable description of an element type.
#pragma once

#include <cstdint>
#include <string>

namespace Tessel {

struct TesselTypeIndex {
    std::uint32_t components = 0;
    std::uint32_t byteSize = 0;
    std::uint32_t kindA = 0;
    std::uint32_t kindB = 0;
    std::uint32_t componentSize = 0;
    std::string typeName;
    std::string componentTypeName;
    std::string domainName;
    std::uint32_t domainDimension = 0;

    friend bool operator==(const TesselTypeIndex&, const TesselTypeIndex&) = default;
};

}  // namespace Tessel
