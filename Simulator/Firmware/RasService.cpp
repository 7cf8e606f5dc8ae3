#include "Simulator/Firmware/RasService.h"

#include <algorithm>
#include <cstring>

#include "Platform/Protocol/RasService.h"

namespace Simulator {

namespace {

constexpr std::uint8_t INTERRUPT_SMI = THRESHOLD_INT_TYPE_SMI;
// One error away from the overflow.
constexpr ThresholdSetting EACH_ERROR{true, MCA_ERROR_COUNTER_LIMIT - 1, INTERRUPT_SMI};

std::uint64_t MaskOfBanks(unsigned Count) {
    return Count >= 64 ? UINT64_MAX : (std::uint64_t{1} << Count) - 1;
}

}  // namespace

RasService::RasService(Machine& Machine, const KYR_PLATFORM_APEI_DATA& Apei) : Hardware(Machine) {
    if (Apei.PFEHEnable == 0) {
        return;
    }
    const bool Enabled = Apei.McaErrThreshEn != 0;
    const ThresholdSetting AtBoot{Enabled, Apei.McaErrThreshCount, Enabled ? INTERRUPT_SMI : THRESHOLD_INT_TYPE_NONE};
    for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
        Processor& One = Hardware.ProcessorAt(Number);
        One.ManagedMask = MaskOfBanks(One.BankCount());
        One.CloakMask = One.ManagedMask;
        for (unsigned Bank = 0; Bank < One.BankCount(); Bank++) {
            McaBank& Target = One.Bank(Bank);
            std::uint64_t Config = Target.Read(MCA_CONFIG);
            Config = McaConfig::DeferredIntType::Set(Config, INTERRUPT_SMI);
            Config = McaConfig::LogDeferredInMcaStat::Set(Config, 1);
            Config = McaConfig::TransparentErrorLoggingEnable::Set(Config, 1);
            Target.Set(MCA_CONFIG, Config);
            Program(Target, MCA_MISC0, AtBoot);
            Program(Target, MCA_MISC1, AtBoot);
        }
    }
}

McaBank* RasService::FindBank(UINTN ProcessorNumber, UINTN BankNumber) {
    if (ProcessorNumber >= Hardware.ProcessorCount()) {
        return nullptr;
    }
    Processor& Owner = Hardware.ProcessorAt(static_cast<unsigned>(ProcessorNumber));
    return BankNumber < Owner.BankCount() ? &Owner.Bank(static_cast<unsigned>(BankNumber)) : nullptr;
}

void RasService::FillLocation(CPU_INFO& Info) const {
    const Processor& One = Hardware.ProcessorAt(static_cast<unsigned>(Info.ProcessorNumber));
    const ProcessorLocation& Where = One.Location();
    Info.LocalApicId = Where.ApicId;
    Info.SocketId = static_cast<UINT8>(Where.Socket);
    Info.CcxId = static_cast<UINT8>(Where.Ccx);
    Info.DieId = 0;
    Info.CoreId = static_cast<UINT8>(Where.Core);
    Info.ThreadId = static_cast<UINT8>(Where.Thread);
    const CPUID_RESULT Leaf1 = One.Cpuid(1);
    Info.CpuIdLeaf1Eax = Leaf1.Eax;
    Info.CpuIdLeaf1Ebx = Leaf1.Ebx;
    Info.CpuIdLeaf1Ecx = Leaf1.Ecx;
    Info.CpuIdLeaf1Edx = Leaf1.Edx;
}

void RasService::FillBank(const McaBank& Bank, UINTN Number, MCA_BANK_ERROR_INFO& Info) const {
    Info = {};
    Info.McaBankNumber = Number;
    Info.McaCtl = Bank.Read(MCA_CTL);
    Info.McaStatus = Bank.Read(MCA_STATUS);
    Info.McaAddr = Bank.Read(MCA_ADDR);
    Info.McaMisc0 = Bank.Read(MCA_MISC0);
    Info.McaConfig = Bank.Read(MCA_CONFIG);
    Info.McaIpid = Bank.Read(MCA_IPID);
    Info.McaSynd = Bank.Read(MCA_SYND);
    Info.McaDeStat = Bank.Read(MCA_DESTAT);
    Info.McaDeAddr = Bank.Read(MCA_DEADDR);
    Info.McaMisc1 = Bank.Read(MCA_MISC1);
    Info.McaSynd1 = Bank.Read(MCA_SYND1);
    Info.McaSynd2 = Bank.Read(MCA_SYND2);
    std::memcpy(Info.FruText, Bank.FruText.data(), std::min(Bank.FruText.size(), sizeof(Info.FruText)));
}

EFI_STATUS RasService::SearchMcaError(RasMcaErrorInfo* McaErrorInfo) {
    if (McaErrorInfo == nullptr || McaErrorInfo->CpuInfo.ProcessorNumber >= Hardware.ProcessorCount()) {
        return EFI_INVALID_PARAMETER;
    }
    FillLocation(McaErrorInfo->CpuInfo);
    Processor& Owner = Hardware.ProcessorAt(static_cast<unsigned>(McaErrorInfo->CpuInfo.ProcessorNumber));
    UINT8 Found = 0;
    for (unsigned Number = 0; Number < Owner.BankCount(); Number++) {
        const McaBank& Bank = Owner.Bank(Number);
        if (Bank.HoldsError()) {
            FillBank(Bank, Number, McaErrorInfo->McaBankErrorInfo[Found++]);
        }
    }
    McaErrorInfo->McaBankCount = Found;
    return EFI_SUCCESS;
}

EFI_STATUS RasService::GetAllLocalSmiStatus(LOCAL_SMI_STATUS* StatusList) {
    if (StatusList == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
        StatusList[Number] = {Hardware.ProcessorAt(Number).SmiSources, 0};
    }
    return EFI_SUCCESS;
}

EFI_STATUS RasService::RasSmmExitType(UINTN ProcessorNumber, UINT32 ExitType) {
    if (ProcessorNumber >= Hardware.ProcessorCount() || ExitType != GENERATE_MCE_ON_EXIT) {
        return EFI_INVALID_PARAMETER;
    }
    Hardware.ProcessorAt(static_cast<unsigned>(ProcessorNumber)).ExceptionOnExit = true;
    return EFI_SUCCESS;
}

EFI_STATUS RasService::GetSmmSaveState(UINTN ProcessorNumber, void** SaveState) {
    if (ProcessorNumber >= Hardware.ProcessorCount() || SaveState == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    *SaveState = Hardware.ProcessorAt(static_cast<unsigned>(ProcessorNumber)).SaveState.data();
    return EFI_SUCCESS;
}

EFI_STATUS RasService::SetMcaCloakCfg(UINTN ProcessorNumber, UINT64 CloakMask, UINT64 UncloakMask) {
    if (ProcessorNumber >= Hardware.ProcessorCount()) {
        return EFI_INVALID_PARAMETER;
    }
    Processor& One = Hardware.ProcessorAt(static_cast<unsigned>(ProcessorNumber));
    One.CloakMask = (One.CloakMask | CloakMask) & ~UncloakMask & MaskOfBanks(One.BankCount());
    return EFI_SUCCESS;
}

// Not completing: firmware has consumed the error, and what hardware logged of it goes. Completing: the write that
// the OS made to the status register and that the trap held back happens now; the deferred status goes as well
// where the bank is firmware's again, for nobody else would clear it.
EFI_STATUS RasService::ClrMcaStatus(UINTN ProcessorNumber, UINTN BankNumber, BOOLEAN Completing) {
    McaBank* Bank = FindBank(ProcessorNumber, BankNumber);
    if (Bank == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    Bank->Set(MCA_STATUS, 0);
    if (Completing != FALSE) {
        const std::uint64_t Cloak = Hardware.ProcessorAt(static_cast<unsigned>(ProcessorNumber)).CloakMask;
        if ((Cloak >> BankNumber & 1) != 0) {
            Bank->Set(MCA_DESTAT, 0);
        }
        return EFI_SUCCESS;
    }
    for (const std::uint32_t Register : {MCA_ADDR, MCA_SYND, MCA_DESTAT, MCA_DEADDR, MCA_SYND1, MCA_SYND2}) {
        Bank->Set(Register, 0);
    }
    Bank->FruText.clear();
    return EFI_SUCCESS;
}

void RasService::Program(McaBank& Bank, std::uint32_t Register, ThresholdSetting Setting) const {
    std::uint64_t Misc = Bank.Read(Register);
    if (McaMisc::CntP::Get(Misc) == 0 || McaMisc::Locked::Get(Misc) != 0) {
        return;
    }
    if (Diagnostic) {
        Setting = EACH_ERROR;
    }
    if (Silenced.contains({&Bank, Register})) {
        Setting.Interrupt = THRESHOLD_INT_TYPE_NONE;
    }
    Misc = McaMisc::ErrCnt::Set(Misc, Setting.Count);
    Misc = McaMisc::Ovrflw::Set(Misc, 0);
    Misc = McaMisc::CntEn::Set(Misc, Setting.Enabled ? 1 : 0);
    Misc = McaMisc::ThresholdIntType::Set(Misc, Setting.Interrupt);
    Bank.Set(Register, Misc);
}

template <class Do>
EFI_STATUS RasService::ForBanks(const UINTN* ProcessorNumber, const UINTN* BankNumber, Do&& Work) {
    const bool NoProcessor = ProcessorNumber != nullptr && *ProcessorNumber >= Hardware.ProcessorCount();
    if (NoProcessor || (BankNumber != nullptr && *BankNumber >= Hardware.Settings().BanksPerProcessor)) {
        return EFI_INVALID_PARAMETER;
    }
    for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
        if (ProcessorNumber != nullptr && *ProcessorNumber != Number) {
            continue;
        }
        Processor& One = Hardware.ProcessorAt(Number);
        for (unsigned Bank = 0; Bank < One.BankCount(); Bank++) {
            if (BankNumber == nullptr || *BankNumber == Bank) {
                Work(One.Bank(Bank));
            }
        }
    }
    return EFI_SUCCESS;
}

EFI_STATUS RasService::SetMcaThreshold(const UINTN* ProcessorNumber, const UINTN* BankNumber,
                                       const RasThresholdConfig* Config, BOOLEAN ThisBankOnly) {
    if (Config == nullptr || (ThisBankOnly != FALSE && (ProcessorNumber == nullptr || BankNumber == nullptr))) {
        return EFI_INVALID_PARAMETER;
    }
    return ForBanks(ProcessorNumber, ThisBankOnly != FALSE ? BankNumber : nullptr, [&](McaBank& Bank) {
        if (Config->McaMisc0DataValid != 0) {
            Program(Bank, MCA_MISC0,
                    {Config->ThresholdControl != 0, Config->ThresholdCount, Config->ThresholdIntType});
        }
        if (Config->McaMisc1DataValid != 0) {
            Program(Bank, MCA_MISC1,
                    {Config->McaMisc1ThresholdControl != 0, Config->McaMisc1ThresholdCount,
                     Config->McaMisc1ThresholdIntType});
        }
        if (Config->McaConfigDataValid != 0) {
            Bank.Set(MCA_CONFIG,
                     McaConfig::DeferredIntType::Set(Bank.Read(MCA_CONFIG), Config->McaConfigDeferredIntType));
        }
    });
}

// The common setting goes to all banks meant; a bank whose type the map lists gets the map's counts.
EFI_STATUS RasService::SetMcaThresholdMap(const UINTN* ProcessorNumber, const UINTN* BankNumber,
                                          const MCA_THRESHOLD_SETTING* Setting, BOOLEAN ThisBankOnly,
                                          const OEM_MCA_THRESHOLD_MAP* Map) {
    if (Setting == nullptr || Map == nullptr || (Map->TableEntryNum != 0 && Map->Entries == nullptr) ||
        Map->Size != Map->TableEntryNum * sizeof(McaThresholdTableEntry) ||
        (ThisBankOnly != FALSE && (ProcessorNumber == nullptr || BankNumber == nullptr))) {
        return EFI_INVALID_PARAMETER;
    }
    return ForBanks(ProcessorNumber, ThisBankOnly != FALSE ? BankNumber : nullptr, [&](McaBank& Bank) {
        std::uint16_t Counts[] = {Setting->ThresholdCount, Setting->ThresholdCount};
        const std::uint64_t Ipid = Bank.Read(MCA_IPID);
        for (UINT32 Index = 0; Index < Map->TableEntryNum; Index++) {
            const McaThresholdTableEntry& Entry = Map->Entries[Index];
            if (Entry.HardwareID == McaIpid::HardwareID::Get(Ipid) && Entry.McaType == McaIpid::McaType::Get(Ipid)) {
                Counts[0] = Entry.Misc0ThresholdCount;
                Counts[1] = Entry.Misc1ThresholdCount;
                break;
            }
        }
        const bool Enabled = Setting->ThresholdControl != 0;
        Program(Bank, MCA_MISC0, {Enabled, Counts[0], Setting->ThresholdIntType});
        Program(Bank, MCA_MISC1, {Enabled, Counts[1], Setting->ThresholdIntType});
    });
}

EFI_STATUS RasService::SetSmiTrigIoCycle(UINT32 Cycle) {
    IoCycle = Cycle;
    return EFI_SUCCESS;
}

EFI_STATUS RasService::DisableMcaThreshold(const MCA_THRESHOLD_DISABLE_REQUEST* Request) {
    McaBank* Bank = Request == nullptr ? nullptr : FindBank(Request->CpuInfo.ProcessorNumber, Request->McaBankNumber);
    if (Bank == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const std::uint32_t Register = Request->ThresholdType == 1 && Bank->HasSecondCounter() ? MCA_MISC1 : MCA_MISC0;
    Silenced.insert({Bank, Register});
    Bank->Set(Register, McaMisc::ThresholdIntType::Set(Bank->Read(Register), THRESHOLD_INT_TYPE_NONE));
    return EFI_SUCCESS;
}

EFI_STATUS RasService::DisableMcaTransparentErrorLogging(const MCA_THRESHOLD_DISABLE_REQUEST* Request) {
    McaBank* Bank = Request == nullptr ? nullptr : FindBank(Request->CpuInfo.ProcessorNumber, Request->McaBankNumber);
    if (Bank == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    Bank->Set(MCA_CONFIG, McaConfig::TransparentErrorLoggingEnable::Set(Bank->Read(MCA_CONFIG), 0));
    return EFI_SUCCESS;
}

EFI_STATUS RasService::GetPhysicalCpuInfo(CPU_INFO* CpuInfo) {
    if (CpuInfo == nullptr || CpuInfo->ProcessorNumber >= Hardware.ProcessorCount()) {
        return EFI_INVALID_PARAMETER;
    }
    FillLocation(*CpuInfo);
    return EFI_SUCCESS;
}

EFI_STATUS RasService::SetRasDiagnosticModeData() {
    Diagnostic = true;
    return ForBanks(nullptr, nullptr, [&](McaBank& Bank) {
        Program(Bank, MCA_MISC0, EACH_ERROR);
        Program(Bank, MCA_MISC1, EACH_ERROR);
    });
}

}  // namespace Simulator
