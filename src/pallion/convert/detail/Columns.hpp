// The working records of the converter: one column per parse-string entry,
// kept in one holder per element type.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pallion/array/ElementTraits.hpp"
#include "pallion/convert/Parameter.hpp"
#include "pallion/convert/detail/Fragments.hpp"
#include "pallion/detail/Platform.hpp"
#include "pallion/memory/Chunk.hpp"
#include "ravelin/Cacheable.hpp"
#include "tessel/Grid.hpp"

namespace Pallion {

template <class T>
struct ColumnContainer {
    std::string FieldName;
    std::vector<std::uint32_t> Columns;
    Tessel::FieldPtr Field;
    Ravelin::StrongPtr<Ravelin::Chunk<T>, Ravelin::ChunkBase> Chunk;
    T* rows = nullptr;      // the storage of `Chunk`, so that storing a row needs no pointer test
    std::size_t Entry = 0;  // the index of the column's entry in Container

    // Gives the column a fresh chunk with room for `count` rows and none in
    // it yet: its pages are touched only when `resize` lets rows in, so a
    // short table costs the pages of its rows and not those of the block.
    void renew(std::size_t count) {
        Chunk = new Ravelin::Chunk<T>(count, true);
        platform::adviseHugePages(Chunk->data(), count * sizeof(T));
        rows = Chunk->data();
    }

    // Sets the chunk's size to `count` rows, within its capacity: new rows are
    // zero, and the storage stays where `rows` points.  TotalMemsize counts a
    // chunk as it was made, so the growth leaves it alone.
    void resize(std::size_t count) { Chunk->resize(count); }

    // Hands the chunk to the field as one fragment, without copying it.
    void flushColumn(const std::uint64_t& fragmentCount, const std::string& currentFile,
                     const FragmentHook& onFragment) {
        const Tessel::FragmentPtr fragment = Field->makeFragmentID(fragmentName(currentFile, fragmentCount));
        if (onFragment) onFragment(ChunkPtr(Chunk), FieldName, currentFile);
        storeAsFragment(*Field, fragment, Chunk);
    }
};

template <class T>
struct TypedColumns {
    Tessel::TesselTypeIndex TypeId = Tessel::typeIndexOf<T>();
    std::vector<ColumnContainer<T>> Entries;
};

}  // namespace Pallion
