// Registers of PCI functions: the configuration header, the PCI Express capability and the extended capabilities
// that error handling reads (PCI Express Base 6.0, chapter 7). Offsets of a capability's registers count from its
// start; a captured structure is the array of bytes that was read from there.
#pragma once

#include "Include/Field.h"

// Registers inside captured bytes, little endian.
constexpr UINT16 CapturedRegister16(const UINT8* Captured, UINTN Offset) {
    return static_cast<UINT16>(Captured[Offset] | Captured[Offset + 1] << 8);
}
constexpr UINT32 CapturedRegister32(const UINT8* Captured, UINTN Offset) {
    return CapturedRegister16(Captured, Offset) | static_cast<UINT32>(CapturedRegister16(Captured, Offset + 2)) << 16;
}
constexpr void SetCapturedRegister16(UINT8* Captured, UINTN Offset, UINT16 Value) {
    Captured[Offset] = static_cast<UINT8>(Value);
    Captured[Offset + 1] = static_cast<UINT8>(Value >> 8);
}
constexpr void SetCapturedRegister32(UINT8* Captured, UINTN Offset, UINT32 Value) {
    SetCapturedRegister16(Captured, Offset, static_cast<UINT16>(Value));
    SetCapturedRegister16(Captured, Offset + 2, static_cast<UINT16>(Value >> 16));
}

// ---- Configuration header -------------------------------------------------------------------------------------

enum PCI_HEADER_REGISTER : UINT16 {
    PCI_VENDOR_ID = 0x00,
    PCI_DEVICE_ID = 0x02,
    PCI_COMMAND = 0x04,
    PCI_STATUS = 0x06,
    PCI_REVISION_ID = 0x08,
    PCI_CLASS_INTERFACE = 0x09,
    PCI_CLASS_SUBCLASS = 0x0A,
    PCI_CLASS_BASE = 0x0B,
    PCI_HEADER_TYPE = 0x0E,
    PCI_BASE_ADDRESS_0 = 0x10,
    PCI_SUBSYSTEM_VENDOR_ID = 0x2C,  // type 0
    PCI_SUBSYSTEM_ID = 0x2E,         // type 0
    PCI_CAPABILITIES_POINTER = 0x34,

    // Type 1.
    PCI_PRIMARY_BUS_NUMBER = 0x18,
    PCI_SECONDARY_BUS_NUMBER = 0x19,
    PCI_SUBORDINATE_BUS_NUMBER = 0x1A,
    PCI_SECONDARY_STATUS = 0x1E,
    PCI_MEMORY_BASE = 0x20,
    PCI_MEMORY_LIMIT = 0x22,
    PCI_PREFETCHABLE_MEMORY_BASE = 0x24,
    PCI_PREFETCHABLE_MEMORY_LIMIT = 0x26,
    PCI_PREFETCHABLE_BASE_UPPER = 0x28,
    PCI_PREFETCHABLE_LIMIT_UPPER = 0x2C,
    PCI_BRIDGE_CONTROL = 0x3E,
};

inline constexpr UINTN PCI_HEADER_SIZE = 64;

// What a function that does not answer reads as.
inline constexpr UINT16 PCI_VENDOR_ID_ABSENT = 0xFFFF;
inline constexpr UINT16 PCI_STATUS_ABSENT = 0xFFFF;

inline constexpr UINTN PCI_TYPE0_BASE_ADDRESSES = 6;
inline constexpr UINTN PCI_TYPE1_BASE_ADDRESSES = 2;
inline constexpr UINT8 PCI_DEVICES_PER_BUS = 32;
inline constexpr UINT8 PCI_FUNCTIONS_PER_DEVICE = 8;

namespace PciCommand {
inline constexpr UINT16 MemorySpaceEnable = 1 << 1;
inline constexpr UINT16 BusMasterEnable = 1 << 2;
inline constexpr UINT16 ParityErrorResponse = 1 << 6;
inline constexpr UINT16 SerrEnable = 1 << 8;
}  // namespace PciCommand

// Status and, on a bridge, Secondary Status.
namespace PciStatus {
inline constexpr UINT16 CapabilitiesList = 1 << 4;  // Status only
inline constexpr UINT16 MasterDataParityError = 1 << 8;
inline constexpr UINT16 SignaledTargetAbort = 1 << 11;
inline constexpr UINT16 ReceivedTargetAbort = 1 << 12;
inline constexpr UINT16 ReceivedMasterAbort = 1 << 13;
inline constexpr UINT16 SignaledSystemError = 1 << 14;  // Secondary Status: received
inline constexpr UINT16 DetectedParityError = 1 << 15;
inline constexpr UINT16 ErrorBits = MasterDataParityError | SignaledTargetAbort | ReceivedTargetAbort |
                                    ReceivedMasterAbort | SignaledSystemError | DetectedParityError;
static_assert(ErrorBits == 0xF900);
}  // namespace PciStatus

namespace PciBridgeControl {
inline constexpr UINT16 ParityErrorResponseEnable = 1 << 0;
inline constexpr UINT16 SerrEnable = 1 << 1;
}  // namespace PciBridgeControl

namespace PciHeaderType {
using MultiFunction = Field<UINT8, 7>;
using Layout = Field<UINT8, 6, 0>;
static_assert(FieldsDisjoint<MultiFunction, Layout>());
inline constexpr UINT8 Type0 = 0;
inline constexpr UINT8 Type1 = 1;
}  // namespace PciHeaderType

// Class and revision as one doubleword at PCI_REVISION_ID.
namespace PciClass {
using Base = Field<UINT32, 31, 24>;
using Subclass = Field<UINT32, 23, 16>;
using Interface = Field<UINT32, 15, 8>;
using Revision = Field<UINT32, 7, 0>;
static_assert(FieldsDisjoint<Base, Subclass, Interface, Revision>());
inline constexpr UINT8 DISPLAY = 0x03;
inline constexpr UINT8 DISPLAY_VGA = 0x00;
inline constexpr UINT8 BRIDGE = 0x06;
inline constexpr UINT8 BRIDGE_PCI_TO_PCI = 0x04;
inline constexpr UINT8 BRIDGE_PCI_TO_PCI_SUBTRACTIVE = 0x01;  // programming interface; 0 decodes positively
}  // namespace PciClass

namespace PciBar {
using SpaceIsIo = Field<UINT32, 0>;
using Type = Field<UINT32, 2, 1>;
static_assert(FieldsDisjoint<SpaceIsIo, Type>());
inline constexpr UINT32 Type32 = 0;
inline constexpr UINT32 Type64 = 2;  // the next base address register is the upper half
inline constexpr UINT32 MemoryAttributes = 0xF;
}  // namespace PciBar

// Base and limit of a bridge's memory windows.
namespace PciMemoryWindow {
using Address = Field<UINT16, 15, 4>;  // bits 31:20 of the address
using Kind = Field<UINT16, 3, 0>;
static_assert(FieldsDisjoint<Address, Kind>());
inline constexpr UINT16 Kind32 = 0;
inline constexpr UINT16 Kind64 = 1;  // prefetchable only: bits 63:32 lie in the upper registers
inline constexpr unsigned UnitShift = 20;
inline constexpr UINT32 UnitMask = 0xFFFFF;  // low bits of a limit
}  // namespace PciMemoryWindow

// ---- Capabilities ---------------------------------------------------------------------------------------------

enum PCI_CAPABILITY_ID : UINT8 {
    PciCapabilityPowerManagement = 0x01,
    PciCapabilitySubsystemVendorId = 0x0D,
    PciCapabilityPciExpress = 0x10,
};

enum PCIE_EXTENDED_CAPABILITY_ID : UINT16 {
    PcieExtendedCapabilityAer = 0x0001,
    PcieExtendedCapabilityDeviceSerialNumber = 0x0003,
    PcieExtendedCapabilityVendorSpecific = 0x000B,
    PcieExtendedCapabilitySecondaryPcie = 0x0019,
    PcieExtendedCapabilityDpc = 0x001D,
    PcieExtendedCapabilityDvsec = 0x0023,
    PcieExtendedCapabilitySfi = 0x002C,
};

namespace PciCapabilityHeader {
using Next = Field<UINT16, 15, 8>;
using Id = Field<UINT16, 7, 0>;
static_assert(FieldsDisjoint<Next, Id>());
inline constexpr UINT8 LowestPointer = 0x40;
inline constexpr UINT8 HighestPointer = 0xFE;
}  // namespace PciCapabilityHeader

namespace PcieExtendedCapabilityHeader {
using Next = Field<UINT32, 31, 20>;
using Version = Field<UINT32, 19, 16>;
using Id = Field<UINT32, 15, 0>;
static_assert(FieldsDisjoint<Next, Version, Id>());
inline constexpr UINT16 FirstOffset = 0x100;
}  // namespace PcieExtendedCapabilityHeader

// Vendor-specific extended capability: the header that follows the capability's own.
inline constexpr UINT16 VSEC_HEADER = 0x04;
namespace VsecHeader {
using Length = Field<UINT32, 31, 20>;  // bytes, from the capability's start
using Revision = Field<UINT32, 19, 16>;
using Id = Field<UINT32, 15, 0>;
static_assert(FieldsDisjoint<Length, Revision, Id>());
}  // namespace VsecHeader

// Power management.
inline constexpr UINT8 PM_CONTROL_STATUS = 0x04;
namespace PmControlStatus {
using PowerState = Field<UINT16, 1, 0>;
inline constexpr UINT16 D3Hot = 3;
}  // namespace PmControlStatus

// Subsystem Vendor ID capability (PCI-to-PCI Bridge Architecture 1.2, section 3.2.5.13).
inline constexpr UINTN SSVID_CAPABILITY_SIZE = 8;
inline constexpr UINT8 SSVID_SUBSYSTEM_VENDOR_ID = 0x04;

// Device serial number.
inline constexpr UINT16 SERIAL_NUMBER_LOWER = 0x04;
inline constexpr UINT16 SERIAL_NUMBER_UPPER = 0x08;

// ---- PCI Express capability -----------------------------------------------------------------------------------

enum PCIE_REGISTER : UINT16 {
    PCIE_CAPABILITIES = 0x02,
    PCIE_DEVICE_CAPABILITIES = 0x04,
    PCIE_DEVICE_CONTROL = 0x08,
    PCIE_DEVICE_STATUS = 0x0A,
    PCIE_LINK_CAPABILITIES = 0x0C,
    PCIE_LINK_CONTROL = 0x10,
    PCIE_LINK_STATUS = 0x12,
    PCIE_SLOT_CAPABILITIES = 0x14,
    PCIE_SLOT_CONTROL = 0x18,
    PCIE_SLOT_STATUS = 0x1A,
    PCIE_ROOT_CONTROL = 0x1C,
    PCIE_ROOT_CAPABILITIES = 0x1E,
    PCIE_ROOT_STATUS = 0x20,
    PCIE_DEVICE_CAPABILITIES_2 = 0x24,
    PCIE_DEVICE_CONTROL_2 = 0x28,
};

inline constexpr UINTN PCIE_CAPABILITY_SIZE = 60;

namespace PcieCapabilities {
using SlotImplemented = Field<UINT16, 8>;
using DevicePortType = Field<UINT16, 7, 4>;
using Version = Field<UINT16, 3, 0>;
static_assert(FieldsDisjoint<SlotImplemented, DevicePortType, Version>());
}  // namespace PcieCapabilities

enum PCIE_DEVICE_PORT_TYPE : UINT8 {
    PcieEndpoint = 0,
    PcieLegacyEndpoint = 1,
    PcieRootPort = 4,
    PcieSwitchUpstreamPort = 5,
    PcieSwitchDownstreamPort = 6,
    PcieToPciBridge = 7,
    PciToPcieBridge = 8,
    PcieRootComplexIntegratedEndpoint = 9,
    PcieRootComplexEventCollector = 10,
};

namespace PcieDeviceCapabilities {
inline constexpr UINT32 RoleBasedErrorReporting = 1 << 15;
}

namespace PcieDeviceControl {
using MaxPayloadSize = Field<UINT16, 7, 5>;  // 128 bytes shifted left by it
inline constexpr UINT16 CorrectableErrorReportingEnable = 1 << 0;
inline constexpr UINT16 NonFatalErrorReportingEnable = 1 << 1;
inline constexpr UINT16 FatalErrorReportingEnable = 1 << 2;
inline constexpr UINT16 UnsupportedRequestReportingEnable = 1 << 3;
}  // namespace PcieDeviceControl

namespace PcieDeviceStatus {
inline constexpr UINT16 CorrectableErrorDetected = 1 << 0;
inline constexpr UINT16 NonFatalErrorDetected = 1 << 1;
inline constexpr UINT16 FatalErrorDetected = 1 << 2;
inline constexpr UINT16 UnsupportedRequestDetected = 1 << 3;
inline constexpr UINT16 ErrorBits = 0xF;
}  // namespace PcieDeviceStatus

namespace PcieLinkCapabilities {
inline constexpr UINT32 SurpriseDownErrorReportingCapable = 1 << 19;
inline constexpr UINT32 DataLinkLayerLinkActiveReportingCapable = 1 << 20;
}  // namespace PcieLinkCapabilities

namespace PcieLinkStatus {
inline constexpr UINT16 DataLinkLayerLinkActive = 1 << 13;
inline constexpr UINT16 LinkBandwidthManagementStatus = 1 << 14;
inline constexpr UINT16 LinkAutonomousBandwidthStatus = 1 << 15;
}  // namespace PcieLinkStatus

namespace PcieSlotCapabilities {
inline constexpr UINT32 PowerControllerPresent = 1 << 1;
inline constexpr UINT32 HotPlugSurprise = 1 << 5;
inline constexpr UINT32 HotPlugCapable = 1 << 6;
}  // namespace PcieSlotCapabilities

namespace PcieSlotControl {
inline constexpr UINT16 PowerControllerControl = 1 << 10;  // set: power off
}

namespace PcieSlotStatus {
inline constexpr UINT16 PresenceDetectState = 1 << 6;
}

namespace PcieRootControl {
inline constexpr UINT16 SystemErrorOnCorrectableErrorEnable = 1 << 0;
inline constexpr UINT16 SystemErrorOnNonFatalErrorEnable = 1 << 1;
inline constexpr UINT16 SystemErrorOnFatalErrorEnable = 1 << 2;
}  // namespace PcieRootControl

namespace PcieRootStatus {
inline constexpr UINT32 PmeStatus = 1 << 16;
}

// ---- Advanced error reporting ---------------------------------------------------------------------------------

enum AER_REGISTER : UINT16 {
    AER_UNCORRECTABLE_STATUS = 0x04,    // UNCERRSTS
    AER_UNCORRECTABLE_MASK = 0x08,      // UNCERRMSK
    AER_UNCORRECTABLE_SEVERITY = 0x0C,  // UNCERRSEV
    AER_CORRECTABLE_STATUS = 0x10,      // CORERRSTS
    AER_CORRECTABLE_MASK = 0x14,        // CORERRMSK
    AER_CAPABILITIES_CONTROL = 0x18,
    AER_HEADER_LOG = 0x1C,  // four doublewords

    // Root ports and event collectors.
    AER_ROOT_ERROR_COMMAND = 0x2C,
    AER_ROOT_ERROR_STATUS = 0x30,
    AER_ERROR_SOURCE_ID = 0x34,

    AER_TLP_PREFIX_LOG = 0x38,  // four doublewords

    // PCIe-to-PCI bridges, where the root registers and the prefix log would be.
    AER_SECONDARY_UNCORRECTABLE_STATUS = 0x2C,
    AER_SECONDARY_UNCORRECTABLE_MASK = 0x30,
    AER_SECONDARY_UNCORRECTABLE_SEVERITY = 0x34,
    AER_SECONDARY_CAPABILITIES_CONTROL = 0x38,
    AER_SECONDARY_HEADER_LOG = 0x3C,  // four doublewords
};

inline constexpr UINTN TLP_HEADER_LOG_DWORDS = 4;
inline constexpr UINTN TLP_PREFIX_LOG_DWORDS = 4;

// Status, mask and severity of uncorrectable errors.
namespace AerUncorrectable {
inline constexpr UINT32 DataLinkProtocolError = 1 << 4;
inline constexpr UINT32 SurpriseDown = 1 << 5;
inline constexpr UINT32 PoisonedTlpReceived = 1 << 12;
inline constexpr UINT32 FlowControlProtocolError = 1 << 13;
inline constexpr UINT32 CompletionTimeout = 1 << 14;
inline constexpr UINT32 CompleterAbort = 1 << 15;
inline constexpr UINT32 UnexpectedCompletion = 1 << 16;
inline constexpr UINT32 ReceiverOverflow = 1 << 17;
inline constexpr UINT32 MalformedTlp = 1 << 18;
inline constexpr UINT32 EcrcError = 1 << 19;
inline constexpr UINT32 UnsupportedRequest = 1 << 20;
inline constexpr UINT32 AcsViolation = 1 << 21;
inline constexpr UINT32 UncorrectableInternalError = 1 << 22;
inline constexpr UINT32 McBlockedTlp = 1 << 23;
inline constexpr UINT32 AtomicOpEgressBlocked = 1 << 24;
inline constexpr UINT32 TlpPrefixBlocked = 1 << 25;
inline constexpr UINT32 PoisonedTlpEgressBlocked = 1 << 26;
}  // namespace AerUncorrectable

// Status and mask of correctable errors.
namespace AerCorrectable {
inline constexpr UINT32 ReceiverError = 1 << 0;
inline constexpr UINT32 BadTlp = 1 << 6;
inline constexpr UINT32 BadDllp = 1 << 7;
inline constexpr UINT32 ReplayNumRollover = 1 << 8;
inline constexpr UINT32 ReplayTimerTimeout = 1 << 12;
inline constexpr UINT32 AdvisoryNonFatalError = 1 << 13;
inline constexpr UINT32 CorrectedInternalError = 1 << 14;
inline constexpr UINT32 HeaderLogOverflow = 1 << 15;
}  // namespace AerCorrectable

namespace AerCapabilitiesControl {
using TlpPrefixLogPresent = Field<UINT32, 11>;
using FirstErrorPointer = Field<UINT32, 4, 0>;  // bit number in the uncorrectable status
static_assert(FieldsDisjoint<TlpPrefixLogPresent, FirstErrorPointer>());
}  // namespace AerCapabilitiesControl

namespace AerRootErrorCommand {
inline constexpr UINT32 CorrectableErrorReportingEnable = 1 << 0;
inline constexpr UINT32 NonFatalErrorReportingEnable = 1 << 1;
inline constexpr UINT32 FatalErrorReportingEnable = 1 << 2;
}  // namespace AerRootErrorCommand

namespace AerRootErrorStatus {
inline constexpr UINT32 ErrCorReceived = 1 << 0;
inline constexpr UINT32 MultipleErrCorReceived = 1 << 1;
inline constexpr UINT32 ErrFatalNonFatalReceived = 1 << 2;
inline constexpr UINT32 MultipleErrFatalNonFatalReceived = 1 << 3;
inline constexpr UINT32 FirstUncorrectableFatal = 1 << 4;
inline constexpr UINT32 NonFatalErrorMessagesReceived = 1 << 5;
inline constexpr UINT32 FatalErrorMessagesReceived = 1 << 6;
inline constexpr UINT32 ErrorBits = 0x7F;
}  // namespace AerRootErrorStatus

// Requester IDs of the first errors that a root port received.
namespace AerErrorSourceId {
using Uncorrectable = Field<UINT32, 31, 16>;
using Correctable = Field<UINT32, 15, 0>;
static_assert(FieldsDisjoint<Uncorrectable, Correctable>());
}  // namespace AerErrorSourceId

// Bus, device and function in 16 bits, as messages carry them.
namespace RequesterId {
using Bus = Field<UINT16, 15, 8>;
using Device = Field<UINT16, 7, 3>;
using Function = Field<UINT16, 2, 0>;
static_assert(FieldsDisjoint<Bus, Device, Function>());
}  // namespace RequesterId

constexpr UINT16 PackRequesterId(UINT8 Bus, UINT8 Dev, UINT8 Func) {
    return RequesterId::Bus::Of(Bus) | RequesterId::Device::Of(Dev) | RequesterId::Function::Of(Func);
}

// ---- TLP headers in a header log (section 2.2) ----------------------------------------------------------------

namespace TlpHeader {
using FmtType = Field<UINT32, 31, 24>;         // doubleword 0
using Length = Field<UINT32, 9, 0>;            // doubleword 0, in doublewords
using MessageCode = Field<UINT32, 7, 0>;       // doubleword 1 of a message
using MessageVendorId = Field<UINT32, 15, 0>;  // doubleword 2 of a vendor-defined message
static_assert(FieldsDisjoint<FmtType, Length>());

inline constexpr UINT32 MemRd32 = 0x00;
inline constexpr UINT32 MemRd32Locked = 0x01;
inline constexpr UINT32 MemRd64 = 0x20;
inline constexpr UINT32 MemRd64Locked = 0x21;
inline constexpr UINT32 MemWr32 = 0x40;
inline constexpr UINT32 MemWr64 = 0x60;
inline constexpr UINT32 Msg = 0x30;   // routed to the root complex
inline constexpr UINT32 MsgD = 0x70;  // the same with data
inline constexpr UINT32 VendorDefinedType1 = 0x7F;
inline constexpr UINT32 VendorIdDmtf = 0x1AB4;
}  // namespace TlpHeader

// ---- Downstream port containment ------------------------------------------------------------------------------

enum DPC_REGISTER : UINT16 {
    DPC_CAPABILITY = 0x04,
    DPC_CONTROL = 0x06,
    DPC_STATUS = 0x08,
    DPC_ERROR_SOURCE_ID = 0x0A,

    // With RP extensions.
    DPC_RP_PIO_STATUS = 0x0C,
    DPC_RP_PIO_MASK = 0x10,
    DPC_RP_PIO_SEVERITY = 0x14,
    DPC_RP_PIO_SYS_ERROR = 0x18,
    DPC_RP_PIO_EXCEPTION = 0x1C,
    DPC_RP_PIO_HEADER_LOG = 0x20,  // four doublewords
    DPC_RP_PIO_IMPSPEC_LOG = 0x30,
    DPC_RP_PIO_TLP_PREFIX_LOG = 0x34,
};

namespace DpcCapability {
using RpPioLogSize = Field<UINT16, 11, 8>;  // doublewords
using SoftwareTriggeringSupported = Field<UINT16, 7>;
using RpExtensions = Field<UINT16, 5>;
static_assert(FieldsDisjoint<RpPioLogSize, SoftwareTriggeringSupported, RpExtensions>());
}  // namespace DpcCapability

namespace DpcControl {
using SoftwareTrigger = Field<UINT16, 6>;
using ErrCorEnable = Field<UINT16, 4>;
using InterruptEnable = Field<UINT16, 3>;
using TriggerEnable = Field<UINT16, 1, 0>;
static_assert(FieldsDisjoint<SoftwareTrigger, ErrCorEnable, InterruptEnable, TriggerEnable>());
}  // namespace DpcControl

namespace DpcStatus {
using RpPioFirstErrorPointer = Field<UINT16, 12, 8>;
using TriggerReasonExtension = Field<UINT16, 6, 5>;
using RpBusy = Field<UINT16, 4>;
using InterruptStatus = Field<UINT16, 3>;
using TriggerReason = Field<UINT16, 2, 1>;
using TriggerStatus = Field<UINT16, 0>;
static_assert(FieldsDisjoint<RpPioFirstErrorPointer, TriggerReasonExtension, RpBusy, InterruptStatus, TriggerReason,
                             TriggerStatus>());
}  // namespace DpcStatus

enum DPC_TRIGGER_REASON : UINT16 {
    DpcReasonUnmaskedUncorrectable = 0,
    DpcReasonErrNonFatalReceived = 1,
    DpcReasonErrFatalReceived = 2,
    DpcReasonSeeExtension = 3,
};
enum DPC_TRIGGER_REASON_EXTENSION : UINT16 {
    DpcReasonExtensionRpPio = 0,
    DpcReasonExtensionSoftwareTrigger = 1,
};

// RP PIO Status, Mask, Severity, SysError and Exception: one bit for each kind of request and completion.
namespace RpPio {
inline constexpr UINT32 CfgUrCompletion = 1 << 0;
inline constexpr UINT32 CfgCaCompletion = 1 << 1;
inline constexpr UINT32 CfgCompletionTimeout = 1 << 2;
inline constexpr UINT32 IoUrCompletion = 1 << 8;
inline constexpr UINT32 IoCaCompletion = 1 << 9;
inline constexpr UINT32 IoCompletionTimeout = 1 << 10;
inline constexpr UINT32 MemUrCompletion = 1 << 16;
inline constexpr UINT32 MemCaCompletion = 1 << 17;
inline constexpr UINT32 MemCompletionTimeout = 1 << 18;
inline constexpr UINT32 UrCompletions = CfgUrCompletion | IoUrCompletion | MemUrCompletion;
inline constexpr UINT32 CaCompletions = CfgCaCompletion | IoCaCompletion | MemCaCompletion;
inline constexpr UINT32 CompletionTimeouts = CfgCompletionTimeout | IoCompletionTimeout | MemCompletionTimeout;
static_assert((UrCompletions | CaCompletions | CompletionTimeouts) == 0x00070707);
}  // namespace RpPio

// ---- System firmware intermediary -----------------------------------------------------------------------------

enum SFI_REGISTER : UINT16 {
    SFI_CAPABILITY = 0x04,
    SFI_CONTROL = 0x06,
    SFI_STATUS = 0x08,
    SFI_CAM_ADDRESS = 0x0C,
    SFI_CAM_DATA = 0x10,
};

inline constexpr UINTN SFI_CAPABILITY_SIZE = 20;

// ---- Secondary PCI Express ------------------------------------------------------------------------------------

enum SECONDARY_PCIE_REGISTER : UINT16 {
    SECONDARY_PCIE_LINK_CONTROL_3 = 0x04,
    SECONDARY_PCIE_LANE_ERROR_STATUS = 0x08,
};
