// The photograph of one PCI function, and how a root complex and a slot are named.
#pragma once

#include "Include/Field.h"
#include "Include/Layout.h"

// Packed address of a function: 32 bits, four of them for the segment.
namespace PackedPciAddress {
using Segment = Field<UINT32, 31, 28>;
using Bus = Field<UINT32, 27, 20>;
using Device = Field<UINT32, 19, 15>;
using Function = Field<UINT32, 14, 12>;
using Register = Field<UINT32, 11, 0>;
static_assert(FieldsDisjoint<Segment, Bus, Device, Function, Register>());
}  // namespace PackedPciAddress

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

struct CXL_AGENT_ADDRESS {
    UINT8 Function;
    UINT8 Device;
    UINT8 Bus;
    UINT16 Segment;
};

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

struct PCI_DEVICE_STATE {
    UINT8 ChipsetDataValid;
    UINT8 Reserved1[3];
    UINT8 ChipsetData[28];
    UINT32 PciAddress;  // PackedPciAddress
    UINT8 PciHeader[64];
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
        UINT32 NvmeSwitchOperatingMode;  // 0 BSW, 1 iSSW, 0xFFFFFFFF unknown
        UINT8 IsPcieToPciBridge;
        PCIE_SMI_STORM SmiStorm;
        PCIE_ERROR_STATUS ErrorStatus;
    } Pcie;
    UINT8 PcieCapabilityOffset;  // 0 for a legacy PCI function
    UINT8 PcieCapability[60];
    UINT16 AerOffset;
    UINT8 AerCapability[76];
    UINT16 DpcOffset;
    UINT8 DpcCapability[100];
    UINT16 SfiOffset;
    UINT8 SfiCapability[20];
    struct {
        UINT8 IsCxl;
        UINT32 CxlRevision;
        UINT32 CxlAgentType;
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
        UINT32 RasCapability[134];
        UINT8 DvsecValid;
        UINT64 DvsecAddress;
        UINT32 DvsecId;
        UINT32 Dvsec[15];
    } Cxl;
    struct {
        UINT8 IoHubDataValid;
        IO_HUB_DATA IoHubData;
        UINT32 LogicalBridgePciAddress;
        UINT32 PhysicalBridgePciAddress;
        PCI_DEVICE_STATE* pPciDeviceStateUpstreamRootPort;
    } PcieRootPortData;
    UINT8 Reserved1232[16];
};
KYR_RECORD(PCI_DEVICE_STATE, 1248);
KYR_FIELD(PCI_DEVICE_STATE, ChipsetData, 4);
KYR_FIELD(PCI_DEVICE_STATE, PciAddress, 32);
KYR_FIELD(PCI_DEVICE_STATE, PciHeader, 36);
KYR_FIELD(PCI_DEVICE_STATE, IsPciBridgeDevice, 100);
