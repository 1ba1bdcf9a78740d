// Trajectory readers and the GPS time adjustment.
//
// These stand-ins read this project's own trajectory layouts, not the scanner
// maker's formats; a host that has the maker's readers links those instead.
//
// Both layouts are binary, little-endian:
//   bytes 0-7    magic: "PALPOF1" and a NUL for .pof, "PALPOFX1" for .pofx
//   bytes 8-11   int32 EPSG code of the positions (0: not stated)
//   bytes 12-15  uint32, reserved, 0
//   bytes 16-23  uint64 number of records
//   then that many records of seven float64: GPS time, x, y, z, roll, pitch, yaw.
// A .pof holds times as they are to be stored; a .pofx holds GPS seconds of the
// week, which the caller's callback adjusts chunk by chunk before they are stored.
//
// Each reader gives the fields "Positions" (points), "GPSTime", "Roll", "Pitch"
// and "Yaw" (doubles), in fragments of up to 10000000 records named after the
// file's stem and the running block number, as the text converter does.  A
// failure is a text that begins with the reader's name; they throw nothing of their own.
#pragma once

#include "riegl/Export.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ravelin/ChunkBase.hpp"
#include "ravelin/LoaderProgress.hpp"
#include "tessel/Grid.hpp"

namespace Riegl {

using Ravelin::ChunkPtr;
using Ravelin::ProgressPtr;
using ChunkCallback = std::function<void(const ChunkPtr&, const std::string&)>;

// Reads a .pofx file; calls `callback` once per chunk and field, before the chunk is stored.
RIEGL_API std::string pofx2tessel(const std::string& fileName, Tessel::Grid& grid, const int& epsg,
                                  const ChunkCallback& callback, const Ravelin::ProgressPtr& progress);

// Turns the "GPSTime" chunk from GPS seconds of the week into seconds of the
// day `weekDay` (Sunday = 0), by taking weekDay * 86400 off each value.  Chunks
// of other fields are left alone.  When a time does not lie within that day
// (0 <= t < 86400 after the change), or the chunk holds no doubles, the chunk is
// left unchanged and `failure` gets a text, unless it already holds one.
RIEGL_API void modifyGPSTime(std::string& failure, const int& weekDay, const ChunkPtr& chunk,
                             const std::string& fieldName);

// One record of a trajectory file.
using Record = std::array<double, 7>;
// Writes a trajectory file of this project's layout (for tests and samples).
RIEGL_API bool writeTrajectoryFile(const std::string& fileName, bool extended, std::int32_t epsg,
                                   const std::vector<Record>& records);

}  // namespace Riegl

namespace Pallion {

// Reads a .pof file.
RIEGL_API std::string convertPOFtoZ9(const std::string& fileName, Tessel::Grid& grid, const int& epsg,
                                     const Ravelin::ProgressPtr& progress);

}  // namespace Pallion
