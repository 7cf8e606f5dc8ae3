// The check after the OS's recovery of contained ports.
#include "Library/VornElogPolicyLib/Pcie/DpcRecovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Pcie/DpcDownstream.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/DpcMachine.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr UINT32 HOT_PLUG = 1 << 6;
constexpr UINT16 LINK_ACTIVE = 1 << 13, PRESENT = 1 << 6;

EFI_STATUS Check() {
    return VornElogSmmHandlerPcieDpcCheckDownstream(nullptr, nullptr, nullptr, nullptr);
}

TEST(DpcRecovery, APortThatWasNotRecoveredIsHeldInContainment) {
    struct Case {
        const char* About;
        UINT8 OstStatus, EdrStatus;
        UINT32 Errors;
        UINT32 SlotCapabilities;
        UINT16 LinkStatus, SlotStatus;
        const char* Entry;
        bool IsTriggered;
    };
    for (const Case& Test : {
             Case{"no outcome yet", 0, 0x03, 1, 0, 0, 0, "01 20 22 00 08 20 00 00 03", false},
             Case{"recovered", 0x80, 0x03, 1, 0, 0, 0, "01 20 22 00 08 20 00 80 01", false},
             Case{"the second of two events", 0x80, 0x05, 1, 0, 0, 0, "01 20 22 00 08 20 00 80 03", false},
             Case{"nothing outstanding", 0x81, 0x01, 1, 0, 0, 0, "01 20 22 00 08 20 00 81 01", false},
             Case{"recovered, link and card there", 0x80, 0x03, 1, HOT_PLUG, LINK_ACTIVE, PRESENT,
                  "01 20 22 00 08 20 00 80 01", false},
             Case{"recovered, link down", 0x80, 0x03, 1, HOT_PLUG, 0, PRESENT, "01 20 22 00 08 20 00 80 81", true},
             Case{"recovered, no card", 0x80, 0x03, 1, HOT_PLUG, LINK_ACTIVE, 0, "01 20 22 00 08 20 00 80 81", true},
             Case{"recovered for the 15th time", 0x80, 0x03, 15, 0, 0, 0, "01 20 22 00 08 20 00 80 01", false},
             Case{"recovered for the 16th time", 0x80, 0x03, 16, 0, 0, 0, "01 20 22 00 08 20 00 81 81", true},
             Case{"recovered for the 17th time", 0x80, 0x03, 17, 0, 0, 0, "01 20 22 00 08 20 00 81 81", true},
             Case{"given up", 0x81, 0x03, 1, HOT_PLUG, LINK_ACTIVE, PRESENT, "01 20 22 00 08 20 00 81 81", true},
             Case{"other outcome", 0x01, 0x02, 1, 0, 0, 0, "01 20 22 00 08 20 00 01 80", true},
         }) {
        DpcMachine Machine;
        TestFunction& Port = Machine.AddSwitch();
        Port.Set(PCIE + PCIE_SLOT_CAPABILITIES, 4, Test.SlotCapabilities);
        Port.Set(PCIE + PCIE_LINK_STATUS, 2, Test.LinkStatus).Set(PCIE + PCIE_SLOT_STATUS, 2, Test.SlotStatus);
        Port.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00041000);
        GetSetDpcTriggerBuffer(0, DpcMachine::PORT_BUS, 4, 0, DpcMachine::RP_BUS, 1, 0, ADD_BDF);
        Machine.Shared().DPC_Triggered[0].OstStatus = Test.OstStatus;
        Machine.Shared().DPC_Triggered[0].EDRStatus = Test.EdrStatus;
        for (UINT32 Error = 0; Error < Test.Errors; Error++) {
            IncrementPcieUceCount(0, DpcMachine::PORT_BUS, 4, 0);
        }
        EXPECT_EQ(Check(), EFI_SUCCESS) << Test.About;
        EXPECT_TRUE(Machine.EntryIs(0, Test.Entry)) << Test.About;
        EXPECT_EQ(Port.Peek(DPC + DPC_CONTROL, 2), Test.IsTriggered ? 0x51u : 0x11u) << Test.About;
        EXPECT_EQ(Port.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), Test.IsTriggered ? 0u : 0x41000u) << Test.About;
        EXPECT_THAT(Machine.Events("sel-send", "count"), IsEmpty()) << Test.About;
    }
}

TEST(DpcRecovery, APortThatIsGoneLosesItsEntry) {
    struct Case {
        const char* About;
        UINT8 Dev;
        bool HasPcie, HasAer, HasDpc;
    };
    for (const Case& Test : {Case{"absent", 9, true, true, true}, Case{"no PCI Express", 4, false, true, true},
                             Case{"no AER", 4, true, false, true}, Case{"no DPC", 4, true, true, false}}) {
        DpcMachine Machine;
        TestFunction& Port = Machine.AddSwitch();
        if (!Test.HasPcie) {
            Port.Set(PCI_STATUS, 2, 0);
        }
        if (!Test.HasAer) {
            Port.Set(AER, 4, DPC << 20 | 0x00010002);
        }
        if (!Test.HasDpc) {
            Port.Set(AER, 4, 0x00020001);
        }
        Machine.Shared().DPC_Triggered[5] = {
            1, PackDpcPortBdf(DpcMachine::PORT_BUS, Test.Dev, 0), 0, 0x2008, 0, 0x80, 0x03};
        EXPECT_EQ(Check(), EFI_SUCCESS) << Test.About;
        EXPECT_TRUE(Machine.EntryIs(5, "00 00 00 00 00 00 00 00 00")) << Test.About;
        EXPECT_EQ(Port.Peek(DPC + DPC_CONTROL, 2), 0x11u) << Test.About;
    }
    DpcMachine Machine;
    Policy.pKyrRasAcpiSmmData = nullptr;
    EXPECT_EQ(Check(), EFI_NOT_FOUND);
}

TEST(DpcRecovery, DevicesBelowAreLoggedOnceAndCleared) {
    DpcMachine Machine;
    Machine.AddSwitch();
    TestFunction& First = Machine.AddDevice(0);
    TestFunction& Second = Machine.AddDevice(1);
    TestFunction& Masked = Machine.AddDevice(2);
    First.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00141000).Set(AER + AER_UNCORRECTABLE_MASK, 4, 0x00100000);
    Second.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00008000);  // completer abort, non-fatal
    Masked.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00008000).Set(AER + AER_UNCORRECTABLE_MASK, 4, 0x00008000);
    // The second entry's port is the root port above: what lies below both is told once.
    Machine.Shared().DPC_Triggered[3] = {1, PackDpcPortBdf(DpcMachine::PORT_BUS, 4, 0), 0, 0x2008, 0, 0x80, 0x03};
    Machine.Shared().DPC_Triggered[9] = {1, PackDpcPortBdf(DpcMachine::RP_BUS, 1, 0), 0, 0x2008, 0, 0x80, 0x03};
    DpcTriggerIoHubDataValid = DpcTriggerPortMapEntryValid = TRUE;

    EXPECT_EQ(Check(), EFI_SUCCESS);

    const std::vector<std::string> Expected = {
        "DE 16 74 07 00 23",                                                                 // event of 23:00.0
        "C1 1A 7E 00 00 34", "C1 1A 7E 00 01 12", "C1 1A 7E 00 02 CD", "C1 1A 7E 00 03 AB",  // its IDs
        "C1 49 7E 01 00 20", "C1 49 7E A0 19 08", "C1 49 7E 01 00 00",                       // root port, once
        "C1 1A 7E 01 05 10", "C1 1A 7E 01 06 04",                                            // unmasked status
        "DE 16 74 07 01 23",                                                                 // event of 23:00.1
        "C1 1A 7E 00 00 34", "C1 1A 7E 00 01 12", "C1 1A 7E 00 02 CD", "C1 1A 7E 00 03 AB", "C1 1A 7E 01 05 80"};
    std::vector<std::string> Sel = Machine.Sel();
    // Two unmasked errors at once: the register that tells which came first reads 0, so that nothing is sent of it.
    EXPECT_THAT(Sel, ElementsAreArray(Expected));
    EXPECT_THAT(Machine.Events("sel-send", "status"), ElementsAre("EFI_SUCCESS"));
    EXPECT_EQ(First.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), 0u);
    EXPECT_EQ(Second.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), 0u);
    EXPECT_EQ(Masked.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), 0x8000u);
    EXPECT_EQ(DpcTriggerIoHubDataValid | DpcTriggerPortMapEntryValid, FALSE);
    EXPECT_TRUE(Machine.EntryIs(3, "01 20 22 00 08 20 00 80 01"));
    EXPECT_TRUE(Machine.EntryIs(9, "01 08 20 00 08 20 00 80 01"));

    // A transmission that fails is the handler's status.
    First.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00001000);
    Machine.Shared().DPC_Triggered[3].EDRStatus = 0x03;
    Machine.Fail("SendConsolidatedOemCommand");
    EXPECT_EQ(Check(), EFI_DEVICE_ERROR);
}

}  // namespace
