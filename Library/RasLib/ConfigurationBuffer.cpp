#include "Library/RasLib/ConfigurationBuffer.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/State.h"

namespace {

KYR_STATE KYR_TALVO_CONFIG_PROTOCOL* mTalvoConfig = nullptr;

}  // namespace

EFI_STATUS KyrCfgPcdBufLibDxeConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    const EFI_STATUS Status = LocateSmmProtocol(gKyrTalvoConfigSmmProtocolGuid, &mTalvoConfig);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrTalvoConfigSmmProtocolGuid, aborting...\n", Status);
    }
    return Status;
}

void SetTalvoCfg8(UINT32 Uid, UINT8 Value) {
    if (mTalvoConfig == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR no configuration buffer, UID 0x%08x dropped\n", Uid);
        return;
    }
    mTalvoConfig->SetTalvoCfg8(Uid, Value);
}
