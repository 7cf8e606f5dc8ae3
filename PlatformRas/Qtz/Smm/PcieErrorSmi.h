// One root complex reports errors of its ports; called once per root complex in an SMI.
#pragma once

#include "Platform/Protocol/SwDispatch.h"

EFI_STATUS KyrPcieLegacyRasSmiCallback(EFI_HANDLE DispatchHandle, const FCH_SMM_APU_RAS_REGISTER_CONTEXT* Context);
