// What the stand-in of the trajectory readers exports.  Its shared library is built with hidden
// visibility; the classes and functions marked with RIEGL_API are the ones
// that the converter library and hosts call.
#pragma once

#define RIEGL_API __attribute__((visibility("default")))
