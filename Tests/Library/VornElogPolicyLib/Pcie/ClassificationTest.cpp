// The whole classification of a function: who is checked for what, containment, removal, functions that die under it;
// and who handles a queued record.
#include "Library/VornElogPolicyLib/Pcie/Classification.h"

#include <gtest/gtest.h>

#include <string>

#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr unsigned RP_EXTENSIONS = 1 << 5, HOT_PLUG = 1 << 6, PRESENT = 1 << 6;

class Classification : public testing::Test {
 protected:
    std::string Classify(UINT8 Bus, UINT8 Device) {
        State = Machine.Capture(Bus, Device, 0);
        State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = &State;
        EXPECT_EQ(VornElogSmmIsPciErrorSignaled(&State), EFI_SUCCESS);
        return Flags(State);
    }
    // Shows an error of every class.
    static void FailInEveryWay(TestFunction& Function) {
        Function.Set(PCI_STATUS, 2, 0x4010)
            .Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F)
            .Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00154000)  // UR, CTO, unexpected completion, malformed
            .Set(AER + AER_CORRECTABLE_STATUS, 4, 0x00002001)
            .SetHeaderLog(MEMORY_READ);
    }

    PcieMachine Machine;
    PCI_DEVICE_STATE State{};
};

TEST_F(Classification, EndpointsAndLegacyFunctions) {
    FailInEveryWay(Machine.Add(PcieMachine::BUS, 0, 0, PcieEndpoint));
    EXPECT_EQ(Classify(PcieMachine::BUS, 0), "L.FSC F.DCH U.DCH N.DCH+ K.DCH");
    // No capability list: the same bits are a legacy function's.
    auto& Legacy = Machine.Add(PcieMachine::BUS, 1, 0, PcieEndpoint);
    FailInEveryWay(Legacy);
    Legacy.Set(PCI_STATUS, 2, 0xC000).Set(PCI_COMMAND, 2, 0x0100);
    EXPECT_EQ(Classify(PcieMachine::BUS, 1), "L.FPSH");
    EXPECT_EQ(VornElogSmmIsPciErrorSignaled(nullptr), EFI_INVALID_PARAMETER);
}

TEST_F(Classification, PortsWithContainment) {
    const struct {
        const char* Name;
        unsigned PortType, DpcCapability, DpcStatus, SlotCapabilities, SlotStatus;
        std::uint32_t RpPioStatus;
        const char* Expected;
    } Cases[] = {
        {"not triggered", PcieRootPort, 0, 0, 0, 0, 0, "L.FSC F.DCH U.DCH N.DCH+ K.DCH"},
        {"a containment event stands for all", PcieRootPort, 0, 1, 0, 0, 0, "E.DH"},
        {"also of a switch", PcieSwitchDownstreamPort, 0, 5, 0, 0, 0, "E.DH"},
        {"an upstream port has none", PcieSwitchUpstreamPort, 0, 1, 0, 0, 0, "L.FSC F.DCH U.DCH N.DCH+ K.DCH"},
        {"contained by a removal", PcieRootPort, 0, 1, HOT_PLUG, 0, 0, "HOT E.DC"},
        {"contained, still there", PcieRootPort, 0, 1, HOT_PLUG, PRESENT, 0, "E.DH"},
        // A removal takes UR and all correctable errors away, and CTO where it is fatal.
        {"removed", PcieRootPort, 0, 0, HOT_PLUG, 0, 0, "HOT L.FSC F.DCH U.DC N.DCH+ K.DC"},
        // Timeouts and unsupported requests of its own: the non-fatal ones are explained, the malformed one is not.
        {"RP PIO", PcieRootPort, RP_EXTENSIONS, 0, 0, 0, 0x00040001, "L.FSC R.DCH F.DCH U.DCH N.DCH+ K.DCH"},
        {"RP PIO unknown to AER", PcieRootPort, RP_EXTENSIONS, 0, 0, 0, 0x00000002,
         "L.FSC R.DCH F.DCH U.DCH N.DCH+ K.DCH"},
    };
    for (const auto& Case : Cases) {
        auto& Port =
            Machine.Add(PcieMachine::ROOT_BUS, 2, 0, Case.PortType).MakeBridge(PcieMachine::BUS, PcieMachine::BUS);
        FailInEveryWay(Port);
        Port.AddDpc(Case.DpcCapability)
            .Set(DPC + DPC_CONTROL, 2, 0x0011)
            .Set(DPC + DPC_STATUS, 2, Case.DpcStatus)
            .Set(DPC + DPC_RP_PIO_STATUS, 4, Case.RpPioStatus)
            .Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, 0x00070707)
            .Set(PCIE + PCIE_SLOT_CAPABILITIES, 4, Case.SlotCapabilities)
            .Set(PCIE + PCIE_SLOT_STATUS, 2, Case.SlotStatus);
        EXPECT_EQ(Classify(PcieMachine::ROOT_BUS, 2), Case.Expected) << Case.Name;
        EXPECT_EQ(Machine.TracedSince("SBDF 0000:0C:02.0 PCIe device hot removal detected, clear DPC status\n"),
                  std::string(Case.Expected) == "HOT E.DC")
            << Case.Name;
    }
}

TEST_F(Classification, RpPioTakesBackWhatItExplains) {
    auto& Port =
        Machine.Add(PcieMachine::ROOT_BUS, 2, 0, PcieRootPort).MakeBridge(PcieMachine::BUS, PcieMachine::BUS);
    Port.AddDpc(RP_EXTENSIONS)
        .Set(DPC + DPC_RP_PIO_STATUS, 4, 0x00040002)
        .Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, 0x00070707)
        .Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x0006)
        .Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x0000C000)     // CTO and CA
        .Set(AER + AER_UNCORRECTABLE_SEVERITY, 4, 0x00466030);  // the timeout is fatal
    EXPECT_EQ(Classify(PcieMachine::ROOT_BUS, 2), "R.DCH F.DC N.DC+");
}

}  // namespace
