// Runs a machine twice from the same input.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "Fuzz/Input.h"
#include "Fuzz/Property.h"
#include "Simulator/Simulation.h"

// Step: void(Simulator::Simulation&, FuzzInput&). As many steps as the input has bytes for, at most Count; one that
// names what the machine does not have (std::invalid_argument) is left out.
template <class Step>
void RunSteps(Simulator::Simulation& Machine, FuzzInput& Input, unsigned Count, Step One) {
    for (unsigned Number = 0; Number < Count && !Input.IsEmpty(); Number++) {
        try {
            One(Machine, Input);
        } catch (const std::invalid_argument&) {
        }
    }
}

// Run: void(Simulator::Simulation&, FuzzInput&), on a booted machine made from the settings that Configure, a
// Simulator::Configuration(FuzzInput&), returns; settings that no machine can be built from, and machines that are
// not fit to be tried, are left out. Guard bytes are whole, blocks are given back once, no memory that is not there
// is touched (the simulation throws), and both runs leave the same journal, trace and blocks.
template <class Configure, class Run>
void RunTwiceTheSame(
    const std::uint8_t* Data, std::size_t Size, Configure Settings, Run Work,
    bool (*IsFit)(Simulator::Simulation&) = [](Simulator::Simulation&) { return true; }) {
    struct Trail {
        std::string Refusal;
        std::string Journal;
        std::string Trace;
        std::uint64_t LiveBlocks = 0;
        std::uint64_t LiveBytes = 0;

        bool operator==(const Trail&) const = default;
    };
    const auto Once = [&] {
        FuzzInput Input(Data, Size);
        Simulator::Configuration Configured = Settings(Input);
        Configured.TraceLevels = DEBUG_ERROR;  // the rest costs more time than it finds
        std::unique_ptr<Simulator::Simulation> Machine;
        try {
            Machine = std::make_unique<Simulator::Simulation>(Configured);
        } catch (const std::invalid_argument& Error) {
            Trail Refused;
            Refused.Refusal = Error.what();
            return Refused;
        }
        if (!IsFit(*Machine)) {
            return Trail();
        }
        Machine->Boot();
        Work(*Machine, Input);
        const Simulator::PoolStatistics Pool = Machine->Pool();
        return Trail{{}, Machine->Events().ToJsonLines(), Machine->TraceLog(), Pool.LiveBlocks, Pool.LiveBytes};
    };
    MustHold(Once() == Once(), "the same input leaves the same trail");
}
