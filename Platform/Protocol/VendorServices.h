// Services of the platform vendor. Members in slot order; slots that the driver does not call are untyped.
#pragma once

#include "Platform/Base.h"

struct DIMM_MAP_ENTRY;
struct ELOG_SEL_DATA;
struct KYR_CHIPSET_SUPPORT_DATA;
struct PCI_SLOT_NUMBER_DATA;
struct RB_BUS_MAP;
struct VORN_MEMORY_SLOT_INFO;

// Setup attributes, by vendor GUID and UTF-16 name.
struct VORN_ATTRIBUTE_SMM_PROTOCOL {
    void* SetAttributeValue;
    // DataSize in bytes, in and out. EFI_BUFFER_TOO_SMALL with the size that is needed; EFI_NOT_FOUND for an
    // attribute that does not exist. The text is UTF-16 and not necessarily terminated.
    EFI_STATUS(*GetAttributeValue)
    (const VORN_ATTRIBUTE_SMM_PROTOCOL* This, const EFI_GUID* VendorGuid, const CHAR16* Name, UINT32* Attributes,
     UINTN* DataSize, void* Data);
};

struct VORN_MANUFACTURING_MODE_PROTOCOL {
    void* EnterMfgMode;
    void* ExitMfgMode;
    UINT32 (*GetMfgModeType)(const VORN_MANUFACTURING_MODE_PROTOCOL* This);
};

// Event log of the BMC.
struct VORN_MEMORY_HEALTH_REQUEST {
    UINT32 EventKind;
    const void* Payload;
};
struct VORN_ELOG_IPMI_SMM_PROTOCOL {
    // Stores one event body for the next consolidated transmission.
    EFI_STATUS (*LogBmcData)(const ELOG_SEL_DATA* SelData);
    // Reads the POST message codes that the boot firmware left for the BMC.
    EFI_STATUS (*GetPostMessageCodes)(const void* MessageCodeArea);
    EFI_STATUS (*GetIpmiTransportProtocol)();
    // How many errors are waiting for SendBmcData.
    EFI_STATUS (*GetBmcErrorCount)(UINT16* Count);
    EFI_STATUS (*SendBmcData)();
    EFI_STATUS (*LogMemoryHealthData)(const VORN_MEMORY_HEALTH_REQUEST* Request, UINTN PayloadSize);
};

// The event bodies that LogBmcData stored.
struct VORN_SMM_SEL_RECORD_PROTOCOL {
    void* Reserved[2];
    EFI_STATUS (*GetSelRecords)(const VORN_SMM_SEL_RECORD_PROTOCOL* This, UINT8* Count, ELOG_SEL_DATA** Records);
    EFI_STATUS (*ClearSelRecords)(const VORN_SMM_SEL_RECORD_PROTOCOL* This);
    EFI_STATUS (*DisplaySelRecords)(const VORN_SMM_SEL_RECORD_PROTOCOL* This);
};

struct VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL {
    void* Reserved;
    // Sends Count stored bodies to the BMC as consolidated OEM commands.
    EFI_STATUS(*SendConsolidatedOemCommand)
    (const VORN_SMM_IPMI_SEL_SUPPORT_PROTOCOL* This, UINT8 Count, const ELOG_SEL_DATA* Records);
};

// The platform's DIMM slots.
struct VORN_MEMORY_ARRAY {
    UINT8 Reserved0[60];
    UINT16 NumDimmSlot;
    UINT8 Reserved62[10];
    DIMM_MAP_ENTRY* DimmMap;
};
static_assert(offsetof(VORN_MEMORY_ARRAY, NumDimmSlot) == 60);
static_assert(offsetof(VORN_MEMORY_ARRAY, DimmMap) == 72);

struct VORN_MEMORY_INTERFACE_SMM_PROTOCOL {
    void* Reserved;
    EFI_STATUS (*GetMemoryArrayPtr)(VORN_MEMORY_ARRAY** MemoryArray);
    EFI_STATUS (*GetSlotInfoPtr)(UINT8 DimmIndex, VORN_MEMORY_SLOT_INFO** SlotInfo);
};

// The GHES side of the platform: error status blocks and the signals to the OS.
struct VORN_APEI_LOGGING_SMM_PROTOCOL {
    EFI_STATUS (*ElogIsApeiOsLoaded)(BOOLEAN* IsLoaded);
    void* Reserved;
    // EFI_NOT_READY when there is nothing to clear.
    EFI_STATUS (*ElogClearGhes)(const VORN_APEI_LOGGING_SMM_PROTOCOL* This);
    // EFI_NOT_READY or EFI_ALREADY_STARTED while the OS still reads an earlier record.
    EFI_STATUS (*ElogLogCper)(const VORN_APEI_LOGGING_SMM_PROTOCOL* This, const void* Cper, UINT32 ErrorSeverity);
    EFI_STATUS(*ElogLogPageRetire)
    (const VORN_APEI_LOGGING_SMM_PROTOCOL* This, const void* CperTimestamp, const CHAR8* FruText,
     UINT64 PhysicalAddress, UINT32 PageRetireThreshold);
    EFI_STATUS (*ElogSignalSci)(const VORN_APEI_LOGGING_SMM_PROTOCOL* This, UINT32 SciCause);
    EFI_STATUS (*ElogSignalNmi)(const VORN_APEI_LOGGING_SMM_PROTOCOL* This);
};

// Post-package repair.
struct VORN_KYR_MEMORY_PPR_SMM_PROTOCOL {
    EFI_STATUS (*KyrPostPackageRepairSupported)(const KYR_CHIPSET_SUPPORT_DATA* ChipsetData, BOOLEAN* Supported);
    EFI_STATUS(*VornPostPackageCreateEntry)
    (const KYR_CHIPSET_SUPPORT_DATA* ChipsetData, UINT16 PprType, BOOLEAN RuntimePprEnabled,
     const RB_BUS_MAP* RbBusMap, BOOLEAN* AtLeastOneRepair);
    EFI_STATUS (*VornPostPackageRepairUpdateToUefiVariable)();
    EFI_STATUS(*VornRuntimePPRHandler)
    (const KYR_CHIPSET_SUPPORT_DATA* ChipsetData, BOOLEAN* ReadyForNextRequest, UINT16 PprType,
     UINT8* PspMboxSmmBuffer, UINT8* PspMboxSmmFlagAddr, BOOLEAN RuntimePprEnabled, UINT32* NumberOfEntriesServed,
     void* RequestQueue, void* PspCommandWord, UINT8* QueueFront, UINT32* QueueFull, void* CompletionCheckTable);
};

// Which slot or drive bay a PCI function sits in.
struct VORN_PCI_SLOT_DATA_SMM_PROTOCOL {
    // EFI_NOT_FOUND for a function that is in none.
    EFI_STATUS(*GetSlotNumberData)
    (UINT8 Segment, UINT8 Bus, UINT8 Device, UINT8 Function, PCI_SLOT_NUMBER_DATA* SlotNumberData);
};
