#include "Library/VornElogChipsetLib/SmbiosMemoryData.h"

#include "Library/RasLib/CommunicationBuffer.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/SmiHandler.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/ChipsetLib.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Platform/Guids.h"
#include "Platform/State.h"

namespace {

// One type's data in SMRAM, and the registration by which it comes there; NULL while none stands.
template <class Payload>
struct SMBIOS_HANDOVER {
    EFI_HANDLE DispatchHandle;
    Payload Data;
};
KYR_STATE SMBIOS_HANDOVER<ELOG_SMBIOS_TYPE16_PAYLOAD> mType16 = {};
KYR_STATE SMBIOS_HANDOVER<ELOG_SMBIOS_TYPE17_PAYLOAD> mType17 = {};

template <class Payload>
EFI_STATUS Hoist(const void* CommBuffer, const UINTN* pCommBufferSize, const EFI_GUID& Guid,
                 SMBIOS_HANDOVER<Payload>* Handover, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (!IsCommunicationBufferValid(CommBuffer, pCommBufferSize, sizeof(Payload), Caller)) {
        return EFI_INVALID_PARAMETER;
    }
    CopyMem(&Handover->Data, CommBuffer, sizeof(Payload));
    return UnregisterSmiHandler(&Handover->DispatchHandle, Guid, Caller);
}

// The count is the producer's: records beyond the payload's room were never handed over.
ELOG_SMBIOS_TYPE17_RECORD* FindMemoryDevice(const CHAR8* Label) {
    ELOG_SMBIOS_TYPE17_PAYLOAD& Data = mType17.Data;
    for (UINT8 i = 0; i < Data.Type17NumHandles && i < ELOG_SMBIOS_TYPE17_RECORDS_MAX; i++) {
        ELOG_SMBIOS_TYPE17_RECORD& Record = Data.Type17Records[i];
        if (SameText(Label, Record.DeviceLocator, sizeof(Record.DeviceLocator))) {
            return &Record;
        }
    }
    return nullptr;
}

ELOG_SMBIOS_TYPE16_RECORD* FindMemoryArray(UINT16 Handle) {
    ELOG_SMBIOS_TYPE16_PAYLOAD& Data = mType16.Data;
    for (UINT8 i = 0; i < Data.Type16NumHandles && i < ELOG_SMBIOS_TYPE16_RECORDS_MAX; i++) {
        if (Data.Type16Records[i].Handle == Handle) {
            return &Data.Type16Records[i];
        }
    }
    return nullptr;
}

}  // namespace

EFI_STATUS VornHoistSmbiosType16DataToSmram(EFI_HANDLE, const void*, void* CommBuffer, UINTN* pCommBufferSize) {
    return Hoist(CommBuffer, pCommBufferSize, gVornSmbiosType16HandleToSmramGuid, &mType16);
}

EFI_STATUS VornHoistSmbiosType17DataToSmram(EFI_HANDLE, const void*, void* CommBuffer, UINTN* pCommBufferSize) {
    return Hoist(CommBuffer, pCommBufferSize, gVornSmbiosType17HandleToSmramGuid, &mType17);
}

EFI_STATUS RegisterSmbiosHoistHandlers(const CHAR8* Caller) {
    EFI_STATUS Status = RegisterSmiHandler(VornHoistSmbiosType16DataToSmram, gVornSmbiosType16HandleToSmramGuid,
                                           &mType16.DispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from gSmst->SmiHandlerRegister to register SMI handler "
                "VornHoistSmbiosType16DataToSmram on gVornSmbiosType16HandleToSmramGuid %g\n",
                Status, &gVornSmbiosType16HandleToSmramGuid);
    }
    Status = RegisterSmiHandler(VornHoistSmbiosType17DataToSmram, gVornSmbiosType17HandleToSmramGuid,
                                &mType17.DispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from gSmst->SmiHandlerRegister to register SMI handler "
                "VornHoistSmbiosType17DataToSmram on gVornSmbiosType17HandleToSmramGuid %g\n",
                Status, &gVornSmbiosType17HandleToSmramGuid);
    }
    return Status;
}

EFI_STATUS UnregisterSmbiosHoistHandlers(const CHAR8* Caller) {
    EFI_STATUS Status = EFI_SUCCESS;
    if (mType17.DispatchHandle != nullptr) {
        Status |= UnregisterSmiHandler(&mType17.DispatchHandle, gVornSmbiosType17HandleToSmramGuid, Caller);
    }
    if (mType16.DispatchHandle != nullptr) {
        Status |= UnregisterSmiHandler(&mType16.DispatchHandle, gVornSmbiosType16HandleToSmramGuid, Caller);
    }
    return Status;
}

EFI_STATUS VornGetSmbiosMemoryDeviceData(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                         BOOLEAN* pSmbiosMemoryDeviceDataValid,
                                         ELOG_SMBIOS_TYPE16_RECORD** ppElogSmbiosType16Record,
                                         ELOG_SMBIOS_TYPE17_RECORD** ppElogSmbiosType17Record) {
    const UINT64 Level = mPrivateDataVornElogChipsetLib.SerDbgLevel;
    if (mType16.Data.Type16DataValid == FALSE || mType16.Data.Type16NumHandles == 0) {
        Trace(Level, "%a: No module global SMBIOS Type 16 data stored, aborting...\n");
        return EFI_NOT_READY;
    }
    if (mType17.Data.Type17DataValid == FALSE || mType17.Data.Type17NumHandles == 0) {
        Trace(Level, "%a: No module global SMBIOS Type 17 data stored, aborting...\n");
        return EFI_NOT_READY;
    }
    if (pSmbiosMemoryDeviceDataValid == nullptr || ppElogSmbiosType16Record == nullptr ||
        ppElogSmbiosType17Record == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pSmbiosMemoryDeviceDataValid = FALSE;
    *ppElogSmbiosType16Record = nullptr;
    *ppElogSmbiosType17Record = nullptr;

    // On the stack, since nobody frees an allocated one.
    CHAR8 Label[DIMM_LABEL_MAX + 1];
    if (EFI_ERROR(CopyDimmLabel(Socket, UmcChannel, Dimm, Label))) {
        return EFI_NOT_FOUND;
    }
    ELOG_SMBIOS_TYPE17_RECORD* const Device = FindMemoryDevice(Label);
    if (Device == nullptr) {
        Trace(Level, "%a: No matching SMBIOS Type 17 record found, aborting...\n");
        return EFI_NOT_FOUND;
    }
    ELOG_SMBIOS_TYPE16_RECORD* const Array = FindMemoryArray(Device->MemoryArrayHandle);
    if (Array == nullptr) {
        Trace(Level, "%a: No matching SMBIOS Type 16 record found, aborting...\n");
        return EFI_NOT_FOUND;
    }
    *ppElogSmbiosType16Record = Array;
    *ppElogSmbiosType17Record = Device;
    *pSmbiosMemoryDeviceDataValid = TRUE;
    return EFI_SUCCESS;
}
