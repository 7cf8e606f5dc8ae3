#include "PlatformRas/Qtz/Smm/ReCloak.h"

#include "Include/McaRegisters.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/ProcessorAccess.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Protocol/RasService.h"

namespace {

using ExtendedBank = Field<UINT32, 11, 4>;
using ExtendedRegister = Field<UINT32, 3, 0>;
using LegacyRegister = Field<UINT32, 1, 0>;

UINT64 ReadMsrOn(UINT64 Processor, UINT32 Msr) {
    RAS_MSR_ACCESS Access = {.MsrAddress = Msr, .MsrValue = 0, .IsWrite = FALSE};
    RasSmmMsrAccess(Processor, &Access);
    return Access.MsrValue;
}

void ClearDeStat(UINT64 Processor, UINT64 Bank) {
    RAS_MSR_ACCESS Access = {.MsrAddress = McaMsr(Bank, MCA_DESTAT), .MsrValue = 0, .IsWrite = TRUE};
    RasSmmMsrAccess(Processor, &Access);
}

// Finds the MSR that the processor was writing when it trapped.
EFI_STATUS GetTrappedMsr(UINT64 Processor, UINT32* Msr) {
    void* SaveState = nullptr;
    const EFI_STATUS Status = mKyrRasServiceSmmProtocol->GetSmmSaveState(Processor, &SaveState);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    if (SaveState == nullptr) {
        return EFI_NOT_FOUND;
    }
    CopyMem(Msr, static_cast<const UINT8*>(SaveState) + SMM_SAVE_STATE_ECX_OFFSET, sizeof(*Msr));
    return EFI_SUCCESS;
}

bool ReCloakAfterExtendedWrite(UINT64 Processor, UINT64 Bank, UINT32 Register) {
    const UINT64 Status = ReadMsrOn(Processor, McaMsr(Bank, MCA_STATUS));
    const UINT64 DeStat = ReadMsrOn(Processor, McaMsr(Bank, MCA_DESTAT));
    switch (Register) {
        case MCA_DESTAT:
            return !McaStatus::Val::Get(Status);
        case MCA_STATUS:
            if (McaStatus::Val::Get(DeStat) && !(McaStatus::Deferred::Get(Status) && McaStatus::Val::Get(Status))) {
                return false;  // a deferred error is still to be read in MCA_DESTAT
            }
            ClearDeStat(Processor, Bank);
            return true;
        default:
            return false;
    }
}

}  // namespace

bool ReCloakCheck(UINT64 ProcessorNumber, UINT64* Bank) {
    UINT32 Ecx = 0;
    const EFI_STATUS Status = GetTrappedMsr(ProcessorNumber, &Ecx);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetSmmSaveState on Processor %d, aborting...\n", Status,
              ProcessorNumber);
        *Bank = MCA_BANK_UNKNOWN;
        return false;
    }
    if (Ecx >= MSR_MCA_LEGACY_BASE && Ecx < MSR_MCA_LEGACY_END) {
        *Bank = (Ecx - MSR_MCA_LEGACY_BASE) >> 2;
    } else if (Ecx <= 1) {
        *Bank = 0;
    } else {
        *Bank = ExtendedBank::Get(Ecx);
        return ReCloakAfterExtendedWrite(ProcessorNumber, *Bank, ExtendedRegister::Get(Ecx));
    }
    if (LegacyRegister::Get(Ecx) != MCA_STATUS) {
        return false;
    }
    ClearDeStat(ProcessorNumber, *Bank);
    return true;
}

bool IsMcaBankCloaked(UINT64 ProcessorNumber, UINT64 Bank) {
    return (ReadMsrOn(ProcessorNumber, MSR_MCA_CLOAK_CFG) & McaBankMask(Bank)) != 0;
}
