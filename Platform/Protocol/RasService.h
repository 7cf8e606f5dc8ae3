// The silicon maker's RAS service: everything that reaches into machine-check banks, the cloak, thresholds,
// memory counters and address translation on the driver's behalf. Slot 2 is given by the silicon maker; the
// other slots are platform constants.
#pragma once

#include "Platform/Base.h"

struct CPU_INFO;
struct DIMM_INFO;
struct DRAM_ADDRESS;
struct LOCAL_SMI_STATUS;
struct NORMALIZED_ADDRESS;
struct OEM_MCA_THRESHOLD_MAP;
struct RasMcaErrorInfo;
struct RasThresholdConfig;
struct MCA_THRESHOLD_SETTING;
struct MCA_THRESHOLD_DISABLE_REQUEST;
struct UmcEccErrCntRegInitData;

// Exit types of RasSmmExitType.
inline constexpr UINT32 GENERATE_MCE_ON_EXIT = 8;

// What a failed DramToNormalized leaves in the normalized address.
inline constexpr UINT64 NORMALIZED_ADDRESS_TRANSLATION_FAILED = 0xDEADBEEF9AAB9AA0;

// Offset in bytes of the saved ECX in the save state that GetSmmSaveState hands out.
inline constexpr UINTN SMM_SAVE_STATE_ECX_OFFSET = 248;

struct KYR_RAS_SERVICE_SMM_PROTOCOL {
    // Fills location and registers of every bank that holds a valid error; ProcessorNumber is set by the caller.
    EFI_STATUS (*SearchMcaError)(RasMcaErrorInfo* McaErrorInfo);
    // Fills one element per processor, NumberOfCpus of them.
    EFI_STATUS (*GetAllLocalSmiStatus)(LOCAL_SMI_STATUS* StatusList);
    // DRAM address to normalized address; a failure shows in the address that it leaves.
    void (*DramToNormalized)(UINT8 Socket, UINT8 Die, UINT8 Channel, const DRAM_ADDRESS* DramAddress,
                             NORMALIZED_ADDRESS* NormalizedAddress);
    EFI_STATUS(*NormalizedToDimmAddress)
    (const NORMALIZED_ADDRESS* NormalizedAddress, UINT64* SystemAddress, DIMM_INFO* DimmInfo);
    // What the processor does when SMM exits.
    EFI_STATUS (*RasSmmExitType)(UINTN ProcessorNumber, UINT32 ExitType);
    EFI_STATUS (*GetSmmSaveState)(UINTN ProcessorNumber, void** SaveState);
    // One bit per bank in each mask.
    EFI_STATUS (*SetMcaCloakCfg)(UINTN ProcessorNumber, UINT64 CloakMask, UINT64 UncloakMask);
    // Completing is TRUE where a trapped write of the OS is completed on its behalf.
    EFI_STATUS (*ClrMcaStatus)(UINTN ProcessorNumber, UINTN BankNumber, BOOLEAN Completing);
    // Re-programs the threshold counters that ThresholdConfig marks valid.
    EFI_STATUS(*SetMcaThreshold)
    (const UINTN* ProcessorNumber, const UINTN* BankNumber, const RasThresholdConfig* ThresholdConfig,
     BOOLEAN ThisBankOnly);
    EFI_STATUS(*SetMcaThresholdMap)
    (const UINTN* ProcessorNumber, const UINTN* BankNumber, const MCA_THRESHOLD_SETTING* Setting,
     BOOLEAN ThisBankOnly, const OEM_MCA_THRESHOLD_MAP* Map);
    // Which IO cycle the processors issue to turn a redirected machine check into a software SMI.
    EFI_STATUS (*SetSmiTrigIoCycle)(UINT32 SmiTrigIoCycle);
    EFI_STATUS (*DisableMcaThreshold)(const MCA_THRESHOLD_DISABLE_REQUEST* Request);
    EFI_STATUS (*DisableMcaTransparentErrorLogging)(const MCA_THRESHOLD_DISABLE_REQUEST* Request);
    // Fills the location of the processor whose number is set.
    EFI_STATUS (*GetPhysicalCpuInfo)(CPU_INFO* CpuInfo);
    // Every later threshold of the silicon maker's raises its interrupt on each error.
    EFI_STATUS (*SetRasDiagnosticModeData)();
    EFI_STATUS(*CorrectedErrorCounterPerDimm)
    (UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, const UmcEccErrCntRegInitData* InitData);
    EFI_STATUS(*CorrectedErrorCounterIndividual)
    (UINT8 Socket, UINT8 UmcChannel, UINT8 SubChannel, UINT8 ChipSelect, UINT8 RankMul,
     const UmcEccErrCntRegInitData* InitData);
    EFI_STATUS (*CorrectedErrorCounterPerDimmDisable)(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm);
    EFI_STATUS(*MapSymbolToDramDevice)
    (const KYR_RAS_SERVICE_SMM_PROTOCOL* This, const RasMcaErrorInfo* McaErrorInfo,
     const NORMALIZED_ADDRESS* NormalizedAddress, UINT8 McaBankIndex, UINT32* DeviceStart, UINT32* DeviceEnd,
     UINT8* Reserved);
};
static_assert(offsetof(KYR_RAS_SERVICE_SMM_PROTOCOL, DramToNormalized) == 2 * sizeof(void*));
