// The HDF5 writer; built where HDF5 was found, and a refusal naming the
// missing library everywhere else.
#include "pallion/tools/BlockWriter.hpp"
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/Writers.hpp"

#ifdef PALLION_TOOLS_HDF5

#include <hdf5.h>
#include <unistd.h>
#include <list>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

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
    // Closes the one it holds and takes `id`.
    void reset(hid_t id) {
        close();
        id_ = id;
    }
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
// The bytes of a chunk of a growing dataset.
constexpr std::size_t ChunkBytes = 256u << 10;

// The step that failed, as the failure text names it.
std::string what(const char* step, const std::string& name) { return std::string(step).append(name); }

// One group per field, made when the field is first seen, with its one
// dataset "values" (n, or n x 3 for three components) that grows as the
// blocks come; the attributes "type", "fragments" and "counts" are written at
// the end.  The grid's attributes and notes follow at the end too.
class Hdf5Writer final : public BlockWriter {
public:
    explicit Hdf5Writer(std::string file) : file_(std::move(file)), out_(file_) {}
    ~Hdf5Writer() override {
        // Handles are closed before the file; an unfinished file is removed with the OutputFile.
        fields_.clear();
        h5_.reset();
    }

    std::string add(const std::string& fragment, const std::vector<ColumnSlice>& slices) override {
        if (!started_) start();
        if (!out_.good()) return out_.failure();
        for (const ColumnSlice& slice : slices) {
            Values* values = valuesOf(*slice.name, slice.type);
            if (values == nullptr) return out_.failure();
            if (fragment.empty() || slice.type == nullptr) continue;  // the field made known, no fragment
            if (*slice.type != *values->type) return failed(what("write the values of ", *slice.name));
            values->names.push_back(linkName(fragment));
            values->counts.push_back(slice.count);
            const std::size_t bytes = static_cast<std::size_t>(slice.count) * values->elementBytes;
            if (values->gathered.size() + bytes > GatheredBytes && !write(*values)) return out_.failure();
            if (bytes > GatheredBytes) {
                if (!append(*values, slice.data, slice.count)) return out_.failure();
            } else {
                values->gathered.insert(values->gathered.end(), slice.data, slice.data + bytes);
            }
        }
        return out_.good() ? std::string() : out_.failure();
    }

    LasWritten finish(const Tessel::Grid& grid) override {
        if (!started_) start();
        for (const auto& field : grid.fields())
            if (valuesOf(field->fieldName(), nullptr) == nullptr) return {out_.failure(), {}};
        for (Values& field : fields_) {
            Values* values = &field;
            if (!out_.good()) break;
            if (values->set.bad()) {
                if (!values->group.close()) failed(what("write the group of ", values->field));
                continue;
            }
            // The values, then the field's element type in the parse string's words as the attribute "type",
            // the fragments' names in order as "fragments" and their element counts as "counts".
            if (!write(*values) || !values->set.close()) {
                failed(what("write the values of ", values->field));
                break;
            }
            if (!writeTexts(values->group, "type", {values->typeName}, true) ||
                !writeNames(values->group, "fragments", values->names) ||
                !writeAttribute(values->group, "counts", H5T_NATIVE_UINT64, values->counts.data(),
                                values->counts.size()))
                failed(what("write the fragments of ", values->field));
            else if (!values->group.close())
                failed(what("write the group of ", values->field));
        }
        fields_.clear();
        if (out_.good()) writeGrid(grid);
        if (out_.good() && (H5Fflush(*h5_, H5F_SCOPE_GLOBAL) < 0 || !h5_->close())) failed("write the file");
        h5_.reset();
        return {out_.commit(), {}};
    }

private:
    struct Values {
        std::string field;
        Handle group{-1, H5Gclose};
        Handle set{-1, H5Dclose};
        const std::type_info* type = nullptr;
        hid_t nativeType = -1;
        int rank = 1;
        hsize_t components = 1;
        std::size_t elementBytes = 0;
        std::string typeName;
        hsize_t rows = 0;  // written to the dataset
        std::vector<char> gathered;
        std::vector<std::string> names;
        std::vector<std::uint64_t> counts;
    };

    std::string failed(const std::string& step) {
        out_.fail(messages::fill(messages::Hdf5Failed, step.c_str()));
        return out_.failure();
    }

    void start() {
        started_ = true;
        if (!out_.open(false)) return;
        // No shutdown of the library at exit: after a failed close it would close that file again and crash.
        // Where the library is already running (another part of the process opened it), this changes nothing.
        H5dont_atexit();
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);  // failures come back as values, printed by the host
        // The newest object headers that 1.8 readers still open are the smaller ones.
        const Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
        const Handle creation(ordered(H5P_FILE_CREATE), H5Pclose);
        groupCreation_.emplace(ordered(H5P_GROUP_CREATE), H5Pclose);
        if (access.bad() || creation.bad() || groupCreation_->bad() ||
            H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_LATEST) < 0) {
            failed("create the file");
            return;
        }
        h5_.emplace(H5Fcreate(out_.temporaryPath().c_str(), H5F_ACC_TRUNC, creation, access), out_.temporaryPath());
        if (h5_->bad()) failed("create the file");
    }

    // The group of a field, made at first sight in the order the fields come,
    // with its dataset where the field's element type is known.
    Values* valuesOf(const std::string& field, const std::type_info* type) {
        if (!out_.good()) return nullptr;
        const auto found =
            std::find_if(fields_.begin(), fields_.end(), [&](const Values& v) { return v.field == field; });
        Values* values = found != fields_.end() ? &*found : nullptr;
        if (values == nullptr) {
            if (std::string refused = fieldNamesProblem(file_, {field}); !refused.empty()) {
                out_.fail(refused.substr(messages::fill(messages::CannotWriteFile, file_.c_str(), "").size()));
                return nullptr;
            }
            values = &fields_.emplace_back();
            values->field = field;
            values->group.reset(H5Gcreate2(*h5_, field.c_str(), H5P_DEFAULT, *groupCreation_, H5P_DEFAULT));
            if (values->group.bad()) {
                failed(what("make the group of ", field));
                return nullptr;
            }
        }
        if (type == nullptr || values->type != nullptr) return values;
        withChunkType(*type, [&]<class T>() {
            using Traits = Tessel::ElementTraits<T>;
            values->type = &typeid(T);
            values->nativeType = nativeType<typename Traits::Component>();
            values->rank = Traits::components > 1 ? 2 : 1;
            values->components = Traits::components;
            values->elementBytes = sizeof(T);
            values->typeName = Traits::parseName;
        });
        if (values->type == nullptr) {
            failed(what("write the values of ", field));
            return nullptr;
        }
        const hsize_t dims[2] = {0, values->components}, most[2] = {H5S_UNLIMITED, values->components};
        const hsize_t chunk[2] = {std::max<hsize_t>(1, ChunkBytes / values->elementBytes), values->components};
        const Handle space(H5Screate_simple(values->rank, dims, most), H5Sclose);
        const Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
        if (space.bad() || properties.bad() || H5Pset_chunk(properties, values->rank, chunk) < 0) {
            failed(what("write the values of ", field));
            return nullptr;
        }
        values->set.reset(
            H5Dcreate2(values->group, "values", values->nativeType, space, H5P_DEFAULT, properties, H5P_DEFAULT));
        if (values->set.bad()) {
            failed(what("write the values of ", field));
            return nullptr;
        }
        return values;
    }

    // Appends `rows` elements at the end of the dataset.
    bool append(Values& values, const char* data, hsize_t rows) {
        if (rows == 0) return out_.good();
        const hsize_t dims[2] = {values.rows + rows, values.components};
        const hsize_t start[2] = {values.rows, 0}, count[2] = {rows, values.components};
        if (H5Dset_extent(values.set, dims) < 0) {
            failed(what("write the values of ", values.field));
            return false;
        }
        const Handle space(H5Dget_space(values.set), H5Sclose);
        const Handle memory(H5Screate_simple(values.rank, count, nullptr), H5Sclose);
        if (space.bad() || memory.bad() ||
            H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr) < 0 ||
            H5Dwrite(values.set, values.nativeType, memory, space, H5P_DEFAULT, data) < 0) {
            failed(what("write the values of ", values.field));
            return false;
        }
        values.rows += rows;
        return out_.good();
    }

    // Writes what was gathered.
    bool write(Values& values) {
        const bool written = append(values, values.gathered.data(), values.gathered.size() / values.elementBytes);
        values.gathered.clear();
        return written;
    }

    // The grid's attributes, by the type of their values, and its notes.
    void writeGrid(const Tessel::Grid& grid) {
        for (const std::string& name : grid.attributes().names()) {
            const Ravelin::ChunkPtr value = grid.attributes().getAttribute(name);
            bool written = true;
            visitAttribute(value, [&]<class T>(const std::vector<T>& values) {
                if constexpr (std::is_same_v<T, std::string>)
                    written = writeTexts(*h5_, name, values, true);
                else if constexpr (std::is_same_v<T, double>)
                    written = writeAttribute(*h5_, name, H5T_NATIVE_DOUBLE, values.data(), values.size());
                else if constexpr (std::is_same_v<T, int>)
                    written = writeAttribute(*h5_, name, H5T_NATIVE_INT, values.data(), values.size());
                else
                    written = writeAttribute(*h5_, name, H5T_NATIVE_UINT, values.data(), values.size());
            });
            if (!written) {
                failed(what("write the attribute ", name));
                return;
            }
        }
        if (!grid.notes().empty()) {
            Handle notes(H5Gcreate2(*h5_, "notes", H5P_DEFAULT, *groupCreation_, H5P_DEFAULT), H5Gclose);
            std::vector<std::string> converters, texts;
            for (const auto& note : grid.notes()) {
                converters.push_back(note.converter);
                texts.push_back(note.text);
            }
            if (notes.bad() || !writeTexts(notes, "converter", converters, false) ||
                !writeTexts(notes, "text", texts, false) || !notes.close())
                failed("write the notes");
        }
    }

    std::string file_;
    OutputFile out_;
    std::optional<Handle> groupCreation_;
    std::optional<FileHandle> h5_;
    std::list<Values> fields_;  // in the order the fields came
};

}  // namespace

bool canWriteHdf5() { return true; }

BlockWriterPtr openHdf5Writer(const std::string& file) { return BlockWriterPtr(new Hdf5Writer(file)); }

std::string writeHdf5(const Tessel::Grid& grid, const std::string& file) {
    std::vector<std::string> fieldNames;
    for (const auto& field : grid.fields()) fieldNames.push_back(field->fieldName());
    if (std::string refused = fieldNamesProblem(file, fieldNames); !refused.empty()) return refused;
    // Field after field, each fragment's arrays in order (the second array of
    // a fragment named <fragment>_1, and so on).
    const BlockWriterPtr writer(new Hdf5Writer(file));
    for (const auto& field : grid.fields()) {
        const std::string& name = field->fieldName();
        const std::type_info* type = nullptr;
        if (!field->fragments().empty())
            withElementType(*field->fragments()[0].arrays[0], [&]<class T>() { type = &typeid(T); });
        if (!field->fragments().empty() && type == nullptr) type = &typeid(void);
        std::string failure = writer->add({}, {{&name, type, nullptr, 0}});
        for (const auto& fragment : field->fragments())
            for (std::size_t i = 0; i < fragment.arrays.size() && failure.empty(); ++i) {
                const Tessel::MemBase& array = *fragment.arrays[i];
                std::string fragmentName = fragment.id->name;
                if (i > 0) fragmentName.append(1, '_').append(std::to_string(i));
                const std::type_info* arrayType = &typeid(void);
                withElementType(array, [&]<class T>() { arrayType = &typeid(T); });
                failure = writer->add(fragmentName, {{&name, arrayType, static_cast<const char*>(array.rawData()),
                                                      static_cast<std::uint64_t>(array.elementCount())}});
            }
        if (!failure.empty()) return failure;
    }
    return writer->finish(grid).failure;
}

}  // namespace Pallion::Tools

#else

namespace Pallion::Tools {

bool canWriteHdf5() { return false; }

std::string writeHdf5(const Tessel::Grid&, const std::string& file) {
    return messages::fill(messages::NoHdf5, file.c_str());
}

BlockWriterPtr openHdf5Writer(const std::string&) { return {}; }

}  // namespace Pallion::Tools

#endif
