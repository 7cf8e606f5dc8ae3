// A booted machine with one CXL memory device whose registers a test can bend, captured as the driver does it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogPolicyLib/Cxl/CxlDeviceState.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"
#include "Tests/Support/CxlFunction.h"

class CxlMachine : public PolicyMachine {
 public:
    explicit CxlMachine(const Simulator::CxlSetting& Setting = {}, const Simulator::Configuration& Settings = {})
        : PolicyMachine(Settings), Function(Sim.Machine(), Setting) {}
    ~CxlMachine() {
        // An access that nothing answers would have been noted.
        EXPECT_NO_THROW(Sim.Machine().ThrowPendingFault());
    }

    // What the scan of the hierarchy has filled in before the CXL group.
    PCI_DEVICE_STATE Front() const {
        PCI_DEVICE_STATE State{};
        State.PciAddress = CxlFunction::ADDRESS;
        VornGetPciHeader(0, CxlFunction::BUS, 0, 0, State.PciHeader);
        return State;
    }
    EFI_STATUS Capture(PCI_DEVICE_STATE* State) const {
        return VornElogGetCxlDeviceState(0, CxlFunction::BUS, 0, 0, State);
    }
    // Captured, with a component event signaled.
    PCI_DEVICE_STATE Signaled() const {
        PCI_DEVICE_STATE State = Front();
        EXPECT_EQ(Capture(&State), EFI_SUCCESS);
        State.Cxl.ErrorStatus.ComponentDetected = TRUE;
        return State;
    }

    // Section type, both severities and length of every record that reached the policy engine.
    std::vector<std::string> Records() {
        std::vector<std::string> Found;
        const std::vector<std::string> Sections = Events("record", "section");
        const std::vector<std::string> Header = Events("record", "header-severity");
        const std::vector<std::string> Section = Events("record", "section-severity");
        const std::vector<std::string> Length = Events("record", "length");
        for (std::size_t Index = 0; Index < Sections.size(); Index++) {
            Found.push_back(Sections[Index] + " " + Header[Index] + " " + Section[Index] + " " + Length[Index]);
        }
        return Found;
    }

    CxlFunction Function;
};
