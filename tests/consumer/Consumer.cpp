// Converts a small table through the public header and checks what reached
// the grid, and that the library registered its nine element types with the
// grid library when it was loaded (a static link must keep that too); then
// has the trajectory library refuse a file name, so that it links and loads
// too.  Exits 0 when every value is right.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "pallion/Pallion.hpp"
#include "tessel/Grid.hpp"

namespace {

// The values of a field's first fragment, read through the grid's own interface.
template <class T>
std::vector<T> firstFragment(const Tessel::Grid& grid, const std::string& name) {
    const Tessel::FieldPtr field = grid.field(name);
    if (field.isNull() || field->fragments().empty()) return {};
    const Tessel::MemBase::Array& array = field->fragments().front().arrays.front();
    const T* values = static_cast<const T*>(array->rawData());
    return std::vector<T>(values, values + array->elementCount());
}

}  // namespace

int main() {
    const auto file =
        std::filesystem::temp_directory_path() / ("pallion-consumer-" + std::to_string(::getpid()) + ".txt");
    std::ofstream(file) << "x,y,z,class\n1.5,2.5,3.5,7\n-4,5e2,0.25,300\n";

    Tessel::Grid grid;
    Pallion::Parameter parameter;
    parameter.Files = new Ravelin::StringList{file.string()};
    parameter.HeaderLines = 1;
    parameter.Delimiter = ',';
    parameter.ChunkSize = 16;
    parameter.Parse = "Positions:double:0,Heights:double:2,Class:uint8_t:3";
    const std::string result = Pallion::ascii2z9(grid, parameter);
    std::filesystem::remove(file);

    int failed = 0;
    auto check = [&](bool ok, const char* what) {
        if (!ok) {
            std::printf("consumer: wrong %s\n", what);
            ++failed;
        }
    };
    check(result.empty(), "result");
    check(parameter.LineCount == 2, "row count");
    const auto heights = firstFragment<double>(grid, "Heights");
    check(heights.size() == 2 && heights[0] == 3.5 && heights[1] == 0.25, "heights");
    const auto classes = firstFragment<unsigned char>(grid, "Class");
    check(classes.size() == 2 && classes[0] == 7 && classes[1] == 44, "classes");  // 300 keeps its low 8 bits
    check(Tessel::MemBase::registeredTypeIndices().size() == 9, "registration at load");
    Tessel::Grid trajectories;
    const std::string refused = Pallion::convertTrajectory2Z9(
        trajectories, Ravelin::StringListPtr(new Ravelin::StringList{"no_layout.txt"}), Ravelin::ProgressPtr());
    check(!refused.empty(), "trajectory refusal");
    std::printf("consumer: %d passed, %d failed\n", 6 - failed, failed);
    return failed == 0 ? 0 : 1;
}
