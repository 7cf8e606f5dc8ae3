// Registers, mailbox commands and event records of CXL functions (CXL 3.0, chapter 8), and the controls that firmware
// and OS negotiate with _OSC (section 9.18.2).
#pragma once

#include "Include/Field.h"
#include "Include/Layout.h"

// --- Designated vendor-specific extended capabilities (section 8.1.1), offsets in bytes from the capability ---

inline constexpr UINT16 CXL_DVSEC_VENDOR_ID = 0x1E98;

enum CXL_DVSEC_ID : UINT16 {
    CxlDvsecDevice = 0,  // PCIe DVSEC for CXL devices
    CxlDvsecFlexBusPort = 7,
    CxlDvsecRegisterLocator = 8,
};

enum CXL_DVSEC_REGISTER : UINT16 {
    CXL_DVSEC_HEADER_1 = 0x04,
    CXL_DVSEC_HEADER_2 = 0x08,
    CXL_REGISTER_LOCATOR_ENTRIES = 0x0C,  // eight bytes each
};
inline constexpr UINT32 CXL_REGISTER_LOCATOR_ENTRY_SIZE = 8;

namespace DvsecHeader1 {
using VendorId = Field<UINT32, 15, 0>;
using Revision = Field<UINT32, 19, 16>;
using Length = Field<UINT32, 31, 20>;  // bytes, from the capability's header on
static_assert(FieldsDisjoint<VendorId, Revision, Length>());
}  // namespace DvsecHeader1

namespace DvsecHeader2 {
using Id = Field<UINT32, 15, 0>;
}

// Low doubleword of a register locator entry; the high one holds bits 63:32 of the offset.
namespace CxlRegisterOffsetLow {
using BarIndicator = Field<UINT32, 2, 0>;
using BlockIdentifier = Field<UINT32, 15, 8>;
using Offset = Field<UINT32, 31, 16>;  // bits 31:16 of the offset: blocks lie on 64 KiB
static_assert(FieldsDisjoint<BarIndicator, BlockIdentifier, Offset>());
}  // namespace CxlRegisterOffsetLow

enum CXL_REGISTER_BLOCK_ID : UINT8 {
    CxlBlockComponentRegisters = 1,
    CxlBlockMemoryDeviceRegisters = 3,
};

inline constexpr UINT32 CXL_FLEX_BUS_PORT_DVSEC_DWORDS = 8;

// CXL agents as error records name them (UEFI 2.10, appendix N.2.13).
enum CXL_AGENT_TYPE : UINT32 {
    CxlAgentRcdDevice = 0,  // CXL 1.1 device
    CxlAgentRchDownstreamPort = 1,
    CxlAgentDevice = 2,
    CxlAgentLogicalDevice = 3,
    CxlAgentFabricManagedDevice = 4,
    CxlAgentRootPort = 5,
    CxlAgentSwitchDownstreamPort = 6,
    CxlAgentSwitchUpstreamPort = 7,
};

// Register layouts that CxlRevision tells apart.
inline constexpr UINT32 CXL_REVISION_2_0 = 1;

// --- Component registers (section 8.2.3) ---

inline constexpr UINT64 CXL_COMPONENT_REGISTERS_SIZE = 0x10000;
inline constexpr UINT64 CXL_CACHE_MEM_OFFSET = 0x1000;  // CXL.cache and CXL.mem registers within the block
inline constexpr UINT64 CXL_CACHE_MEM_SIZE = 0x1000;

enum CXL_CAPABILITY_ID : UINT16 { CxlCapabilityArray = 1, CxlCapabilityRas = 2 };
inline constexpr UINT32 CXL_CAPABILITY_ARRAY_VERSION = 1;

namespace CxlCapabilityArrayHeader {
using Id = Field<UINT32, 15, 0>;
using Version = Field<UINT32, 19, 16>;
using CacheMemVersion = Field<UINT32, 23, 20>;
using Count = Field<UINT32, 31, 24>;  // entries behind this one
static_assert(FieldsDisjoint<Id, Version, CacheMemVersion, Count>());
}  // namespace CxlCapabilityArrayHeader

namespace CxlCapabilityEntry {
using Id = Field<UINT32, 15, 0>;
using Version = Field<UINT32, 19, 16>;
using Pointer = Field<UINT32, 31, 20>;  // bytes from the array's header
static_assert(FieldsDisjoint<Id, Version, Pointer>());
}  // namespace CxlCapabilityEntry

// CXL RAS capability (section 8.2.4.16), offsets in bytes.
enum CXL_RAS_REGISTER : UINT32 {
    CXL_RAS_UNCORRECTABLE_STATUS = 0x00,
    CXL_RAS_UNCORRECTABLE_MASK = 0x04,
    CXL_RAS_UNCORRECTABLE_SEVERITY = 0x08,  // set: fatal
    CXL_RAS_CORRECTABLE_STATUS = 0x0C,
    CXL_RAS_CORRECTABLE_MASK = 0x10,
    CXL_RAS_CAPABILITIES_AND_CONTROL = 0x14,
    CXL_RAS_HEADER_LOG = 0x18,
};
inline constexpr UINT32 CXL_RAS_HEADER_LOG_DWORDS = 16;
inline constexpr UINT32 CXL_RAS_CAPABILITY_SIZE = 0x58;
static_assert(CXL_RAS_HEADER_LOG + 4 * CXL_RAS_HEADER_LOG_DWORDS == CXL_RAS_CAPABILITY_SIZE);

namespace CxlRasUncorrectable {
using CacheDataParity = Field<UINT32, 0>;
using CacheAddressParity = Field<UINT32, 1>;
using CacheByteEnableParity = Field<UINT32, 2>;
using CacheDataEcc = Field<UINT32, 3>;
using MemDataParity = Field<UINT32, 4>;
using MemAddressParity = Field<UINT32, 5>;
using MemByteEnableParity = Field<UINT32, 6>;
using MemDataEcc = Field<UINT32, 7>;
using ReinitThreshold = Field<UINT32, 8>;
using RsvdEncodingViolation = Field<UINT32, 9>;
using PoisonReceived = Field<UINT32, 10>;
using ReceiverOverflow = Field<UINT32, 11>;
using InternalError = Field<UINT32, 14>;
using CxlIdeTx = Field<UINT32, 15>;
using CxlIdeRx = Field<UINT32, 16>;
using All = Field<UINT32, 16, 0>;
static_assert(
    FieldsDisjoint<CacheDataParity, CacheAddressParity, CacheByteEnableParity, CacheDataEcc, MemDataParity,
                   MemAddressParity, MemByteEnableParity, MemDataEcc, ReinitThreshold, RsvdEncodingViolation,
                   PoisonReceived, ReceiverOverflow, InternalError, CxlIdeTx, CxlIdeRx>());
}  // namespace CxlRasUncorrectable

namespace CxlRasCorrectable {
using CacheDataEcc = Field<UINT32, 0>;
using MemDataEcc = Field<UINT32, 1>;
using CrcThreshold = Field<UINT32, 2>;
using RetryThreshold = Field<UINT32, 3>;
using CachePoisonReceived = Field<UINT32, 4>;
using MemPoisonReceived = Field<UINT32, 5>;
using PhysicalLayerError = Field<UINT32, 6>;
using All = Field<UINT32, 6, 0>;
static_assert(FieldsDisjoint<CacheDataEcc, MemDataEcc, CrcThreshold, RetryThreshold, CachePoisonReceived,
                             MemPoisonReceived, PhysicalLayerError>());
}  // namespace CxlRasCorrectable

namespace CxlRasCapabilitiesAndControl {
using FirstErrorPointer = Field<UINT32, 5, 0>;
using MultipleHeaderRecording = Field<UINT32, 9>;
using PoisonEnabled = Field<UINT32, 13>;
static_assert(FieldsDisjoint<FirstErrorPointer, MultipleHeaderRecording, PoisonEnabled>());
}  // namespace CxlRasCapabilitiesAndControl

// --- Root complex register block of a restricted port (section 8.2.1) ---

inline constexpr UINT64 CXL_RCRB_SIZE = 0x1000;
inline constexpr UINT64 CXL_RCRB_UPSTREAM_OFFSET = 0x1000;  // the upstream port's follows the downstream port's
inline constexpr UINT64 CXL_RCRB_MEMBAR0_LOW = 0x10;
inline constexpr UINT64 CXL_RCRB_MEMBAR0_HIGH = 0x14;

namespace CxlRcrbMemBar0 {
using Is64 = Field<UINT32, 2>;
}

// --- Device registers (section 8.2.8), offsets in bytes ---

enum CXL_DEVICE_CAPABILITY_ID : UINT16 {
    CxlDeviceCapabilityArray = 0,
    CxlDeviceCapabilityStatus = 1,
    CxlDeviceCapabilityPrimaryMailbox = 2,
    CxlDeviceCapabilitySecondaryMailbox = 3,
    CxlDeviceCapabilityMemoryDevice = 0x4000,
};
inline constexpr UINT8 CXL_DEVICE_CAPABILITY_ARRAY_VERSION = 1;
inline constexpr UINT64 CXL_DEVICE_CAPABILITY_HEADERS = 0x10;
inline constexpr UINT64 CXL_DEVICE_CAPABILITY_HEADER_SIZE = 0x10;

namespace CxlDeviceCapabilityArrayHeader {
using Id = Field<UINT64, 15, 0>;
using Version = Field<UINT64, 23, 16>;
using Count = Field<UINT64, 47, 32>;
static_assert(FieldsDisjoint<Id, Version, Count>());
}  // namespace CxlDeviceCapabilityArrayHeader

enum CXL_DEVICE_CAPABILITY_HEADER : UINT64 {
    CXL_DEVICE_CAPABILITY_ID_VERSION = 0x0,
    CXL_DEVICE_CAPABILITY_OFFSET = 0x4,
    CXL_DEVICE_CAPABILITY_LENGTH = 0x8,
};

namespace CxlDeviceCapabilityIdVersion {
using Id = Field<UINT32, 15, 0>;
using Version = Field<UINT32, 23, 16>;
static_assert(FieldsDisjoint<Id, Version>());
}  // namespace CxlDeviceCapabilityIdVersion

inline constexpr UINT64 CXL_EVENT_STATUS_SIZE = 8;  // the Event Status register begins the device status capability

namespace CxlEventStatus {
using Informational = Field<UINT64, 0>;
using Warning = Field<UINT64, 1>;
using Failure = Field<UINT64, 2>;
using Fatal = Field<UINT64, 3>;
using DynamicCapacity = Field<UINT64, 4>;
using Logs = Field<UINT64, 3, 0>;
static_assert(FieldsDisjoint<Informational, Warning, Failure, Fatal, DynamicCapacity>());
}  // namespace CxlEventStatus

// --- Mailbox (section 8.2.8.4), offsets in bytes ---

enum CXL_MAILBOX_REGISTER : UINT64 {
    CXL_MAILBOX_CAPABILITIES = 0x00,
    CXL_MAILBOX_CONTROL = 0x04,
    CXL_MAILBOX_COMMAND = 0x08,                    // 64 bits
    CXL_MAILBOX_STATUS = 0x10,                     // 64 bits
    CXL_MAILBOX_BACKGROUND_COMMAND_STATUS = 0x18,  // 64 bits
    CXL_MAILBOX_PAYLOAD = 0x20,
};

namespace CxlMailboxCapabilities {
using PayloadSize = Field<UINT32, 4, 0>;  // as a power of two of bytes
using DoorbellInterrupt = Field<UINT32, 5>;
using BackgroundInterrupt = Field<UINT32, 6>;
static_assert(FieldsDisjoint<PayloadSize, DoorbellInterrupt, BackgroundInterrupt>());
}  // namespace CxlMailboxCapabilities

namespace CxlMailboxControl {
using Doorbell = Field<UINT32, 0>;
}

namespace CxlMailboxCommand {
using Opcode = Field<UINT64, 15, 0>;
using PayloadLength = Field<UINT64, 36, 16>;  // bytes; of the input, then of the output
static_assert(FieldsDisjoint<Opcode, PayloadLength>());
}  // namespace CxlMailboxCommand

namespace CxlMailboxStatus {
using BackgroundOperation = Field<UINT64, 0>;
using ReturnCode = Field<UINT64, 47, 32>;
using VendorExtendedStatus = Field<UINT64, 63, 48>;
static_assert(FieldsDisjoint<BackgroundOperation, ReturnCode, VendorExtendedStatus>());
}  // namespace CxlMailboxStatus

enum CXL_MAILBOX_RETURN_CODE : UINT16 {
    CxlMbSuccess = 0x00,
    CxlMbBackgroundCommandStarted = 0x01,
    CxlMbInvalidInput = 0x02,
    CxlMbUnsupported = 0x03,
    CxlMbInternalError = 0x04,
    CxlMbRetryRequired = 0x05,
    CxlMbBusy = 0x06,
    CxlMbMediaDisabled = 0x07,
    CxlMbInvalidHandle = 0x0E,
    CxlMbUnsupportedMailbox = 0x15,
    CxlMbInvalidPayloadLength = 0x16,
    CxlMbInvalidLog = 0x17,
};

enum CXL_MAILBOX_OPCODE : UINT16 {
    CxlMbOpGetEventRecords = 0x0100,
    CxlMbOpClearEventRecords = 0x0101,
    CxlMbOpGetEventInterruptPolicy = 0x0102,
    CxlMbOpSetEventInterruptPolicy = 0x0103,
};

// --- Events (section 8.2.9.2) ---

// Event logs; an event record's severity has the same values.
enum CXL_EVENT_LOG : UINT8 {
    CxlEventLogInformational = 0,
    CxlEventLogWarning = 1,
    CxlEventLogFailure = 2,
    CxlEventLogFatal = 3,
};
inline constexpr UINT8 CXL_EVENT_LOGS = 4;

#pragma pack(push, 1)
struct CXL_EVENT_RECORD {
    EFI_GUID Uuid;  // the bytes of the UUID in the order in which it is written
    UINT8 Length;
    UINT8 Flags[3];
    UINT16 Handle;
    UINT16 RelatedHandle;
    UINT64 TimeStamp;  // nanoseconds since 1970-01-01
    UINT8 MaintenanceOperationClass;
    UINT8 Reserved33[15];
    UINT8 Data[80];
};
KYR_RECORD(CXL_EVENT_RECORD, 128);
KYR_FIELD(CXL_EVENT_RECORD, Length, 0x10);
KYR_FIELD(CXL_EVENT_RECORD, Flags, 0x11);
KYR_FIELD(CXL_EVENT_RECORD, Handle, 0x14);
KYR_FIELD(CXL_EVENT_RECORD, RelatedHandle, 0x16);
KYR_FIELD(CXL_EVENT_RECORD, TimeStamp, 0x18);
KYR_FIELD(CXL_EVENT_RECORD, Data, 0x30);

// Output of Get Event Records; the records follow.
struct CXL_GET_EVENT_RECORDS_OUTPUT {
    UINT8 Flags;
    UINT8 Reserved1;
    UINT16 OverflowErrorCount;
    UINT64 FirstOverflowTimeStamp;
    UINT64 LastOverflowTimeStamp;
    UINT16 EventRecordCount;
    UINT8 Reserved22[10];
};
KYR_RECORD(CXL_GET_EVENT_RECORDS_OUTPUT, 0x20);
KYR_FIELD(CXL_GET_EVENT_RECORDS_OUTPUT, OverflowErrorCount, 0x02);
KYR_FIELD(CXL_GET_EVENT_RECORDS_OUTPUT, FirstOverflowTimeStamp, 0x04);
KYR_FIELD(CXL_GET_EVENT_RECORDS_OUTPUT, LastOverflowTimeStamp, 0x0C);
KYR_FIELD(CXL_GET_EVENT_RECORDS_OUTPUT, EventRecordCount, 0x14);

// Input of Clear Event Records; the handles follow, 16 bits each.
struct CXL_CLEAR_EVENT_RECORDS_INPUT {
    UINT8 EventLog;
    UINT8 Flags;
    UINT8 NumberOfHandles;
    UINT8 Reserved3[3];
};
KYR_RECORD(CXL_CLEAR_EVENT_RECORDS_INPUT, 6);
KYR_FIELD(CXL_CLEAR_EVENT_RECORDS_INPUT, NumberOfHandles, 2);

// Output of Get and input of Set Event Interrupt Policy: the settings of the logs, by CXL_EVENT_LOG.
struct CXL_EVENT_INTERRUPT_POLICY {
    UINT8 Settings[CXL_EVENT_LOGS];
};
KYR_RECORD(CXL_EVENT_INTERRUPT_POLICY, 4);
#pragma pack(pop)

namespace CxlEventFlags {
using Severity = Field<UINT8, 1, 0>;  // CXL_EVENT_LOG; Flags[0]
using PermanentCondition = Field<UINT8, 2>;
using MaintenanceNeeded = Field<UINT8, 3>;
using PerformanceDegraded = Field<UINT8, 4>;
using HardwareReplacementNeeded = Field<UINT8, 5>;
static_assert(FieldsDisjoint<Severity, PermanentCondition, MaintenanceNeeded, PerformanceDegraded,
                             HardwareReplacementNeeded>());
}  // namespace CxlEventFlags

namespace CxlGetEventRecordsFlags {
using Overflow = Field<UINT8, 0>;
using MoreEventRecords = Field<UINT8, 1>;
static_assert(FieldsDisjoint<Overflow, MoreEventRecords>());
}  // namespace CxlGetEventRecordsFlags

namespace CxlClearEventRecordsFlags {
using ClearAllEvents = Field<UINT8, 0>;  // allowed only while the log overflows
}

namespace CxlEventInterruptSetting {
using Mode = Field<UINT8, 1, 0>;
using MessageNumber = Field<UINT8, 7, 4>;
static_assert(FieldsDisjoint<Mode, MessageNumber>());
enum MODE : UINT8 { NoInterrupts = 0, Msi = 1, Firmware = 2 };
}  // namespace CxlEventInterruptSetting

// --- _OSC of a CXL host bridge (section 9.18.2) ---

// Support field, the fourth doubleword of the capabilities buffer.
namespace CxlOscSupport {
using RcdRchPortRegisterAccess = Field<UINT32, 0>;
using VhRegisterAccess = Field<UINT32, 1>;
using ProtocolErrorReporting = Field<UINT32, 2>;
using NativeHotPlug = Field<UINT32, 3>;
using TimeoutAndIsolation = Field<UINT32, 4>;
static_assert(FieldsDisjoint<RcdRchPortRegisterAccess, VhRegisterAccess, ProtocolErrorReporting, NativeHotPlug,
                             TimeoutAndIsolation>());
}  // namespace CxlOscSupport

// Control field, the fifth doubleword.
namespace CxlOscControl {
using MemoryErrorReporting = Field<UINT32, 0>;
using MemoryIsolationEnable = Field<UINT32, 1>;
using MemoryIsolationRecovery = Field<UINT32, 2>;
using CacheIsolationEnable = Field<UINT32, 3>;
using CacheIsolationRecovery = Field<UINT32, 4>;
using IsolationNotification = Field<UINT32, 5>;
static_assert(FieldsDisjoint<MemoryErrorReporting, MemoryIsolationEnable, MemoryIsolationRecovery,
                             CacheIsolationEnable, CacheIsolationRecovery, IsolationNotification>());
}  // namespace CxlOscControl

// CxlErrorHandlingMode of the platform APEI data; every other value means OS first.
enum CXL_ERROR_HANDLING_MODE : UINT8 {
    CxlForcedFirmwareFirst = 1,
    CxlFirmwareFirstDebug = 2,
};
