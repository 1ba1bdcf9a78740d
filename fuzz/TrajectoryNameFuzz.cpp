// The trajectory file-name reader and the date stand-in on any text: a
// GeoReferenceSystem, a null one with its console message, or the documented
// exceptions of a number or a date that cannot be read.
#include <stdexcept>

#include "FuzzSupport.hpp"
#include "pallion/trajectory/detail/FilenameDatum.hpp"
#include "ravelin/Console.hpp"
#include "tellus/Chronometry.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto silent = Ravelin::Console::setSink([](const std::string&) {});
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const auto geo = Pallion::parseFilenameForGeoDatum(std::filesystem::path(text));
        if (!geo.isNull() && (geo->weekDay() > 6)) fuzzsupport::finding("a week day beyond Saturday");
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {}
    try {
        const Tellus::Chronometry date(text);
        if (date.WeekDay > 6 || date.Month < 1 || date.Month > 12 || date.Day < 1 || date.Day > 31)
            fuzzsupport::finding("an impossible date was accepted: " + text);
        if (Tellus::Chronometry(date.ddmmyyyy('.').substr(6, 4) + date.ddmmyyyy('.').substr(3, 2) +
                                date.ddmmyyyy('.').substr(0, 2))
                .WeekDay != date.WeekDay)
            fuzzsupport::finding("a date read back differs: " + text);
    } catch (const std::invalid_argument&) {}
    return 0;
}
