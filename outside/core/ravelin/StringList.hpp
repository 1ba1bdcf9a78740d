#pragma once

#include "ravelin/Export.hpp"

#include <list>
#include <string>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

// A counted list of file names.
class RAVELIN_API StringList : public ReferenceBase<StringList>, public std::list<std::string> {
public:
    StringList() = default;
    StringList(std::initializer_list<std::string> names) : std::list<std::string>(names) {}
};

using StringListPtr = StrongPtr<StringList, StringList>;

}  // namespace Ravelin
