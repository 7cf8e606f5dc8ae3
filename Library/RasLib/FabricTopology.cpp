#include "Library/RasLib/FabricTopology.h"

#include "Include/McaRegisters.h"
#include "Library/RasLib/PciSegment.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Constants.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/State.h"

namespace {

KYR_STATE const KYR_FABRIC_REGISTER_PROTOCOL* mFabricRegisters = nullptr;

constexpr UINT8 IO_HUBS_PER_NBIO = 4;
constexpr UINT8 UNKNOWN_INDEX = 0xFF;

constexpr UINT8 DF_NODES = 8;
constexpr UINT8 DF_FIRST_DEVICE = 24;  // of node 0, on bus 0
constexpr UINT8 IO_LINKS = 2;
constexpr UINTN DF_IO_LINK_BUS_REGISTER = 0xC04;
constexpr UINTN DF_FIRST_IO_LINK_INSTANCE = 0x20;

constexpr UINTN DF_INSTANCE_FABRIC_ID_REGISTER = 0x50;
using InstanceFabricId = Field<UINT32, 15, 8>;

struct INSTANCE_INDEX {
    UINT32 InstanceId;
    UINT8 Index;
};
constexpr UINT32 INSTANCE_TABLE_END = 0xFFFF;

constexpr INSTANCE_INDEX UMC_CHANNELS[] = {
    {0x00050F00, 0},
    {0x00150F00, 1},
    {0x00250F00, 2},
    {0x00350F00, 3},
    {0x00450F00, 4},
    {0x00550F00, 5},
    {0x00650F00, 6},
    {0x00750F00, 7},
    {0x00850F00, 8},
    {0x00950F00, 9},
    {0x00A50F00, 10},
    {0x00B50F00, 11},
    {INSTANCE_TABLE_END, UNKNOWN_INDEX},
};
constexpr INSTANCE_INDEX NBIOS[] = {
    {0x13B17000, 0}, {0x1D417000, 1}, {0x13D17000, 2}, {0x1D617000, 3}, {INSTANCE_TABLE_END, UNKNOWN_INDEX},
};
// The order is the hardware's: it does not follow the instance IDs.
constexpr INSTANCE_INDEX PCIE_CORES[] = {
    {0x1A3C0000, 0}, {0x1A6C0000, 1}, {0x1A5C0000, 2}, {0x1A7C0000, 3}, {0x1A9C0000, 4},
    {0x1AAC0000, 5}, {0x1A8C0000, 6}, {0x1ABC0000, 7}, {0x1ADC0000, 8}, {INSTANCE_TABLE_END, UNKNOWN_INDEX},
};

const INSTANCE_INDEX* InstanceTable(UINT64 HardwareId) {
    switch (HardwareId) {
        case McaIpid::HARDWARE_ID_UMC:
            return UMC_CHANNELS;
        case McaIpid::HARDWARE_ID_NBIO:
            return NBIOS;
        case McaIpid::HARDWARE_ID_PCIE:
            return PCIE_CORES;
        default:
            return nullptr;
    }
}

struct IOS_SEARCH {
    UINT8 Instance;   // NO_IOS_INSTANCE when no register matches
    UINT32 Register;  // the one read last
};

IOS_SEARCH FindIos(UINT32 FabricId) {
    IOS_SEARCH Search{NO_IOS_INSTANCE, 0};
    for (UINT8 Candidate = FIRST_IOS_INSTANCE; Candidate <= LAST_IOS_INSTANCE; Candidate++) {
        Search.Register = FabricRegisterAccRead(0, 0, 0, DF_INSTANCE_FABRIC_ID_REGISTER, Candidate);
        if (InstanceFabricId::Get(Search.Register) == FabricId) {
            Search.Instance = Candidate;
            break;
        }
    }
    return Search;
}

}  // namespace

EFI_STATUS FabricTopologyLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    const EFI_STATUS Status = LocateSmmProtocol(gKyrFabricRegisterSmmProtocolGuid, &mFabricRegisters);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrFabricRegisterSmmProtocolGuid, aborting...\n", Status);
    }
    return Status;
}

UINT32 FabricRegisterAccRead(UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance) {
    if (mFabricRegisters == nullptr) {
        return 0xFFFFFFFF;
    }
    return mFabricRegisters->FabricRegisterAccRead(Socket, Die, Function, Offset, Instance);
}

EFI_STATUS AcquireIoHubSSecSegBusNum(const RB_BUS_MAP* RbBusMap, UINT8 Socket, UINT8, UINT8 IoS, UINT8* Bus,
                                     UINT8* Segment) {
    if (RbBusMap == nullptr || Bus == nullptr || Segment == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    // Meant: the count itself passes and finds no entry.
    if (IoS > MAX_IO_HUBS) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT8 Nbio = IoS / IO_HUBS_PER_NBIO;
    const UINT8 Iohc = IoS % IO_HUBS_PER_NBIO;
    for (UINT64 At = 0; At < RbBusMap->RbCount; At++) {
        const RB_BUS_ENTRY& Entry = RbBusEntries(RbBusMap)[At];
        if (Entry.Socket == Socket && Entry.Nbio == Nbio && Entry.Iohc == Iohc) {
            *Segment = Entry.RbSeg;
            *Bus = Entry.RbBusBase;
            Trace(DEBUG_VERBOSE, "%a: The Socket%d, IoS%d (Nbio%d, Iohc%d) @ Segment: 0x%x, Bus: 0x%x\n", Socket, IoS,
                  Nbio, Iohc, *Segment, *Bus);
            return EFI_SUCCESS;
        }
    }
    return EFI_NOT_FOUND;
}

EFI_STATUS GetIndexByIomFromRbBusMap(const RB_BUS_MAP* RbBusMap, UINT8 Socket, UINT8 PhysicalIom, UINT8* Index) {
    if (RbBusMap == nullptr) {
        Trace(DEBUG_ERROR, "GetIndexByIomFromRbBusMap - *RbBusMap == NULL.\n");
        return EFI_INVALID_PARAMETER;
    }
    if (Index == nullptr) {
        Trace(DEBUG_ERROR, "GetIndexByIomFromRbBusMap - *Index == NULL.\n");
        return EFI_INVALID_PARAMETER;
    }
    if (Socket >= MAX_SOCKETS) {
        Trace(DEBUG_ERROR, "GetIndexByIomFromRbBusMap - Invalid Socket: 0x%02X\n", Socket);
        return EFI_INVALID_PARAMETER;
    }
    if (PhysicalIom >= MAX_IO_HUBS) {
        Trace(DEBUG_ERROR, "GetIndexByIomFromRbBusMap - Invalid PhysicalIom: 0x%02X\n", PhysicalIom);
        return EFI_INVALID_PARAMETER;
    }
    // The index is a byte: entries behind the 256th cannot be named.
    for (UINT64 At = 0; At < RbBusMap->RbCount && At <= UINT8_MAX; At++) {
        const RB_BUS_ENTRY& Entry = RbBusEntries(RbBusMap)[At];
        if (Entry.Socket == Socket && Entry.RbIndex == PhysicalIom) {
            *Index = static_cast<UINT8>(At);
            return EFI_SUCCESS;
        }
    }
    Trace(DEBUG_ERROR,
          "GetIndexByIomFromRbBusMap - Unable to find index of RbBusMap corresponding to Socket: 0x%02X/IOM: "
          "0x%02X.\n",
          Socket, PhysicalIom);
    return EFI_NOT_FOUND;
}

EFI_STATUS AcquireNbioSecBusNum(UINT8 DfNode, UINT8 IoLink, UINT8* Bus) {
    if (Bus == nullptr || IoLink >= IO_LINKS || DfNode >= DF_NODES) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT8 Device = static_cast<UINT8>(DF_FIRST_DEVICE + DfNode);
    if (PciSegmentRead16(PciSegmentAddress(0, 0, Device, 0, 0)) != PROCESSOR_PCI_VENDOR_ID) {
        return EFI_INVALID_PARAMETER;
    }
    *Bus = static_cast<UINT8>(
        FabricRegisterAccRead(DfNode, 0, 0, DF_IO_LINK_BUS_REGISTER, DF_FIRST_IO_LINK_INSTANCE + IoLink));
    Trace(DEBUG_VERBOSE, "%a: Bus Number of the DfNode%d, IO Link%d: 0x%x\n", DfNode, IoLink, *Bus);
    return EFI_SUCCESS;
}

UINT8 GetIosInstanceIdFromFabricId(UINT64 DebugLevel, UINT32 FabricId) {
    const IOS_SEARCH Search = FindIos(FabricId);
    if (Search.Instance == NO_IOS_INSTANCE) {
        Trace(DEBUG_ERROR, "%a: ERROR failed to get IOS instance for DataFabric ID 0x%02x\n", FabricId);
        return NO_IOS_INSTANCE;
    }
    Trace(DebugLevel, "%a: DataFabric ID 0x%02x is IOS instance 0x%02x, register 0x%08x\n", FabricId, Search.Instance,
          Search.Register);
    return Search.Instance;
}

UINT8 GetIosInstanceIdFromFabricId(UINT32 FabricId) {
    const IOS_SEARCH Search = FindIos(FabricId);
    if (Search.Instance == NO_IOS_INSTANCE) {
        Trace(DEBUG_ERROR, "[RAS - CXL] %a Failed to get IOS instance id from given FabricId 0x%x\n", __func__,
              FabricId);
        return NO_IOS_INSTANCE;
    }
    Trace(DEBUG_VERBOSE, "[RAS - CXL] %a Given Fabric ID: 0x%x => IOS Instance ID: 0x%x\n", __func__, FabricId,
          Search.Instance);
    return Search.Instance;
}

UINT8 RasMcaIpidToInstanceIndex(UINT64 McaIpid) {
    const INSTANCE_INDEX* Entry = InstanceTable(McaIpid::HardwareID::Get(McaIpid));
    if (Entry == nullptr) {
        return UNKNOWN_INDEX;
    }
    while (Entry->InstanceId != INSTANCE_TABLE_END && Entry->InstanceId != McaIpid::InstanceId::Get(McaIpid)) {
        Entry++;
    }
    return Entry->Index;
}
