// Where the bytes of a table come from.  The text converter reads every file
// through a Source: by default the library's plain one, which opens the name
// and reads it once from front to back, whatever it is (a regular file, a
// pipe, a FIFO, a device).  A host that wants more (compressed files, memory)
// hands the converter a factory of its own in Parameter::OpenSource; the
// library itself depends on nothing new for that.
//
// A Source is made with new and put at once under a SourcePtr; nobody deletes
// it by hand.  One Source is read by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "pallion/Export.hpp"
#include "pallion/memory/Pointers.hpp"

namespace Pallion {

class PALLION_API Source : public Ravelin::ReferenceBase<Source> {
public:
    // What read() gives besides a count of bytes.
    static constexpr std::int64_t Failed = -1;       // the reading failed: failure() says why
    static constexpr std::int64_t Interrupted = -2;  // a wait was interrupted by a signal before anything came

    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() override;

    // Whether the open worked; a Source that did not open reads nothing.
    virtual bool isOpen() const = 0;
    // Whether the open gave up because the caller's stillWanted said no.
    virtual bool openInterrupted() const { return false; }

    // Reads up to `count` bytes of the text into `into`: the number read, 0
    // at the end, Failed or Interrupted.  A reader may call it again after
    // Interrupted.
    virtual std::int64_t read(char* into, std::size_t count) = 0;

    // The bytes of the text when known before it is read (a regular file read
    // as it is), else -1.  Only a Source with a size is ever read twice to
    // judge its lines.
    virtual std::int64_t size() const { return -1; }

    // Moves to byte `offset` of the text, before the first read; false where
    // the Source cannot (a pipe, a compressed stream): a reader then reads
    // and drops the bytes before it.
    virtual bool seek(std::uint64_t /*offset*/) { return false; }

    // Why the reading failed, naming the file, once read() gave Failed.
    virtual std::string failure() const { return {}; }
};

using SourcePtr = Ravelin::StrongPtr<Source>;

// How a Source is to be opened.
struct SourceOpening {
    // An open that would wait (a FIFO without a writer) fails at once instead.
    bool nonBlocking = false;
    // Asked whenever a wait in the open is interrupted by a signal: true waits
    // again, false gives up (openInterrupted()).  Empty: always wait again.
    std::function<bool()> stillWanted;
};

// A host's own way to open a file by name.  It may return the library's
// plain Source (openFileSource) for the names it does not handle itself.
// A null pointer counts as a file that cannot be opened.
using SourceFactory = std::function<SourcePtr(const std::string& name, const SourceOpening& how)>;

// The library's plain Source: `name` opened for reading as it is.
PALLION_API SourcePtr openFileSource(const std::string& name, const SourceOpening& how);

// The Source `factory` gives for `name`, or the plain one where `factory` is empty.
PALLION_API SourcePtr openSource(const SourceFactory& factory, const std::string& name, const SourceOpening& how);

}  // namespace Pallion
