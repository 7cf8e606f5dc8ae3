// The photograph of one PCI function, the map of root ports, and how a root complex and a slot are named.
#pragma once

#include "Include/Field.h"
#include "Include/Layout.h"
#include "Include/PciRegisters.h"

// Packed address of a function: 32 bits, four of them for the segment.
namespace PackedPciAddress {
using Segment = Field<UINT32, 31, 28>;
using Bus = Field<UINT32, 27, 20>;
using Device = Field<UINT32, 19, 15>;
using Function = Field<UINT32, 14, 12>;
using Register = Field<UINT32, 11, 0>;
static_assert(FieldsDisjoint<Segment, Bus, Device, Function, Register>());
}  // namespace PackedPciAddress

// The parts of a packed address, as operations take and traces print them.
struct PCI_SBDF {
    UINT8 Seg;
    UINT8 Bus;
    UINT8 Dev;
    UINT8 Func;
};

constexpr PCI_SBDF SbdfOf(UINT32 PciAddress) {
    return {static_cast<UINT8>(PackedPciAddress::Segment::Get(PciAddress)),
            static_cast<UINT8>(PackedPciAddress::Bus::Get(PciAddress)),
            static_cast<UINT8>(PackedPciAddress::Device::Get(PciAddress)),
            static_cast<UINT8>(PackedPciAddress::Function::Get(PciAddress))};
}

// Meant: only four bits of the segment are kept, the platform has no more than 16 segments.
constexpr UINT32 PackPciAddress(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    return PackedPciAddress::Segment::Of(Seg) | PackedPciAddress::Bus::Of(Bus) | PackedPciAddress::Device::Of(Dev) |
           PackedPciAddress::Function::Of(Func);
}

#pragma pack(push, 1)
struct IO_HUB_DATA {
    UINT8 SocketId;
    UINT8 Valid;
    UINT8 DieId;
    UINT8 RbIndex;
    UINT8 BusMapByte;  // copied from the bus map, not interpreted
    UINT8 IomLogicalId;
    UINT8 IomPhysicalId;
    UINT8 NbioId;
    UINT8 IohcId;
    UINT8 Segment;
    UINT8 BusBase;
};
KYR_RECORD(IO_HUB_DATA, 11);

// One root port of the silicon maker's map.
struct KYR_PCIE_PORT_MAP_ENTRY {
    UINT8 Producer0[6];
    UINT8 PortNumber;
    UINT8 DeviceCount;
    UINT32 RpPciAddr;              // PackedPciAddress of the root port, its logical bridge
    UINT8 CxlCapable;              // nonzero: the port can run CXL
    UINT8 CxlMode;                 // KYR_PORT_CXL_MODE_2: CXL 2.0 or later
    UINT32 PhysicalBridgePciAddr;  // PackedPciAddress
    UINT8 Producer18[16];
};
KYR_RECORD(KYR_PCIE_PORT_MAP_ENTRY, 34);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, PortNumber, 6);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, DeviceCount, 7);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, RpPciAddr, 8);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, CxlCapable, 12);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, CxlMode, 13);
KYR_FIELD(KYR_PCIE_PORT_MAP_ENTRY, PhysicalBridgePciAddr, 14);

// PortCount entries follow the count.
struct KYR_PCIE_PORT_MAP {
    UINT16 PortCount;
};
KYR_RECORD(KYR_PCIE_PORT_MAP, 2);

struct PCI_DRIVE_BAY {
    UINT8 BayId;
    UINT8 SlotId;
};
KYR_RECORD(PCI_DRIVE_BAY, 2);

struct PCI_SLOT_NUMBER_DATA {
    UINT8 Valid;
    UINT32 DeviceType;  // PCI_SLOT_DEVICE_TYPE
    union {
        PCI_DRIVE_BAY Drive;
        UINT32 SlotNumber;
    };
};
KYR_RECORD(PCI_SLOT_NUMBER_DATA, 9);
KYR_FIELD(PCI_SLOT_NUMBER_DATA, DeviceType, 1);
KYR_FIELD(PCI_SLOT_NUMBER_DATA, SlotNumber, 5);
#pragma pack(pop)

inline constexpr UINT8 KYR_PORT_CXL_MODE_2 = 2;

inline const KYR_PCIE_PORT_MAP_ENTRY* PciePortMapEntries(const KYR_PCIE_PORT_MAP* Map) {
    return reinterpret_cast<const KYR_PCIE_PORT_MAP_ENTRY*>(Map + 1);
}

// True for a port that runs CXL 2.0 or later.
constexpr bool RunsCxl2(const KYR_PCIE_PORT_MAP_ENTRY& Entry) {
    return Entry.CxlCapable != 0 && Entry.CxlMode == KYR_PORT_CXL_MODE_2;
}

enum PCI_SLOT_DEVICE_TYPE : UINT32 { PciSlotDeviceNvmeDrive = 0, PciSlotDeviceOther = 1 };

struct PCIE_CHARACTERISTICS {
    UINT8 IsRoleBasedErrorReporting;
    UINT8 IsRootPort;
    UINT8 IsRootComplexEventCollector;
    UINT8 IsRootComplexIntegratedEndpoint;
    UINT8 IsSwitchUpstreamPort;
    UINT8 IsSwitchDownstreamPort;
};

struct PCIE_ERROR_STATUS {
    UINT8 DetectedHotRemoval;
    UINT8 DetectedDpcEvent;
    UINT8 DetectedFatal;
    UINT8 DetectedUnsupportedRequest;
    UINT8 DetectedNonFatal;
    UINT8 DetectedNonFatalBesidesUr;
    UINT8 DetectedCorrectable;
    UINT8 DetectedRpPioFatal;
    UINT8 ClearDpcEvent;
    UINT8 ClearFatal;
    UINT8 ClearUnsupportedRequest;
    UINT8 ClearNonFatal;
    UINT8 ClearCorrectable;
    UINT8 Reserved13;
    UINT8 ClearRpPioFatal;
    UINT8 UnsupportedRequestScreened;
    UINT8 HandleDpcEvent;
    UINT8 HandleFatal;
    UINT8 HandleUnsupportedRequest;
    UINT8 HandleNonFatal;
    UINT8 HandleCorrectable;
    UINT8 HandleRpPioFatal;
};

// What the storm check saw of a function's PCIe errors in this SMI; FALSE or TRUE each.
struct PCIE_SMI_STORM {
    UINT8 UncorrectedError;  // fatal, non-fatal or RP PIO: the record's severity is raised
    UINT8 Pcie;              // any of the classes below
    UINT8 AllFunctions;      // the errors of all functions of the device were counted together
    UINT8 DpcRpPio;
    UINT8 Fatal;
    UINT8 NonFatal;
    UINT8 Correctable;
};
KYR_RECORD(PCIE_SMI_STORM, 7);

// The same of its CXL errors.
struct CXL_SMI_STORM {
    UINT8 ProtocolUncorrectedError;  // fatal or non-fatal: the record's severity is raised
    UINT8 Protocol;                  // any of the protocol classes below
    UINT8 ProtocolAllFunctions;
    UINT8 ProtocolFatal;
    UINT8 ProtocolNonFatal;
    UINT8 ProtocolCorrectable;
    UINT8 ComponentFatalOrFailure;  // the record's severity is raised
    UINT8 ComponentSeverities;      // bit n: component events of severity n, that is, of event log n
};
KYR_RECORD(CXL_SMI_STORM, 8);

struct CXL_COMPONENT_SEVERITIES {
    UINT8 Info;
    UINT8 Warn;
    UINT8 Failure;
    UINT8 Fatal;
};

struct CXL_ERROR_STATUS {
    UINT8 DetectedFatal;
    UINT8 DetectedNonFatal;
    UINT8 DetectedCorrectable;
    UINT8 ClearFatal;
    UINT8 ClearNonFatal;
    UINT8 ClearCorrectable;
    UINT8 HandleFatal;
    UINT8 HandleNonFatal;
    UINT8 HandleCorrectable;
    UINT8 ComponentDetected;
    CXL_COMPONENT_SEVERITIES ComponentDetectedSeverity;
    CXL_COMPONENT_SEVERITIES ComponentClearSeverity;
    CXL_COMPONENT_SEVERITIES ComponentHandleSeverity;
};

// As CPER carries it (UEFI 2.10, appendix N.2.13).
#pragma pack(push, 1)
struct CXL_AGENT_ADDRESS {
    UINT8 Function;
    UINT8 Device;
    UINT8 Bus;
    UINT16 Segment;
    UINT8 Reserved5[3];
};
#pragma pack(pop)
KYR_RECORD(CXL_AGENT_ADDRESS, 8);
KYR_FIELD(CXL_AGENT_ADDRESS, Segment, 3);

struct CXL_DEVICE_ID {
    UINT16 VendorId;
    UINT16 DeviceId;
    UINT16 SubsystemVendorId;
    UINT16 SubsystemId;
    UINT16 ClassCode;  // base class << 8 | subclass
};

struct CXL_MAILBOX_LOCATION {
    UINT64 Offset;
    UINT64 Length;
    UINT64 Address;
};

inline constexpr UINTN CXL_RAS_CAPABILITY_DWORDS = 134;
inline constexpr UINTN CXL_DVSEC_DWORDS = 15;
inline constexpr UINT32 NVME_SWITCH_MODE_BSW = 0;
inline constexpr UINT32 NVME_SWITCH_MODE_ISSW = 1;
inline constexpr UINT32 NVME_SWITCH_MODE_UNKNOWN = 0xFFFFFFFF;

// Made zeroed, filled by the capture of the function; the error flags by its classification. Status registers in the
// captured structures are those that were seen then.
struct PCI_DEVICE_STATE {
    UINT8 ChipsetDataValid;
    UINT8 Reserved1[3];
    UINT8 ChipsetData[28];  // for the chipset data of a record of this function
    UINT32 PciAddress;      // PackedPciAddress
    UINT8 PciHeader[PCI_HEADER_SIZE];
    UINT8 IsPciBridgeDevice;
    struct {
        UINT8 DetectedFatal;
        UINT8 DetectedPerr;
        UINT8 DetectedSerr;
        UINT8 Clear;
        UINT8 Handle;
        UINT8 SmiStorm;  // the storm check saw too many
    } LegacyPci;
    UINT8 IsPcie;
    struct {
        PCIE_CHARACTERISTICS Characteristics;
        UINT8 IsVornBrandedNvmeSwitch;
        UINT8 Reserved7;
        UINT32 NvmeSwitchOperatingMode;  // NVME_SWITCH_MODE_
        UINT8 IsPcieToPciBridge;
        PCIE_SMI_STORM SmiStorm;
        PCIE_ERROR_STATUS ErrorStatus;
    } Pcie;
    UINT8 PcieCapabilityOffset;  // 0 for a legacy PCI function
    UINT8 PcieCapability[PCIE_CAPABILITY_SIZE];
    UINT16 AerOffset;  // the offsets of extended capabilities are 0 where the function has none
    UINT8 AerCapability[76];
    UINT16 DpcOffset;
    UINT8 DpcCapability[100];
    UINT16 SfiOffset;
    UINT8 SfiCapability[SFI_CAPABILITY_SIZE];
    struct {
        UINT8 IsCxl;
        UINT32 CxlRevision;   // 1: registers as from CXL 2.0 on
        UINT32 CxlAgentType;  // 2 device, 5 root port, 6 switch downstream port, 7 switch upstream port
        CXL_AGENT_ADDRESS CxlAgentAddress;
        CXL_DEVICE_ID CxlDeviceId;
        UINT64 DeviceSerialNumber;
        CXL_SMI_STORM SmiStorm;
        CXL_ERROR_STATUS ErrorStatus;
        UINT64 ComponentRegisterBlock;
        UINT64 MemoryDeviceRegisterBlock;
        UINT64 DeviceEventStatus;
        UINT64 CacheMemRegisterBlock;
        CXL_MAILBOX_LOCATION PrimaryMailbox;
        CXL_MAILBOX_LOCATION SecondaryMailbox;
        UINT8 RasCapabilityValid;
        UINT64 RasCapabilityAddress;
        UINT32 RasCapability[CXL_RAS_CAPABILITY_DWORDS];
        UINT8 DvsecValid;
        UINT64 DvsecAddress;
        UINT32 DvsecId;  // 0: PCIe DVSEC for CXL Device; 7: Flex Bus Port, of which 8 doublewords are kept
        UINT32 Dvsec[CXL_DVSEC_DWORDS];
    } Cxl;
    struct {
        UINT8 IoHubDataValid;
        IO_HUB_DATA IoHubData;
        UINT32 LogicalBridgePciAddress;
        UINT32 PhysicalBridgePciAddress;
        PCI_DEVICE_STATE* pPciDeviceStateUpstreamRootPort;  // queued copy; NULL when it was not found
    } PcieRootPortData;
    UINT8 Reserved1232[16];
};
KYR_RECORD(PCI_DEVICE_STATE, 1248);
KYR_FIELD(PCI_DEVICE_STATE, ChipsetData, 4);
KYR_FIELD(PCI_DEVICE_STATE, PciAddress, 32);
KYR_FIELD(PCI_DEVICE_STATE, PciHeader, 36);
KYR_FIELD(PCI_DEVICE_STATE, IsPciBridgeDevice, 100);

// PCIE_DEVICE_PORT_TYPE of a captured function; means nothing for a legacy PCI function.
constexpr UINT8 DevicePortTypeOf(const PCI_DEVICE_STATE& State) {
    return static_cast<UINT8>(
        PcieCapabilities::DevicePortType::Get(CapturedRegister16(State.PcieCapability, PCIE_CAPABILITIES)));
}
