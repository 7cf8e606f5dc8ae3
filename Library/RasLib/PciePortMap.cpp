#include "Library/RasLib/PciePortMap.h"

#include "Library/RasLib/Globals.h"

const KYR_PCIE_PORT_MAP* GetPciePortMap() {
    if (mPlatformApeiData == nullptr || mPlatformApeiData->PciMapValid == FALSE) {
        return nullptr;
    }
    return mPlatformApeiData->KyrPciePortMap;
}

const KYR_PCIE_PORT_MAP_ENTRY* FindPciePortMapEntry(UINT32 RpPciAddr) {
    const KYR_PCIE_PORT_MAP* const pMap = GetPciePortMap();
    for (UINT16 Port = 0; pMap != nullptr && Port < pMap->PortCount; Port++) {
        const KYR_PCIE_PORT_MAP_ENTRY* const pEntry = &PciePortMapEntries(pMap)[Port];
        if (pEntry->RpPciAddr == RpPciAddr) {
            return pEntry;
        }
    }
    return nullptr;
}

IO_HUB_DATA IoHubDataOf(const RB_BUS_ENTRY& Entry) {
    return {
        .SocketId = Entry.Socket,
        .Valid = 1,
        .DieId = Entry.Die,
        .RbIndex = Entry.RbIndex,
        .BusMapByte = Entry.Producer2[0],
        .IomLogicalId = Entry.Producer2[1],
        .IomPhysicalId = Entry.Producer2[2],
        .NbioId = Entry.Nbio,
        .IohcId = Entry.Iohc,
        .Segment = Entry.RbSeg,
        .BusBase = Entry.RbBusBase,
    };
}

bool FindIoHubOfRootPort(UINT32 RpPciAddr, IO_HUB_DATA* pIoHubData) {
    const PCI_SBDF Rp = SbdfOf(RpPciAddr);
    for (UINT64 Index = 0; mRbBusMap != nullptr && Index < mRbBusMap->RbCount; Index++) {
        const RB_BUS_ENTRY& Entry = RbBusEntries(mRbBusMap)[Index];
        if (Entry.RbSeg == Rp.Seg && Entry.RbBusBase == Rp.Bus) {
            *pIoHubData = IoHubDataOf(Entry);
            return true;
        }
    }
    return false;
}
