// Everything that the policy engine remembers between SMIs.
#pragma once

#include "Include/BoundedContainers.h"
#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Include/LinkedList.h"
#include "Include/MemorySlots.h"
#include "Include/Topology.h"

struct EFI_SMM_CPU_SERVICE_PROTOCOL;
struct KYR_RAS_SERVICE_SMM_PROTOCOL;
struct RAS_ACPI_SMM_DATA;
struct VORN_APEI_LOGGING_SMM_PROTOCOL;
struct VORN_KYR_MEMORY_PPR_SMM_PROTOCOL;
struct VORN_MEMORY_INTERFACE_SMM_PROTOCOL;
struct VORN_PCI_SLOT_DATA_SMM_PROTOCOL;

inline constexpr UINT8 MAX_RANKS_PER_DIMM = 2;
inline constexpr UINT32 ESXI_PAGE_RETIRE_ENTRIES = 400;

enum RAS_MEM_ECC_LOGGING_MODE : UINT32 { RasMemEccThresholdMode = 0, RasMemEccDiagnosticMode = 1 };
enum RAS_ERROR_LOGGING_MODE : UINT32 { RasProductionMode = 0, RasDiagnosticMode = 1 };

struct MEM_ERR_LOCATION {
    UINT8 Socket;
    UINT8 Channel;
    UINT8 Dimm;
    UINT8 Rank;
};
KYR_RECORD(MEM_ERR_LOCATION, 4);

// Leaky bucket of one rank.
struct RANK_DATA {
    struct {
        UINT8 WarnThresholdLogged;
        UINT8 WarnThresholdPprRequested;
        UINT8 CritThresholdLogged;
        UINT8 CritThresholdPprRequested;
    } Flags;
    UINT32 CeccPfaCurrentErrorCount;
    CPER_TIMESTAMP CeccPfaTimestampPreviousError;
    CPER_TIMESTAMP CeccPfaTimestampCurrentError;
};
KYR_RECORD(RANK_DATA, 24);

// Corrected-error accounting of one DIMM slot. The DIMM is active when it is present and enabled.
struct DIMM_DATA {
    struct {
        UINT8 Present;
        UINT8 Enabled;
        UINT8 CeccSmiDisabled;
    } Flags;
    struct {
        UINT32 SwThresholdCount;  // corrected errors that foretell a failure
        UINT8 SwThresholdInfo;    // SwThresholdInfo
        UINT32 HwThresholdCount;  // corrected errors per counter overflow
    } CeccPfaData;
    ::UmcEccErrCntRegInitData UmcEccErrCntRegInitData;
    LIST_ENTRY* pUniqueRowIdentifierList;  // row history; NULL unless active
    VORN_MEMORY_SLOT_INFO* pVornMemorySlotInfo;
    UINT8 DimmIndex;  // in the memory interface's slot array
    RANK_DATA Rank[MAX_RANKS_PER_DIMM];
};

struct ESXI_PAGE_RETIRE_ENTRY {
    UINT64 MemoryPageAddress;
    UINT32 CeccErrorCount;
    UINT8 ApeiHestNotificationAttempted;
    UINT8 ApeiHestNotificationSuccessful;
    UINT8 ApeiHestNotificationTimestamp[sizeof(CPER_TIMESTAMP)];
    UINT8 Reserved22[2];
};
KYR_RECORD(ESXI_PAGE_RETIRE_ENTRY, 24);
KYR_FIELD(ESXI_PAGE_RETIRE_ENTRY, CeccErrorCount, 8);
KYR_FIELD(ESXI_PAGE_RETIRE_ENTRY, ApeiHestNotificationAttempted, 12);
KYR_FIELD(ESXI_PAGE_RETIRE_ENTRY, ApeiHestNotificationTimestamp, 14);

struct VORN_ELOG_POLICY_PRIVATE_DATA {
    UINT64 SerDbgLevelConstructor;
    UINT64 SerDbgLevel;
    UINT64 SerDbgLevelDetailed;
    KYR_RAS_POLICY* pKyrRasPolicy;
    KYR_RAS_SERVICE_SMM_PROTOCOL* pKyrRasServiceSmmProtocol;
    VORN_KYR_MEMORY_PPR_SMM_PROTOCOL* pVornKyrMemoryPPRSmmProtocol;
    VORN_APEI_LOGGING_SMM_PROTOCOL* pVornApeiLoggingSmmProtocol;
    EFI_SMM_CPU_SERVICE_PROTOCOL* pSmmCpuServiceProtocol;
    void* pSmmVariableProtocol;
    VORN_MEMORY_INTERFACE_SMM_PROTOCOL* pVornMemoryInterfaceProtocol;
    UINT32 RasErrorLoggingMode;
    CIRCULAR_BUFFER* pMcaDeferredCircularBuffer;
    FINITE_BUFFER* pMcaUncorrectedFiniteBuffer;
    FINITE_BUFFER* pMcaCorrectedFiniteBuffer;
    QUEUE* SmiStormQueue;
    ESXI_PAGE_RETIRE_ENTRY* pOsEsxiPageRetireInfo;
    UINT8 OsEsxiPageRetireNotificationCount;
    MEM_ERR_LOCATION MemErrLocation;  // of the memory error being processed
    DIMM_DATA DimmData[MAX_SOCKETS][MAX_UMC_CHANNELS][MAX_DIMMS_PER_CHANNEL];
    UINT32 SmiStormMcaStopCountThreshold;
    UINT32 SmiStormMcaStopTimeThresholdInSeconds;
    UINT32 SmiStormMcaStopTimeThresholdScalingFactor;
    UINT32 SmiStormPciStopCountThreshold;
    UINT32 SmiStormPcieStopTimeThresholdInSeconds;
    UINT32 SmiStormPciStopTimeThresholdScalingFactor;  // 0: not read yet
    UINT8 IsPciSlotDataLocated;
    VORN_PCI_SLOT_DATA_SMM_PROTOCOL* pVornPciSlotDataSmmProtocol;
    UINT8 PciePostCompleteForCper;  // corrected PCIe records may be logged
    UINT8 CxlPostCompleteForCper;   // the same for corrected CXL records; starts TRUE, they are never held back
    FINITE_BUFFER* pPciFiniteBuffer;
    QUEUE* pQueuePciDeviceData;
    LIST_ENTRY PcieUceCounterList;
    LIST_ENTRY* pPcieUceCounterList;
    UINT32 PcieUceLimit;
    RAS_ACPI_SMM_DATA* pKyrRasAcpiSmmData;
};
static_assert(__is_trivially_copyable(VORN_ELOG_POLICY_PRIVATE_DATA) &&
              __is_standard_layout(VORN_ELOG_POLICY_PRIVATE_DATA));
