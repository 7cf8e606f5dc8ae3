// The hot removal rule on captured and on live registers, and the ports that it is for.
#include "Library/VornElogPolicyLib/Pcie/HotRemoval.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr unsigned HOT_PLUG = 1 << 6, POWER_CONTROLLER = 1 << 1, POWER_OFF = 1 << 10, PRESENT = 1 << 6;
constexpr unsigned LINK_REPORTED = 1 << 20, LINK_ACTIVE = 1 << 13;

struct Case {
    const char* Name;
    unsigned SlotCapabilities, SlotControl, SlotStatus, LinkCapabilities, LinkStatus;
    bool IsContained;
    bool Expected;
};

constexpr Case Cases[] = {
    {"no hot plug, empty", 0, POWER_OFF, 0, LINK_REPORTED, 0, false, false},
    {"present, link up", HOT_PLUG, 0, PRESENT, LINK_REPORTED, LINK_ACTIVE, false, false},
    {"present, link down", HOT_PLUG, 0, PRESENT, LINK_REPORTED, 0, false, true},
    {"present, link not reported", HOT_PLUG, 0, PRESENT, 0, 0, false, false},
    {"empty, link up", HOT_PLUG, 0, 0, LINK_REPORTED, LINK_ACTIVE, false, true},
    {"empty, link not reported", HOT_PLUG, 0, 0, 0, 0, false, true},
    {"power on, empty", HOT_PLUG | POWER_CONTROLLER, 0, 0, LINK_REPORTED, 0, false, false},
    {"power off, present", HOT_PLUG | POWER_CONTROLLER, POWER_OFF, PRESENT, LINK_REPORTED, LINK_ACTIVE, false, true},
    {"no power controller, bit set", HOT_PLUG, POWER_OFF, PRESENT, LINK_REPORTED, LINK_ACTIVE, false, false},
    {"contained, link down", HOT_PLUG, 0, PRESENT, LINK_REPORTED, 0, true, false},
    {"contained, empty", HOT_PLUG, 0, 0, LINK_REPORTED, 0, true, true},
    {"contained, power off", HOT_PLUG | POWER_CONTROLLER, POWER_OFF, PRESENT, LINK_REPORTED, 0, true, true},
};

void SetSlot(TestFunction& Port, const Case& Test) {
    Port.Set(PCIE + PCIE_SLOT_CAPABILITIES, 4, Test.SlotCapabilities)
        .Set(PCIE + PCIE_SLOT_CONTROL, 2, Test.SlotControl)
        .Set(PCIE + PCIE_SLOT_STATUS, 2, Test.SlotStatus)
        .Set(PCIE + PCIE_LINK_CAPABILITIES, 4, Test.LinkCapabilities)
        .Set(PCIE + PCIE_LINK_STATUS, 2, Test.LinkStatus)
        .AddDpc()
        .Set(DPC + DPC_CONTROL, 2, 0x0011)
        .Set(DPC + DPC_STATUS, 2, Test.IsContained ? 1 : 0);
}

TEST(HotRemoval, TheRuleHoldsForCapturedAndForLiveRegisters) {
    PcieMachine Machine;
    for (const Case& Test : Cases) {
        SetSlot(Machine.AddRootPort(), Test);
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
        State.Pcie.ErrorStatus.DetectedDpcEvent = Test.IsContained;
        EXPECT_EQ(VornElogSmmCheckPcieHotRemovalRegisterBased(0, PcieMachine::ROOT_BUS, 1, 0), Test.Expected)
            << Test.Name;
        Machine.AddRootPort();  // another device: the record answers by itself
        EXPECT_EQ(VornElogSmmCheckHotRemoval(&State), Test.Expected) << Test.Name;
        EXPECT_EQ(VornElogSmmCheckPcieHotRemoval(&State), Test.Expected) << Test.Name;
        EXPECT_EQ(State.Pcie.ErrorStatus.DetectedHotRemoval, Test.Expected) << Test.Name;
    }
    EXPECT_EQ(VornElogSmmCheckHotRemoval(nullptr), FALSE);
    EXPECT_EQ(VornElogSmmCheckPcieHotRemoval(nullptr), FALSE);
    EXPECT_EQ(VornElogSmmCheckPcieHotRemovalRegisterBased(0, PcieMachine::ROOT_BUS, 7, 0), FALSE);
}

TEST(HotRemoval, OnlyPortsWithAnEmptySlotBelowThemShowIt) {
    const Case Empty = {"", HOT_PLUG, 0, 0, 0, 0, false, true};
    const struct {
        unsigned PortType, Secondary, Subordinate;
        bool Expected;
    } Ports[] = {
        {PcieRootPort, 0x0D, 0x0D, true},
        {PcieRootPort, 0x0D, 0x0E, false},  // a switch below
        {PcieSwitchDownstreamPort, 0x0D, 0x0E, true},
        {PcieRootComplexEventCollector, 0x0D, 0x0E, true},
        {PcieSwitchUpstreamPort, 0x0D, 0x0D, false},
        {PcieEndpoint, 0x0D, 0x0D, false},
        {PcieToPciBridge, 0x0D, 0x0D, false},
        {PcieRootComplexIntegratedEndpoint, 0x0D, 0x0D, false},
    };
    PcieMachine Machine;
    for (const auto& Port : Ports) {
        SetSlot(Machine.Add(PcieMachine::ROOT_BUS, 2, 0, Port.PortType).MakeBridge(Port.Secondary, Port.Subordinate),
                Empty);
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::ROOT_BUS, 2, 0);
        EXPECT_EQ(VornElogSmmCheckPcieHotRemoval(&State), Port.Expected) << Port.PortType;
        EXPECT_EQ(
            Machine.TracedSince("SBDF 0000:0C:02.0 Mirrow platform PCIe root port SecBus 0x0d SubBus 0x0e (switch "
                                "topology)\n"),
            Port.PortType == PcieRootPort && !Port.Expected);
    }
}

}  // namespace
