// Inputs that are not what a table should be: FIFOs and pipes, lines without an end, wrong parse strings and
// file names, and what the memory counter says after each of them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestSupport.hpp"
#include "pallion/convert/detail/Ascii2Z9.hpp"
#include "pallion/convert/detail/LineReader.hpp"
#include "pallion/convert/detail/Parse.hpp"
#include "pallion/trajectory/detail/FilenameDatum.hpp"
#include "pallion/trajectory/detail/Trajectory.hpp"
#include "tellus/Chronometry.hpp"

using namespace Pallion;
using Tessel::Grid;
using testsupport::TempDir;
using namespace std::string_literals;

namespace {

// Writes all of `text` to `descriptor` and closes it.
void writeAll(int descriptor, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = ::write(descriptor, text.data() + done, text.size() - done);
        if (wrote <= 0) break;
        done += static_cast<std::size_t>(wrote);
    }
    ::close(descriptor);
}

// Converts `name` as one int column and gives the values stored.
std::vector<int> convertInts(const std::string& name, std::string& result) {
    Grid grid;
    Parameter p = testsupport::tableParameter({name}, "V:int:0", 300000);
    result = ascii2z9(grid, p);
    return testsupport::fieldValues<int>(grid, "V");
}

}  // namespace

// A FIFO or a pipe can be opened and read only once: a second open for an estimate would wait for a
// writer that is gone, or take away its bytes.  Should the reading still wait long after the writer has
// written and closed, the writer opens once more to set it free, and the round fails.
TEST(BadInput, AFifoAndAPipeGiveEveryRowTwentyTimesOver) {
    TempDir dir;
    const std::string fifo = (dir.path() / "rows.fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string million;
    std::vector<int> expected(1000000);
    for (int i = 0; i < 1000000; ++i) million += std::to_string(expected[i] = i % 1000) + '\n';
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> done{false}, stuck{false};
        std::thread writer([&] {
            writeAll(::open(fifo.c_str(), O_WRONLY), million);
            for (int wait = 0; wait < 500 && !done; ++wait) std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (done) return;
            stuck = true;
            const int again = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
            if (again >= 0) ::close(again);
        });
        std::string result;
        std::vector<int> values = convertInts(fifo, result);
        done = true;
        writer.join();
        ASSERT_FALSE(stuck) << "round " << round << ": the reading waited on the FIFO after its writer had gone";
        ASSERT_EQ(result, "");
        ASSERT_EQ(values, expected) << "round " << round;

        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        std::thread piper(writeAll, ends[1], std::cref(million));
        values = convertInts("/dev/fd/" + std::to_string(ends[0]), result);
        piper.join();
        ::close(ends[0]);
        ASSERT_EQ(result, "");
        ASSERT_EQ(values, expected) << "round " << round;
    }
}

// A host stops a wait on a FIFO with a signal whose handler does not restart the call: the library asks the
// progress whether to go on, once in the open (no writer yet) and once in a read (a writer begins a line and waits).
TEST(BadInput, ASignalDuringAWaitOnAFifoAsksTheProgressWhetherToGoOn) {
    struct Stopper : Ravelin::LoaderProgress {
        std::atomic<bool> stop{false};
        bool said = false;  // says no once: the stop must hold without being asked again
        bool report(const std::string&, std::uint32_t, std::uint32_t) override {
            return !stop || std::exchange(said, true);
        }
    };
    struct sigaction wake = {}, previous = {};
    wake.sa_handler = [](int) {};
    ::sigemptyset(&wake.sa_mask);
    ASSERT_EQ(::sigaction(SIGUSR1, &wake, &previous), 0);  // no SA_RESTART
    TempDir dir;
    const std::string fifo = (dir.path() / "wait.fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const bool withWriter : {false, true}) {
        auto* stopper = new Stopper;
        Parameter p = testsupport::tableParameter({fifo});
        p.Progress = stopper;
        std::atomic<bool> done{false}, stuck{false};
        const pthread_t converter = ::pthread_self();
        std::thread helper([&] {
            int writeEnd = withWriter ? ::open(fifo.c_str(), O_WRONLY) : -1;
            if (writeEnd >= 0 && ::write(writeEnd, "1 2", 3) != 3) return;  // a line begun, not ended
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            stopper->stop = true;
            for (int i = 0; i < 500 && !done; ++i) {
                ::pthread_kill(converter, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            stuck = !done;
            if (stuck && writeEnd < 0) writeEnd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
            if (writeEnd >= 0) ::close(writeEnd);
        });
        Grid grid;
        const std::string result = ascii2z9(grid, p);
        done = true;
        helper.join();
        EXPECT_FALSE(stuck) << (withWriter ? "read" : "open");
        EXPECT_EQ(result, "Ascii2Z9::run: user interruption") << (withWriter ? "read" : "open");
    }
    ::sigaction(SIGUSR1, &previous, nullptr);
}

// Each bad input with the answer it gets: a line without an end stops at the line-size limit, before memory runs
// out, and says where; a parse string or a trajectory name says which of its pieces is wrong, as it was written.
TEST(BadInput, EachBadInputGetsItsAnswer) {
    TempDir dir;
    const std::string longLine = dir.write("long.txt", "1 2 3\n1 2 3 4 5 6 7\n");
    const std::string noEnd = dir.write("noend.txt", std::string(100000, '7'));
    const std::string limitText = "Ascii2Z9::run: line longer than the line-size limit of ";
    for (const auto& [name, header, limit, expected] :
         std::vector<std::tuple<std::string, std::uint32_t, std::uint64_t, std::string>>{
             {"/dev/zero", 0, 1 << 20, limitText + "1048576 bytes: line 1 of file: /dev/zero"},
             {longLine, 0, 12, limitText + "12 bytes: line 2 of file: " + longLine},
             {longLine, 0, 13, ""},  // a line of exactly the limit is read
             {noEnd, 0, 4096, limitText + "4096 bytes: line 1 of file: " + noEnd},
             {noEnd, 1, 4096, limitText + "4096 bytes: line 1 of file: " + noEnd},
         }) {
        Grid grid;
        Parameter p = testsupport::tableParameter({name}, "V:int:0", 8);
        p.HeaderLines = header;
        p.LineSizeLimit = limit;
        EXPECT_EQ(ascii2z9(grid, p), expected) << name << " header " << header << " limit " << limit;
    }
    EXPECT_EQ(estimateLines(noEnd, 0, 4096), 1u);  // measured up to the limit

    const std::string column = "parseUserInputToContainer: column \"";
    for (const auto& [parse, expected] : std::vector<std::pair<std::string, std::string>>{
             {"A:int:0,P:double:4294967296",
              column + "4294967296\" is no column number (0 to 2147483647) in the entry \"P:double:4294967296\" of "
                       "the parse string: A:int:0,P:double:4294967296"},
             {"P:point:0++2", column + "\" is no column number (0 to 2147483647) in the entry \"P:point:0++2\" of "
                                       "the parse string: P:point:0++2"},
             {"P:point:0+1,Q:int:-1", "parseUserInputToContainer: column number wrong: 0+1"},  // the first fault
             {"P:nosuch:-5", column + "-5\" is no column number (0 to 2147483647) in the entry \"P:nosuch:-5\" of "
                                      "the parse string: P:nosuch:-5"},
         })
        EXPECT_EQ(checkParseString(parse), expected) << parse;

    const std::string layout =
        "; the layout is six pieces parted by underscores: anything_project_fileNumber_date_xxxxEPSG_xxxxEPSG (the "
        "last two: four characters, then the EPSG code of the spatial and of the height reference)";
    for (const auto& [stem, expected] : std::vector<std::pair<std::string, std::string>>{
             {"QVT_Harbour_001_20260310_EPSG25832_EPSG7837", ""},
             {"a_p_x1_20260310_EPSG1_EPSG",  // piece 5 is read first
              "parseFilenameForGeoDatum: piece 5 (the EPSG code of the height reference) of the name "
              "\"a_p_x1_20260310_EPSG1_EPSG\", \"EPSG\", is no number from -2147483648 to 2147483647 behind its "
              "first four characters" +
                  layout},
             {"a_p_x1_20260310_EPSG1_EPSG2",
              "parseFilenameForGeoDatum: piece 2 (the file number) of the name \"a_p_x1_20260310_EPSG1_EPSG2\", "
              "\"x1\", is no number from -2147483648 to 2147483647" +
                  layout},
             {"a_p_1_20260310_EPSG1",
              "parseFilenameForGeoDatum: the name \"a_p_1_20260310_EPSG1\" has 5 pieces, not six" + layout},
         })
        EXPECT_EQ(checkTrajectoryName(stem), expected) << stem;

    // A NUL in a date (a Python str may hold one) shows in the refusal.
    try {
        Tellus::Chronometry("2026\0000310"s);
        ADD_FAILURE() << "a date with a NUL was taken";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Tellus::Chronometry: not a date: 2026\\00310");
    }
}

// Whatever a conversion did, once its grid is gone every chunk has taken off what it added (a last block cut too).
TEST(BadInput, TheMemoryCounterComesBackLevel) {
    TempDir dir;
    const auto rows = dir.write("rows.txt", "1 2 3\n4 5 6\n7 8 9\n");
    const auto failing = dir.write("failing.txt", "1 2 3\n4 5 6\n7 x 9\n");
    const std::string examples = PALLION_SOURCE_DIR "/examples/data/trajectory/";
    const auto trajectory = examples + "QVT_Harbour_001_20260310_EPSG25832_EPSG7837.txt";
    const auto pofx = examples + "QVT_Harbour_003_20260312_EPSG25832_EPSG7837.pofx";
    const auto badTrajectory = dir.write("QVT_Harbour_003_20260310_EPSG25832_EPSG7837.txt", "176400 1 2\n");
    auto table = [&](const std::string& name, std::uint32_t chunkSize) {
        return [=] {
            Grid grid;
            Parameter p = testsupport::tableParameter({name}, "Positions:point:0+1+2", chunkSize);
            p.EPSG = 25832;
            try {
                return ascii2z9(grid, p);
            } catch (const std::invalid_argument& e) {
                return std::string(e.what());
            }
        };
    };
    auto trajectories = [&](std::initializer_list<std::string> list) {
        return [files = testsupport::fileList(list)] {
            Grid grid;
            return convertTrajectory2Z9(grid, files, Ravelin::ProgressPtr());
        };
    };
    for (const auto& [what, convert, expected] :
         std::vector<std::tuple<std::string, std::function<std::string()>, std::string>>{
             {"a table, last block cut", table(rows, 2), ""},
             {"a table, default blocks", table(rows, 10000000), ""},
             {"a table failing in its last block", table(failing, 2), "stod"},
             {"trajectories", trajectories({trajectory, pofx}), ""},
             {"a failing trajectory", trajectories({trajectory, badTrajectory}),
              "Ascii2Z9::run: User column index out of range: Highest Column Index: 6. Number of tokens in this "
              "line: 3"},
         }) {
        const auto before = Ravelin::ChunkBase::TotalMemsize.load();
        EXPECT_EQ(convert(), expected) << what;
        EXPECT_EQ(Ravelin::ChunkBase::TotalMemsize.load(), before) << what;
    }
}
