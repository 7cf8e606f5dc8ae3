// Memory that the driver shares with the platform's ACPI code: who takes part in the recovery of contained PCIe
// ports, and how far each recovery is. Both sides use plain byte and word stores.
#pragma once

#include "Include/Layout.h"
#include "Include/PciRegisters.h"

// How the shared tables name a function within its segment: as PCI Express messages do.
namespace DpcPortBdf = RequesterId;

constexpr UINT16 PackDpcPortBdf(UINT8 Bus, UINT8 Dev, UINT8 Func) {
    return PackRequesterId(Bus, Dev, Func);
}

// DPC_TRIGGER_ENTRY.OstStatus: what the OS told of the recovery through _OST; 0 while it has told nothing.
inline constexpr UINT8 OST_SUCCESS = 0x80;
inline constexpr UINT8 OST_FAILURE = 0x81;

// DPC_TRIGGER_ENTRY.EDRStatus.
namespace EdrStatus {
using BiosSoftSmi = Field<UINT8, 7>;  // the firmware itself triggered the containment
using EdrCount = Field<UINT8, 6, 1>;
using EdrSent = Field<UINT8, 0>;  // the OS was notified; the ACPI code sets it
static_assert(FieldsDisjoint<BiosSoftSmi, EdrCount, EdrSent>());
}  // namespace EdrStatus

inline constexpr UINT32 DPC_AWARE_OS_ENTRIES = 400;
inline constexpr UINT8 DPC_TRIGGERED_ENTRIES = 32;

#pragma pack(push, 1)
// A port that the OS has taken over. All zero ends the table: that function is the host bridge and no port.
struct DPC_AWARE_OS_ENTRY {
    UINT16 Bdf;  // DpcPortBdf
    UINT8 Segment;
};
KYR_RECORD(DPC_AWARE_OS_ENTRY, 3);
KYR_FIELD(DPC_AWARE_OS_ENTRY, Segment, 2);

// A port in containment.
struct DPC_TRIGGER_ENTRY {
    UINT8 Flag;         // 1: in use
    UINT16 DpcPortBdf;  // DpcPortBdf
    UINT8 DpcPortSegment;
    UINT16 RootPortBdf;  // above the port; a root port itself
    UINT8 RootPortSegment;
    UINT8 OstStatus;
    UINT8 EDRStatus;  // EdrStatus
};
KYR_RECORD(DPC_TRIGGER_ENTRY, 9);
KYR_FIELD(DPC_TRIGGER_ENTRY, DpcPortBdf, 1);
KYR_FIELD(DPC_TRIGGER_ENTRY, DpcPortSegment, 3);
KYR_FIELD(DPC_TRIGGER_ENTRY, RootPortBdf, 4);
KYR_FIELD(DPC_TRIGGER_ENTRY, RootPortSegment, 6);
KYR_FIELD(DPC_TRIGGER_ENTRY, OstStatus, 7);
KYR_FIELD(DPC_TRIGGER_ENTRY, EDRStatus, 8);

struct RAS_ACPI_SMM_DATA {
    UINT8 Producer0[33];
    DPC_AWARE_OS_ENTRY DpcAwareOs[DPC_AWARE_OS_ENTRIES];
    DPC_TRIGGER_ENTRY DPC_Triggered[DPC_TRIGGERED_ENTRIES];
    UINT8 Producer5F1[0x12C];
    DPC_AWARE_OS_ENTRY DPC_EnIioSmiGen;  // the port that the OS's _DSM call names
};
#pragma pack(pop)
KYR_RECORD(RAS_ACPI_SMM_DATA, 0x720);
KYR_FIELD(RAS_ACPI_SMM_DATA, DpcAwareOs, 33);
KYR_FIELD(RAS_ACPI_SMM_DATA, DPC_Triggered, 0x4D1);
KYR_FIELD(RAS_ACPI_SMM_DATA, DPC_EnIioSmiGen, 0x71D);
