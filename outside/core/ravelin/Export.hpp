// What the stand-in of the core library exports.  Its shared library is built with hidden
// visibility; the classes and functions marked with RAVELIN_API are the ones
// that the converter library and hosts call.
#pragma once

#define RAVELIN_API __attribute__((visibility("default")))
