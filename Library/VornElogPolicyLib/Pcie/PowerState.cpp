#include "Library/VornElogPolicyLib/Pcie/PowerState.h"

#include "Library/VornElogBaseLib/PciConfiguration.h"

BOOLEAN VornElogSmmCheckD3HotState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const UINT8 Offset = VornGetPciCapabilityOffset(Seg, Bus, Dev, Func, PciCapabilityPowerManagement);
    if (Offset == 0) {
        return FALSE;
    }
    const UINT16 ControlStatus =
        PciSegmentRead16(PciSegmentAddress(Seg, Bus, Dev, Func, static_cast<UINT16>(Offset + PM_CONTROL_STATUS)));
    return PmControlStatus::PowerState::Get(ControlStatus) == PmControlStatus::D3Hot;
}
