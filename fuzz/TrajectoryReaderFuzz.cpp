// The .pof and .pofx readers on any bytes, through convertTrajectory2Z9: the
// first byte chooses the form, the rest is the file.  Any text is an answer;
// a crash, a sanitizer report or an exception is a finding.
#include "FuzzSupport.hpp"
#include "pallion/trajectory/detail/Trajectory.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const bool extended = data[0] & 1;
    const std::string name = std::string("QVT_Fuzz_001_20260310_EPSG25832_EPSG7837") + (extended ? ".pofx" : ".pof");
    const std::string file =
        fuzzsupport::scratch().write(name, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    Tessel::Grid grid;
    Ravelin::StringListPtr files(new Ravelin::StringList{file, file});
    Pallion::convertTrajectory2Z9(grid, files, Ravelin::ProgressPtr());
    return 0;
}
