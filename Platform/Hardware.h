// Hardware primitives. Each world defines them once: a firmware image with instructions, the simulator
// with its machine. They are linked, not looked up; a missing one fails the link.
#pragma once

#include "Platform/Base.h"

struct CPUID_RESULT {
    UINT32 Eax;
    UINT32 Ebx;
    UINT32 Ecx;
    UINT32 Edx;
};

// C names, so that a world may be written in any language and the list of outside symbols can be read.
extern "C" {

// Memory-mapped access at a physical address, naturally aligned. An address that no device decodes reads
// all ones on hardware; PCI configuration space of an absent function does so in every world.
UINT8 MmioRead8(UINT64 Address);
UINT16 MmioRead16(UINT64 Address);
UINT32 MmioRead32(UINT64 Address);
UINT64 MmioRead64(UINT64 Address);
void MmioWrite8(UINT64 Address, UINT8 Value);
void MmioWrite16(UINT64 Address, UINT16 Value);
void MmioWrite32(UINT64 Address, UINT32 Value);
void MmioWrite64(UINT64 Address, UINT64 Value);

// Byte access to an IO port. A port that nothing decodes reads 0xFF.
UINT8 IoRead8(UINT16 Port);
void IoWrite8(UINT16 Port, UINT8 Value);

// Model-specific register access on the calling processor. The register must exist there.
UINT64 AsmReadMsr64(UINT32 Index);
void AsmWriteMsr64(UINT32 Index, UINT64 Value);

// CPUID with Leaf in EAX and 0 in ECX on the calling processor.
CPUID_RESULT AsmCpuid(UINT32 Leaf);

// The calling processor's local APIC ID; its 32-bit x2APIC ID where x2APIC mode is on.
UINT32 GetApicId();

// Stalls the calling processor for at least Microseconds.
void MicroSecondDelay(UINT64 Microseconds);

// Adds 1 to *Value as one locked operation and returns the new value.
UINT32 InterlockedIncrement(volatile UINT32* Value);

// True when lines of this debug level are to be printed.
bool DebugPrintLevelEnabled(UINT64 Level);

// Writes the two texts (not terminated; lengths in bytes) to the serial port as one piece, under the port's
// line lock, so that lines of several processors do not mix.
void DebugPortWrite(const CHAR8* Prefix, UINTN PrefixLength, const CHAR8* Message, UINTN MessageLength);

// Called after a failed assertion was printed. A debug image stops here at a breakpoint; others return.
void CpuBreakpoint();

}  // extern "C"
