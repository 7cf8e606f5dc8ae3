// SMM CPU service protocol: which processor runs, and where it sits.
#pragma once

#include "Platform/Base.h"

struct EFI_CPU_PHYSICAL_LOCATION {
    UINT32 Package;
    UINT32 Core;
    UINT32 Thread;
};

// Processor information (PI 1.8, volume 2, section 13.4), without the extended location.
struct EFI_PROCESSOR_INFORMATION {
    UINT64 ProcessorId;  // local APIC ID
    UINT32 StatusFlag;
    EFI_CPU_PHYSICAL_LOCATION Location;
};
static_assert(sizeof(EFI_PROCESSOR_INFORMATION) == 24);

struct EFI_SMM_CPU_SERVICE_PROTOCOL {
    // EFI_NOT_FOUND for a number that is no processor's.
    EFI_STATUS(*GetProcessorInfo)
    (const EFI_SMM_CPU_SERVICE_PROTOCOL* This, UINTN ProcessorNumber, EFI_PROCESSOR_INFORMATION* ProcessorInfoBuffer);
    void* SwitchBsp;
    void* AddProcessor;
    void* RemoveProcessor;
    EFI_STATUS (*WhoAmI)(const EFI_SMM_CPU_SERVICE_PROTOCOL* This, UINTN* ProcessorNumber);
};
