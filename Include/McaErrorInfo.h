// Records shared with the silicon maker's RAS service: one processor's machine-check scan, its local SMI
// status and the requests for thresholds.
#pragma once

#include "Include/McaRegisters.h"
#include "Include/Topology.h"

// Local SMI status of one processor; the bits of Value are those of LocalSmiStatus.
struct LOCAL_SMI_STATUS {
    UINT64 Value;
    UINT64 Producer8;
};
KYR_RECORD(LOCAL_SMI_STATUS, 16);

inline constexpr UINTN MCA_FRU_TEXT_SIZE = 20;
inline constexpr UINTN MCA_BANK_ERROR_INFO_MAX = 64;

struct MCA_BANK_ERROR_INFO {
    UINT64 McaBankNumber;
    UINT64 McaCtl;
    UINT64 McaStatus;
    UINT64 McaAddr;
    UINT64 McaMisc0;
    UINT64 McaConfig;
    UINT64 McaIpid;
    UINT64 McaSynd;
    UINT64 McaDeStat;
    UINT64 McaDeAddr;
    UINT64 McaMisc1;
    UINT64 Producer88[4];
    UINT64 McaSynd1;
    UINT64 McaSynd2;
    CHAR8 FruText[MCA_FRU_TEXT_SIZE];
    UINT8 Producer156[4];
};
KYR_RECORD(MCA_BANK_ERROR_INFO, 160);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaCtl, 8);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaStatus, 16);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaAddr, 24);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaMisc0, 32);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaConfig, 40);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaIpid, 48);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaSynd, 56);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaDeStat, 64);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaDeAddr, 72);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaMisc1, 80);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaSynd1, 120);
KYR_FIELD(MCA_BANK_ERROR_INFO, McaSynd2, 128);
KYR_FIELD(MCA_BANK_ERROR_INFO, FruText, 136);

struct RasMcaErrorInfo {
    CPU_INFO CpuInfo;
    UINT64 McgIp;        // 0 unless MCG_STATUS says that the instruction pointer is valid
    UINT8 McaBankCount;  // valid entries of McaBankErrorInfo
    UINT8 Producer49[7];
    MCA_BANK_ERROR_INFO McaBankErrorInfo[MCA_BANK_ERROR_INFO_MAX];
};
KYR_RECORD(RasMcaErrorInfo, 10296);
KYR_FIELD(RasMcaErrorInfo, CpuInfo, 0);
KYR_FIELD(RasMcaErrorInfo, McgIp, 40);
KYR_FIELD(RasMcaErrorInfo, McaBankCount, 48);
KYR_FIELD(RasMcaErrorInfo, McaBankErrorInfo, 56);

// Valid entries of the array, whatever the count claims.
inline UINTN McaBankCount(const RasMcaErrorInfo& Info) {
    return Info.McaBankCount < MCA_BANK_ERROR_INFO_MAX ? Info.McaBankCount : MCA_BANK_ERROR_INFO_MAX;
}

struct RasThresholdConfig {
    UINT8 McaMisc0DataValid;
    UINT8 ThresholdControl;
    UINT16 ThresholdCount;
    UINT8 ThresholdIntType;
    UINT8 McaMisc1DataValid;
    UINT8 McaMisc1ThresholdControl;
    UINT8 Reserved7;
    UINT16 McaMisc1ThresholdCount;
    UINT8 McaMisc1ThresholdIntType;
    UINT8 McaConfigDataValid;
    UINT8 McaConfigDeferredIntType;
    UINT8 Reserved13;
};
KYR_RECORD(RasThresholdConfig, 14);
KYR_FIELD(RasThresholdConfig, ThresholdControl, 1);
KYR_FIELD(RasThresholdConfig, ThresholdCount, 2);
KYR_FIELD(RasThresholdConfig, ThresholdIntType, 4);
KYR_FIELD(RasThresholdConfig, McaMisc1DataValid, 5);
KYR_FIELD(RasThresholdConfig, McaMisc1ThresholdControl, 6);
KYR_FIELD(RasThresholdConfig, McaMisc1ThresholdCount, 8);
KYR_FIELD(RasThresholdConfig, McaMisc1ThresholdIntType, 10);
KYR_FIELD(RasThresholdConfig, McaConfigDataValid, 11);
KYR_FIELD(RasThresholdConfig, McaConfigDeferredIntType, 12);

// Which bank of which processor stops raising SMIs.
struct MCA_THRESHOLD_DISABLE_REQUEST {
    CPU_INFO CpuInfo;
    UINT64 McgIp;  // the front 48 bytes of RasMcaErrorInfo travel as they lie
    UINT32 McaBankNumber;
    UINT32 ThresholdType;  // 1 for a memory controller's bank, else 0
};
KYR_RECORD(MCA_THRESHOLD_DISABLE_REQUEST, 56);
KYR_FIELD(MCA_THRESHOLD_DISABLE_REQUEST, McaBankNumber, 48);
KYR_FIELD(MCA_THRESHOLD_DISABLE_REQUEST, ThresholdType, 52);
