// The silicon maker's RAS service: what stands behind its protocol table.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "Include/McaErrorInfo.h"
#include "Include/PlatformApeiData.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

// How a threshold counter is programmed.
struct ThresholdSetting {
    bool Enabled = false;
    std::uint16_t Count = 0;  // start value; the counter overflows at MCA_ERROR_COUNTER_LIMIT
    std::uint8_t Interrupt = 0;
};

class RasService {
 public:
    // Takes the machine over as the silicon maker's boot code does: with platform-first handling, every bank is
    // cloaked and its interrupts go to SMI; counters start as the APEI data says.
    RasService(Machine& Hardware, const KYR_PLATFORM_APEI_DATA& Apei);

    // Members of the protocol, behind its table. A processor or bank that does not exist, or a NULL pointer, is
    // EFI_INVALID_PARAMETER and changes nothing.
    EFI_STATUS SearchMcaError(RasMcaErrorInfo* McaErrorInfo);
    EFI_STATUS GetAllLocalSmiStatus(LOCAL_SMI_STATUS* StatusList);
    EFI_STATUS RasSmmExitType(UINTN ProcessorNumber, UINT32 ExitType);
    EFI_STATUS GetSmmSaveState(UINTN ProcessorNumber, void** SaveState);
    EFI_STATUS SetMcaCloakCfg(UINTN ProcessorNumber, UINT64 CloakMask, UINT64 UncloakMask);
    EFI_STATUS ClrMcaStatus(UINTN ProcessorNumber, UINTN BankNumber, BOOLEAN Completing);
    EFI_STATUS SetMcaThreshold(const UINTN* ProcessorNumber, const UINTN* BankNumber,
                               const RasThresholdConfig* ThresholdConfig, BOOLEAN ThisBankOnly);
    EFI_STATUS SetMcaThresholdMap(const UINTN* ProcessorNumber, const UINTN* BankNumber,
                                  const MCA_THRESHOLD_SETTING* Setting, BOOLEAN ThisBankOnly,
                                  const OEM_MCA_THRESHOLD_MAP* Map);
    EFI_STATUS SetSmiTrigIoCycle(UINT32 Cycle);
    // The counter counts on but raises no interrupt before the next boot, however it is programmed.
    EFI_STATUS DisableMcaThreshold(const MCA_THRESHOLD_DISABLE_REQUEST* Request);
    EFI_STATUS DisableMcaTransparentErrorLogging(const MCA_THRESHOLD_DISABLE_REQUEST* Request);
    EFI_STATUS GetPhysicalCpuInfo(CPU_INFO* CpuInfo);
    EFI_STATUS SetRasDiagnosticModeData();

    // As SetSmiTrigIoCycle left it; 0 before.
    std::uint32_t SmiTrigIoCycle() const {
        return IoCycle;
    }

 private:
    McaBank* FindBank(UINTN ProcessorNumber, UINTN BankNumber);
    void FillLocation(CPU_INFO& Info) const;
    void FillBank(const McaBank& Bank, UINTN Number, MCA_BANK_ERROR_INFO& Info) const;
    void Program(McaBank& Bank, std::uint32_t Register, ThresholdSetting Setting) const;
    // Calls Do(bank) for the processor and bank meant; NULL means all.
    template <class Do>
    EFI_STATUS ForBanks(const UINTN* ProcessorNumber, const UINTN* BankNumber, Do&& Work);

    Machine& Hardware;
    std::set<std::pair<const McaBank*, std::uint32_t>> Silenced;  // counters (MCA_MISC register) without interrupt
    bool Diagnostic = false;  // every threshold raises its interrupt on each error
    std::uint32_t IoCycle = 0;
};

}  // namespace Simulator
