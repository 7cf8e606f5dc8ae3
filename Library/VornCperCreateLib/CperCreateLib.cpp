#include "Library/VornCperCreateLib/CperCreateLib.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SmbiosMemoryData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"

EFI_STATUS VornCperCreateLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    VORN_MEMORY_INTERFACE_SMM_PROTOCOL* MemoryInterface = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gVornMemoryInterfaceMemorySmmProtocolGuid, &MemoryInterface);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r retrieving gVornMemoryInterfaceMemorySmmProtocolGuid, aborting...\n",
              Status);
        return EFI_LOAD_ERROR;
    }
    VORN_MEMORY_ARRAY* MemoryArray = nullptr;
    Status = MemoryInterface->GetMemoryArrayPtr(&MemoryArray);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetMemoryArrayPtr\n", Status);
        MemoryArray = nullptr;
    }
    if (EFI_ERROR(BuildDimmMappingTable(MemoryArray, SerialDebugLevels().SerDbgLevelConstructor))) {
        return EFI_LOAD_ERROR;
    }
    return RegisterSmbiosHoistHandlers();
}

EFI_STATUS VornCperCreateLibDestructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    EFI_STATUS Status = UnregisterSmbiosHoistHandlers();
    const EFI_STATUS FreeStatus = FreeDimmMappingTable();
    if (EFI_ERROR(FreeStatus)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for DIMM mapping table\n", FreeStatus);
    }
    return Status | FreeStatus;
}
