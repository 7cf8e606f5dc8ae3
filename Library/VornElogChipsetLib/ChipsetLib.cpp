#include "Library/VornElogChipsetLib/ChipsetLib.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/SmiStormScaling.h"
#include "Platform/State.h"

KYR_STATE VORN_ELOG_CHIPSET_PRIVATE_DATA mPrivateDataVornElogChipsetLib = {};

EFI_STATUS VornElogChipsetLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    VORN_ELOG_CHIPSET_PRIVATE_DATA& Data = mPrivateDataVornElogChipsetLib;
    VornElogGetSerialDebugLevels(&Data.SerDbgLevelConstructor, &Data.SerDbgLevel, &Data.SerDbgLevelDetailed);
    Trace(Data.SerDbgLevelConstructor, "%a: Serial debug levels 0x%lx 0x%lx 0x%lx\n", Data.SerDbgLevelConstructor,
          Data.SerDbgLevel, Data.SerDbgLevelDetailed);
    RegisterSmiStormScalingHandler();
    return EFI_SUCCESS;
}
