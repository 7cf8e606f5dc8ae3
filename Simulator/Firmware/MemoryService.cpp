#include "Simulator/Firmware/MemoryService.h"

#include "Include/McaErrorInfo.h"
#include "Platform/Protocol/RasService.h"

namespace Simulator {

namespace {

void FillDimmInfo(const DramLocation& Where, DIMM_INFO& Info) {
    Info.ChipSelect = static_cast<UINT8>(Where.ChipSelect);
    Info.Bank = static_cast<UINT8>(Where.Bank);
    Info.Row = Where.Row;
    Info.Column = static_cast<UINT16>(Where.Column);
    Info.RankMul = static_cast<UINT8>(Where.RankMul);
    Info.SubChannel = static_cast<UINT8>(Where.SubChannel);
    Info.RankOnCh = static_cast<UINT8>(Where.ChipSelect);
    Info.DimmOnCh = static_cast<UINT8>(Where.ChipSelect / RANKS_PER_DIMM_MAX);
    Info.RankOnDimm = static_cast<UINT8>(Where.ChipSelect % RANKS_PER_DIMM_MAX);
    Info.BankGroup = static_cast<UINT8>(BankGroupOf(Where.Bank));
    Info.BankAddress = static_cast<UINT8>(BankAddressOf(Where.Bank));
}

template <class Do>
void ForCounters(unsigned Dimm, Do&& Work) {
    for (unsigned OnDimm = 0; OnDimm < RANKS_PER_DIMM_MAX; OnDimm++) {
        for (unsigned SubChannel = 0; SubChannel < UMC_SUB_CHANNELS; SubChannel++) {
            for (unsigned RankMul = 0; RankMul < UMC_RANK_MULTIPLIERS; RankMul++) {
                Work(EccCounter{SubChannel, Dimm * RANKS_PER_DIMM_MAX + OnDimm, RankMul});
            }
        }
    }
}

}  // namespace

void MemoryService::DramToNormalized(unsigned Socket, unsigned Die, unsigned Channel, const DRAM_ADDRESS* From,
                                     NORMALIZED_ADDRESS* To) const {
    if (To == nullptr) {
        return;
    }
    To->NormalizedAddress = NORMALIZED_ADDRESS_TRANSLATION_FAILED;
    if (From == nullptr || Die != 0) {
        return;
    }
    const DramLocation Where{Socket,     Channel,   From->SubChannel, From->ChipSelect, From->RankMultiplier,
                             From->Bank, From->Row, From->Column};
    if (const auto Address = Hardware.Dram().Map().ToChannel(Where)) {
        *To = {};
        To->NormalizedAddress = Address->Normalized;
        To->Socket = static_cast<UINT8>(Socket);
        To->UmcChannel = static_cast<UINT8>(Channel);
    }
}

EFI_STATUS MemoryService::NormalizedToDimmAddress(const NORMALIZED_ADDRESS* From, UINT64* SystemAddress,
                                                  DIMM_INFO* To) const {
    if (From == nullptr || SystemAddress == nullptr || To == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    constexpr std::uint64_t LINE_MASK = LINE_BYTES - 1;
    const ChannelAddress Address{From->Socket, From->UmcChannel, From->NormalizedAddress};
    const auto Found = Pinned.find({Address.Socket, Address.Channel, Address.Normalized & ~LINE_MASK});
    if (Found != Pinned.end()) {
        if (!Found->second) {
            return EFI_NOT_FOUND;
        }
        *SystemAddress = Found->second->System;
        FillDimmInfo(Found->second->Where, *To);
        return EFI_SUCCESS;
    }
    const AddressMap& Map = Hardware.Dram().Map();
    const auto Where = Map.ToDram(Address);
    if (!Where || From->Die != 0) {
        return EFI_NOT_FOUND;
    }
    *SystemAddress = *Map.ToSystem(Address);
    FillDimmInfo(*Where, *To);
    return EFI_SUCCESS;
}

bool MemoryService::HasDimm(unsigned Socket, unsigned Channel, unsigned Dimm) const {
    return Dimm * RANKS_PER_DIMM_MAX < UMC_CHIP_SELECTS &&
           Hardware.Dram().Map().HasRank(Socket, Channel, Dimm * RANKS_PER_DIMM_MAX);
}

EFI_STATUS MemoryService::StartCounters(unsigned Socket, unsigned Channel, unsigned Dimm,
                                        const UmcEccErrCntRegInitData* Start) {
    if (Start == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    if (!HasDimm(Socket, Channel, Dimm)) {
        return EFI_NOT_FOUND;
    }
    MemoryController& Umc = Hardware.Dram().Controller(Socket, Channel);
    ForCounters(Dimm, [&](const EccCounter& Which) {
        Umc.CounterValue(Which) = Start->EccErrCnt;
        Umc.SetInterruptOff(Which.ChipSelect, false);
    });
    Umc.EnableCounting(ECC_INTERRUPT_SMI);
    return EFI_SUCCESS;
}

EFI_STATUS MemoryService::StartCounter(unsigned Socket, unsigned Channel, const EccCounter& Which,
                                       const UmcEccErrCntRegInitData* Start) {
    if (Start == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    if (!HasDimm(Socket, Channel, Which.ChipSelect / RANKS_PER_DIMM_MAX) || Which.SubChannel >= UMC_SUB_CHANNELS ||
        Which.RankMul >= UMC_RANK_MULTIPLIERS) {
        return EFI_NOT_FOUND;
    }
    Hardware.Dram().Controller(Socket, Channel).CounterValue(Which) = Start->EccErrCnt;
    return EFI_SUCCESS;
}

EFI_STATUS MemoryService::StopCounterInterrupts(unsigned Socket, unsigned Channel, unsigned Dimm) {
    if (!HasDimm(Socket, Channel, Dimm)) {
        return EFI_NOT_FOUND;
    }
    MemoryController& Umc = Hardware.Dram().Controller(Socket, Channel);
    ForCounters(Dimm, [&](const EccCounter& Which) { Umc.SetInterruptOff(Which.ChipSelect, true); });
    return EFI_SUCCESS;
}

std::optional<unsigned> SymbolOf(const MCA_BANK_ERROR_INFO& Bank) {
    const bool IsDeferred = McaStatus::Deferred::Get(Bank.McaStatus) != 0;
    const std::uint64_t NoSymbol = IsDeferred ? McaSynd::NO_SYMBOL_DEFERRED_MASK : McaSynd::NO_SYMBOL_CORRECTED_MASK;
    if (McaStatus::SyndV::Get(Bank.McaStatus) == 0 || (Bank.McaSynd & NoSymbol) != 0) {
        return std::nullopt;
    }
    return static_cast<unsigned>(SyndromeSymbol::Get(Bank.McaSynd));
}

EFI_STATUS MemoryService::MapSymbolToDramDevice(const RasMcaErrorInfo* Info, UINT8 BankIndex, UINT32* First,
                                                UINT32* Last) const {
    if (Info == nullptr || First == nullptr || Last == nullptr || BankIndex >= Info->McaBankCount ||
        BankIndex >= MCA_BANK_ERROR_INFO_MAX) {
        return EFI_INVALID_PARAMETER;
    }
    const MCA_BANK_ERROR_INFO& Bank = Info->McaBankErrorInfo[BankIndex];
    if (!McaIpid::IsUmc(Bank.McaIpid) || McaStatus::ErrorCodeExt::Get(Bank.McaStatus) != UmcErrorCodeExt::DRAM_ECC) {
        return EFI_UNSUPPORTED;
    }
    const std::optional<unsigned> Symbol = SymbolOf(Bank);
    const std::optional<unsigned> Device = Symbol ? Hardware.Dram().DeviceOfSymbol(*Symbol) : std::nullopt;
    if (!Device) {
        return EFI_NOT_FOUND;
    }
    *First = *Device;
    *Last = *Device;
    return EFI_SUCCESS;
}

}  // namespace Simulator
