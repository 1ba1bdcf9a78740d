// Two conversions at once, each on its own thread into its own grid: a text table on one, a trajectory list with
// a misfit name (which goes to the console) on the other.  Each must give what it gives alone; under
// ThreadSanitizer any race on shared state fails the run.
#include <gtest/gtest.h>

#include <thread>

#include "TestSupport.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/trajectory/detail/Trajectory.hpp"
#include "ravelin/Console.hpp"

TEST(Concurrency, TwoConversionsOnTwoThreadsEachIntoItsOwnGrid) {
    // The example data: 3000 rows below a header, a .pof of 250 records; misfit.pof is refused by its name alone.
    const std::string data = PALLION_SOURCE_DIR "/examples/data/";
    const auto points = data + "sample_points.txt";
    const auto pof = data + "trajectory/QVT_Harbour_004_20260313_EPSG25832_EPSG7837.pof";

    std::atomic<int> consoleMessages{0};
    const auto previous = Ravelin::Console::setSink([&](const std::string&) { ++consoleMessages; });
    constexpr int Rounds = 4;
    using Outcome = std::pair<std::string, std::size_t>;  // the result and the number of points
    std::vector<Outcome> texts, trajectories;
    std::thread text([&] {
        for (int round = 0; round < Rounds; ++round) {
            Tessel::Grid grid;
            auto p = testsupport::tableParameter({points, points}, "P:point:0+1+2,C:uint8_t:3", 1000);
            p.HeaderLines = 1;
            const std::string result = Pallion::ascii2z9(grid, p);
            texts.emplace_back(result, testsupport::fieldValues<Tessel::Point>(grid, "P").size());
        }
    });
    std::thread trajectory([&] {
        for (int round = 0; round < Rounds; ++round) {
            Tessel::Grid grid;
            const std::string result =
                Pallion::convertTrajectory2Z9(grid, testsupport::fileList({pof, "misfit.pof"}), Ravelin::ProgressPtr());
            trajectories.emplace_back(result, testsupport::fieldValues<Tessel::Point>(grid, "Positions").size());
        }
    });
    text.join();
    trajectory.join();
    Ravelin::Console::setSink(previous);

    EXPECT_EQ(texts, std::vector<Outcome>(Rounds, {"", 6000}));
    EXPECT_EQ(trajectories,
              std::vector<Outcome>(Rounds, {"convertTrajectory2Z9: could not initialise GeoReferenceSystem", 250}));
    EXPECT_EQ(consoleMessages, Rounds);
}
