// What the OS is told of an error, and the signals that wait for the end of the SMI.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

// SCI causes, at the bits of the scratch register that the OS's ACPI code reads.
inline constexpr UINT32 SCI_CAUSE_ESXI_PAGE_RETIRE = 0x10000000;
inline constexpr UINT32 SCI_CAUSE_APEI_GHES = 0x20000000;
inline constexpr UINT32 SCI_CAUSE_DPC_EVENT = 0x40000000;
inline constexpr UINT32 SCI_CAUSE_MASK = SCI_CAUSE_ESXI_PAGE_RETIRE | SCI_CAUSE_APEI_GHES | SCI_CAUSE_DPC_EVENT;

// State of one SMI; the cleanup puts it back to zero.
extern BOOLEAN ApeiGhesClearedThisSmi;
extern BOOLEAN VornApeiIssueSciFlag;
extern BOOLEAN VornApeiIssueNmiFlag;
extern UINT32 ApeiSciCause;  // of all records of the SMI, ORed

// Puts the record into GHES and asks for an SCI at the end of the SMI. A record of a contained port whose recovery
// the OS drives goes without GHES: the SCI alone makes the OS look.
// ErrorSeverity: CPER severity under which GHES files the record. SciCause: SCI_CAUSE_ bits.
// EFI_INVALID_PARAMETER: a NULL pointer or a record too short for its header and section descriptor; EFI_NOT_FOUND:
// no APEI logging service; else the status of the service that failed, and no SCI is asked for.
EFI_STATUS VornElogSmmOsErrorNotification(const CPER_RECORD* pCper,
                                          const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                          UINT32 ErrorSeverity, UINT32 SciCause);

// Asks for an NMI at the end of the SMI when the record is an error that the OS must not run on from: PCIe and CXL
// only. EFI_INVALID_PARAMETER: a NULL pointer or a record too short for what it says it is.
EFI_STATUS VornElogSmmOsErrorContainment(const CPER_RECORD* pCper,
                                         const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// Raise the signal now, the SCI with the collected cause. The status of the service.
EFI_STATUS VornElogSmmIssueSci();
EFI_STATUS VornElogSmmIssueNmi();
