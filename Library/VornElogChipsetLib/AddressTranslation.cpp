#include "Library/VornElogChipsetLib/AddressTranslation.h"

#include "Include/DramAddress.h"
#include "Include/UmcRegisters.h"
#include "Library/RasLib/BankIndex.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Smn.h"
#include "Library/VornElogChipsetLib/ChipsetLib.h"
#include "Platform/Protocol/RasService.h"

namespace {

constexpr UINT8 UNKNOWN_CHANNEL = 0xFF;
constexpr UINT8 UNKNOWN_BA_BITS = 255;

// The address that the bank holds, with the bits cleared that its status calls meaningless. It is not shifted.
UINT64 LoggedAddress(const MCA_BANK_ERROR_INFO& Bank) {
    // The setting decides which pair of registers counts, wherever this error was logged; that is meant.
    const bool InStatus = McaConfig::LogDeferredInMcaStat::Get(Bank.McaConfig) != 0;
    const UINT64 Address = McaAddr::ErrorAddr::Get(InStatus ? Bank.McaAddr : Bank.McaDeAddr);
    const UINT64 AddrLsb = McaStatus::AddrLsb::Get(InStatus ? Bank.McaStatus : Bank.McaDeStat);
    return Address >> AddrLsb << AddrLsb;
}

DRAM_ADDRESS DramAddressOf(const MCA_BANK_ERROR_INFO& Bank) {
    DRAM_ADDRESS Address = {};
    Address.ChipSelect = static_cast<UINT8>(McaSynd::ChipSelect::Get(Bank.McaSynd));
    Address.Row = static_cast<UINT32>(McaAddr::DramRow::Get(Bank.McaAddr));
    Address.RankMultiplier = static_cast<UINT8>(McaSynd::RankMultiplier::Get(Bank.McaSynd));
    Address.SubChannel = static_cast<UINT8>(McaSynd::SubChannel::Get(Bank.McaSynd));
    return Address;
}

// False, and nothing written, when the bank's width cannot be told.
bool TranslateDramAddress(const CPU_INFO& Cpu, const MCA_BANK_ERROR_INFO& Bank, UINT8 Channel,
                          DRAM_TO_NORMALIZED DramToNormalized, NORMALIZED_ADDRESS* pNormalizedAddress) {
    const UINT8 Socket = static_cast<UINT8>(Cpu.SocketId);
    const UINT8 Die = static_cast<UINT8>(Cpu.DieId);
    DRAM_ADDRESS DramAddress = DramAddressOf(Bank);
    const UINT8 NumBaBits = GetNumOfBABits(Socket, Channel, DramAddress.ChipSelect);
    if (NumBaBits == UNKNOWN_BA_BITS) {
        return false;
    }
    DramAddress.Bank = static_cast<UINT8>(McaAddr::DramBankGroup::Get(Bank.McaAddr) << NumBaBits |
                                          McaAddr::DramBankAddress::Get(Bank.McaAddr));
    DramToNormalized(Socket, Die, Channel, &DramAddress, pNormalizedAddress);
    pNormalizedAddress->Socket = Socket;
    pNormalizedAddress->Die = Die;
    return true;
}

}  // namespace

EFI_STATUS TranslateToNormalizedAddress(const RasMcaErrorInfo* pRasMcaErrorInfo, UINT8 BankIndex,
                                        DRAM_TO_NORMALIZED DramToNormalized, NORMALIZED_ADDRESS* pNormalizedAddress) {
    if (pRasMcaErrorInfo == nullptr || DramToNormalized == nullptr || pNormalizedAddress == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsBankIndexInRange(BankIndex)) {
        return EFI_INVALID_PARAMETER;
    }
    const MCA_BANK_ERROR_INFO& Bank = pRasMcaErrorInfo->McaBankErrorInfo[BankIndex];
    if (McaIpid::HardwareID::Get(Bank.McaIpid) != McaIpid::HARDWARE_ID_UMC || !McaStatus::Val::Get(Bank.McaStatus)) {
        return EFI_UNSUPPORTED;
    }
    const UINT8 Channel = RasMcaIpidToInstanceIndex(Bank.McaIpid);
    if (Channel == UNKNOWN_CHANNEL) {
        Trace(DEBUG_ERROR, "%a: ERROR MCA_IPID 0x%016lx is no UMC channel's, aborting...\n", Bank.McaIpid);
        return EFI_UNSUPPORTED;
    }
    switch (McaStatus::ErrorCodeExt::Get(Bank.McaStatus)) {
        case UmcErrorCodeExt::DRAM_ECC:
            pNormalizedAddress->NormalizedAddress = LoggedAddress(Bank);
            pNormalizedAddress->Socket = static_cast<UINT8>(pRasMcaErrorInfo->CpuInfo.SocketId);
            pNormalizedAddress->Die = 0;
            break;
        case UmcErrorCodeExt::DRAM_ADDRESS:
            if (!TranslateDramAddress(pRasMcaErrorInfo->CpuInfo, Bank, Channel, DramToNormalized,
                                      pNormalizedAddress)) {
                return EFI_UNSUPPORTED;
            }
            break;
        default:
            return EFI_UNSUPPORTED;
    }
    pNormalizedAddress->UmcChannel = Channel;
    if (pNormalizedAddress->NormalizedAddress == NORMALIZED_ADDRESS_TRANSLATION_FAILED) {
        Trace(DEBUG_ERROR, "%a: ERROR DRAM address of UMC channel %d has no normalized address, aborting...\n",
              Channel);
        return EFI_UNSUPPORTED;
    }
    return EFI_SUCCESS;
}

UINT8 GetNumOfBABits(UINT8 Socket, UINT16 Channel, UINT8 ChipSelect) {
    UINT8 Bus = 0;
    if (EFI_ERROR(AcquireNbioSecBusNum(Socket, 0, &Bus))) {
        Trace(DEBUG_ERROR, "[RAS] %a - Failed to get IOHC bus number\n", __func__);
        return UNKNOWN_BA_BITS;
    }
    UINT32 Config = 0;
    RasSmnRead(Bus, UmcSmnAddress(Channel, UMC_ADDRESS_CONFIG + ChipSelect * sizeof(UINT32)), &Config);
    const UINT32 BankBits = UmcAddressConfig::BankBits::Get(Config);
    const UINT32 BankGroupBits = UmcAddressConfig::BankGroupBits::Get(Config);
    // These two do not follow the formula; that is meant.
    if ((BankBits == 0 && BankGroupBits == 2) || (BankBits == 1 && BankGroupBits == 3)) {
        return 2;
    }
    return static_cast<UINT8>(BankBits + 3 - BankGroupBits);
}

EFI_STATUS VornUmcDisplayNormalizedAddressInfo(const NORMALIZED_ADDRESS* pNormalizedAddress) {
    if (pNormalizedAddress == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pNormalizedAddress == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    Trace(mPrivateDataVornElogChipsetLib.SerDbgLevel,
          "%a: NormalizedAddress 0x%016lx Socket %d Die %d UmcChannel %d\n", pNormalizedAddress->NormalizedAddress,
          pNormalizedAddress->Socket, pNormalizedAddress->Die, pNormalizedAddress->UmcChannel);
    return EFI_SUCCESS;
}
