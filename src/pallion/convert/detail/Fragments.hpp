// What the text converter does with each block and each file: it names its
// blocks after the file, stores each block's chunk as a fragment without
// copying it, spaces its progress reports and refuses a directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "pallion/array/MemArray.hpp"
#include "pallion/memory/Chunk.hpp"
#include "ravelin/Cacheable.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

// The name of block `number` of `file`: the file's stem and the number, with
// nothing between them ("points.txt", 0: "points0").
inline std::string fragmentName(const std::string& file, std::uint64_t number) {
    return std::filesystem::path(file).stem().string() + std::to_string(number);
}

// Hands `chunk` to `field` as the data of `fragment`: the chunk, at its present
// size, becomes the storage of a one-dimensional array.
template <class T>
void storeAsFragment(Tessel::Field& field, const Tessel::FragmentPtr& fragment,
                     const Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase>& chunk) {
    const auto& cache = Ravelin::Cache::MemCache();
    const std::uint64_t count = chunk->size();
    const Tessel::MemBase::Array array(
        new Tessel::MemArray<1, T>(Ravelin::ChunkPtr(chunk), {count}, Tessel::CreatorPtr()));
    field.setPersistentData(array, fragment, cache, std::string());
}

// The distance between two progress reports over `total` items: about a
// hundred reports, or one per item for fewer than a hundred.
inline std::uint64_t progressStep(std::uint64_t total) { return total > 99 ? total / 100 : 1; }

}  // namespace Pallion
