#include "Simulator/Firmware/Names.h"

#include <fmt/format.h>

#include "Include/Cper.h"
#include "Platform/Guids.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

struct NamedGuid {
    std::string_view Name;
    const EFI_GUID& Guid;
};

#define NAMED(Guid) \
    { #Guid, Guid }
const NamedGuid GUIDS[] = {
    NAMED(gEfiSmmBase2ProtocolGuid),
    NAMED(gEfiSmmSwDispatch2ProtocolGuid),
    NAMED(gEfiSmmEndOfDxeProtocolGuid),
    NAMED(gVornAttributeSmmProtocolGuid),
    NAMED(gVornManufacturingModeProtocolGuid),
    NAMED(gVornAttributeVendorGuid),
    NAMED(gElogLogPOSTErrorToBMCGuid),
    NAMED(gVornSmbiosType16HandleToSmramGuid),
    NAMED(gVornSmbiosType17HandleToSmramGuid),
    NAMED(gEfiSmmCpuServiceProtocolGuid),
    NAMED(gEfiSmmVariableProtocolGuid),
    NAMED(gEdkiiSmmReadyToBootProtocolGuid),
    NAMED(gKyrPlatformApeiDataProtocolGuid),
    NAMED(gKyrRasServiceSmmProtocolGuid),
    NAMED(gKyrRasInitDataSmmProtocolGuid),
    NAMED(gPspMboxSmmBufferAddressProtocolGuid),
    NAMED(gFchSmmSwDispatch2ProtocolGuid),
    NAMED(gFchSmmApuRasDispatchProtocolGuid),
    NAMED(gKyrTalvoConfigSmmProtocolGuid),
    NAMED(gKyrPspRasEinjSmmProtocolGuid),
    NAMED(gKyrFabricRegisterSmmProtocolGuid),
    NAMED(gKyrPcdSmmProtocolGuid),
    NAMED(gKyrSmmMemoryMapProtocolGuid),
    NAMED(gVornElogIpmiSmmProtocolGuid),
    NAMED(gVornSmmSelRecordProtocolGuid),
    NAMED(gVornSmmIpmiSelSupportProtocolGuid),
    NAMED(gVornMemoryInterfaceMemorySmmProtocolGuid),
    NAMED(gEfiVornApeiLoggingSmmProtocolGuid),
    NAMED(gVornKyrMemoryPPRSmmProtocolGuid),
    NAMED(gKyrRuntimePprServiceSmmProtocolGuid),
    NAMED(gKyrJrvRasOemSmmProtocolGuid),
    NAMED(gVornPciSlotDataSmmProtocolGuid),
    NAMED(gVornRasDxeSmiStormScalingDataHoistToSmram),
};
#undef NAMED

struct NamedStatus {
    std::string_view Name;
    EFI_STATUS Status;
};

constexpr NamedStatus STATUSES[] = {
    {"EFI_SUCCESS", EFI_SUCCESS},
    {"EFI_LOAD_ERROR", EFI_LOAD_ERROR},
    {"EFI_INVALID_PARAMETER", EFI_INVALID_PARAMETER},
    {"EFI_UNSUPPORTED", EFI_UNSUPPORTED},
    {"EFI_BAD_BUFFER_SIZE", EFI_BAD_BUFFER_SIZE},
    {"EFI_BUFFER_TOO_SMALL", EFI_BUFFER_TOO_SMALL},
    {"EFI_NOT_READY", EFI_NOT_READY},
    {"EFI_DEVICE_ERROR", EFI_DEVICE_ERROR},
    {"EFI_WRITE_PROTECTED", EFI_WRITE_PROTECTED},
    {"EFI_OUT_OF_RESOURCES", EFI_OUT_OF_RESOURCES},
    {"EFI_NOT_FOUND", EFI_NOT_FOUND},
    {"EFI_ACCESS_DENIED", EFI_ACCESS_DENIED},
    {"EFI_TIMEOUT", EFI_TIMEOUT},
    {"EFI_NOT_STARTED", EFI_NOT_STARTED},
    {"EFI_ALREADY_STARTED", EFI_ALREADY_STARTED},
    {"EFI_ABORTED", EFI_ABORTED},
};

}  // namespace

std::string GuidName(const EFI_GUID& Guid) {
    for (const NamedGuid& One : GUIDS) {
        if (IsGuidEqual(One.Guid, Guid)) {
            return std::string(One.Name);
        }
    }
    const UINT8* Tail = Guid.Data4;
    return fmt::format("{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}{:02X}{:02X}{:02X}{:02X}{:02X}", Guid.Data1,
                       Guid.Data2, Guid.Data3, Tail[0], Tail[1], Tail[2], Tail[3], Tail[4], Tail[5], Tail[6],
                       Tail[7]);
}

const EFI_GUID* FindGuid(std::string_view Name) {
    for (const NamedGuid& One : GUIDS) {
        if (One.Name == Name) {
            return &One.Guid;
        }
    }
    return nullptr;
}

std::string StatusName(EFI_STATUS Status) {
    for (const NamedStatus& One : STATUSES) {
        if (One.Status == Status) {
            return std::string(One.Name);
        }
    }
    return Hex(static_cast<UINTN>(Status));
}

std::optional<EFI_STATUS> FindStatus(std::string_view Name) {
    for (const NamedStatus& One : STATUSES) {
        if (One.Name == Name) {
            return One.Status;
        }
    }
    return std::nullopt;
}

std::string RecordFileName(std::size_t Index) {
    return fmt::format("records/{:04}.cper", Index + 1);
}

}  // namespace Simulator
