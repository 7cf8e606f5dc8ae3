// Events of PCI, PCIe and CXL functions and of the chipset.
#pragma once

#include "Include/PciDeviceState.h"

// How an event names the failing function.
enum SelDeviceClass : UINT32 {
    SelDeviceClassPcieSlot = 0,
    SelDeviceClassPcieSbdf = 1,
    SelDeviceClassPcieSsd = 2,
    SelDeviceClassCxlSlot = 3,
    SelDeviceClassCxlSbdf = 4,
    SelDeviceClassCxlCmm = 5,
};

enum SelSeverity : UINT32 {
    SelSeverityDpc = 0,
    SelSeverityInformational = 1,
    SelSeverityCorrectable = 2,
    SelSeverityFatal = 3,
    SelSeverityNone = 255,
};

enum SelChipsetSeverity : UINT32 {
    SelChipsetSeverityInformational = 0,
    SelChipsetSeverityCorrectable = 1,
    SelChipsetSeverityFatal = 2,
};

inline constexpr UINTN SEL_MESSAGE_ID_SIZE = 8;     // "PCI3039" and its NUL
inline constexpr UINTN SEL_MESSAGE_TEXT_SIZE = 50;  // at most 49 characters

// A system error (SERR#) of a PCI function.
void ElogLogPciSerr(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// A parity error (PERR#) of a PCI function.
void ElogLogPciPerr(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// Sends an event of a function: where it sits in a slot or drive bay, one that names the slot and one that names
// the function, else only the latter. Severity is a SelSeverity, EventType a SelDeviceClass; another EventType or a
// NULL pSlotNumberData is traced and nothing sent.
void ElogLogPcieOrCxlAnyEvent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32 Severity, UINT32 EventType,
                              const PCI_SLOT_NUMBER_DATA* pSlotNumberData);

// Sends an event of the chipset. Severity is a SelChipsetSeverity.
void ElogLogChipsetAnyEvent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32 Severity);

// The SelDeviceClass of a function: by what is known of its slot. IsCxl is 1 for a CXL device. Nothing is written
// when a pointer is NULL.
void ElogGetPcieEventType(UINT32 IsCxl, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, UINT32* pEventType);

// The SelSeverity of a CPER severity; SelSeverityNone for one that has no event.
void ElogGetSelPcieEventSeverity(UINT32 CperSeverity, UINT32* pSelSeverity);

// Message identifier (SEL_MESSAGE_ID_SIZE bytes) and text (SEL_MESSAGE_TEXT_SIZE bytes) that the BMC shows for an
// event. A combination without a message leaves both untouched.
void ElogGetPcieEventMessageString(UINT32 EventType, UINT32 Severity, CHAR8* pMessageId, CHAR8* pMessage);
void ElogGetChipsetEventMessageString(UINT32 Severity, CHAR8* pMessageId, CHAR8* pMessage);

// Sends which root complex and root port an event came from. The bridge addresses are packed (PackedPciAddress).
void VornElogLogPcieRootPortData(const IO_HUB_DATA* pIoHubData, UINT32 LogicalBridgePciAddress,
                                 UINT32 PhysicalBridgePciAddress);
