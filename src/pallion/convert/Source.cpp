#include "pallion/convert/Source.hpp"

#include <utility>

#include "pallion/detail/Platform.hpp"

namespace Pallion {

Source::~Source() = default;

namespace {

// A file opened by name and read as it is.  A read error ends the text as its
// end would: that is how the plain reading has always taken one (a getline
// loop stops at badbit as at eofbit).
class FileSource final : public Source {
public:
    FileSource(const std::string& name, const SourceOpening& how) {
        do descriptor_ = platform::openForReading(name, how.nonBlocking);
        while (descriptor_ == platform::Interrupted && (!how.stillWanted || how.stillWanted()));
        if (descriptor_ == platform::Interrupted) interrupted_ = true;
        if (descriptor_ < 0) {
            descriptor_ = -1;
            return;
        }
        const platform::FileStatus status = platform::statusOf(descriptor_);
        if (status.kind == platform::FileKind::Regular) size_ = status.size;
        platform::adviseSequential(descriptor_);
    }
    ~FileSource() override {
        if (descriptor_ >= 0) platform::closeFile(descriptor_);
    }
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    bool isOpen() const override { return descriptor_ >= 0; }
    bool openInterrupted() const override { return interrupted_; }
    std::int64_t size() const override { return size_; }

    std::int64_t read(char* into, std::size_t count) override {
        if (descriptor_ < 0) return 0;
        const std::int64_t got = platform::readSome(descriptor_, into, count);
        if (got == platform::Interrupted) return Interrupted;
        return got < 0 ? 0 : got;
    }

    // Only a regular file moves; a file of /proc shows the size 0 and is read through.
    bool seek(std::uint64_t offset) override { return size_ > 0 && platform::seekTo(descriptor_, offset); }

private:
    int descriptor_ = -1;
    std::int64_t size_ = -1;
    bool interrupted_ = false;
};

}  // namespace

SourcePtr openFileSource(const std::string& name, const SourceOpening& how) { return {new FileSource(name, how)}; }

SourcePtr openSource(const SourceFactory& factory, const std::string& name, const SourceOpening& how) {
    return factory ? factory(name, how) : openFileSource(name, how);
}

}  // namespace Pallion
