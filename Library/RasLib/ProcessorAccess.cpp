#include "Library/RasLib/ProcessorAccess.h"

#include "Include/McaRegisters.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Hardware.h"

namespace {

constexpr UINT32 MAX_RETRIES = 0x1000000;  // of 1 microsecond

struct AP_CONTEXT {
    EFI_AP_PROCEDURE Procedure;
    void* Argument;
    volatile UINT32 Done;
};

void RunAndSignal(void* Buffer) {
    auto* Context = static_cast<AP_CONTEXT*>(Buffer);
    Context->Procedure(Context->Argument);
    InterlockedIncrement(&Context->Done);
}

void AccessMsr(void* Buffer) {
    auto* Request = static_cast<RAS_MSR_ACCESS*>(Buffer);
    if (Request->IsWrite == 0) {
        Request->MsrValue = AsmReadMsr64(Request->MsrAddress);
    } else {
        AsmWriteMsr64(Request->MsrAddress, Request->MsrValue);
    }
}

void ReadApicId(void* Buffer) {
    *static_cast<UINT32*>(Buffer) = GetApicId();
}

void RunCpuid(void* Buffer) {
    auto* Request = static_cast<RAS_CPUID_REQUEST*>(Buffer);
    const CPUID_RESULT Result = AsmCpuid(Request->Leaf);
    Request->Eax = Result.Eax;
    Request->Ebx = Result.Ebx;
    Request->Ecx = Result.Ecx;
    Request->Edx = Result.Edx;
}

void ReadMcgIp(void* Buffer) {
    if (McgStatus::EIPV::Get(AsmReadMsr64(MSR_MCG_STATUS)) != 0) {
        *static_cast<UINT64*>(Buffer) = AsmReadMsr64(MSR_MCG_IP);
    }
}

}  // namespace

EFI_STATUS LibRasSmmRunFunc(EFI_AP_PROCEDURE Procedure, void* Argument, UINT64 ProcessorNumber) {
    if (ProcessorNumber >= gSmst->NumberOfCpus) {
        return EFI_INVALID_PARAMETER;
    }
    if (ProcessorNumber == 0) {
        // Meant: processor 0 stands for the one that runs the handler, whichever executes right now.
        Procedure(Argument);
        Trace(DEBUG_VERBOSE, "[RAS LIB] %a - Done on BSP.\n", __func__);
        return EFI_SUCCESS;
    }

    AP_CONTEXT Context{Procedure, Argument, 0};
    // Whether the processor took the work shows in Done alone.
    gSmst->SmmStartupThisAp(RunAndSignal, ProcessorNumber, &Context);
    UINT32 RetryCnt = 0;
    while (Context.Done == 0) {
        if (RetryCnt++ >= MAX_RETRIES) {
            break;
        }
        MicroSecondDelay(1);
    }
    if (Context.Done == 0 && RetryCnt > MAX_RETRIES) {
        RetryCnt--;
        Trace(DEBUG_ERROR, "[RAS LIB] %a - A timeout error occurred. AP number: 0x%08x., RetryCnt: 0x%08x\n",
              __func__, ProcessorNumber, RetryCnt);
        return EFI_TIMEOUT;
    }
    return EFI_SUCCESS;
}

void RasSmmMsrAccess(UINT64 ProcessorNumber, RAS_MSR_ACCESS* Request) {
    // Meant: a number equal to the count passes here and is refused by LibRasSmmRunFunc.
    if (ProcessorNumber > gSmst->NumberOfCpus) {
        return;
    }
    Trace(DEBUG_VERBOSE, "MSR Access @ Processor: %d, Address: 0x%08x, IsWrite (1:True): %d\n", ProcessorNumber,
          Request->MsrAddress, Request->IsWrite);
    LibRasSmmRunFunc(AccessMsr, Request, ProcessorNumber);
}

UINT32 RasSmmGetApicIdOnProcessor(UINT64 ProcessorNumber) {
    UINT32 ApicId = 0;
    LibRasSmmRunFunc(ReadApicId, &ApicId, ProcessorNumber);
    return ApicId;
}

void RasSmmCpuidOnProcessor(UINT64 ProcessorNumber, RAS_CPUID_REQUEST* Request) {
    LibRasSmmRunFunc(RunCpuid, Request, ProcessorNumber);
}

void RasSmmReadMcgIpOnProcessor(UINT64 ProcessorNumber, UINT64* McgIp) {
    LibRasSmmRunFunc(ReadMcgIp, McgIp, ProcessorNumber);
}
