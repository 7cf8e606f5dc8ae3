// The records of CXL functions: protocol errors (UEFI 2.10, appendix N.2.13) and component events (N.2.14).
#pragma once

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// Bytes of a protocol error section that has room for a DVSEC and an error log where the agent can have them, and of
// the record. AgentType: CXL_AGENT_TYPE.
UINT64 VornCperGetCxlProtocolSectionLength(UINT32 AgentType, BOOLEAN DvsecPresent, BOOLEAN ErrorLogPresent);
UINT64 VornCperGetCxlProtocolRecordLength(UINT32 AgentType, BOOLEAN DvsecPresent, BOOLEAN ErrorLogPresent);

// Fills a zeroed record of CperLength bytes from the function's captured state. The descriptor always claims the
// length of a section with DVSEC and error log; CperLength need only hold what was captured.
// Level: debug level of the trace. PreviousError: both severities become fatal.
// EFI_INVALID_PARAMETER: a pointer is NULL. EFI_UNSUPPORTED: no CXL protocol class is marked for handling.
// EFI_BUFFER_TOO_SMALL: CperLength cannot hold the record. In these cases nothing is written. EFI_SUCCESS.
EFI_STATUS VornCperCreateCxlProtocol(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                     const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                     const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN PreviousError,
                                     UINT32 CperLength, CPER_RECORD* pCper);

// Whether a section of this type holds a CXL component event: the type is the UUID of an event record.
BOOLEAN VornElogCxlCheckComponentEventSectionType(const EFI_GUID* pSectionType);

// Bytes of a component event section, and of the record, for an event record with this UUID. One that is not known,
// or NULL, has no room for an event.
UINT64 VornCperGetCxlComponentSectionLength(const EFI_GUID* pEventRecordUuid);
UINT64 VornCperGetCxlComponentRecordLength(const EFI_GUID* pEventRecordUuid);

// Fills a zeroed record of CperLength bytes with one event record as it was read from the device
// (a CXL_EVENT_RECORD at pEventRecord). EventSeverity: CXL_EVENT_LOG of the event record's severity.
// EFI_INVALID_PARAMETER: a pointer is NULL. EFI_UNSUPPORTED: the UUID is not known. EFI_BUFFER_TOO_SMALL: CperLength
// cannot hold the record. In these cases nothing is written. EFI_SUCCESS.
EFI_STATUS VornCperCreateCxlComponent(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                      const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                      const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN PreviousError,
                                      const EFI_GUID* pEventRecordUuid, UINT8 EventSeverity, const void* pEventRecord,
                                      UINT32 CperLength, CPER_RECORD* pCper);
