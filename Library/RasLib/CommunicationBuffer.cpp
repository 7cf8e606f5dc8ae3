#include "Library/RasLib/CommunicationBuffer.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

KYR_STATE BOOLEAN VornSmmSecurityMitigationEnabled = FALSE;

namespace {

KYR_STATE const KYR_SMM_MEMORY_MAP_PROTOCOL* mMemoryMap = nullptr;
KYR_STATE void* mEndOfDxeRegistration = nullptr;

constexpr UINTN ATTRIBUTE_BUFFER_SIZE = 62;

// Both ranges as first and last byte: a region may end at the top of the address space.
struct BYTE_RANGE {
    UINT64 First;
    UINT64 Last;
};

BYTE_RANGE RangeOf(const KYR_MEMORY_REGION& Region) {
    return {Region.Base, Region.Base + (Region.Size - 1)};
}

bool TouchesSmram(BYTE_RANGE Range) {
    for (UINTN At = 0; At < mMemoryMap->SmramRegionCount; At++) {
        if (mMemoryMap->SmramRegions[At].Size == 0) {
            continue;
        }
        const BYTE_RANGE Smram = RangeOf(mMemoryMap->SmramRegions[At]);
        if (Range.First <= Smram.Last && Range.Last >= Smram.First) {
            return true;
        }
    }
    return false;
}

bool LiesInCommunicationRegion(BYTE_RANGE Range) {
    for (UINTN At = 0; At < mMemoryMap->ValidCommunicationRegionCount; At++) {
        if (mMemoryMap->ValidCommunicationRegions[At].Size == 0) {
            continue;
        }
        const BYTE_RANGE Region = RangeOf(mMemoryMap->ValidCommunicationRegions[At]);
        if (Range.First >= Region.First && Range.Last <= Region.Last) {
            return true;
        }
    }
    return false;
}

}  // namespace

BOOLEAN SmmIsBufferOutsideSmmValid(UINT64 Buffer, UINT64 Length) {
    if (mMemoryMap == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR no SMM memory map, buffer (0x%lx) refused\n", Buffer);
        return FALSE;
    }
    if (Length == 0 || Length - 1 > ~UINT64{0} - Buffer) {
        Trace(DEBUG_ERROR, "%a: ERROR buffer (0x%lx) - length (0x%lx) is empty or wraps around\n", Buffer, Length);
        return FALSE;
    }
    const BYTE_RANGE Range{Buffer, Buffer + (Length - 1)};
    if (TouchesSmram(Range)) {
        Trace(DEBUG_ERROR, "%a: ERROR buffer (0x%lx) - length (0x%lx) reaches into SMRAM\n", Buffer, Length);
        return FALSE;
    }
    if (VornSmmSecurityMitigationEnabled != FALSE && !LiesInCommunicationRegion(Range)) {
        Trace(DEBUG_ERROR,
              "SmmIsBufferOutsideSmmValid: Not in ValidCommunicationRegion: Buffer (0x%lx) - Length (0x%lx)\n",
              Buffer, Length);
        return FALSE;
    }
    return TRUE;
}

bool IsCommunicationBufferValid(const void* CommBuffer, const UINTN* CommBufferSize, UINTN Bytes,
                                const CHAR8* Caller) {
    if (CommBuffer == nullptr || CommBufferSize == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return false;
    }
    const UINTN Size = *CommBufferSize;
    if (Size == 0 || Size < Bytes) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR communication buffer size 0x%lx < 0x%lx, aborting...\n", Size, Bytes);
        return false;
    }
    if (!SmmIsBufferOutsideSmmValid(reinterpret_cast<UINT64>(CommBuffer), Size)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR communication buffer not valid, aborting...\n");
        return false;
    }
    return true;
}

EFI_STATUS VornReadSmmSecurityMitigationSetting(const EFI_GUID*, void*, EFI_HANDLE) {
    VornSmmSecurityMitigationEnabled = FALSE;
    const VORN_ATTRIBUTE_SMM_PROTOCOL* Attributes = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gVornAttributeSmmProtocolGuid, &Attributes);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornAttributeSmmProtocolGuid, aborting...\n", Status);
        return Status;
    }
    // One character more than the store may write, so that the text always ends.
    CHAR16 Value[ATTRIBUTE_BUFFER_SIZE / sizeof(CHAR16) + 1] = {};
    UINTN Size = ATTRIBUTE_BUFFER_SIZE;
    Status = Attributes->GetAttributeValue(Attributes, &gVornAttributeVendorGuid, u"SmmSecurityMitigation", nullptr,
                                           &Size, Value);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r reading setup attribute SmmSecurityMitigation, aborting...\n", Status);
        return Status;
    }
    VornSmmSecurityMitigationEnabled = SameText(Value, u"Enabled") ? TRUE : FALSE;
    Trace(DEBUG_INFO, "%a: VornSmmSecurityMitigationEnabled = %d\n", VornSmmSecurityMitigationEnabled);
    return EFI_SUCCESS;
}

EFI_STATUS SmmMemLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    const EFI_STATUS MapStatus = LocateSmmProtocol(gKyrSmmMemoryMapProtocolGuid, &mMemoryMap);
    if (EFI_ERROR(MapStatus)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrSmmMemoryMapProtocolGuid\n", MapStatus);
    }
    const EFI_STATUS Status = gSmst->SmmRegisterProtocolNotify(
        &gEfiSmmEndOfDxeProtocolGuid, VornReadSmmSecurityMitigationSetting, &mEndOfDxeRegistration);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r registering notification on gEfiSmmEndOfDxeProtocolGuid\n", Status);
        return Status;
    }
    return MapStatus;
}

EFI_STATUS SmmMemLibDestructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    if (mEndOfDxeRegistration == nullptr) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status =
        gSmst->SmmRegisterProtocolNotify(&gEfiSmmEndOfDxeProtocolGuid, nullptr, &mEndOfDxeRegistration);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r taking back the notification on gEfiSmmEndOfDxeProtocolGuid\n", Status);
        return Status;
    }
    mEndOfDxeRegistration = nullptr;
    return EFI_SUCCESS;
}
