// Named values of a grid.  Each value is a chunk; names keep the order in
// which they were first set.
#pragma once

#include "ravelin/Export.hpp"

#include <string>
#include <utility>
#include <vector>

#include "ravelin/ChunkBase.hpp"

namespace Ravelin {

class RAVELIN_API Attributes {
public:
    void setAttribute(const std::string& key, const ChunkPtr& value);
    ChunkPtr getAttribute(const std::string& key) const;
    std::vector<std::string> names() const;
    std::size_t size() const { return entries_.size(); }

private:
    std::vector<std::pair<std::string, ChunkPtr>> entries_;
};

}  // namespace Ravelin
