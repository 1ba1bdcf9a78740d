// What the stand-in of the grid library exports.  Its shared library is built with hidden
// visibility; the classes and functions marked with TESSEL_API are the ones
// that the converter library and hosts call.
#pragma once

#define TESSEL_API __attribute__((visibility("default")))
