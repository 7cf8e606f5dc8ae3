#include "PlatformRas/Qtz/Smm/McaRegisterTrace.h"

#include "Library/RasLib/Trace.h"

namespace {

struct FIELD_TEXT {
    const CHAR8* Name;
    UINT64 Mask;
    UINT8 Shift;
};

template <class Field>
constexpr FIELD_TEXT Text(const CHAR8* Name) {
    return {Name, Field::Mask, Field::Shift};
}

// MCA_DESTAT shares the positions of MCA_STATUS.
constexpr FIELD_TEXT StatusFields[] = {
    Text<McaStatus::Val>("Val"),
    Text<McaStatus::Overflow>("Overflow"),
    Text<McaStatus::UC>("UC"),
    Text<McaStatus::En>("En"),
    Text<McaStatus::MiscV>("MiscV"),
    Text<McaStatus::AddrV>("AddrV"),
    Text<McaStatus::PCC>("PCC"),
    Text<McaStatus::ErrCoreIdVal>("ErrCoreIdVal"),
    Text<McaStatus::TCC>("TCC"),
    Text<McaStatus::SyndV>("SyndV"),
    Text<McaStatus::Transparent>("Transparent"),
    Text<McaStatus::CECC>("CECC"),
    Text<McaStatus::UECC>("UECC"),
    Text<McaStatus::Deferred>("Deferred"),
    Text<McaStatus::Poison>("Poison"),
    Text<McaStatus::ErrCoreId>("ErrCoreId"),
    Text<McaStatus::ErrorCodeExt>("ErrorCodeExt"),
    Text<McaStatus::ErrorCode>("ErrorCode"),
};
constexpr FIELD_TEXT AddrFields[] = {
    Text<McaAddr::LSB>("LSB"),
    Text<McaAddr::ErrorAddr>("ErrorAddr"),
};
constexpr FIELD_TEXT MiscFields[] = {
    Text<McaMisc::Valid>("Valid"),
    Text<McaMisc::CntP>("CntP"),
    Text<McaMisc::Locked>("Locked"),
    Text<McaMisc::IntP>("IntP"),
    Text<McaMisc::LvtOffset>("LvtOffset"),
    Text<McaMisc::CntEn>("CntEn"),
    Text<McaMisc::ThresholdIntType>("ThresholdIntType"),
    Text<McaMisc::Ovrflw>("Ovrflw"),
    Text<McaMisc::ErrCnt>("ErrCnt"),
    Text<McaMisc::BlkPtr>("BlkPtr"),
};
constexpr FIELD_TEXT ConfigFields[] = {
    Text<McaConfig::DeferredIntType>("DeferredIntType"),
    Text<McaConfig::LogDeferredInMcaStat>("LogDeferredInMcaStat"),
    Text<McaConfig::TransparentErrorLoggingEnable>("TransparentErrorLoggingEnable"),
    Text<McaConfig::McaXEnable>("McaXEnable"),
    Text<McaConfig::DeferredIntTypeSupported>("DeferredIntTypeSupported"),
    Text<McaConfig::DeferredErrorLoggingSupported>("DeferredErrorLoggingSupported"),
    Text<McaConfig::TransparentErrorLoggingSupported>("TransparentErrorLoggingSupported"),
    Text<McaConfig::McaX>("McaX"),
};
constexpr FIELD_TEXT IpidFields[] = {
    Text<McaIpid::McaType>("McaType"),
    Text<McaIpid::HardwareID>("HardwareID"),
    Text<McaIpid::InstanceId>("InstanceId"),
};
constexpr FIELD_TEXT SyndFields[] = {
    Text<McaSynd::Syndrome>("Syndrome"),
    Text<McaSynd::Type>("Type"),
    Text<McaSynd::ErrorPriority>("ErrorPriority"),
    Text<McaSynd::Length>("Length"),
    Text<McaSynd::ErrorInformation>("ErrorInformation"),
};

struct REGISTER_TEXT {
    const CHAR8* Name;
    UINT64 MCA_BANK_ERROR_INFO::*Register;
    const FIELD_TEXT* Fields;
    UINTN FieldCount;
};

template <UINTN Count>
constexpr REGISTER_TEXT Decoded(const CHAR8* Name, UINT64 MCA_BANK_ERROR_INFO::*Register,
                                const FIELD_TEXT (&Fields)[Count]) {
    return {Name, Register, Fields, Count};
}

constexpr REGISTER_TEXT Registers[] = {
    Decoded("MCA_STATUS", &MCA_BANK_ERROR_INFO::McaStatus, StatusFields),
    Decoded("MCA_ADDR", &MCA_BANK_ERROR_INFO::McaAddr, AddrFields),
    Decoded("MCA_MISC0", &MCA_BANK_ERROR_INFO::McaMisc0, MiscFields),
    Decoded("MCA_CONFIG", &MCA_BANK_ERROR_INFO::McaConfig, ConfigFields),
    Decoded("MCA_IPID", &MCA_BANK_ERROR_INFO::McaIpid, IpidFields),
    Decoded("MCA_SYND", &MCA_BANK_ERROR_INFO::McaSynd, SyndFields),
    {"MCA_SYND1", &MCA_BANK_ERROR_INFO::McaSynd1, nullptr, 0},
    {"MCA_SYND2", &MCA_BANK_ERROR_INFO::McaSynd2, nullptr, 0},
    Decoded("MCA_DESTAT", &MCA_BANK_ERROR_INFO::McaDeStat, StatusFields),
    Decoded("MCA_DEADDR", &MCA_BANK_ERROR_INFO::McaDeAddr, AddrFields),
    Decoded("MCA_MISC1", &MCA_BANK_ERROR_INFO::McaMisc1, MiscFields),
};

}  // namespace

void TraceMcaBank(UINT64 Level, const RasMcaErrorInfo& Info, const MCA_BANK_ERROR_INFO& Bank) {
    if (!DebugPrintLevelEnabled(Level)) {
        return;
    }
    Trace(Level, "Processor %d Socket %d Die %d Ccx %d Core %d Thread %d APIC 0x%08x Bank %d McgIp 0x%016lx\n",
          Info.CpuInfo.ProcessorNumber, Info.CpuInfo.SocketId, Info.CpuInfo.DieId, Info.CpuInfo.CcxId,
          Info.CpuInfo.CoreId, Info.CpuInfo.ThreadId, Info.CpuInfo.LocalApicId, Bank.McaBankNumber, Info.McgIp);
    for (const REGISTER_TEXT& Register : Registers) {
        const UINT64 Value = Bank.*Register.Register;
        Trace(Level, "%a 0x%016lx\n", Register.Name, Value);
        for (UINTN Index = 0; Index < Register.FieldCount; Index++) {
            const FIELD_TEXT& Field = Register.Fields[Index];
            Trace(Level, "  %a 0x%lx\n", Field.Name, (Value & Field.Mask) >> Field.Shift);
        }
    }
}
