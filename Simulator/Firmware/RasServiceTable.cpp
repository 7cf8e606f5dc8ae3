// The RAS service's protocol table: each member fails as planned, is journalled if it changes something, and is
// then the service's.
#include "Include/ChipsetSupportData.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

using Json = nlohmann::ordered_json;

RasService& Ras() {
    return Firmware::Current().Ras;
}

Json Target(const UINTN* ProcessorNumber, const UINTN* BankNumber) {
    Json Fields = Json::object();
    if (ProcessorNumber != nullptr) {
        Fields["processor"] = Hex(*ProcessorNumber);
    }
    if (BankNumber != nullptr) {
        Fields["bank"] = Hex(*BankNumber);
    }
    return Fields;
}

EFI_STATUS ExitType(UINTN ProcessorNumber, UINT32 Type) {
    return ServeChange(
        Member::RasSmmExitType,
        [&] {
            return Json{{"processor", Hex(ProcessorNumber)}, {"type", Hex(Type)}};
        },
        [&] { return Ras().RasSmmExitType(ProcessorNumber, Type); });
}

EFI_STATUS SetCloak(UINTN ProcessorNumber, UINT64 CloakMask, UINT64 UncloakMask) {
    return ServeChange(
        Member::SetMcaCloakCfg,
        [&] {
            return Json{
                {"processor", Hex(ProcessorNumber)}, {"cloak", Hex(CloakMask)}, {"uncloak", Hex(UncloakMask)}};
        },
        [&] { return Ras().SetMcaCloakCfg(ProcessorNumber, CloakMask, UncloakMask); });
}

EFI_STATUS ClearStatus(UINTN ProcessorNumber, UINTN BankNumber, BOOLEAN Completing) {
    return ServeChange(
        Member::ClrMcaStatus,
        [&] {
            Json Fields = Target(&ProcessorNumber, &BankNumber);
            Fields["completing"] = Hex(Completing);
            return Fields;
        },
        [&] { return Ras().ClrMcaStatus(ProcessorNumber, BankNumber, Completing); });
}

EFI_STATUS SetThreshold(const UINTN* ProcessorNumber, const UINTN* BankNumber, const RasThresholdConfig* Config,
                        BOOLEAN ThisBankOnly) {
    return ServeChange(
        Member::SetMcaThreshold,
        [&] {
            Json Fields = Target(ProcessorNumber, BankNumber);
            if (Config != nullptr) {
                Fields["misc0"] = Hex(Config->McaMisc0DataValid);
                Fields["misc0-control"] = Hex(Config->ThresholdControl);
                Fields["misc0-count"] = Hex(Config->ThresholdCount);
                Fields["misc0-interrupt"] = Hex(Config->ThresholdIntType);
                Fields["misc1"] = Hex(Config->McaMisc1DataValid);
                Fields["misc1-control"] = Hex(Config->McaMisc1ThresholdControl);
                Fields["misc1-count"] = Hex(Config->McaMisc1ThresholdCount);
                Fields["misc1-interrupt"] = Hex(Config->McaMisc1ThresholdIntType);
                Fields["config"] = Hex(Config->McaConfigDataValid);
                Fields["deferred-interrupt"] = Hex(Config->McaConfigDeferredIntType);
            }
            Fields["this-bank-only"] = Hex(ThisBankOnly);
            return Fields;
        },
        [&] { return Ras().SetMcaThreshold(ProcessorNumber, BankNumber, Config, ThisBankOnly); });
}

EFI_STATUS SetThresholdMap(const UINTN* ProcessorNumber, const UINTN* BankNumber,
                           const MCA_THRESHOLD_SETTING* Setting, BOOLEAN ThisBankOnly,
                           const OEM_MCA_THRESHOLD_MAP* Map) {
    return ServeChange(
        Member::SetMcaThresholdMap,
        [&] {
            Json Fields = Target(ProcessorNumber, BankNumber);
            if (Setting != nullptr) {
                Fields["control"] = Hex(Setting->ThresholdControl);
                Fields["count"] = Hex(Setting->ThresholdCount);
                Fields["interrupt"] = Hex(Setting->ThresholdIntType);
            }
            Fields["this-bank-only"] = Hex(ThisBankOnly);
            if (Map != nullptr) {
                Fields["size"] = Hex(Map->Size);
                Fields["entries"] = Hex(Map->TableEntryNum);
            }
            return Fields;
        },
        [&] { return Ras().SetMcaThresholdMap(ProcessorNumber, BankNumber, Setting, ThisBankOnly, Map); });
}

Json DisableArguments(const MCA_THRESHOLD_DISABLE_REQUEST* Request) {
    if (Request == nullptr) {
        return Json::object();
    }
    return Json{{"processor", Hex(Request->CpuInfo.ProcessorNumber)},
                {"bank", Hex(Request->McaBankNumber)},
                {"threshold-type", Hex(Request->ThresholdType)}};
}

MemoryService& Dram() {
    return Firmware::Current().Dram;
}

Json CounterArguments(UINT8 Socket, UINT8 Channel, const UmcEccErrCntRegInitData* Start) {
    Json Fields{{"socket", Hex(Socket)}, {"channel", Hex(Channel)}};
    if (Start != nullptr) {
        Fields["start"] = Hex(Start->EccErrCnt);
    }
    return Fields;
}

EFI_STATUS StartCounters(UINT8 Socket, UINT8 Channel, UINT8 Dimm, const UmcEccErrCntRegInitData* Start) {
    return ServeChange(
        Member::CorrectedErrorCounterPerDimm,
        [&] {
            Json Fields = CounterArguments(Socket, Channel, Start);
            Fields["dimm"] = Hex(Dimm);
            return Fields;
        },
        [&] { return Dram().StartCounters(Socket, Channel, Dimm, Start); });
}

EFI_STATUS StartCounter(UINT8 Socket, UINT8 Channel, UINT8 SubChannel, UINT8 ChipSelect, UINT8 RankMul,
                        const UmcEccErrCntRegInitData* Start) {
    return ServeChange(
        Member::CorrectedErrorCounterIndividual,
        [&] {
            Json Fields = CounterArguments(Socket, Channel, Start);
            Fields["sub-channel"] = Hex(SubChannel);
            Fields["chip-select"] = Hex(ChipSelect);
            Fields["rank-multiplier"] = Hex(RankMul);
            return Fields;
        },
        [&] {
            return Dram().StartCounter(Socket, Channel, {SubChannel, ChipSelect, RankMul}, Start);
        });
}

EFI_STATUS StopCounterInterrupts(UINT8 Socket, UINT8 Channel, UINT8 Dimm) {
    return ServeChange(
        Member::CorrectedErrorCounterPerDimmDisable,
        [&] {
            Json Fields = CounterArguments(Socket, Channel, nullptr);
            Fields["dimm"] = Hex(Dimm);
            return Fields;
        },
        [&] { return Dram().StopCounterInterrupts(Socket, Channel, Dimm); });
}

EFI_STATUS MapSymbol(const KYR_RAS_SERVICE_SMM_PROTOCOL*, const RasMcaErrorInfo* Info, const NORMALIZED_ADDRESS*,
                     UINT8 BankIndex, UINT32* First, UINT32* Last, UINT8*) {
    return Serve(Member::MapSymbolToDramDevice,
                 [&] { return Dram().MapSymbolToDramDevice(Info, BankIndex, First, Last); });
}

}  // namespace

KYR_RAS_SERVICE_SMM_PROTOCOL* RasServiceTable() {
    using PROTOCOL = KYR_RAS_SERVICE_SMM_PROTOCOL;
    static PROTOCOL Table{
        [](RasMcaErrorInfo* Info) {
            return Serve(Member::SearchMcaError, [&] { return Ras().SearchMcaError(Info); });
        },
        [](LOCAL_SMI_STATUS* List) {
            return Serve(Member::GetAllLocalSmiStatus, [&] { return Ras().GetAllLocalSmiStatus(List); });
        },
        [](UINT8 Socket, UINT8 Die, UINT8 Channel, const DRAM_ADDRESS* From, NORMALIZED_ADDRESS* To) {
            if (Firmware::Current().Faults.OnCall(Member::DramToNormalized)) {
                From = nullptr;  // no DRAM address translates
            }
            Dram().DramToNormalized(Socket, Die, Channel, From, To);
        },
        [](const NORMALIZED_ADDRESS* From, UINT64* SystemAddress, DIMM_INFO* To) {
            return Serve(Member::NormalizedToDimmAddress,
                         [&] { return Dram().NormalizedToDimmAddress(From, SystemAddress, To); });
        },
        ExitType,
        [](UINTN ProcessorNumber, void** SaveState) {
            return Serve(Member::GetSmmSaveState, [&] { return Ras().GetSmmSaveState(ProcessorNumber, SaveState); });
        },
        SetCloak,
        ClearStatus,
        SetThreshold,
        SetThresholdMap,
        [](UINT32 Cycle) {
            return ServeChange(
                Member::SetSmiTrigIoCycle,
                [&] {
                    return Json{{"cycle", Hex(Cycle)}};
                },
                [&] { return Ras().SetSmiTrigIoCycle(Cycle); });
        },
        [](const MCA_THRESHOLD_DISABLE_REQUEST* Request) {
            return ServeChange(
                Member::DisableMcaThreshold, [&] { return DisableArguments(Request); },
                [&] { return Ras().DisableMcaThreshold(Request); });
        },
        [](const MCA_THRESHOLD_DISABLE_REQUEST* Request) {
            return ServeChange(
                Member::DisableMcaTransparentErrorLogging, [&] { return DisableArguments(Request); },
                [&] { return Ras().DisableMcaTransparentErrorLogging(Request); });
        },
        [](CPU_INFO* Info) {
            return Serve(Member::GetPhysicalCpuInfo, [&] { return Ras().GetPhysicalCpuInfo(Info); });
        },
        [] {
            return ServeChange(
                Member::SetRasDiagnosticModeData, [] { return Json::object(); },
                [] { return Ras().SetRasDiagnosticModeData(); });
        },
        StartCounters,
        StartCounter,
        StopCounterInterrupts,
        MapSymbol,
    };
    return &Table;
}

}  // namespace Simulator
