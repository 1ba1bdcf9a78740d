// What the library's shared libraries export.  They are built with hidden
// visibility, so that their internals (the line reader, the row plan, the
// splitter, the number conversion...) stay inside them; PALLION_API marks
// the entries a host calls, and the header-side templates whose static
// objects must be one per process however many shared libraries instantiate
// them (see the places where it is used).
#pragma once

#define PALLION_API __attribute__((visibility("default")))
