// The mailbox commands about a memory device's events (CXL 3.0, section 8.2.9.2), through its secondary mailbox: the
// primary one may be the OS's. Every command: EFI_INVALID_PARAMETER for a NULL pointer or an event log that does not
// exist; EFI_OUT_OF_RESOURCES when the pool had no room for the answer; the status that stands for the device's
// return code; EFI_DEVICE_ERROR when it reports success without the answer that belongs to the command; EFI_SUCCESS.
#pragma once

#include "Include/CxlRegisters.h"
#include "Include/PciDeviceState.h"

// How mailbox commands of the policy reach a device on this chipset: CxlMbCmdExecute at the captured secondary
// mailbox, if its registers and its payload lie within the length that the device gives for it; else Unsupported
// Mailbox. MbCmdStatus: the CXL return code in bits 15:0.
UINT64 VornElogCxlChipsetExecuteMbCmd(const PCI_DEVICE_STATE* pPciDeviceState, UINT16 Opcode,
                                      const void* pInputPayload, UINT32 InputLength, UINT32* pOutputLength,
                                      void** ppOutputPayload);

// Reads the oldest records of a log. *ppOutput: header and records, at least the header; the caller gives it back to
// the SMM pool. *pOutputLength: its bytes.
EFI_STATUS VornElogCxlMbCmdGetEventRecords(const PCI_DEVICE_STATE* pPciDeviceState, UINT8 EventLog,
                                           UINT32* pOutputLength, CXL_GET_EVENT_RECORDS_OUTPUT** ppOutput);

// Clears records of a log by their handles, oldest first, in as many commands as the count's width needs.
EFI_STATUS VornElogCxlMbCmdClearEventRecords(const PCI_DEVICE_STATE* pPciDeviceState, UINT8 EventLog,
                                             const UINT16* pHandles, UINT32 NumberOfHandles);

// Reads and writes what each log's events raise.
EFI_STATUS VornElogCxlMbCmdGetEventInterruptPolicy(const PCI_DEVICE_STATE* pPciDeviceState,
                                                   CXL_EVENT_INTERRUPT_POLICY* pPolicy);
EFI_STATUS VornElogCxlMbCmdSetEventInterruptPolicy(const PCI_DEVICE_STATE* pPciDeviceState,
                                                   const CXL_EVENT_INTERRUPT_POLICY* pPolicy);
