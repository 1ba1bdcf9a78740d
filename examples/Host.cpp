// A small host: converts text tables (or trajectory files) into a grid, with a
// progress bar on stderr that Ctrl-C stops, and prints what the grid holds.
//
//   pallion_host [--header N] [--delimiter C] [--block N] [--epsg N] [--parse TEXT] FILE...
//   pallion_host --trajectory FILE...
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

#include "pallion/convert/Ascii2Z9.hpp"
#include "pallion/trajectory/Trajectory.hpp"
#include "ravelin/Console.hpp"
#include "tessel/Grid.hpp"

namespace {

std::atomic<bool> interrupted{false};
extern "C" void onInterrupt(int) { interrupted = true; }

// Draws a bar on stderr; answers false once the user pressed Ctrl-C.
class BarProgress : public Ravelin::LoaderProgress {
public:
    bool report(const std::string& message, std::uint32_t value, std::uint32_t total) override {
        const int width = 40;
        const int filled = total == 0 ? 0 : static_cast<int>(static_cast<double>(value) / total * width);
        if (!terminal || filled == lastFilled) return !interrupted;
        lastFilled = filled;
        std::cerr << '\r' << message << " [" << std::string(filled, '#') << std::string(width - filled, ' ') << "] "
                  << value << '/' << total << std::flush;
        drawn = true;
        return !interrupted;
    }
    ~BarProgress() override {
        if (drawn) std::cerr << '\n';
    }

private:
    const bool terminal = isatty(STDERR_FILENO) != 0;
    int lastFilled = -1;
    bool drawn = false;
};

std::string attributeText(const Ravelin::StrongPtr<Ravelin::ChunkBase>& value) {
    std::string text;
    auto join = [&](const auto& values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i) text += ", ";
            if constexpr (std::is_same_v<std::decay_t<decltype(values[i])>, std::string>)
                text += '"' + values[i] + '"';
            else
                text += std::to_string(values[i]);
        }
    };
    if (auto* ints = dynamic_cast<Ravelin::Chunk<int>*>(value.get()))
        join(ints->vector());
    else if (auto* uints = dynamic_cast<Ravelin::Chunk<unsigned int>*>(value.get()))
        join(uints->vector());
    else if (auto* texts = dynamic_cast<Ravelin::Chunk<std::string>*>(value.get()))
        join(texts->vector());
    else
        text = std::to_string(value->elementCount()) + " elements";
    return text;
}

void printGrid(const Tessel::Grid& grid) {
    for (const auto& field : grid.fields()) {
        std::string type = "(no fragment)";
        if (!field->fragments().empty()) type = field->fragments()[0].arrays[0]->typeIndex().typeName;
        std::cout << "field " << field->fieldName() << " : " << type << '\n';
        for (const auto& fragment : field->fragments())
            for (const auto& array : fragment.arrays) {
                const std::uint64_t n = array->elementCount();
                std::cout << "  " << fragment.id->name << ": " << n << " elements";
                if (n > 0) std::cout << ", first " << array->elementText(0) << ", last " << array->elementText(n - 1);
                std::cout << '\n';
            }
    }
    for (const auto& name : grid.attributes().names())
        std::cout << "attribute " << name << " = " << attributeText(grid.attributes().getAttribute(name)) << '\n';
    for (const auto& note : grid.notes()) std::cout << "note from " << note.converter << ":" << note.text << '\n';
}

int usage() {
    std::cerr << "usage: pallion_host [--header N] [--delimiter C] [--block N] [--epsg N] [--parse TEXT] FILE...\n"
                 "       pallion_host --trajectory FILE...\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    Pallion::Parameter parameter;
    parameter.Files = new Ravelin::StringList;
    bool trajectory = false;
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        for (std::size_t i = 0; i < args.size(); ++i) {
            auto value = [&]() -> const std::string& {
                if (i + 1 >= args.size()) throw std::invalid_argument("missing value after " + args[i]);
                return args[++i];
            };
            if (args[i] == "--header")
                parameter.HeaderLines = static_cast<std::uint32_t>(std::stoul(value()));
            else if (args[i] == "--delimiter")
                parameter.Delimiter = value().at(0);
            else if (args[i] == "--block")
                parameter.ChunkSize = static_cast<std::uint32_t>(std::stoul(value()));
            else if (args[i] == "--epsg")
                parameter.EPSG = std::stoi(value());
            else if (args[i] == "--parse")
                parameter.Parse = value();
            else if (args[i] == "--trajectory")
                trajectory = true;
            else if (!args[i].empty() && args[i][0] == '-')
                return usage();
            else
                parameter.Files->push_back(args[i]);
        }
    } catch (const std::exception& e) {
        std::cerr << "pallion_host: " << e.what() << '\n';
        return usage();
    }
    if (parameter.Files->empty()) return usage();

    std::signal(SIGINT, onInterrupt);
    // The console's messages, such as a trajectory name that does not fit, go to stdout here.
    Ravelin::Console::setSink([](const std::string& text) { std::cout << "console: " << text << '\n'; });

    Tessel::Grid grid;
    std::string result;
    try {
        Ravelin::ProgressPtr progress(new BarProgress);
        if (trajectory)
            result = Pallion::convertTrajectory2Z9(grid, parameter.Files, progress);
        else {
            parameter.Progress = progress;
            result = Pallion::ascii2z9(grid, parameter);
            parameter.Progress.reset();
        }
    } catch (const std::exception& e) {
        std::cerr << "pallion_host: conversion stopped by an exception: " << e.what() << '\n';
        printGrid(grid);
        return 1;
    }
    printGrid(grid);
    if (!result.empty()) {
        std::cerr << "pallion_host: " << result << '\n';
        return 1;
    }
    return 0;
}
