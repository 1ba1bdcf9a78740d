// Trajectory conversion: file names, attributes and the entry.
#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "pallion/memory/Chunk.hpp"
#include "pallion/trajectory/detail/FilenameDatum.hpp"
#include "pallion/trajectory/detail/GridAttributes.hpp"
#include "pallion/trajectory/detail/Trajectory.hpp"
#include "ravelin/Console.hpp"
#include "riegl/Riegl.hpp"

using namespace Pallion;
using Tessel::Grid;
using testsupport::TempDir;

namespace {

// Collects what goes to the console while it lives.
struct ConsoleCapture {
    std::vector<std::string> messages;
    Ravelin::Console::Sink previous =
        Ravelin::Console::setSink([this](const std::string& t) { messages.push_back(t); });
    ~ConsoleCapture() { Ravelin::Console::setSink(previous); }
};

template <class T>
std::vector<T> attribute(const Grid& grid, const std::string& name) {
    auto value = grid.attributes().getAttribute(name);
    auto* chunk = dynamic_cast<Ravelin::Chunk<T>*>(value.get());
    return chunk ? chunk->vector() : std::vector<T>();
}

std::string convert(Grid& grid, std::initializer_list<std::string> files, const Ravelin::ProgressPtr& progress = {}) {
    return convertTrajectory2Z9(grid, testsupport::fileList(files), progress);
}

// A .txt trajectory of `rows` lines for the given week day, times within that day.
std::string textTrajectory(int weekDay, int rows, double firstSecondOfDay = 3600.0) {
    std::string text;
    for (int i = 0; i < rows; ++i)
        text += std::to_string(weekDay * 86400.0 + firstSecondOfDay + i) + " " + std::to_string(100 + i) +
                " 200 300 0.1 0.2 0.3\n";
    return text;
}

}  // namespace

TEST(FileNames, SixPiecesOrAConsoleMessage) {
    ConsoleCapture console;
    auto geo = parseFilenameForGeoDatum("__007_20260315_EPSG25832_EPSG-0042");
    ASSERT_FALSE(geo.isNull());
    EXPECT_EQ(geo->speak(),  // every piece as read
              "Name=\nFileNr=7\nEPSGSpatial=25832\nEPSGHeight=-42\nDate=15.03.2026\nWeekDay=0 (Sun=0, "
              "Mo=1,Tu=2,We=3,Th=4,Fr=5,Sa=6)");

    EXPECT_EQ(parseFilenameForGeoDatum("a_p.x_-3_20260314_xxxx5678abc_yyyy1_")->EPSGSpatial, 5678);  // one trailing _
    EXPECT_TRUE(console.messages.empty());

    EXPECT_TRUE(parseFilenameForGeoDatum("a_p_1_20260314_xxxx1_").isNull());
    EXPECT_TRUE(parseFilenameForGeoDatum("a_p_1_20260314_xxxx1_yyyy2__").isNull());
    ASSERT_EQ(console.messages.size(), 2u);
    EXPECT_EQ(console.messages[0],
              "parseFilenameForGeoDatum: QVT Parse layout for trajectory does not fit: a_p_1_20260314_xxxx1_");

    EXPECT_THROW(parseFilenameForGeoDatum("a_p_1_20260314_EPSG_yyyy2"), std::invalid_argument);  // no digits
    EXPECT_THROW(parseFilenameForGeoDatum("a_p_x1_20260314_EPSG1_yyyy2"), std::invalid_argument);
    EXPECT_THROW(parseFilenameForGeoDatum("a_p_1_20260314_EPSG1_yyyy99999999999"), std::out_of_range);
    EXPECT_THROW(parseFilenameForGeoDatum("a_p_1_20261399_EPSG1_yyyy2"), std::invalid_argument);  // no date
    EXPECT_EQ(console.messages.size(), 2u);
}

TEST(Attributes, OneFileTwoFilesAndASecondProject) {
    Grid grid;
    auto add = [&](const char* project, int number, int spatial, int height, const char* date) {
        return addGeoReferenceToGrid(GeoReferenceSystem(project, number, spatial, height, date), grid);
    };
    auto differs = [](const std::string& name) {
        return "addAttributeToGrid:: Different " + name + "! cannot merge file.";
    };
    const auto before = Ravelin::Ageable::GlobalTime.load();
    EXPECT_EQ(add("Harbour", 1, 25832, -1, "20260310"), "");
    EXPECT_EQ(grid.timeStamp(), before + 5);
    EXPECT_EQ(attribute<unsigned int>(grid, "EPSG_HEIGHT"), std::vector<unsigned int>{4294967295u});
    EXPECT_EQ(add("Harbour", 2, 25832, -1, "20260311"), "");
    EXPECT_EQ(attribute<std::string>(grid, "Date"), (std::vector<std::string>{"10.03.2026", "11.03.2026"}));

    EXPECT_EQ(add("Quay", 3, 25832, -1, "20260312"), differs("NameOfProject"));
    EXPECT_EQ(attribute<std::string>(grid, "Date").size(), 3u);  // appended before the name was compared
    EXPECT_EQ(attribute<std::string>(grid, "NameOfProject"), std::vector<std::string>{"Harbour"});
    EXPECT_EQ(add("Harbour", 4, 4326, -1, "20260313"), differs("EPSG_SPATIAL"));
    EXPECT_EQ(attribute<std::string>(grid, "Date").size(), 3u);  // the codes are compared before the date is added
    EXPECT_EQ(add("Harbour", 4, 25832, 5, "20260313"), differs("EPSG_HEIGHT"));

    // An attribute of another chunk type is replaced by one of the right type.
    grid.attributes().setAttribute("Date", Ravelin::StrongPtr<Ravelin::ChunkBase>(new Ravelin::Chunk<int>(4)));
    EXPECT_EQ(addAttributeToGrid(grid, "Date", std::string("01.01.2027"), true), "");
    EXPECT_EQ(attribute<std::string>(grid, "Date"), std::vector<std::string>{"01.01.2027"});
    // An equal comparison stores nothing but stamps the grid.
    const auto stamp = grid.timeStamp();
    EXPECT_EQ(addAttributeToGrid(grid, "NameOfProject", std::string("Harbour"), false), "");
    EXPECT_GT(grid.timeStamp(), stamp);
}

TEST(TrajectoryEntry, MixedListIntoOneGrid) {
    TempDir dir;
    // 2026-03-10 is a Tuesday (2), the 11th a Wednesday (3).
    const auto txt1 = dir.write("QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt", textTrajectory(2, 3));
    const auto txt2 = dir.write("QVT_Harbour_002_20260311_EPSG25832_EPSG7837.txt", textTrajectory(3, 2, 86000.0));
    const auto pofx = (dir.path() / "QVT_Harbour_003_20260311_EPSG25832_EPSG7837.pofx").string();
    const auto pof = (dir.path() / "QVT_Harbour_004_20260312_EPSG25832_EPSG7837.pof").string();
    ASSERT_TRUE(Riegl::writeTrajectoryFile(pofx, true, 25832, {{3 * 86400.0 + 10.0, 1, 2, 3, 4, 5, 6}}));
    ASSERT_TRUE(Riegl::writeTrajectoryFile(pof, false, 25832, {{10.0, 1, 2, 3, 4, 5, 6}}));

    Grid grid;
    EXPECT_EQ(convert(grid, {txt1, txt2, pofx, pof}), "");
    auto times = grid.field("GPSTime");
    ASSERT_EQ(times->fragments().size(), 4u);
    EXPECT_EQ(times->fragments()[0].arrays[0]->elementText(2), "3602.000000");  // seconds of the day
    EXPECT_EQ(times->fragments()[1].arrays[0]->elementText(1), "86001.000000");
    EXPECT_EQ(times->fragments()[2].arrays[0]->elementText(0), "10.000000");  // .pofx adjusted
    EXPECT_EQ(times->fragments()[3].arrays[0]->elementText(0), "10.000000");  // .pof as stored
    EXPECT_EQ(grid.field("Positions")->fragments()[0].arrays[0]->elementText(1), "{101.000000,200.000000,300.000000}");
    EXPECT_EQ(attribute<unsigned int>(grid, "WeekDay"), (std::vector<unsigned int>{2, 3, 3, 4}));
    EXPECT_TRUE(grid.attributes().getAttribute("EPSG").isNull());
    EXPECT_EQ(grid.notes().size(), 2u);  // one per text file
    EXPECT_EQ(convert(grid, {}), "");
}

TEST(TrajectoryEntry, OrderOfFailureChecksAndWhatSurvives) {
    TempDir dir;
    ConsoleCapture console;
    Grid grid;
    const auto good = dir.write("QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt", textTrajectory(2, 2));
    EXPECT_EQ(convert(grid, {dir.write("a_b_1_20260310_EPSG1.csv", "")}),
              "convertTrajectory2Z9: could not initialise GeoReferenceSystem");  // the name before the extension
    EXPECT_EQ(console.messages.size(), 1u);
    const auto capital = (dir.path() / "QVT_Harbour_001_20260310_EPSG25832_EPSG7837.TXT").string();
    EXPECT_EQ(convert(grid, {capital}), "convertTrajectory2Z9: unknown file extension: " + capital);
    EXPECT_EQ(convert(grid, {"x/QVT_Harbour_001_20260310_EPSG25832_EPSG7837"}),
              "convertTrajectory2Z9: unknown file extension: x/QVT_Harbour_001_20260310_EPSG25832_EPSG7837");
    EXPECT_EQ(grid.attributes().size(), 0u);

    // The second of three fails: the third name, which would throw, is never read.
    const auto missing = (dir.path() / "QVT_Harbour_002_20260311_EPSG25832_EPSG7837.txt").string();
    EXPECT_EQ(convert(grid, {good, missing, "a_b_NaN_20260310_EPSG1_EPSG2.txt"}),
              "Ascii2Z9::run: cannot open file: " + missing);
    EXPECT_EQ(attribute<std::string>(grid, "Date").size(), 1u);
    EXPECT_EQ(grid.field("GPSTime")->fragments().size(), 1u);

    // A time outside the file's day: the fields stay, the attributes of the file are not written.
    Grid timed;
    const auto wrongDay = dir.write("QVT_Harbour_005_20260310_EPSG25832_EPSG7837.txt", textTrajectory(4, 2));
    EXPECT_EQ(convert(timed, {wrongDay}), "modifyGPSTime: GPS time 349200.000000 does not lie within week day 2");
    EXPECT_EQ(timed.field("GPSTime")->fragments().size(), 1u);
    EXPECT_EQ(timed.attributes().size(), 0u);

    // A converter failure and a time failure together: the converter's text wins.  The
    // reader stores its block (the callback fills the time failure), then a stop comes.
    struct StopWhenDone : Ravelin::LoaderProgress {
        bool report(const std::string&, std::uint32_t value, std::uint32_t total) override { return value < total; }
    };
    Grid both;
    const auto pofx = (dir.path() / "QVT_Harbour_006_20260310_EPSG25832_EPSG7837.pofx").string();
    ASSERT_TRUE(Riegl::writeTrajectoryFile(pofx, true, 25832, {{10.0, 1, 2, 3, 4, 5, 6}}));  // Sunday, not Tuesday
    EXPECT_EQ(convert(both, {pofx}, Ravelin::ProgressPtr(new StopWhenDone)), "pofx2tessel: user interruption");
    EXPECT_EQ(convert(both, {pofx}), "modifyGPSTime: GPS time 10.000000 does not lie within week day 2");
    EXPECT_EQ(both.attributes().size(), 0u);

    // A mismatch between files after a successful conversion keeps the file's data.
    Grid mixed;
    const auto quay = dir.write("QVT_Quay_002_20260310_EPSG25832_EPSG7837.txt", textTrajectory(2, 1));
    EXPECT_EQ(convert(mixed, {good, quay}), "addAttributeToGrid:: Different NameOfProject! cannot merge file.");
    EXPECT_EQ(mixed.field("Positions")->fragments().size(), 2u);
}
