// The parse string parser on any text: one of its three texts, the "stoi"
// exceptions of a column that is no number, or entries that hold together.
#include <stdexcept>
#include <string>

#include "FuzzSupport.hpp"
#include "pallion/convert/detail/Messages.hpp"
#include "pallion/convert/detail/Parse.hpp"

namespace {

bool startsWith(const std::string& text, std::string_view prefix) { return text.rfind(prefix, 0) == 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace M = Pallion::messages::convert;
    Pallion::Parameter p;
    p.Parse.assign(reinterpret_cast<const char*>(data), size);
    std::string result;
    try {
        result = Pallion::parseUserInputToContainer(p);
    } catch (const std::invalid_argument& e) {
        if (std::string(e.what()) != "stoi") fuzzsupport::finding("invalid_argument other than stoi");
        return 0;
    } catch (const std::out_of_range& e) {
        if (std::string(e.what()) != "stoi") fuzzsupport::finding("out_of_range other than stoi");
        return 0;
    }
    if (!result.empty() && result != std::string(M::ParseStringWrong) + p.Parse &&
        !startsWith(result, M::ColumnNumberWrong) && !startsWith(result, M::TypeNotSupported))
        fuzzsupport::finding("unknown failure text: " + result);
    for (const Pallion::ContainerEntry& entry : p.Container) {
        if (entry.Columns.size() != 1 && entry.Columns.size() != 3) fuzzsupport::finding("entry of a wrong width");
        if (entry.TypeId.components == 3 && entry.Columns.size() != 3) fuzzsupport::finding("composite of one column");
        for (std::uint32_t column : entry.Columns)
            if (column > p.HighestColumnIndex) fuzzsupport::finding("column above the highest");
    }
    return 0;
}
