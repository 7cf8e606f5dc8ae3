// Legacy PCI functions: what Status and Secondary Status mean, and display devices.
#include "Library/VornElogPolicyLib/Pcie/LegacyPciErrors.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

struct Case {
    const char* Name;
    UINT16 Status, Command;
    UINT16 SecondaryStatus, BridgeControl;  // of a type 1 header
    UINT8 HeaderType;
    const char* Expected;
    UINT32 ClassRevision = 0x02000000;
    UINT32 Id = 0x10D38086;
};

constexpr UINT32 VGA = 0x03000000, OTHER_DISPLAY = 0x03800000, UNASSIGNED = 0xFF000000, G200 = 0x07501050;

constexpr Case Cases[] = {
    {"nothing", 0x0010, 0x0147, 0, 0, 0, ""},
    {"master data parity error", 0x0110, 0x0040, 0, 0, 0, "L.FPH"},
    {"the same, no response enabled", 0x0110, 0x0107, 0, 0, 0, "L.FPC"},
    {"system error", 0x4010, 0x0100, 0, 0, 0, "L.FSH"},
    {"the same, not enabled", 0x4010, 0x0047, 0, 0, 0, "L.FSC"},
    {"detected parity error", 0x8010, 0x0000, 0, 0, 0, "L.FPH"},
    {"aborts", 0x3810, 0x0147, 0, 0, 0, "L.C"},
    {"aborts beside an error", 0xB810, 0x0147, 0, 0, 0, "L.FPH"},
    {"other bits", 0x06FF, 0x0147, 0, 0, 0, ""},
    {"gone", 0xFFFF, 0xFFFF, 0, 0, 0, "L.FPSH"},
    // Bridges; bit 7 of the header type says nothing of the layout.
    {"secondary master data parity error", 0x0010, 0, 0x0100, 0x0001, 1, "L.FPH"},
    {"the same, no response enabled", 0x0010, 0x0040, 0x0100, 0x0002, 1, "L.FPC"},
    {"secondary system error", 0x0010, 0, 0x4000, 0x0002, 0x81, "L.FSH"},
    {"the same, not enabled", 0x0010, 0x0100, 0x4000, 0x0001, 0x81, "L.FSC"},
    {"secondary parity error", 0x0010, 0, 0x8000, 0, 1, "L.FPH"},
    {"secondary aborts", 0x0010, 0, 0x3800, 0x0003, 1, "L.C"},
    {"both sides", 0x4010, 0x0100, 0x8000, 0, 1, "L.FPSH"},
    {"no bridge", 0x0010, 0, 0xF900, 0x0003, 0, ""},
    {"bridge for cards", 0x0010, 0, 0xF900, 0x0003, 2, ""},
    // Display devices.
    {"VGA, parity", 0x8010, 0, 0, 0, 0, "L.FC", VGA},
    {"VGA, master data parity", 0x0110, 0x0040, 0, 0, 0, "L.FC", VGA},
    {"VGA, system error", 0x4010, 0x0100, 0, 0, 0, "L.FSH", VGA},
    {"VGA, both", 0xC010, 0x0100, 0, 0, 0, "L.FSH", VGA},
    {"VGA, both, system error not enabled", 0xC010, 0, 0, 0, 0, "L.FSH", VGA},
    {"other display", 0x8010, 0, 0, 0, 0, "L.FPH", OTHER_DISPLAY},
    {"G200, parity", 0x8010, 0, 0, 0, 0, "L.FC", UNASSIGNED, G200},
    {"G200 with a class", 0x8010, 0, 0, 0, 0, "L.FPH", OTHER_DISPLAY, G200},
    {"no class, other device", 0x8010, 0, 0, 0, 0, "L.FPH", UNASSIGNED},
};

TEST(LegacyPciErrors, FlagsFollowFromTheStatusRegisters) {
    PcieMachine Machine;
    for (const Case& Test : Cases) {
        PCI_DEVICE_STATE State{};
        State.PciAddress = PackPciAddress(0, 0x0D, 3, 1);
        SetCapturedRegister32(State.PciHeader, PCI_VENDOR_ID, Test.Id);
        SetCapturedRegister32(State.PciHeader, PCI_REVISION_ID, Test.ClassRevision);
        SetCapturedRegister16(State.PciHeader, PCI_COMMAND, Test.Command);
        SetCapturedRegister16(State.PciHeader, PCI_STATUS, Test.Status);
        SetCapturedRegister16(State.PciHeader, PCI_SECONDARY_STATUS, Test.SecondaryStatus);
        SetCapturedRegister16(State.PciHeader, PCI_BRIDGE_CONTROL, Test.BridgeControl);
        State.PciHeader[PCI_HEADER_TYPE] = Test.HeaderType;
        EXPECT_EQ(VornElogSmmCheckLegacyPciDeviceErrors(&State), EFI_SUCCESS);
        EXPECT_EQ(Flags(State), Test.Expected) << Test.Name;
        EXPECT_EQ(Machine.TracedSince("SBDF 0000:0D:03.1 VendorId 0x1050 DeviceId 0x0750 PCI Matrox"),
                  Test.Id == G200 && Test.ClassRevision == UNASSIGNED)
            << Test.Name;
    }
    EXPECT_EQ(VornElogSmmCheckLegacyPciDeviceErrors(nullptr), EFI_INVALID_PARAMETER);
}

}  // namespace
