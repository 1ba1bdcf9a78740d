// What the stand-in of the date class exports.  Its shared library is built with hidden
// visibility; the classes and functions marked with TELLUS_API are the ones
// that the converter library and hosts call.
#pragma once

#define TELLUS_API __attribute__((visibility("default")))
