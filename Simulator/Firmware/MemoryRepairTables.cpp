// Protocol tables of post-package repair: the platform's service, and those who want to hear of runtime repairs.
#include "Platform/Protocol/RuntimePpr.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

MemoryRepair& Repair() {
    return Firmware::Current().Repair;
}

template <unsigned Instance>
EFI_STATUS TakeResult(UINT32 RepairStatus, const RUNTIME_PPR_CHECK_ENTRY* CheckTable, const UINT8* Results,
                      UINT32 Count) {
    return Serve(Member::RuntimePprResult, [&] {
        if (CheckTable == nullptr || Results == nullptr || Count > RUNTIME_PPR_CHECK_ENTRIES) {
            return EFI_INVALID_PARAMETER;
        }
        Firmware::Current().Hardware.Note("runtime-ppr", [&] {
            return nlohmann::ordered_json{{"phase", "result"},
                                          {"instance", Hex(Instance)},
                                          {"status", Hex(RepairStatus)},
                                          {"entries", Hex(Count)},
                                          {"bytes", HexBytes(Results, Count)}};
        });
        return EFI_SUCCESS;
    });
}

}  // namespace

VORN_KYR_MEMORY_PPR_SMM_PROTOCOL* MemoryPprTable() {
    static VORN_KYR_MEMORY_PPR_SMM_PROTOCOL Table{
        [](const KYR_CHIPSET_SUPPORT_DATA* Data, BOOLEAN* Supported) {
            return Serve(Member::KyrPostPackageRepairSupported,
                         [&] { return Repair().IsSupported(Data, Supported); });
        },
        [](const KYR_CHIPSET_SUPPORT_DATA* Data, UINT16 Type, BOOLEAN, const RB_BUS_MAP*, BOOLEAN* AtLeastOne) {
            return Serve(Member::VornPostPackageCreateEntry,
                         [&] { return Repair().CreateEntry(Data, Type, AtLeastOne); });
        },
        [] {
            return Serve(Member::VornPostPackageRepairUpdateToUefiVariable, [] { return Repair().StoreEntries(); });
        },
        [](const KYR_CHIPSET_SUPPORT_DATA* Data, BOOLEAN* Ready, UINT16 Type, UINT8*, UINT8*, BOOLEAN Enabled,
           UINT32* Served, void* Block, void* CommandWord, UINT8* QueueFront, UINT32* QueueFull, void* CheckTable) {
            return Serve(Member::VornRuntimePPRHandler, [&] {
                return Repair().StartRuntime({Data, Ready, Type, Enabled, Served, Block,
                                              static_cast<UINT32*>(CommandWord), QueueFront, QueueFull,
                                              static_cast<RUNTIME_PPR_CHECK_ENTRY*>(CheckTable)});
            });
        },
    };
    return &Table;
}

KYR_JRV_RAS_OEM_SMM_PROTOCOL* OemRasTable(unsigned Instance) {
    static KYR_JRV_RAS_OEM_SMM_PROTOCOL Tables[OEM_RAS_INSTANCES_MAX] = {
        {TakeResult<0>}, {TakeResult<1>}, {TakeResult<2>}, {TakeResult<3>}};
    return &Tables[Instance];
}

}  // namespace Simulator
