// The platform APEI data: the RAS settings of the platform, made by another module. Packed; only the fields
// that the driver reads have names.
#pragma once

#include "Include/Topology.h"

struct McaThresholdTableEntry {
    UINT16 HardwareID;
    UINT16 McaType;
    UINT16 Misc0ThresholdCount;
    UINT16 Misc1ThresholdCount;
};
KYR_RECORD(McaThresholdTableEntry, 8);

// The platform's own thresholds per bank type.
struct OEM_MCA_THRESHOLD_MAP_TABLE {
    UINT32 OemMcaThresholdMapTotalSize;  // bytes
    UINT32 TableEntryNum;
    McaThresholdTableEntry* Entries;
};
KYR_RECORD(OEM_MCA_THRESHOLD_MAP_TABLE, 16);
KYR_FIELD(OEM_MCA_THRESHOLD_MAP_TABLE, Entries, 8);

// How the table travels to the RAS service.
struct OEM_MCA_THRESHOLD_MAP {
    UINT32 Size;  // bytes of Entries
    UINT32 TableEntryNum;
    McaThresholdTableEntry* Entries;
};
KYR_RECORD(OEM_MCA_THRESHOLD_MAP, 16);

struct MCA_THRESHOLD_SETTING {
    UINT8 Reserved0;
    UINT8 ThresholdControl;
    UINT16 ThresholdCount;
    UINT8 ThresholdIntType;
    UINT8 Reserved5;
};
KYR_RECORD(MCA_THRESHOLD_SETTING, 6);
KYR_FIELD(MCA_THRESHOLD_SETTING, ThresholdControl, 1);
KYR_FIELD(MCA_THRESHOLD_SETTING, ThresholdCount, 2);
KYR_FIELD(MCA_THRESHOLD_SETTING, ThresholdIntType, 4);

// Threshold interrupt types of MCA_MISC.
inline constexpr UINT8 THRESHOLD_INT_TYPE_NONE = 0;
inline constexpr UINT8 THRESHOLD_INT_TYPE_SMI = 2;

// Root complex register block of a restricted CXL port: 4 KiB, the one of the device's upstream port behind it.
struct CXL_RCRB_ENTRY {
    UINT8 Segment;
    UINT8 Bus;  // where the restricted device appears
    UINT8 Reserved2[6];
    UINT64 DownstreamPortRcrb;  // memory address
};
KYR_RECORD(CXL_RCRB_ENTRY, 16);
KYR_FIELD(CXL_RCRB_ENTRY, DownstreamPortRcrb, 8);

struct CXL_POLICY_DATA {
    const CXL_RCRB_ENTRY* RcrbEntries;  // NULL when RcrbCount is 0
    UINT32 RcrbCount;
    UINT32 OscDword4;  // what the OS told when it last evaluated _OSC: CxlOscSupport
    UINT32 OscDword5;  // CxlOscControl; asked for by the OS, granted by the driver
    UINT8 Producer14[8];
    UINT8 SwSmiValue;
    UINT8 Producer1D[3];
};
KYR_RECORD(CXL_POLICY_DATA, 0x20);
KYR_FIELD(CXL_POLICY_DATA, OscDword4, 0x0C);
KYR_FIELD(CXL_POLICY_DATA, OscDword5, 0x10);
KYR_FIELD(CXL_POLICY_DATA, SwSmiValue, 0x1C);

struct RAS_ACPI_SMM_DATA;
struct KYR_PCIE_PORT_MAP;

#pragma pack(push, 1)
struct KYR_PLATFORM_APEI_DATA {
    UINT8 Producer0[0x88];
    RAS_ACPI_SMM_DATA* RasAcpiSmmData;
    UINT8 PFEHEnable;          // platform-first error handling
    UINT8 PcieLegacyRasSmiEn;  // root-complex error SMI wanted
    UINT8 Producer92[2];
    UINT16 SwSmiCmdPortAddr;  // IO port of the software-SMI command register
    UINT8 MceSwSmiData;       // software-SMI value of a machine check
    UINT8 Producer97;
    UINT8 McaErrThreshEn;
    UINT16 McaErrThreshCount;
    UINT8 Producer9B[0x51];
    UINT8 PcieErrorHandlingMode;  // 2 and 3: firmware first
    UINT8 ProducerED[4];
    UINT8 CxlRasSmiEn;
    UINT8 ProducerF2;
    UINT8 CxlErrorHandlingMode;  // 1 firmware first, 2 firmware first for debugging, else OS first
    UINT8 ProducerF4[2];
    UINT8 CxlAllDevicesHaveSecondaryMailbox;
    UINT8 ProducerF7[2];
    UINT16 DdrEccErrorCounterStartCount;
    UINT8 ProducerFB[6];
    UINT8 CxlIsolationEnable;
    UINT8 Producer102[3];
    UINT8 RuntimePprEnable[2];  // either one enables runtime repair
    UINT8 MemoryErrorCounterEnable;
    UINT8 MemoryErrorCounterMode;
    UINT8 Producer109[0x27];
    CXL_POLICY_DATA* CxlPolicyData;
    UINT8 Producer138[0x40];
    RB_BUS_MAP* RbBusMap;
    KYR_PCIE_PORT_MAP* KyrPciePortMap;
    UINT8 PciMapValid;  // the map is ready
    UINT8 Producer189[0x237];
    OEM_MCA_THRESHOLD_MAP_TABLE* OemMcaThresholdMapTable;  // NULL when the platform has none
};
#pragma pack(pop)
KYR_RECORD(KYR_PLATFORM_APEI_DATA, 0x3C8);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, RasAcpiSmmData, 0x88);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, PFEHEnable, 0x90);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, PcieLegacyRasSmiEn, 0x91);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, SwSmiCmdPortAddr, 0x94);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, MceSwSmiData, 0x96);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, McaErrThreshEn, 0x98);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, McaErrThreshCount, 0x99);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, PcieErrorHandlingMode, 0xEC);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, CxlRasSmiEn, 0xF1);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, CxlErrorHandlingMode, 0xF3);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, CxlAllDevicesHaveSecondaryMailbox, 0xF6);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, DdrEccErrorCounterStartCount, 0xF9);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, CxlIsolationEnable, 0x101);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, RuntimePprEnable, 0x105);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, MemoryErrorCounterEnable, 0x107);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, MemoryErrorCounterMode, 0x108);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, CxlPolicyData, 0x130);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, RbBusMap, 0x178);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, KyrPciePortMap, 0x180);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, PciMapValid, 0x188);
KYR_FIELD(KYR_PLATFORM_APEI_DATA, OemMcaThresholdMapTable, 0x3C0);

// PcieErrorHandlingMode values that mean firmware first.
constexpr bool IsPcieFirmwareFirst(UINT8 PcieErrorHandlingMode) {
    return PcieErrorHandlingMode == 2 || PcieErrorHandlingMode == 3;
}
