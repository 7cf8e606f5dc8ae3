// Running code and reaching registers on a chosen logical processor. A procedure that runs there must not
// itself send work to another processor.
#pragma once

#include "Platform/Services.h"

struct RAS_MSR_ACCESS {
    UINT32 MsrAddress;
    UINT64 MsrValue;  // read, or to write
    UINT8 IsWrite;
};

struct RAS_CPUID_REQUEST {
    UINT32 Leaf;
    UINT32 Eax;
    UINT32 Ebx;
    UINT32 Ecx;
    UINT32 Edx;
};

// Runs Procedure(Argument) on the processor inside SMM and waits for it, about 17 seconds at most. Processor 0
// is taken to be the one that runs the handler.
// EFI_INVALID_PARAMETER for a number that is no processor's; EFI_TIMEOUT when it does not answer (Argument must
// outlive a late answer then); EFI_SUCCESS.
EFI_STATUS LibRasSmmRunFunc(EFI_AP_PROCEDURE Procedure, void* Argument, UINT64 ProcessorNumber);

// Reads or writes one MSR on the processor. A number out of range, or a processor that does not answer, leaves
// Request as it is.
void RasSmmMsrAccess(UINT64 ProcessorNumber, RAS_MSR_ACCESS* Request);

// The processor's local APIC ID (x2APIC ID in x2APIC mode); 0 when it does not answer.
UINT32 RasSmmGetApicIdOnProcessor(UINT64 ProcessorNumber);

// CPUID of Request's leaf on the processor; the results stay as they are when it does not answer.
void RasSmmCpuidOnProcessor(UINT64 ProcessorNumber, RAS_CPUID_REQUEST* Request);

// The instruction pointer that the machine check saved; left as it is unless the processor's MCG_STATUS says
// that it is valid.
void RasSmmReadMcgIpOnProcessor(UINT64 ProcessorNumber, UINT64* McgIp);
