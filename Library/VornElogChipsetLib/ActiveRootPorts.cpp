#include "Library/VornElogChipsetLib/ActiveRootPorts.h"

#include "Include/PciDeviceState.h"
#include "Library/RasLib/PciePortMap.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogChipsetLib/ChipsetLib.h"
#include "Platform/State.h"

KYR_STATE static ACTIVE_PCIE_ROOT_PORT_MAP mActivePcieRootPortMap = {};

static void BuildActiveRootPortMap(const KYR_PCIE_PORT_MAP* pPortMap, const CHAR8* Caller) {
    ACTIVE_PCIE_ROOT_PORT_MAP& Map = mActivePcieRootPortMap;
    for (UINT16 Port = 0; Port < pPortMap->PortCount; Port++) {
        if (Map.Count == MAX_ACTIVE_ROOT_PORTS) {
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %d root ports > Max %d, leaving the rest out\n",
                    pPortMap->PortCount, MAX_ACTIVE_ROOT_PORTS);
            return;
        }
        Map.RpPciAddr[Map.Count++] = PciePortMapEntries(pPortMap)[Port].RpPciAddr;
    }
}

const ACTIVE_PCIE_ROOT_PORT_MAP* VornGetActivePcieRootPortMap() {
    // While the library's constructor runs the platform has not enumerated its ports yet.
    const KYR_PCIE_PORT_MAP* const pPortMap = GetPciePortMap();
    if (mActivePcieRootPortMap.Count == 0 && pPortMap != nullptr) {
        BuildActiveRootPortMap(pPortMap, __func__);
    }
    return &mActivePcieRootPortMap;
}

void VornGetRootPortBDF(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8* pRpBus, UINT8* pRpDev, UINT8* pRpFunc) {
    const UINT64 Level = mPrivateDataVornElogChipsetLib.SerDbgLevel;
    *pRpBus = *pRpDev = *pRpFunc = 0xFF;
    const ACTIVE_PCIE_ROOT_PORT_MAP& Map = *VornGetActivePcieRootPortMap();
    for (UINT16 Port = 0; Port < Map.Count; Port++) {
        const PCI_SBDF Rp = SbdfOf(Map.RpPciAddr[Port]);
        if (Rp.Seg == Seg && Rp.Bus == Bus && Rp.Dev == Dev && Rp.Func == Func) {
            Trace(Level, "%a: Processing Root Port directly, returning data\n");
            *pRpBus = Bus;
            *pRpDev = Dev;
            *pRpFunc = Func;
            return;
        }
    }
    for (UINT16 Port = 0; Port < Map.Count; Port++) {
        const PCI_SBDF Rp = SbdfOf(Map.RpPciAddr[Port]);
        if (Rp.Seg == Seg && VornCheckBusInRootPort(Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func, Bus) != FALSE) {
            Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X is below RP @ SBDF %04X:%02X:%02X.%1X\n", Seg, Bus, Dev, Func,
                  Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
            *pRpBus = Rp.Bus;
            *pRpDev = Rp.Dev;
            *pRpFunc = Rp.Func;
            return;
        }
    }
    Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X is below no active root port\n", Seg, Bus, Dev, Func);
}

BOOLEAN VornCheckBusInRootPort(UINT8 Seg, UINT8 RpBus, UINT8 RpDev, UINT8 RpFunc, UINT8 Bus) {
    const PCI_SBDF Rp{Seg, RpBus, RpDev, RpFunc};
    const UINT8 Secondary = PciSegmentRead8(PciFunctionAddress(Rp, PCI_SECONDARY_BUS_NUMBER));
    const UINT8 Subordinate = PciSegmentRead8(PciFunctionAddress(Rp, PCI_SUBORDINATE_BUS_NUMBER));
    return Secondary <= Bus && Bus <= Subordinate ? TRUE : FALSE;
}
