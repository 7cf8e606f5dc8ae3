// PCIe and CXL records on their way into the PCI buffer.
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"

#include <gtest/gtest.h>

#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Cxl/CxlRecord.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

PCI_DEVICE_STATE Endpoint() {
    PCI_DEVICE_STATE State{};
    State.PciAddress = PackPciAddress(0, 0x4E, 0x0A, 1);
    SetCapturedRegister16(State.PciHeader, PCI_STATUS, 0x0010);
    State.IsPcie = TRUE;
    State.PcieCapabilityOffset = 0x50;
    State.Pcie.ErrorStatus.HandleNonFatal = TRUE;
    State.ChipsetDataValid = TRUE;
    for (UINT8 At = 0; At < sizeof(State.ChipsetData); At++) {
        State.ChipsetData[At] = static_cast<UINT8>(0x70 + At);
    }
    return State;
}

UINT32 Filed() {
    return Policy.pPciFiniteBuffer->Tail;
}

TEST(PcieRecord, IsMadeOfWhatIsHandledOnly) {
    const struct {
        const char* Name;
        void (*Change)(PCI_DEVICE_STATE& State);
        bool IsMade;
    } Tests[] = {
        {"non-fatal", [](PCI_DEVICE_STATE&) {}, true},
        {"nothing", [](PCI_DEVICE_STATE& State) { State.Pcie.ErrorStatus.HandleNonFatal = FALSE; }, false},
        {"gone when captured",
         [](PCI_DEVICE_STATE& State) { SetCapturedRegister16(State.PciHeader, PCI_STATUS, 0xFFFF); }, false},
        {"a PCIe function's legacy flag",
         [](PCI_DEVICE_STATE& State) {
             State.Pcie.ErrorStatus.HandleNonFatal = FALSE;
             State.LegacyPci.Handle = TRUE;
         },
         false},
        {"legacy",
         [](PCI_DEVICE_STATE& State) {
             State.PcieCapabilityOffset = 0;
             State.LegacyPci.Handle = TRUE;
         },
         true},
        {"a legacy function's PCIe flag", [](PCI_DEVICE_STATE& State) { State.PcieCapabilityOffset = 0; }, false},
    };
    for (const auto& Test : Tests) {
        SCOPED_TRACE(Test.Name);
        PcieMachine Machine;
        PCI_DEVICE_STATE State = Endpoint();
        Test.Change(State);
        VornElogSmmHandlePciError(&State);
        EXPECT_EQ(Filed(), Test.IsMade ? 1u : 0u);
    }
    PcieMachine Machine;
    VornElogSmmHandlePciError(nullptr);
    EXPECT_TRUE(Machine.Traced("VornElogSmmHandlePciError: ERROR pPciDeviceState == NULL, aborting..."));
}

TEST(PcieRecord, AFullBufferLosesTheRecord) {
    PcieMachine Machine;
    TestRecord Record(gCperSectionPcieGuid, 2, 208);
    for (UINT32 Element = 0; Element < 256; Element++) {
        EXPECT_EQ(FileRecordInPciBuffer(Record.Cper(), &Record.Data), EFI_SUCCESS);
    }
    EXPECT_EQ(VornElogSmmProcessErrorRecordPcie(Record.Cper(), &Record.Data), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(Filed(), 256u);
    EXPECT_TRUE(
        Machine.Traced("VornElogSmmProcessErrorRecordPcie: ERROR adding element to finite buffer, aborting..."));
    EXPECT_EQ(Policy.SmiStormQueue->NumElements, 0u);
}

// Only ports count their containment themselves, and only for an OS that recovers it.
TEST(PcieRecord, TheStormCheckLeavesOutContainmentThatTheOsRecovers) {
    const struct {
        UINT32 PortType;
        UINT8 DpcOsLoaded;
        UINT32 Counted;
    } Tests[] = {{4, 1, 0}, {10, 1, 0}, {6, 1, 0}, {0, 1, 1}, {5, 1, 1}, {4, 0, 1}};
    for (const auto& Test : Tests) {
        PcieMachine Machine;
        const PCI_DEVICE_STATE State = Endpoint();
        QueueAdd(Policy.pQueuePciDeviceData, &State, sizeof(State));
        TestRecord Record(gCperSectionPcieGuid, 0, 208);
        Record.Put(208, Test.PortType, 4).Put(231, 1, 1).Put(232, 0x0A, 1).Put(235, 0x4E, 1);
        Record.Data.Pci.DpcOsLoaded = Test.DpcOsLoaded;
        EXPECT_EQ(VornElogSmmProcessErrorRecordPcie(Record.Cper(), &Record.Data), EFI_SUCCESS);
        EXPECT_EQ(Policy.SmiStormQueue->NumElements, Test.Counted);
        EXPECT_EQ(Filed(), 1u);
        EXPECT_EQ(Machine.Traced("CPER reports PCIe root port or switch downstream port DPC event, skipping"),
                  Test.Counted == 0);
    }
}

}  // namespace
