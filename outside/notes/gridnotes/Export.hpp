// What the stand-in of the grid notes exports.  Its shared library is built with hidden
// visibility; the classes and functions marked with GRIDNOTES_API are the ones
// that the converter library and hosts call.
#pragma once

#define GRIDNOTES_API __attribute__((visibility("default")))
