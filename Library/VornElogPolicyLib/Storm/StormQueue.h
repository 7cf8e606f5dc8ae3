// The records that the storm check remembers, oldest first, and how long it remembers them.
#pragma once

#include "Include/BoundedContainers.h"
#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

inline constexpr UINTN SMI_STORM_CPER_SIZE = 408;  // bytes; longer records are cut

// Element of SmiStormQueue. Its time is its record's.
struct SMI_STORM_QUEUE_ENTRY {
    UINT8 Cper[SMI_STORM_CPER_SIZE];
    KYR_CHIPSET_SUPPORT_DATA KyrChipsetSupportData;
    PCI_DEVICE_STATE PciDeviceState;  // of the function that a PCIe or CXL record is about, at the time of the error
    UINT8 IsPciDeviceStateValid;
};
KYR_RECORD(SMI_STORM_QUEUE_ENTRY, 12032);
KYR_FIELD(SMI_STORM_QUEUE_ENTRY, KyrChipsetSupportData, 408);
KYR_FIELD(SMI_STORM_QUEUE_ENTRY, PciDeviceState, 10776);
KYR_FIELD(SMI_STORM_QUEUE_ENTRY, IsPciDeviceStateValid, 12024);

inline const CPER_RECORD* EntryRecord(const SMI_STORM_QUEUE_ENTRY& Entry) {
    return reinterpret_cast<const CPER_RECORD*>(Entry.Cper);
}

// A field of the entry's section, Offset bytes into it. Offset and the field lie inside SMI_STORM_CPER_SIZE; where
// the record was shorter, the entry holds zeros.
template <class Value>
Value EntrySectionField(const SMI_STORM_QUEUE_ENTRY& Entry, UINTN Offset) {
    Value Read;
    __builtin_memcpy(&Read, Entry.Cper + sizeof(CPER_RECORD) + Offset, sizeof(Value));
    return Read;
}

// Calls Visit with every entry, oldest first. The queue may be missing.
template <class Visitor>
void ForEachStormEntry(const QUEUE* pQueue, Visitor Visit) {
    const QUEUE_NODE* pNode = pQueue == nullptr ? nullptr : pQueue->pHead;
    for (; pNode != nullptr; pNode = pNode->pNext) {
        Visit(*static_cast<const SMI_STORM_QUEUE_ENTRY*>(pNode->pData));
    }
}

// Stop count and stop time (seconds) of PCIe and CXL records. The time is multiplied once by the number of CXL
// endpoints of the system, as soon as the boot firmware has handed that over and it is not 0.
// EFI_INVALID_PARAMETER: a NULL argument. EFI_SUCCESS.
EFI_STATUS VornElogPolicyLibGetSmiStormPciThresholdData(UINT32* pStopCount, UINT32* pStopTimeInSeconds);

// Drops the entries that are at least as old as their domain's stop time, oldest first, up to the first live one:
// expired entries of the other domain behind it stay, which is meant. NULL is ignored.
void VornElogSmmCheckSmiStormPreProcess(const CPER_TIMESTAMP* pNewTimeStamp);
