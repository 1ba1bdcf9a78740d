// A counted block of memory, handed around without knowledge of its element type.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#include "pallion/memory/Pointers.hpp"

namespace Ravelin {

class ChunkBase;
// The counted pointer through which chunks are handed around.
using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;

class ChunkBase : public ReferenceBase<ChunkBase> {
public:
    // Bytes held by all chunks: elements times element size, as made.
    static std::atomic<std::int64_t> TotalMemsize;

    ChunkBase() = default;
    ~ChunkBase() override = default;

    virtual std::size_t elementCount() const = 0;
    virtual std::size_t elementSize() const = 0;
    virtual void* rawData() = 0;
    virtual const void* rawData() const = 0;
    virtual const std::type_info& elementType() const = 0;
    virtual const std::type_info& baseType() const = 0;
    virtual ChunkPtr createChunk(std::size_t count, bool reserveOnly) const = 0;
    virtual ChunkPtr clone() const = 0;

protected:
    // What this chunk added to TotalMemsize when it was made, so that its
    // destructor takes off the same, whatever its size has become since.
    std::int64_t accountedBytes_ = 0;
};

}  // namespace Ravelin
