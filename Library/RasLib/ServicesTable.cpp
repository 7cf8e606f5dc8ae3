#include "Library/RasLib/ServicesTable.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SmmBase2.h"
#include "Platform/State.h"

namespace {

// Stands where the SMM system table is missing.
consteval EFI_SMM_SYSTEM_TABLE2 AbsentTable() {
    EFI_SMM_SYSTEM_TABLE2 Table{};
    Table.SmmAllocatePool = [](EFI_MEMORY_TYPE, UINTN, void**) { return EFI_OUT_OF_RESOURCES; };
    Table.SmmFreePool = [](void*) { return EFI_INVALID_PARAMETER; };
    Table.SmmStartupThisAp = [](EFI_AP_PROCEDURE, UINTN, void*) { return EFI_INVALID_PARAMETER; };
    Table.SmmRegisterProtocolNotify = [](const EFI_GUID*, EFI_SMM_NOTIFY_FN, void**) { return EFI_NOT_FOUND; };
    Table.SmmLocateProtocol = [](const EFI_GUID*, void*, void**) { return EFI_NOT_FOUND; };
    Table.SmiHandlerRegister = [](EFI_SMM_HANDLER_ENTRY_POINT2, const EFI_GUID*, EFI_HANDLE*) {
        return EFI_OUT_OF_RESOURCES;
    };
    Table.SmiHandlerUnRegister = [](EFI_HANDLE) { return EFI_INVALID_PARAMETER; };
    return Table;
}

KYR_STATE constinit EFI_SMM_SYSTEM_TABLE2 mAbsentSmst = AbsentTable();

}  // namespace

KYR_STATE EFI_SMM_SYSTEM_TABLE2* gSmst = &mAbsentSmst;
KYR_STATE EFI_BOOT_SERVICES* gBS = nullptr;

EFI_STATUS SmmServicesTableLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE* SystemTable) {
    if (SystemTable == nullptr || SystemTable->BootServices == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR no system table or no boot services on entry, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    gBS = SystemTable->BootServices;

    const EFI_SMM_BASE2_PROTOCOL* SmmBase2 = nullptr;
    EFI_STATUS Status = LocateBootProtocol(gEfiSmmBase2ProtocolGuid, &SmmBase2);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmBase2ProtocolGuid, aborting...\n", Status);
        return Status;
    }
    EFI_SMM_SYSTEM_TABLE2* Smst = nullptr;
    Status = SmmBase2->GetSmstLocation(SmmBase2, &Smst);
    if (!EFI_ERROR(Status) && Smst == nullptr) {
        Status = EFI_NOT_FOUND;
    }
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetSmstLocation, aborting...\n", Status);
        return Status;
    }
    gSmst = Smst;
    return EFI_SUCCESS;
}
