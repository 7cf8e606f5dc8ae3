// What tests of faults run on a machine: a corrected, a deferred and an uncorrected error, then the OS clears the
// last. And what came of it, in numbers.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tests/Support/BootedSimulation.h"

inline Simulator::MachineCheck MakeError(unsigned Processor, unsigned Bank, std::uint64_t Status) {
    Simulator::MachineCheck Error;
    Error.Processor = Processor;
    Error.Bank = Bank;
    Error.Status = Status;
    return Error;
}

// Each is of a processor of its own: what one SMI leaves undone no other finds.
inline Simulator::MachineCheck CorrectedError() {
    return MakeError(5, 0, 0x9000000000000151);
}
inline Simulator::MachineCheck DeferredError() {
    Simulator::MachineCheck Error = MakeError(4, 7, 0x8400100000040136);
    Error.Addr = 0x123456780;
    return Error;
}
inline Simulator::MachineCheck UncorrectedError() {
    return MakeError(2, 5, 0xB000000000000400);
}

// Four SMIs.
inline void RunStory(BootedSimulation& Sim) {
    Sim.Fail(CorrectedError());
    Sim.Fail(DeferredError());
    Sim.Fail(UncorrectedError());
    Sim->OsWriteMsr(2, 0xC0002051, 0);
}

// What succeeded since the boot.
struct StoryOutcome {
    std::size_t Records = 0;  // that entered the policy engine
    std::size_t Sel = 0;
    std::size_t Sends = 0;
    std::size_t Logged = 0;  // records in GHES
    std::size_t Sci = 0;
    std::size_t Mce = 0;
    std::size_t Cloak = 0;  // changes of the cloak
    std::size_t Clear = 0;  // cleared banks
    std::size_t Rearm = 0;

    bool operator==(const StoryOutcome&) const = default;
};

// In diagnostic mode. Corrected and uncorrected: 1 machine check, 4 location, IPID CTL STATUS CONFIG of 4 events;
// deferred: ADDR DESTAT DEADDR too, 33 events, and no word to the OS.
inline constexpr StoryOutcome WHOLE_STORY{3, 75, 3, 2, 2, 1, 2, 3, 2};
inline constexpr StoryOutcome NOTHING{};

inline StoryOutcome OutcomeOf(BootedSimulation& Sim) {
    const std::map<std::string, std::string> Success{{"status", "EFI_SUCCESS"}};
    return {Sim.Count("record"),
            Sim.Count("sel"),
            Sim.Count("sel-send", Success),
            Sim.Count("ghes-log", Success),
            Sim.Count("sci"),
            Sim.Count("mce"),
            Sim.Calls("SetMcaCloakCfg", Success).size(),
            Sim.Calls("ClrMcaStatus", Success).size(),
            Sim.Calls("SetMcaThreshold", Success).size()};
}

inline void PrintTo(const StoryOutcome& One, std::ostream* Out) {
    *Out << "records " << One.Records << " sel " << One.Sel << " sends " << One.Sends << " logged " << One.Logged
         << " sci " << One.Sci << " mce " << One.Mce << " cloak " << One.Cloak << " clear " << One.Clear << " rearm "
         << One.Rearm;
}
