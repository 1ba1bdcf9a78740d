// Receiver of progress reports.  A host derives from it and overrides report();
// a false result asks the running conversion to stop.
#pragma once

#include "ravelin/Export.hpp"

#include <cstdint>
#include <mutex>
#include <string>

#include "ravelin/Interfaces.hpp"

namespace Ravelin {

class RAVELIN_API LoaderProgress : public Interface<LoaderProgress>, public std::mutex {
public:
    virtual bool report(const std::string& /*message*/, std::uint32_t /*value*/, std::uint32_t /*total*/) {
        return true;
    }
};

using ProgressPtr = StrongPtr<LoaderProgress, InterfaceBase>;

}  // namespace Ravelin
