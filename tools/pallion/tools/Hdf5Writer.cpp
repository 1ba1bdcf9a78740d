// The HDF5 writer; built where HDF5 was found, and a refusal naming the
// missing library everywhere else.
#include "pallion/tools/Messages.hpp"
#include "pallion/tools/Writers.hpp"

#ifdef PALLION_TOOLS_HDF5

#include <hdf5.h>

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
bool writeDataset(hid_t parent, const std::string& name, hid_t type, const void* data, hsize_t rows, hsize_t columns) {
    const hsize_t dims[2] = {rows, columns};
    Handle space(H5Screate_simple(columns > 1 ? 2 : 1, dims, nullptr), H5Sclose);
    if (space.bad()) return false;
    Handle set(H5Dcreate2(parent, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Dclose);
    return !set.bad() && (rows == 0 || H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, data) >= 0);
}

bool writeAttribute(hid_t parent, const std::string& name, hid_t type, const void* data, hsize_t count) {
    const hsize_t dims[1] = {count};
    Handle space(H5Screate_simple(1, dims, nullptr), H5Sclose);
    Handle attribute(H5Acreate2(parent, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose);
    return !attribute.bad() && H5Awrite(attribute, type, data) >= 0;
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

// The step that failed, as the failure text names it.
std::string what(const char* step, const std::string& name) { return std::string(step).append(name); }

}  // namespace

bool canWriteHdf5() { return true; }

std::string writeHdf5(const Tessel::Grid& grid, const std::string& file) {
    namespace m = messages;
    OutputFile out(file);
    if (!out.open(false)) return out.failure();
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);  // failures come back as values, printed by the host
    std::string step;
    {
        Handle h5(H5Fcreate(out.temporaryPath().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose);
        if (h5.bad()) return m::fill(m::Hdf5Failed, file.c_str(), "create the file");
        for (const auto& field : grid.fields()) {
            Handle group(H5Gcreate2(h5, linkName(field->fieldName()).c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                         H5Gclose);
            if (group.bad())
                return m::fill(m::Hdf5Failed, file.c_str(), what("make the group of ", field->fieldName()).c_str());
            for (const auto& fragment : field->fragments())
                for (std::size_t i = 0; i < fragment.arrays.size(); ++i) {
                    std::string name = linkName(fragment.id->name);
                    if (i > 0) name.append(1, '_').append(std::to_string(i));
                    const auto& array = *fragment.arrays[i];
                    bool written = false;
                    withElementType(array, [&]<class T>() {
                        using Traits = Tessel::ElementTraits<T>;
                        const auto elements = elementsOf<T>(array);
                        written = writeDataset(group, name, nativeType<typename Traits::Component>(), elements.data(),
                                               elements.size(), Traits::components);
                    });
                    if (!written)
                        return m::fill(m::Hdf5Failed, file.c_str(),
                                       what("write ", field->fieldName() + "/" + name).c_str());
                }
            // The field's element type in the parse string's words, as the attribute "type" of its group.
            if (!field->fragments().empty() &&
                !writeTexts(group, "type", {parseTypeName(*field->fragments()[0].arrays[0])}, true))
                return m::fill(m::Hdf5Failed, file.c_str(), what("write the type of ", field->fieldName()).c_str());
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
            if (!written) return m::fill(m::Hdf5Failed, file.c_str(), what("write the attribute ", name).c_str());
        }
        if (!grid.notes().empty()) {
            Handle notes(H5Gcreate2(h5, "notes", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose);
            std::vector<std::string> converters, texts;
            for (const auto& note : grid.notes()) {
                converters.push_back(note.converter);
                texts.push_back(note.text);
            }
            if (notes.bad() || !writeTexts(notes, "converter", converters, false) ||
                !writeTexts(notes, "text", texts, false))
                return m::fill(m::Hdf5Failed, file.c_str(), "write the notes");
        }
        if (H5Fflush(h5, H5F_SCOPE_GLOBAL) < 0) return m::fill(m::Hdf5Failed, file.c_str(), "write the file");
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
