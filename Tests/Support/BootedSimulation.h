// A simulation that tests boot and ask about what happened.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Simulation.h"

// Events of one kind, or from one point of the run on.
using EventList = std::vector<Simulator::Event>;

class BootedSimulation {
 public:
    // Boots at once; the entry point's status is kept. Events of the boot count too, until Forget().
    explicit BootedSimulation(Simulator::Configuration Settings = {});

    Simulator::Simulation* operator->() {
        return &Running;
    }
    Simulator::Simulation& operator*() {
        return Running;
    }
    EFI_STATUS EntryStatus() const {
        return Status;
    }

    // Events from here on count.
    void Forget();
    // Events of this kind that have all these fields, as the journal writes them.
    EventList Events(std::string_view Kind, const std::map<std::string, std::string>& Fields = {});
    std::size_t Count(std::string_view Kind, const std::map<std::string, std::string>& Fields = {});
    // Calls of a silicon-maker service that changes something.
    EventList Calls(const std::string& Member, std::map<std::string, std::string> Fields = {});
    // The six bytes of every event body, in order.
    std::vector<std::string> SelBodies();
    // Whether the serial output holds the text.
    bool Traced(std::string_view Text);
    // The kinds of all events, in order, without those in Leave.
    std::vector<std::string> Kinds(std::initializer_list<std::string_view> Leave = {});

    // An error in hardware, then its SMI.
    void Fail(const Simulator::MachineCheck& Error);

 private:
    Simulator::Simulation Running;
    EFI_STATUS Status;
    std::size_t Seen = 0;
};

// Compares bytes with spaced hexadecimal text, telling the first place that differs; ".." matches any byte.
// Use with EXPECT_TRUE.
::testing::AssertionResult BytesAre(const std::vector<std::uint8_t>& Bytes, std::string_view Expected,
                                    std::size_t Offset = 0);

// A machine whose corrected errors are all reported.
Simulator::Configuration DiagnosticConfiguration();
