#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Pcie/CaptureDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"
#include "Tests/Support/FakeServices.h"
#include "Tests/Support/LaidFunction.h"

namespace {

constexpr UINT8 SEG = 0, BUS = 0x5C, DEV = 0x13, FUNC = 5;
constexpr UINT32 ADDRESS = 0x05C9D000;
const IO_HUB_DATA HUB{1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};

class DeviceState : public testing::Test {
 protected:
    DeviceState() {
        Port.RpPciAddr = 0x05C08000;
        Port.PhysicalBridgePciAddr = 0x05C0B000;
        State.PciAddress = ADDRESS;
        VornElogSmmClearPciDeviceStatusQueue();
    }
    LaidFunction Lay() {
        State = {};
        State.PciAddress = ADDRESS;
        return LaidFunction(Machine.Sim, {SEG, BUS, DEV, FUNC}, 0x10121022);
    }
    std::vector<UINT32> Queued() {
        std::vector<UINT32> Addresses;
        for (const QUEUE_NODE* pNode = QueueHead(Policy.pQueuePciDeviceData); pNode != nullptr;
             pNode = pNode->pNext) {
            Addresses.push_back(static_cast<PCI_DEVICE_STATE*>(pNode->pData)->PciAddress);
        }
        return Addresses;
    }

    PolicyMachine Machine;
    KYR_PCIE_PORT_MAP_ENTRY Port{};
    PCI_DEVICE_STATE State{};
};

TEST_F(DeviceState, NamesWhereTheFunctionHangs) {
    Lay().Put(0x0E, 1, 0x80).Express(0);
    ASSERT_EQ(VornElogGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
    EXPECT_EQ(State.PcieRootPortData.IoHubDataValid, TRUE);
    EXPECT_EQ(std::memcmp(&State.PcieRootPortData.IoHubData, &HUB, sizeof(HUB)), 0);
    EXPECT_EQ(State.PcieRootPortData.LogicalBridgePciAddress, 0x05C08000u);
    EXPECT_EQ(State.PcieRootPortData.PhysicalBridgePciAddress, 0x05C0B000u);
    EXPECT_EQ(CapturedRegister32(State.PciHeader, 0), 0x10121022u);
    EXPECT_EQ(State.PciHeader[0x0E], 0x80);
    EXPECT_EQ(VornElogGetPciDeviceState(nullptr, &Port, &State), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogGetPciDeviceState(&HUB, &Port, nullptr), EFI_INVALID_PARAMETER);
}

TEST_F(DeviceState, BridgesAreToldByTheirClass) {
    struct Row {
        UINT32 Class;
        UINT8 IsBridge;
    };
    for (const Row& Row : {Row{0x060400, TRUE}, Row{0x060401, TRUE}, Row{0x060402, FALSE}, Row{0x060480, FALSE},
                           Row{0x060900, FALSE}, Row{0x080400, FALSE}}) {
        Lay().Put(0x08, 4, Row.Class << 8 | 0xC1);
        ASSERT_EQ(VornElogGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
        EXPECT_EQ(State.IsPciBridgeDevice, Row.IsBridge) << std::hex << Row.Class;
    }
}

TEST_F(DeviceState, PortTypeDecidesWhatIsCaptured) {
    struct Row {
        unsigned Type;
        std::size_t Flag;  // offset of the characteristic that is set; 0: none
        unsigned AerBytes;
        bool HasDpcAndSfi;
        bool IsKnown;
    };
    const auto Characteristic = [](std::size_t InCharacteristics) {
        return offsetof(PCI_DEVICE_STATE, Pcie.Characteristics) + InCharacteristics;
    };
    const Row Rows[] = {
        {0, 0, 0x2C, false, true},
        {1, 0, 0x2C, false, true},
        {4, Characteristic(offsetof(PCIE_CHARACTERISTICS, IsRootPort)), 0x48, true, true},
        {5, Characteristic(offsetof(PCIE_CHARACTERISTICS, IsSwitchUpstreamPort)), 0x2C, false, true},
        {6, Characteristic(offsetof(PCIE_CHARACTERISTICS, IsSwitchDownstreamPort)), 0x2C, true, true},
        {7, offsetof(PCI_DEVICE_STATE, Pcie.IsPcieToPciBridge), 0x4C, false, true},
        {8, 0, 0x2C, false, false},
        {9, Characteristic(offsetof(PCIE_CHARACTERISTICS, IsRootComplexIntegratedEndpoint)), 0x2C, false, true},
        {10, Characteristic(offsetof(PCIE_CHARACTERISTICS, IsRootComplexEventCollector)), 0x2C, false, true},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(testing::Message() << "type " << Row.Type);
        LaidFunction Function = Lay();
        Function.Express(Row.Type).Put(0x44, 4, 0x00008000).Put(0x78, 4, 0xAABBCCDD).Put(0x7C, 4, 0xFFFFFFFF);
        Function.Extended(0x100, 0x01, 0x180).Extended(0x180, 0x1D, 0x200).Extended(0x200, 0x2C, 0);
        for (unsigned Offset = 0x104; Offset < 0x180; Offset++) {
            Function.Put(Offset, 1, 0xA5);
        }
        Function.Put(0x184, 2, 0x0420).Put(0x1A0, 4, 0x11223344).Put(0x1A4, 4, 0x55667788).Put(0x210, 4, 0x99AABBCC);
        const std::size_t Before = Machine.Sim.TraceLog().size();
        ASSERT_EQ(VornElogGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
        EXPECT_EQ(State.IsPcie, TRUE);
        EXPECT_EQ(State.PcieCapabilityOffset, 0x40);
        EXPECT_EQ(CapturedRegister32(State.PcieCapability, 0x38), 0xAABBCCDDu);
        EXPECT_EQ(State.Pcie.Characteristics.IsRoleBasedErrorReporting, TRUE);

        const auto* pBytes = reinterpret_cast<const UINT8*>(&State);
        unsigned Flags = State.Pcie.IsPcieToPciBridge;
        for (std::size_t At = 1; At < sizeof(PCIE_CHARACTERISTICS); At++) {
            Flags += pBytes[Characteristic(At)];
        }
        EXPECT_EQ(Flags, Row.Flag == 0 ? 0u : 1u);
        EXPECT_EQ(Row.Flag == 0 ? TRUE : pBytes[Row.Flag], TRUE);
        EXPECT_EQ(Machine.Sim.TraceLog().find("PCIe Capability.DevicePortType", Before) == std::string::npos,
                  Row.IsKnown);

        EXPECT_EQ(State.AerOffset, 0x100);
        EXPECT_EQ(State.AerCapability[Row.AerBytes - 1], 0xA5);
        EXPECT_EQ(Row.AerBytes == sizeof(State.AerCapability) ? 0 : State.AerCapability[Row.AerBytes], 0);
        EXPECT_EQ(State.DpcOffset, Row.HasDpcAndSfi ? 0x180 : 0);
        EXPECT_EQ(State.SfiOffset, Row.HasDpcAndSfi ? 0x200 : 0);
        // 36 bytes: of the RP PIO header log, only the first doubleword.
        EXPECT_EQ(CapturedRegister32(State.DpcCapability, 0x20), Row.HasDpcAndSfi ? 0x11223344u : 0u);
        EXPECT_EQ(CapturedRegister32(State.DpcCapability, 0x24), 0u);
        EXPECT_EQ(CapturedRegister32(State.SfiCapability, 0x10), Row.HasDpcAndSfi ? 0x99AABBCCu : 0u);
    }
}

TEST_F(DeviceState, WhatIsMissingOrBrokenStaysEmpty) {
    struct Row {
        const char* What;
        unsigned Aer, Dpc, Sfi;
    };
    // The last capability would end beyond configuration space.
    for (const Row& Row : {Row{"none", 0, 0, 0}, Row{"AER at the end", 0xFE0, 0, 0},
                           Row{"DPC at the end", 0x100, 0xFF8, 0}, Row{"SFI at the end", 0x100, 0x180, 0xFF0}}) {
        SCOPED_TRACE(Row.What);
        LaidFunction Function = Lay();
        Function.Express(4).Extended(0x100, 0x03, Row.Aer == 0 ? 0 : Row.Aer);
        if (Row.Aer != 0) {
            Function.Extended(Row.Aer, 0x01, Row.Dpc);
        }
        if (Row.Dpc != 0) {
            Function.Extended(Row.Dpc, 0x1D, Row.Sfi);
        }
        if (Row.Sfi != 0) {
            Function.Extended(Row.Sfi, 0x2C, 0);
        }
        EXPECT_EQ(VornElogGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
        EXPECT_EQ(State.AerOffset, Row.Dpc != 0 ? 0x100 : 0);
        EXPECT_EQ(State.DpcOffset, Row.Sfi != 0 ? 0x180 : 0);
        EXPECT_EQ(State.SfiOffset, 0);
        EXPECT_EQ(State.SfiCapability[0], 0);
    }
}

TEST_F(DeviceState, CxlRegistersOfCxlPortsOnly) {
    struct Row {
        UINT8 Capable, Mode;
        bool IsAsked;
    };
    for (const Row& Row : {Row{0, 2, false}, Row{1, 1, false}, Row{1, 3, false}, Row{0x80, 2, true}}) {
        Lay().Express(0);
        Port.CxlCapable = Row.Capable;
        Port.CxlMode = Row.Mode;
        const std::size_t Before = Machine.Sim.TraceLog().size();
        EXPECT_EQ(VornElogGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
        EXPECT_EQ(Machine.Sim.TraceLog().find("CXL not supported", Before) != std::string::npos, Row.IsAsked);
        EXPECT_EQ(State.Cxl.IsCxl, FALSE);
    }
}

TEST_F(DeviceState, ContainedPortIsKept) {
    LaidFunction Function = Lay();
    Function.Express(4).Extended(0x100, 0x1D, 0).Put(0x106, 2, 0x0011).Put(0x108, 2, 0x0001);
    ASSERT_EQ(VornElogSmmGetPciDeviceState(&HUB, &Port, &State), EFI_SUCCESS);
    EXPECT_EQ(DpcTriggerIoHubDataValid, TRUE);
    EXPECT_EQ(DpcTriggerPortMapEntryValid, TRUE);
    EXPECT_EQ(std::memcmp(&DpcTriggerIoHubData, &HUB, sizeof(HUB)), 0);
    EXPECT_EQ(UINT32{DpcTriggerPortMapEntry.RpPciAddr}, 0x05C08000u);
    ClearDpcTriggerSlot();
    EXPECT_EQ(DpcTriggerIoHubDataValid, FALSE);
    EXPECT_EQ(DpcTriggerPortMapEntryValid, FALSE);
    EXPECT_EQ(DpcTriggerIoHubData.BusBase, 0);
    EXPECT_EQ(UINT32{DpcTriggerPortMapEntry.RpPciAddr}, 0u);
}

TEST_F(DeviceState, LooksUpTheOldestOfAFunction) {
    auto* const pNothing = reinterpret_cast<PCI_DEVICE_STATE*>(8);
    PCI_DEVICE_STATE* pFound = pNothing;
    EXPECT_EQ(VornElogRetrievePciDeviceState(SEG, BUS, DEV, FUNC, &pFound), EFI_NOT_FOUND);
    EXPECT_EQ(pFound, pNothing);
    for (const UINT32 Address : {0x15C9D000u, 0x05C9D000u, 0x05C9C000u, 0x05C9D000u}) {
        State.PciAddress = Address;
        State.DpcOffset++;
        ASSERT_EQ(QueueAdd(Policy.pQueuePciDeviceData, &State, sizeof(State)), EFI_SUCCESS);
    }
    EXPECT_EQ(VornElogRetrievePciDeviceState(SEG, BUS, DEV, FUNC, &pFound), EFI_SUCCESS);
    EXPECT_EQ(pFound->DpcOffset, 2);
    EXPECT_EQ(VornElogRetrievePciDeviceState(1, BUS, DEV, FUNC, &pFound), EFI_SUCCESS);
    EXPECT_EQ(pFound->DpcOffset, 1);
    pFound = pNothing;
    EXPECT_EQ(VornElogRetrievePciDeviceState(SEG, BUS, DEV, FUNC + 1, &pFound), EFI_NOT_FOUND);
    EXPECT_EQ(VornElogRetrievePciDeviceState(0x10, BUS, DEV, FUNC, &pFound), EFI_NOT_FOUND);
    EXPECT_EQ(pFound, pNothing);
    EXPECT_EQ(VornElogSmmClearPciDeviceStatusQueue(), EFI_SUCCESS);
    EXPECT_EQ(Queued().size(), 0u);
}

EFI_STATUS SlotService(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, PCI_SLOT_NUMBER_DATA* pSlotNumberData) {
    const PCI_SLOT_NUMBER_DATA Zero{};
    EXPECT_EQ(std::memcmp(pSlotNumberData, &Zero, sizeof(Zero)), 0);
    pSlotNumberData->Valid = 1;
    pSlotNumberData->DeviceType = Func == 0 ? PciSlotDeviceNvmeDrive : PciSlotDeviceOther;
    pSlotNumberData->SlotNumber = UINT32{Seg} << 24 | UINT32{Bus} << 16 | UINT32{Dev} << 8 | Func;
    return Dev == 0 ? EFI_NOT_FOUND : EFI_SUCCESS;
}

TEST_F(DeviceState, SlotNumbersComeFromThePlatform) {
    FakeServices Services;
    Policy.IsPciSlotDataLocated = FALSE;
    Policy.pVornPciSlotDataSmmProtocol = nullptr;
    PCI_SLOT_NUMBER_DATA Slot;
    std::memset(&Slot, 0xEE, sizeof(Slot));
    EXPECT_EQ(VornElogSmmGetPcieSlotData(0, 1, 2, 3, &Slot), EFI_NOT_READY);
    EXPECT_EQ(UINT32{Slot.SlotNumber}, 0u);
    EXPECT_EQ(RetrieveVornPciSlotDataSmmProtocol(nullptr, nullptr, nullptr), EFI_NOT_FOUND);
    EXPECT_EQ(Policy.IsPciSlotDataLocated, FALSE);

    const VORN_PCI_SLOT_DATA_SMM_PROTOCOL Protocol{SlotService};
    Services.Install(gVornPciSlotDataSmmProtocolGuid, &Protocol);
    EXPECT_EQ(RetrieveVornPciSlotDataSmmProtocol(nullptr, nullptr, nullptr), EFI_SUCCESS);
    EXPECT_EQ(RetrieveVornPciSlotDataSmmProtocol(nullptr, nullptr, nullptr), EFI_SUCCESS);
    EXPECT_EQ(Services.Locates, 2u);  // once before it was there
    std::memset(&Slot, 0xEE, sizeof(Slot));
    EXPECT_EQ(VornElogSmmGetPcieSlotData(4, 1, 2, 3, &Slot), EFI_SUCCESS);
    EXPECT_EQ(UINT32{Slot.SlotNumber}, 0x04010203u);
    EXPECT_EQ(VornElogSmmGetPcieSlotData(0, 1, 0, 3, &Slot), EFI_NOT_FOUND);

    EXPECT_EQ(VornElogSmmGetPciSlotData(0, 1, 2, 0, &Slot), EFI_SUCCESS);
    EXPECT_TRUE(Machine.Traced("SBDF 0000:01:02.0 Valid 1 DeviceType 0 BayId 0 SlotId 2\n"));
}

}  // namespace
