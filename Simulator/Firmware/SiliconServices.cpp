// The silicon maker's smaller services, and the SMM core's: processors, base protocol, variables.
#include "Platform/Protocol/SiliconServices.h"

#include <fmt/format.h>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

using Json = nlohmann::ordered_json;

std::uint64_t PcdValue(UINTN Token) {
    const auto& Values = Firmware::Current().Settings.Pcd;
    const auto Found = Values.find(Token);
    return Found == Values.end() ? 0 : Found->second;
}

EFI_STATUS SendEinj(UINT32 Action, void* Structure, void* Buffer, UINT8* Flag) {
    return ServeChange(
        Member::PspMboxRasEinj,
        [&] {
            return Json{{"action", Hex(Action)}, {"structure", Structure == nullptr ? "none" : "given"}};
        },
        [&] { return Buffer == nullptr || Flag == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS; });
}

UINT32 ReadFabric(UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance) {
    Firmware& Here = Firmware::Current();
    if (Function >= 8 || Offset >= 0x2000 || Offset % 4 != 0) {
        Here.Hardware.ReportFault(fmt::format(
            "the driver reads fabric function {} offset 0x{:X}: there is no such register", Function, Offset));
        return UINT32_MAX;
    }
    if (Here.Faults.OnCall(Member::FabricRegisterAccRead) || Die != 0) {
        return UINT32_MAX;
    }
    return Here.Hardware.Fabric().Read(static_cast<unsigned>(Socket), static_cast<unsigned>(Function),
                                       static_cast<unsigned>(Offset), static_cast<unsigned>(Instance));
}

EFI_STATUS ProcessorInfo(UINTN Number, EFI_PROCESSOR_INFORMATION* Info) {
    constexpr UINT32 IS_BSP = 1;
    constexpr UINT32 ENABLED_AND_HEALTHY = 0x6;
    const Machine& Hardware = Firmware::Current().Hardware;
    if (Number >= Hardware.ProcessorCount()) {
        return EFI_NOT_FOUND;
    }
    if (Info == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const ProcessorLocation& Where = Hardware.ProcessorAt(static_cast<unsigned>(Number)).Location();
    *Info = {Where.ApicId,
             ENABLED_AND_HEALTHY | (Number == 0 ? IS_BSP : 0),
             {Where.Socket, Where.CoreOfSocket, Where.Thread}};
    return EFI_SUCCESS;
}

}  // namespace

KYR_PCD_PROTOCOL* PcdTable() {
    static KYR_PCD_PROTOCOL Table{
        [](UINTN Token) -> UINT8 {
            return Firmware::Current().Faults.OnCall(Member::Get8) ? 0 : static_cast<UINT8>(PcdValue(Token));
        },
        [](UINTN Token) -> BOOLEAN {
            return Firmware::Current().Faults.OnCall(Member::GetBool) || PcdValue(Token) == 0 ? FALSE : TRUE;
        },
    };
    return &Table;
}

KYR_TALVO_CONFIG_PROTOCOL* TalvoConfigTable() {
    static KYR_TALVO_CONFIG_PROTOCOL Table{
        [](UINT32 Uid, UINT8 Value) {
            ServeChange(
                Member::SetTalvoCfg8,
                [&] {
                    return Json{{"uid", Hex(Uid)}, {"value", Hex(Value)}};
                },
                [&] {
                    Firmware::Current().TalvoConfig[Uid] = Value;
                    return EFI_SUCCESS;
                });
        },
    };
    return &Table;
}

KYR_PSP_RAS_EINJ_PROTOCOL* PspRasEinjTable() {
    static KYR_PSP_RAS_EINJ_PROTOCOL Table{SendEinj};
    return &Table;
}

KYR_FABRIC_REGISTER_PROTOCOL* FabricRegisterTable() {
    static KYR_FABRIC_REGISTER_PROTOCOL Table{ReadFabric};
    return &Table;
}

EFI_SMM_BASE2_PROTOCOL* SmmBase2Table() {
    static EFI_SMM_BASE2_PROTOCOL Table{
        [](const EFI_SMM_BASE2_PROTOCOL*, BOOLEAN* InSmram) {
            return Serve(Member::InSmm, [&] {
                if (InSmram == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                *InSmram = TRUE;
                return EFI_SUCCESS;
            });
        },
        [](const EFI_SMM_BASE2_PROTOCOL*, EFI_SMM_SYSTEM_TABLE2** Smst) {
            return Serve(Member::GetSmstLocation, [&] {
                if (Smst == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                *Smst = Firmware::Current().SmmSystemTable();
                return EFI_SUCCESS;
            });
        },
    };
    return &Table;
}

EFI_SMM_CPU_SERVICE_PROTOCOL* SmmCpuServiceTable() {
    static EFI_SMM_CPU_SERVICE_PROTOCOL Table{
        [](const EFI_SMM_CPU_SERVICE_PROTOCOL*, UINTN Number, EFI_PROCESSOR_INFORMATION* Info) {
            return Serve(Member::GetProcessorInfo, [&] { return ProcessorInfo(Number, Info); });
        },
        nullptr,
        nullptr,
        nullptr,
        [](const EFI_SMM_CPU_SERVICE_PROTOCOL*, UINTN* Number) {
            return Serve(Member::WhoAmI, [&] {
                if (Number == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                *Number = Firmware::Current().Hardware.CurrentProcessor();
                return EFI_SUCCESS;
            });
        },
    };
    return &Table;
}

// The driver looks for the variable service but calls none of its members.
void* SmmVariableTable() {
    static void* Members[4] = {};
    return Members;
}

}  // namespace Simulator
