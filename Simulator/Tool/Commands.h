// The tool's commands. Exit statuses: 0 as expected, 1 an expectation was missed, 2 bad input.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace Simulator {

enum class TraceChoice { None, Errors, All };

struct RunOptions {
    std::vector<std::filesystem::path> Files{};
    std::filesystem::path Out{};  // empty: nothing is left behind
    std::string OsMemory{};       // FILE@ADDRESS of an error source in a running guest's memory; empty: none
    TraceChoice Trace = TraceChoice::None;
    bool Json = false;
    bool Colours = false;
};

int RunCommand(const RunOptions& Options, std::ostream& Out, std::ostream& Errors);
int DecodeCommand(const std::filesystem::path& File, bool Json, std::ostream& Out, std::ostream& Errors);
// Writes the configuration space that the scenario leaves, as lspci -F reads it. Whether its expectations were met
// does not matter.
int DumpCommand(const std::filesystem::path& File, std::ostream& Out, std::ostream& Errors);
int ListCommand(const std::filesystem::path& Folder, bool Json, std::ostream& Out, std::ostream& Errors);

}  // namespace Simulator
