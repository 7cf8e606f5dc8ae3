#include "Library/RasLib/NbioPort.h"

#include "Include/FabricRegisters.h"
#include "Include/NbioRegisters.h"
#include "Include/PciDeviceState.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Smn.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Protocol/SiliconServices.h"

namespace {

constexpr UINT8 MAX_IOM = 7;
constexpr UINT8 IOMS_PER_NBIO = 4;
constexpr UINT8 SECOND_CORE = 5;

constexpr UINT32 NBIO_OFFSET = 0x200000;

struct PCIE_CORE_REGISTERS {
    UINT32 Control;
    UINT32 ErrorControl;
};
constexpr PCIE_CORE_REGISTERS PCIE_CORES[] = {
    {0x1A380040, 0x1A3401A8},
    {0x1A480040, 0x1A4401A8},
    {0x1A780040, 0x1A7401A8},
    {0x1A880040, 0x1A8401A8},
    {0, 0},  // an NBIO has no core 4
    {0x1AB80040, 0x1AB401A8},
};

const PCIE_CORE_REGISTERS* CoreRegisters(UINT8 Iom, UINT8 Core, const CHAR8* Caller) {
    if (Iom > MAX_IOM || Core > SECOND_CORE || PCIE_CORES[Core].Control == 0) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: Invalid input parameter Iom %d > 7 or PcieCoreNumInNbio %d == 4 or > 5, aborting...\n", Iom,
                Core);
        return nullptr;
    }
    return &PCIE_CORES[Core];
}

UINT32 OffsetOfNbio(UINT8 Iom) {
    return Iom >= IOMS_PER_NBIO ? NBIO_OFFSET : 0;
}

// The IO stop and socket to which the fabric routes configuration accesses to the bus; NO_IOS_INSTANCE when to none.
UINT8 FindIosOfBus(UINT64 DebugLevel, UINT32 Segment, UINT32 Bus, UINT8* pSocket) {
    for (UINTN Range = 0; Range < FABRIC_BUS_RANGES; Range++) {
        const UINT32 Base = FabricRegisterAccRead(0, 0, FABRIC_BUS_RANGE_FUNCTION, FabricBusRangeBaseRegister(Range),
                                                  FABRIC_INSTANCE_BROADCAST);
        if (FabricBusRangeBase::Enable::Get(Base) == 0 || FabricBusRangeBase::Segment::Get(Base) != Segment ||
            FabricBusRangeBase::FirstBus::Get(Base) > Bus) {
            continue;
        }
        const UINT32 Limit = FabricRegisterAccRead(0, 0, FABRIC_BUS_RANGE_FUNCTION,
                                                   FabricBusRangeLimitRegister(Range), FABRIC_INSTANCE_BROADCAST);
        if (FabricBusRangeLimit::LastBus::Get(Limit) < Bus) {
            continue;
        }
        *pSocket = static_cast<UINT8>(FabricBusRangeLimit::DestinationSocket::Get(Limit));
        return GetIosInstanceIdFromFabricId(DebugLevel, FabricBusRangeLimit::DestinationFabricId::Get(Limit));
    }
    return NO_IOS_INSTANCE;
}

// Registers of even IOHCs come first in the map of NBIO registers, then those of odd ones.
UINT8 NbioRbIndexOf(const RB_BUS_ENTRY& Entry) {
    return static_cast<UINT8>((Entry.Iohc & 1) * 4 + Entry.Nbio * 2 + Entry.Iohc / 2);
}

}  // namespace

EFI_STATUS FindNbioHubOfBus(UINT64 DebugLevel, UINT32 RpPciAddr, NBIO_HUB* pHub) {
    if (pHub == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pHub == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT32 Segment = PackedPciAddress::Segment::Get(RpPciAddr);
    const UINT32 Bus = PackedPciAddress::Bus::Get(RpPciAddr);
    UINT8 Socket = 0;
    const UINT8 Ios = FindIosOfBus(DebugLevel, Segment, Bus, &Socket);
    if (Ios == NO_IOS_INSTANCE) {
        Trace(DebugLevel, "%a: No IO hub decodes Seg 0x%02x Bus 0x%02x\n", Segment, Bus);
        return EFI_NOT_FOUND;
    }
    const UINT8 Iom = static_cast<UINT8>(Ios - FIRST_IOS_INSTANCE);
    UINT8 Index = 0;
    if (EFI_ERROR(GetIndexByIomFromRbBusMap(mRbBusMap, Socket, Iom, &Index))) {
        return EFI_NOT_FOUND;
    }
    const RB_BUS_ENTRY& Entry = RbBusEntries(mRbBusMap)[Index];
    *pHub = {Socket, Iom, NbioRbIndexOf(Entry), SmnSegBus(Entry.RbSeg, Entry.RbBusBase)};
    Trace(DebugLevel, "%a: Seg 0x%02x Bus 0x%02x is decoded by Socket %d Iom %d Nbio %d Iohc %d\n", Segment, Bus,
          Socket, Iom, Entry.Nbio, Entry.Iohc);
    return EFI_SUCCESS;
}

UINT8 PcieCoreOfPort(UINT8 Iom, UINT8 PortIndex) {
    return PortIndex < IOHC_PORTS ? static_cast<UINT8>(Iom % IOMS_PER_NBIO) : SECOND_CORE;
}

EFI_STATUS ConvertRpPciAddrToNbioWrapperPort(UINT32 RpPciAddr, UINT8* pIom, UINT8* pPcieCoreNumInNbio,
                                             NBIO_PORT_INFO* pPortInfo) {
    if (pIom == nullptr || pPcieCoreNumInNbio == nullptr || pPortInfo == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    NBIO_HUB Hub{};
    const EFI_STATUS Status = FindNbioHubOfBus(DEBUG_VERBOSE, RpPciAddr, &Hub);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r finding the IO hub of RP 0x%08x, aborting...\n", Status, RpPciAddr);
        return Status;
    }
    for (UINT8 PortIndex = 0; PortIndex < IohcPortCount(Hub.Iom); PortIndex++) {
        UINT32 Bridge = 0;
        RasSmnRead(Hub.SegBus, IOHC_BRIDGE_MAP.SmnAddress(Hub.NbioRbIndex, PortIndex), &Bridge);
        if (NbioBridgeMap::Device::Get(Bridge) != PackedPciAddress::Device::Get(RpPciAddr) ||
            NbioBridgeMap::Function::Get(Bridge) != PackedPciAddress::Function::Get(RpPciAddr)) {
            continue;
        }
        *pIom = Hub.Iom;
        *pPcieCoreNumInNbio = PcieCoreOfPort(Hub.Iom, PortIndex);
        *pPortInfo = {PortIndex, static_cast<UINT8>(PortIndex % IOHC_PORTS), Hub.SegBus,
                      GetPcieCtrlSmnAddr(*pIom, *pPcieCoreNumInNbio)};
        Trace(DEBUG_VERBOSE, "%a: RP 0x%08x is port %d of PCIe core %d, Iom %d\n", RpPciAddr, pPortInfo->PortNumber,
              *pPcieCoreNumInNbio, *pIom);
        return EFI_SUCCESS;
    }
    Trace(DEBUG_ERROR, "%a: ERROR no port of Iom %d is the bridge of RP 0x%08x, aborting...\n", Hub.Iom, RpPciAddr);
    return EFI_NOT_FOUND;
}

UINT32 GetPcieCtrlSmnAddr(UINT8 Iom, UINT8 PcieCoreNumInNbio) {
    const PCIE_CORE_REGISTERS* const pCore = CoreRegisters(Iom, PcieCoreNumInNbio, __func__);
    return pCore == nullptr ? 0 : pCore->Control + OffsetOfNbio(Iom);
}

UINT32 GetPcieErrCtrlSmnAddr(UINT8 Iom, UINT8 PcieCoreNumInNbio) {
    const PCIE_CORE_REGISTERS* const pCore = CoreRegisters(Iom, PcieCoreNumInNbio, __func__);
    return pCore == nullptr ? 0 : pCore->ErrorControl + OffsetOfNbio(Iom);
}
