#pragma once

#include "ravelin/Export.hpp"

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

// Domain of the creators of arrays.  This library only passes such pointers on, as null.
class RAVELIN_API Creature : public ReferenceBase<Creature> {};

}  // namespace Ravelin
