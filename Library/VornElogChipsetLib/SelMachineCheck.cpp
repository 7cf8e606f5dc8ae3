#include "Library/VornElogChipsetLib/SelMachineCheck.h"

#include "Include/SelData.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Platform/State.h"

namespace {

constexpr UINT8 SENSOR_MACHINE_CHECK_UNCORRECTABLE = 0x0D;
constexpr UINT8 SENSOR_MACHINE_CHECK_CORRECTABLE = 0x3C;
constexpr UINT8 SENSOR_MSR_INFO = 0x28;
constexpr UINT8 EVENT_MACHINE_CHECK_UNCORRECTABLE = 0xA6;
constexpr UINT8 EVENT_MACHINE_CHECK_CORRECTABLE = 0xAC;

KYR_STATE ELOG_SEL_DATA ElogLogMachineCheckErrorLastRecord = {};

}  // namespace

void ElogLogMachineCheckError(UINT8 Socket, UINT8 ApicId, UINT32 IsCorrectable) {
    ELOG_SEL_DATA& Last = ElogLogMachineCheckErrorLastRecord;
    const UINT64 SocketBit = Socket < 64 ? UINT64{1} << Socket : 0;
    // Event data 2 is meant to be compared with both, and event data 3 with none: a repeat is only suppressed when
    // the APIC ID happens to equal the socket's bit.
    if (Last.EventData2 == SocketBit && Last.EventData2 == ApicId && Last.SensorType == SEL_SENSOR_TYPE_PROCESSOR &&
        IsCorrectable <= TRUE) {
        Trace(mPrivateDataVornElogIpmi.SerDbgLevel,
              "%a: Socket %d ApicId 0x%02x MachineCheckSeverity %d same as last CPU0704 MCE, skipping new SEL "
              "record...\n",
              Socket, ApicId, IsCorrectable);
        return;
    }
    const UINT8 EventData2 = static_cast<UINT8>(SocketBit);
    if (IsCorrectable != FALSE) {
        Last = {SEL_SENSOR_TYPE_PROCESSOR,
                SENSOR_MACHINE_CHECK_CORRECTABLE,
                SEL_EVENT_TYPE_SENSOR_SPECIFIC,
                EVENT_MACHINE_CHECK_CORRECTABLE,
                EventData2,
                ApicId};
        Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging correctable machine check event\n");
    } else {
        Last = {SEL_SENSOR_TYPE_PROCESSOR,
                SENSOR_MACHINE_CHECK_UNCORRECTABLE,
                SEL_EVENT_TYPE_SEVERITY,
                EVENT_MACHINE_CHECK_UNCORRECTABLE,
                EventData2,
                ApicId};
        Trace(mPrivateDataVornElogIpmi.SerDbgLevel,
              "%a: Logging Message ID CPU0704 <= uncorrectable machine check event\n");
    }
    ElogBmcData(&Last);
}

void ElogLogMsrInfo(UINT32 Msr, UINT64 Value) {
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID CPU9000 <= MSR 0x%08x value 0x%016lx\n", Msr,
          Value);
    const UINT8 Bytes[] = {SelByte(Msr, 0),   SelByte(Msr, 1),   SelByte(Msr, 2),   SelByte(Msr, 3),
                           SelByte(Value, 0), SelByte(Value, 1), SelByte(Value, 2), SelByte(Value, 3),
                           SelByte(Value, 4), SelByte(Value, 5), SelByte(Value, 6), SelByte(Value, 7)};
    for (unsigned At = 0; At < sizeof(Bytes); At += 3) {
        const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_OEM_DATA,
                                 SENSOR_MSR_INFO,
                                 SEL_EVENT_TYPE_OEM_DATA,
                                 Bytes[At],
                                 Bytes[At + 1],
                                 Bytes[At + 2]};
        ElogBmcData(&Body);
    }
}

void VornElogLogCpuThreadLocationData(const CPU_INFO* pCpuInfo) {
    if (pCpuInfo == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pCpuInfo == NULL, aborting...\n");
        return;
    }
    ElogLogMsrInfo(pCpuInfo->LocalApicId, UINT64{pCpuInfo->SocketId} << 56 | UINT64{pCpuInfo->CcxId} << 48 |
                                              UINT64{pCpuInfo->DieId} << 40 | UINT64{pCpuInfo->CoreId} << 32 |
                                              UINT64{pCpuInfo->ThreadId} << 24);
}

namespace {

// What decides whether a register is sent.
struct BANK_CONDITIONS {
    bool OperatingMode;
    bool Address;
    bool Misc0;
    bool Syndrome;
    bool Deferred;
    bool Misc1;
    bool UmcSyndrome;
    bool Always = true;
};

BANK_CONDITIONS ConditionsOf(const MCA_BANK_ERROR_INFO& Bank) {
    UINT32 OperatingMode = 0;
    UINT64 Levels[3];
    const EFI_STATUS Status = VornElogGetOperatingModeData(&OperatingMode, &Levels[0], &Levels[1], &Levels[2]);
    const bool Umc = McaIpid::IsUmc(Bank.McaIpid);
    const bool Deferred = McaStatus::Deferred::Get(Bank.McaStatus) != 0;
    const bool Syndrome =
        McaStatus::SyndV::Get(Bank.McaStatus) != 0 ||
        (Deferred && McaStatus::Val::Get(Bank.McaDeStat) != 0 && McaStatus::SyndV::Get(Bank.McaDeStat) != 0);
    return {
        .OperatingMode = !EFI_ERROR(Status) && OperatingMode == 1,
        .Address = McaStatus::AddrV::Get(Bank.McaStatus) != 0,
        .Misc0 = McaStatus::MiscV::Get(Bank.McaStatus) != 0,
        .Syndrome = Syndrome,
        .Deferred = Deferred,
        .Misc1 = Umc && McaMisc::BlkPtr::Get(Bank.McaMisc0) != 0,
        .UmcSyndrome = Umc && Syndrome,
    };
}

struct BANK_REGISTER {
    McaRegister Register;
    UINT64 MCA_BANK_ERROR_INFO::*Value;
    bool BANK_CONDITIONS::*Sent;
};

// In the order in which they are sent.
constexpr BANK_REGISTER BankRegisters[] = {
    {MCA_IPID, &MCA_BANK_ERROR_INFO::McaIpid, &BANK_CONDITIONS::Always},
    {MCA_CTL, &MCA_BANK_ERROR_INFO::McaCtl, &BANK_CONDITIONS::OperatingMode},
    {MCA_STATUS, &MCA_BANK_ERROR_INFO::McaStatus, &BANK_CONDITIONS::Always},
    {MCA_ADDR, &MCA_BANK_ERROR_INFO::McaAddr, &BANK_CONDITIONS::Address},
    {MCA_MISC0, &MCA_BANK_ERROR_INFO::McaMisc0, &BANK_CONDITIONS::Misc0},
    {MCA_CONFIG, &MCA_BANK_ERROR_INFO::McaConfig, &BANK_CONDITIONS::OperatingMode},
    {MCA_SYND, &MCA_BANK_ERROR_INFO::McaSynd, &BANK_CONDITIONS::Syndrome},
    {MCA_DESTAT, &MCA_BANK_ERROR_INFO::McaDeStat, &BANK_CONDITIONS::Deferred},
    {MCA_DEADDR, &MCA_BANK_ERROR_INFO::McaDeAddr, &BANK_CONDITIONS::Deferred},
    {MCA_MISC1, &MCA_BANK_ERROR_INFO::McaMisc1, &BANK_CONDITIONS::Misc1},
    {MCA_SYND1, &MCA_BANK_ERROR_INFO::McaSynd1, &BANK_CONDITIONS::UmcSyndrome},
    {MCA_SYND2, &MCA_BANK_ERROR_INFO::McaSynd2, &BANK_CONDITIONS::UmcSyndrome},
};

}  // namespace

void VornELogLogMcBankRegisterData(const MCA_BANK_ERROR_INFO* pBank) {
    if (pBank == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pBank == NULL, aborting...\n");
        return;
    }
    const BANK_CONDITIONS Conditions = ConditionsOf(*pBank);
    for (const BANK_REGISTER& Row : BankRegisters) {
        if (Conditions.*Row.Sent) {
            ElogLogMsrInfo(McaMsr(pBank->McaBankNumber, Row.Register), pBank->*Row.Value);
        }
    }
}
