// The HDF5 writer; built where HDF5 was found, and a refusal naming the
// missing library everywhere else.
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/Writers.hpp"

#ifdef PALLION_TOOLS_HDF5

#include <hdf5.h>
#include <unistd.h>

#include "pallion/memory/Chunk.hpp"
#include "pallion/tools/GridValues.hpp"
#include "pallion/tools/OutputFile.hpp"

namespace Pallion::Tools {

namespace {

// An HDF5 handle closed by its own close function at the end of a scope.
class Handle {
public:
    Handle(hid_t id, herr_t (*close)(hid_t)) : id_(id), close_(close) {}
    ~Handle() {
        if (id_ >= 0) close_(id_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator hid_t() const { return id_; }  // NOLINT: a handle stands for its id
    bool bad() const { return id_ < 0; }
    // Closes it now; false where the close failed.
    bool close() {
        const hid_t id = id_;
        id_ = -1;
        return id < 0 || close_(id) >= 0;
    }

private:
    hid_t id_;
    herr_t (*close_)(hid_t);
};

template <class C>
hid_t nativeType() {
    if constexpr (std::is_same_v<C, double>) return H5T_NATIVE_DOUBLE;
    if constexpr (std::is_same_v<C, float>) return H5T_NATIVE_FLOAT;
    if constexpr (std::is_same_v<C, int>) return H5T_NATIVE_INT;
    if constexpr (std::is_same_v<C, unsigned char>) return H5T_NATIVE_UCHAR;
    if constexpr (std::is_same_v<C, unsigned short>) return H5T_NATIVE_USHORT;
    return H5T_NATIVE_UINT;
}

// Writes `count` values of `type` as a one- or two-dimensional dataset, or an attribute.
// Writes `rows` x `columns` values of `type` as a one- or two-dimensional dataset.
bool writeDataset(hid_t parent, const std::string& name, hid_t type, const void* data, hsize_t rows, hsize_t columns) {
    const hsize_t dims[2] = {rows, columns};
    Handle space(H5Screate_simple(columns > 1 ? 2 : 1, dims, nullptr), H5Sclose);
    if (space.bad()) return false;
    Handle set(H5Dcreate2(parent, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Dclose);
    return !set.bad() && (rows == 0 || H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, data) >= 0) && set.close();
}

bool writeAttribute(hid_t parent, const std::string& name, hid_t type, const void* data, hsize_t count) {
    const hsize_t dims[1] = {count};
    Handle space(H5Screate_simple(1, dims, nullptr), H5Sclose);
    Handle attribute(H5Acreate2(parent, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return !attribute.bad() && H5Awrite(attribute, type, data) >= 0 && attribute.close();
}

// Variable-length strings, as a dataset or an attribute.
bool writeTexts(hid_t parent, const std::string& name, const std::vector<std::string>& texts, bool attribute) {
    std::vector<const char*> pointers;
    pointers.reserve(texts.size());
    for (const std::string& text : texts) pointers.push_back(text.c_str());
    const Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(type, H5T_VARIABLE);
    H5Tset_cset(type, H5T_CSET_UTF8);
    return attribute ? writeAttribute(parent, name, type, pointers.data(), pointers.size())
                     : writeDataset(parent, name, type, pointers.data(), pointers.size(), 1);
}

// A name HDF5 takes for a link: no '/', not ".".
std::string linkName(std::string name) {
    for (char& c : name)
        if (c == '/') c = '_';
    return name.empty() || name == "." ? "_" + name : name;
}

// Creation properties under which a group lists its members in the order they were made.
hid_t ordered(hid_t propertyClass) {
    const hid_t list = H5Pcreate(propertyClass);
    if (list >= 0 && H5Pset_link_creation_order(list, H5P_CRT_ORDER_TRACKED | H5P_CRT_ORDER_INDEXED) < 0) {
        H5Pclose(list);
        return -1;
    }
    return list;
}

// The file being written.  Its close is checked; where it fails (a full disk
// at the last flush), the file stays half closed inside the HDF5 library,
// which must not touch it again: neither a second close (it crashes) nor the
// library's own shutdown at exit (see H5dont_atexit below).  The temporary
// file is emptied to give its space back, and removed with the OutputFile.
class FileHandle {
public:
    FileHandle(hid_t id, std::string temporary) : id_(id), temporary_(std::move(temporary)) {}
    ~FileHandle() { close(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    operator hid_t() const { return id_; }  // NOLINT: a handle stands for its id
    bool bad() const { return id_ < 0; }
    bool close() {
        const hid_t id = id_;
        id_ = -1;
        if (id < 0 || H5Fclose(id) >= 0) return true;
        (void)::truncate(temporary_.c_str(), 0);
        return false;
    }

private:
    hid_t id_;
    std::string temporary_;
};

// Names of one length (the longest's, padded with NULs) as an attribute:
// many short names cost their bytes, without a heap object each.
bool writeNames(hid_t parent, const std::string& name, const std::vector<std::string>& names) {
    std::size_t longest = 1;
    for (const std::string& text : names) longest = std::max(longest, text.size());
    std::string packed(longest * names.size(), '\0');
    for (std::size_t i = 0; i < names.size(); ++i) names[i].copy(&packed[i * longest], longest);
    const Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
    return !type.bad() && H5Tset_size(type, longest) >= 0 && H5Tset_strpad(type, H5T_STR_NULLPAD) >= 0 &&
           H5Tset_cset(type, H5T_CSET_UTF8) >= 0 && writeAttribute(parent, name, type, packed.data(), names.size());
}

// Elements gathered before one write: small fragments go out together, so
// that many of them cost no more than their bytes.
constexpr std::size_t GatheredBytes = 4u << 20;

// The elements of every array of `field` (of element type T), fragment after
// fragment, as the one dataset "values" (n, or n x 3 for three components);
// the arrays' names and element counts in that order go to `names` and `counts`.
template <class T>
bool writeValues(hid_t group, const Tessel::Field& field, OutputFile& out, std::vector<std::string>& names,
                 std::vector<std::uint64_t>& counts) {
    using Traits = Tessel::ElementTraits<T>;
    const hid_t type = nativeType<typename Traits::Component>();
    const int rank = Traits::components > 1 ? 2 : 1;
    const hsize_t dims[2] = {elementCountOf(field), Traits::components};
    const Handle space(H5Screate_simple(rank, dims, nullptr), H5Sclose);
    if (space.bad()) return false;
    Handle set(H5Dcreate2(group, "values", type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Dclose);
    if (set.bad()) return false;
    hsize_t at = 0;  // the first row not written yet
    const auto write = [&](const T* data, hsize_t rows) {
        if (rows == 0) return true;
        const hsize_t start[2] = {at, 0}, count[2] = {rows, Traits::components};
        const Handle memory(H5Screate_simple(rank, count, nullptr), H5Sclose);
        if (memory.bad() || H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr) < 0 ||
            H5Dwrite(set, type, memory, space, H5P_DEFAULT, data) < 0)
            return false;
        at += rows;
        return out.good();
    };
    std::vector<T> gathered;
    const std::size_t gatherUpTo = GatheredBytes / sizeof(T);
    bool written = true;
    for (const auto& fragment : field.fragments())
        for (std::size_t i = 0; i < fragment.arrays.size() && written; ++i) {
            const auto elements = elementsOf<T>(*fragment.arrays[i]);
            names.push_back(linkName(fragment.id->name));
            if (i > 0) names.back().append(1, '_').append(std::to_string(i));
            counts.push_back(elements.size());
            if (gathered.size() + elements.size() > gatherUpTo) {
                written = write(gathered.data(), gathered.size());
                gathered.clear();
            }
            if (elements.size() > gatherUpTo)
                written = written && write(elements.data(), elements.size());
            else
                gathered.insert(gathered.end(), elements.begin(), elements.end());
        }
    return written && write(gathered.data(), gathered.size()) && at == dims[0] && set.close();
}

// The step that failed, as the failure text names it.
std::string what(const char* step, const std::string& name) { return std::string(step).append(name); }

}  // namespace

bool canWriteHdf5() { return true; }

std::string writeHdf5(const Tessel::Grid& grid, const std::string& file) {
    namespace m = messages;
    std::vector<std::string> fieldNames;
    for (const auto& field : grid.fields()) fieldNames.push_back(field->fieldName());
    if (std::string refused = fieldNamesProblem(file, fieldNames); !refused.empty()) return refused;
    OutputFile out(file);
    if (!out.open(false)) return out.failure();
    // No shutdown of the library at exit: after a failed close it would close that file again and crash.
    // Where the library is already running (another part of the process opened it), this changes nothing.
    H5dont_atexit();
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);  // failures come back as values, printed by the host
    const auto failed = [&](const std::string& step) {
        out.fail(m::fill(m::Hdf5Failed, step.c_str()));
        return out.failure();
    };
    {
        // The newest object headers that 1.8 readers still open are the smaller ones.
        const Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
        const Handle creation(ordered(H5P_FILE_CREATE), H5Pclose);
        if (access.bad() || creation.bad() || H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_LATEST) < 0)
            return failed("create the file");
        FileHandle h5(H5Fcreate(out.temporaryPath().c_str(), H5F_ACC_TRUNC, creation, access), out.temporaryPath());
        if (h5.bad()) return failed("create the file");
        const Handle groupCreation(ordered(H5P_GROUP_CREATE), H5Pclose);
        if (groupCreation.bad()) return failed("create the file");
        for (const auto& field : grid.fields()) {
            Handle group(H5Gcreate2(h5, field->fieldName().c_str(), H5P_DEFAULT, groupCreation, H5P_DEFAULT), H5Gclose);
            if (group.bad()) return failed(what("make the group of ", field->fieldName()));
            // The values, then the field's element type in the parse string's words as the attribute "type",
            // the fragments' names in order as "fragments" and their element counts as "counts".
            std::vector<std::string> names;
            std::vector<std::uint64_t> counts;
            if (!field->fragments().empty()) {
                bool written = false;
                withElementType(*field->fragments()[0].arrays[0],
                                [&]<class T>() { written = writeValues<T>(group, *field, out, names, counts); });
                if (!out.good()) return out.failure();
                if (!written) return failed(what("write the values of ", field->fieldName()));
                if (!writeTexts(group, "type", {parseTypeName(*field->fragments()[0].arrays[0])}, true) ||
                    !writeNames(group, "fragments", names) ||
                    !writeAttribute(group, "counts", H5T_NATIVE_UINT64, counts.data(), counts.size()))
                    return failed(what("write the fragments of ", field->fieldName()));
            }
            if (!group.close()) return failed(what("write the group of ", field->fieldName()));
        }
        // The grid's attributes, by the type of their values.
        for (const std::string& name : grid.attributes().names()) {
            const Ravelin::ChunkPtr value = grid.attributes().getAttribute(name);
            bool written = true;
            if (auto* ints = dynamic_cast<Ravelin::Chunk<int>*>(value.get()))
                written = writeAttribute(h5, name, H5T_NATIVE_INT, ints->vector().data(), ints->vector().size());
            else if (auto* uints = dynamic_cast<Ravelin::Chunk<unsigned int>*>(value.get()))
                written = writeAttribute(h5, name, H5T_NATIVE_UINT, uints->vector().data(), uints->vector().size());
            else if (auto* doubles = dynamic_cast<Ravelin::Chunk<double>*>(value.get()))
                written =
                    writeAttribute(h5, name, H5T_NATIVE_DOUBLE, doubles->vector().data(), doubles->vector().size());
            else if (auto* texts = dynamic_cast<Ravelin::Chunk<std::string>*>(value.get()))
                written = writeTexts(h5, name, texts->vector(), true);
            if (!written) return failed(what("write the attribute ", name));
        }
        if (!grid.notes().empty()) {
            Handle notes(H5Gcreate2(h5, "notes", H5P_DEFAULT, groupCreation, H5P_DEFAULT), H5Gclose);
            std::vector<std::string> converters, texts;
            for (const auto& note : grid.notes()) {
                converters.push_back(note.converter);
                texts.push_back(note.text);
            }
            if (notes.bad() || !writeTexts(notes, "converter", converters, false) ||
                !writeTexts(notes, "text", texts, false) || !notes.close())
                return failed("write the notes");
        }
        if (!out.good()) return out.failure();
        if (H5Fflush(h5, H5F_SCOPE_GLOBAL) < 0 || !h5.close()) return failed("write the file");
    }
    return out.commit();
}

}  // namespace Pallion::Tools

#else

namespace Pallion::Tools {

bool canWriteHdf5() { return false; }

std::string writeHdf5(const Tessel::Grid&, const std::string& file) {
    return messages::fill(messages::NoHdf5, file.c_str());
}

}  // namespace Pallion::Tools

#endif
