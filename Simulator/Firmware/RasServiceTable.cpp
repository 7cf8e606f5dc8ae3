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

// Members that reach into the memory controllers and DRAM: this machine models neither.
constexpr auto NO_MEMORY_CONTROLLERS = [] { return EFI_UNSUPPORTED; };

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
        [](UINT8, UINT8, UINT8, const DRAM_ADDRESS*, NORMALIZED_ADDRESS* Address) {
            Serve(Member::DramToNormalized, NO_MEMORY_CONTROLLERS);
            if (Address != nullptr) {
                Address->NormalizedAddress = NORMALIZED_ADDRESS_TRANSLATION_FAILED;
            }
        },
        [](const NORMALIZED_ADDRESS*, UINT64*, DIMM_INFO*) {
            return Serve(Member::NormalizedToDimmAddress, NO_MEMORY_CONTROLLERS);
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
        [](UINT8, UINT8, UINT8, const UmcEccErrCntRegInitData*) {
            return Serve(Member::CorrectedErrorCounterPerDimm, NO_MEMORY_CONTROLLERS);
        },
        [](UINT8, UINT8, UINT8, UINT8, UINT8, const UmcEccErrCntRegInitData*) {
            return Serve(Member::CorrectedErrorCounterIndividual, NO_MEMORY_CONTROLLERS);
        },
        [](UINT8, UINT8, UINT8) { return Serve(Member::CorrectedErrorCounterPerDimmDisable, NO_MEMORY_CONTROLLERS); },
        [](const PROTOCOL*, const RasMcaErrorInfo*, const NORMALIZED_ADDRESS*, UINT8, UINT32*, UINT32*, UINT8*) {
            return Serve(Member::MapSymbolToDramDevice, NO_MEMORY_CONTROLLERS);
        },
    };
    return &Table;
}

}  // namespace Simulator
