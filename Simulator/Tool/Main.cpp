#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "Simulator/Tool/Commands.h"

namespace {

constexpr int BadInput = 2;

bool WantsColours() {
    return isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR");
}

int Run(int Count, char** Arguments) {
    CLI::App App{"A two-socket server with its firmware-first error handler, simulated"};
    App.require_subcommand(1);
    bool Json = false;

    Simulator::RunOptions Options;
    CLI::App* Run = App.add_subcommand("run", "Run scenarios and show what happened");
    Run->add_option("FILE", Options.Files, "Scenario files (YAML)")->required();
    Run->add_option(
        "--out", Options.Out,
        "Folder for journal.jsonl, trace.log, records/, sel.raw and ghes.bin; one below it for each of many");
    Run->add_option("--os-memory", Options.OsMemory,
                    "FILE@ADDRESS: an error source in a running guest's memory, which reads the records");
    const std::map<std::string, Simulator::TraceChoice> Choices{{"none", Simulator::TraceChoice::None},
                                                                {"errors", Simulator::TraceChoice::Errors},
                                                                {"all", Simulator::TraceChoice::All}};
    Run->add_option("--trace", Options.Trace, "Lines of the serial trace to show: none, errors or all")
        ->transform(CLI::CheckedTransformer(Choices));
    Run->add_flag("--json", Json, "One JSON array instead of tables");

    std::filesystem::path File;
    CLI::App* Decode = App.add_subcommand("decode", "Tell what an error record or an event log says");
    Decode->add_option("FILE", File, "A record (.cper) or 16-byte SEL records (sel.raw)")->required();
    Decode->add_flag("--json", Json, "JSON instead of text");

    CLI::App* Dump = App.add_subcommand("dump", "Write the PCI configuration space that a scenario leaves");
    Dump->add_option("FILE", File, "A scenario file (YAML); lspci -F reads what comes of it")->required();

    CLI::App* List = App.add_subcommand("list", "List the scenarios that ship with the project");
    List->add_flag("--json", Json, "JSON instead of text");

    try {
        App.parse(Count, Arguments);
    } catch (const CLI::ParseError& Error) {
        return App.exit(Error) ? BadInput : 0;
    }
    if (*Decode) {
        return Simulator::DecodeCommand(File, Json, std::cout, std::cerr);
    }
    if (*Dump) {
        return Simulator::DumpCommand(File, std::cout, std::cerr);
    }
    if (*List) {
        return Simulator::ListCommand(SCENARIO_FOLDER, Json, std::cout, std::cerr);
    }
    Options.Json = Json;
    Options.Colours = WantsColours();
    return Simulator::RunCommand(Options, std::cout, std::cerr);
}

}  // namespace

int main(int Count, char** Arguments) {
    try {
        const int Status = Run(Count, Arguments);
        if (!std::cout.flush()) {
            std::cerr << "ras-sim: the output cannot be written\n";
            return BadInput;
        }
        return Status;
    } catch (const std::exception& Error) {
        std::cerr << "ras-sim: " << Error.what() << "\n";
        return BadInput;
    }
}
