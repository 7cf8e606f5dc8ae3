#include "PlatformRas/Qtz/Smm/ModuleEntry.h"

#include "Library/RasLib/Assert.h"
#include "Library/RasLib/CommunicationBuffer.h"
#include "Library/RasLib/ConfigurationBuffer.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Pcd.h"
#include "Library/RasLib/PciSegment.h"
#include "Library/RasLib/ServicesTable.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperCreateLib.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/ChipsetLib.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Library/VornElogPolicyLib/PolicyLib.h"
#include "Platform/StallTimer.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"

namespace {

using LIBRARY_FUNCTION = EFI_STATUS (*)(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// The platform's and the silicon maker's base libraries, then the vendor's; the policy engine runs last, on top
// of all others.
constexpr LIBRARY_FUNCTION Constructors[] = {
    SmmServicesTableLibConstructor,
    [](EFI_HANDLE, EFI_SYSTEM_TABLE*) { return DebugLibConstructor(); },
    PcdLibConstructor,
    [](EFI_HANDLE, EFI_SYSTEM_TABLE*) {
        StallTimerConstructor();
        return EFI_SUCCESS;
    },
    SmmMemLibConstructor,
    KyrCfgPcdBufLibDxeConstructor,
    [](EFI_HANDLE, EFI_SYSTEM_TABLE*) { return PciSegmentInfoLibConstructor(); },
    FabricTopologyLibConstructor,
    VornElogBaseLibConstructor,
    VornElogChipsetLibConstructor,
    VornELogIpmiLibConstructor,
    VornCperCreateLibConstructor,
    VornElogPolicyLibConstructorSmm,
};

// Reverse order of their constructors.
constexpr LIBRARY_FUNCTION Destructors[] = {
    VornElogPolicyLibDestructorSmm,
    VornCperCreateLibDestructor,
    SmmMemLibDestructor,
};

}  // namespace

EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
    for (LIBRARY_FUNCTION Constructor : Constructors) {
        const EFI_STATUS Status = Constructor(ImageHandle, SystemTable);
        ASSERT_EFI_ERROR(Status);
    }
    const EFI_STATUS Status = KyrPlatformRasQtzSmmInit(ImageHandle, SystemTable);
    if (EFI_ERROR(Status)) {
        for (LIBRARY_FUNCTION Destructor : Destructors) {
            const EFI_STATUS DestructorStatus = Destructor(ImageHandle, SystemTable);
            ASSERT_EFI_ERROR(DestructorStatus);
        }
    }
    return Status;
}
