// A booted machine whose storm check is called directly, with records of the kinds that it counts.
#pragma once

#include "Include/PciDeviceState.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"
#include "Library/VornElogPolicyLib/Storm/StormQueue.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

// Seconds after 2026-11-24 12:00:00, less than a month of them.
inline CPER_TIMESTAMP StampAt(unsigned Second) {
    const unsigned Day = 24 + (12 * 3600 + Second) / 86400, Rest = (12 * 3600 + Second) % 86400;
    return {static_cast<UINT8>(Rest % 60),
            static_cast<UINT8>(Rest / 60 % 60),
            static_cast<UINT8>(Rest / 3600),
            1,
            static_cast<UINT8>(Day),
            11,
            26,
            20};
}

class StormMachine : public PolicyMachine {
 public:
    using PolicyMachine::PolicyMachine;

    EFI_STATUS Check(TestRecord& Record, unsigned Second, BOOLEAN* pStorm) {
        Record.Cper()->Header.TimeStamp = StampAt(Second);
        return VornElogSmmCheckSmiStorm(Record.Cper(), &Record.Data, pStorm);
    }
    // Whether the record is one too many; the check must work.
    bool IsStorm(TestRecord& Record, unsigned Second) {
        BOOLEAN Storm = 0xEE;
        EXPECT_EQ(Check(Record, Second, &Storm), EFI_SUCCESS);
        return Storm == TRUE;
    }
    bool IsStorm(TestRecord&& Record, unsigned Second) {
        return IsStorm(Record, Second);
    }
    static UINT32 Entries() {
        return Policy.SmiStormQueue->NumElements;
    }
    // The functions that were captured in this SMI, instead of those before.
    static void Capture(std::initializer_list<const PCI_DEVICE_STATE*> States) {
        QueueClear(Policy.pQueuePciDeviceData);
        for (const PCI_DEVICE_STATE* State : States) {
            QueueAdd(Policy.pQueuePciDeviceData, State, sizeof(*State));
        }
    }
    // The first of them.
    static PCI_DEVICE_STATE& Captured() {
        return *static_cast<PCI_DEVICE_STATE*>(Policy.pQueuePciDeviceData->pHead->pData);
    }
};

// A machine check's record from one bank of one processor.
struct BankRecord : TestRecord {
    BankRecord(UINT32 ApicId, UINT64 Bank, UINT64 Status, const EFI_GUID& Section = gCperSectionProcessorSpecificGuid)
        : TestRecord(Section, 2, 272) {
        Data.MachineCheck.ValidRasMcaErrorInfo = 1;
        Data.MachineCheck.McaBankIndex = 3;
        RasMcaErrorInfo& Info = Data.MachineCheck.RasMcaErrorInfo;
        Info.CpuInfo.LocalApicId = ApicId;
        Info.McaBankErrorInfo[3].McaBankNumber = Bank;
        Info.McaBankErrorInfo[3].McaStatus = UINT64{1} << 63 | Status;
    }
};

// Offsets are those of the published sections, from the record's start.
struct PcieStormRecord : TestRecord {
    explicit PcieStormRecord(UINT8 Bus, UINT8 Device = 0, UINT8 Function = 0)
        : TestRecord(gCperSectionPcieGuid, 2, 208) {
        Put(231, Function, 1).Put(232, Device, 1).Put(233, 0, 2).Put(235, Bus, 1);
    }
};
struct CxlProtocolStormRecord : TestRecord {
    explicit CxlProtocolStormRecord(UINT8 Bus, UINT8 Device = 0, UINT8 Function = 0)
        : TestRecord(gCperSectionCxlProtocolGuid, 2, 712) {
        Put(200, 7).Put(208, 2, 1);  // a CXL 2.0 device
        Put(216, Function, 1).Put(217, Device, 1).Put(218, Bus, 1).Put(219, 0, 2);
    }
};
struct CxlComponentStormRecord : TestRecord {
    CxlComponentStormRecord(UINT8 Bus, UINT8 Severity) : TestRecord(DramEvent, 2, 160) {
        Put(204, 7).Put(216, 0, 1).Put(217, 0, 1).Put(218, Bus, 1).Put(219, 0, 2);
        // The severity is in bits 1:0; bit 2 says that the condition is permanent.
        Put(232 + 0x11, Severity | 0x4, 1);
    }
    // 601dcbb3-9c06-4eab-b8af-4e9bfb5c9624, its bytes as written.
    static constexpr EFI_GUID DramEvent{0xB3CB1D60, 0x069C, 0xAB4E, {0xB8, 0xAF, 0x4E, 0x9B, 0xFB, 0x5C, 0x96, 0x24}};
};
struct PciComponentStormRecord : TestRecord {
    explicit PciComponentStormRecord(UINT8 Bus, UINT8 Device = 0, UINT8 Function = 0, UINT32 Severity = 1)
        : TestRecord(gCperSectionPciComponentGuid, 0, 40) {
        Put(176, Severity, 4);
        Put(200, 0x1F).Put(223, Function, 1).Put(224, Device, 1).Put(225, Bus, 1).Put(226, 0, 1);
    }
};

// A captured PCIe endpoint of a multi-function device.
inline PCI_DEVICE_STATE EndpointState(UINT8 Bus, UINT8 Device = 0, UINT8 Function = 0) {
    PCI_DEVICE_STATE State{};
    State.PciAddress = static_cast<UINT32>(Bus) << 20 | Device << 15 | Function << 12;
    State.PciHeader[0x0E] = 0x80;
    State.IsPcie = TRUE;
    State.PcieCapabilityOffset = 0x60;
    State.AerOffset = 0x150;
    return State;
}

// Little endian, as configuration space is.
inline void Put32(UINT8* Bytes, unsigned Offset, UINT32 Value) {
    std::memcpy(Bytes + Offset, &Value, 4);
}
