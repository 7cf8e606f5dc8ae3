// Watches the one door through which records enter the policy engine. The linker puts this function in front of the
// driver's own, so the driver knows nothing of being watched.
#include <cstring>

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/CxlFabric.h"

// VornElogSmmProcessErrorRecord(CPER_RECORD const*, KYR_CHIPSET_SUPPORT_DATA*)
#define PROCESS_ERROR_RECORD "_Z29VornElogSmmProcessErrorRecordPK11CPER_RECORDP24KYR_CHIPSET_SUPPORT_DATA"

extern "C" EFI_STATUS ProcessErrorRecord(const CPER_RECORD* Cper,
                                         KYR_CHIPSET_SUPPORT_DATA* Data) asm("__real_" PROCESS_ERROR_RECORD);
extern "C" EFI_STATUS WatchErrorRecord(const CPER_RECORD* Cper,
                                       KYR_CHIPSET_SUPPORT_DATA* Data) asm("__wrap_" PROCESS_ERROR_RECORD);

namespace Simulator {

namespace {

struct NamedSection {
    const EFI_GUID& Type;
    const char* Name;
};

const NamedSection SECTIONS[] = {
    {gCperSectionProcessorGenericGuid, "processor-generic"},
    {gCperSectionProcessorSpecificGuid, "processor-specific"},
    {gCperSectionPlatformMemoryGuid, "platform-memory"},
    {gCperSectionPcieGuid, "pcie"},
    {gCperSectionPciComponentGuid, "pci-component"},
    {gCperSectionCxlProtocolGuid, "cxl-protocol"},
};

std::string SectionName(const EFI_GUID& Type) {
    for (const NamedSection& One : SECTIONS) {
        if (IsGuidEqual(One.Type, Type)) {
            return One.Name;
        }
    }
    for (const CxlEventKind& One : CxlEventKinds()) {
        if (IsGuidEqual(One.Uuid, Type)) {
            return "cxl-" + std::string(One.Name);
        }
    }
    return GuidName(Type);
}

void NoteRecord(const CPER_RECORD& Source) {
    CPER_RECORD Record;
    std::memcpy(&Record, &Source, sizeof(Record));
    Firmware::Current().Hardware.Note("record", [&] {
        return nlohmann::ordered_json{{"section", SectionName(Record.Descriptor.SectionType)},
                                      {"header-severity", Hex(Record.Header.ErrorSeverity)},
                                      {"section-severity", Hex(Record.Descriptor.Severity)},
                                      {"length", Hex(Record.Header.RecordLength)}};
    });
}

}  // namespace

}  // namespace Simulator

EFI_STATUS WatchErrorRecord(const CPER_RECORD* Cper, KYR_CHIPSET_SUPPORT_DATA* Data) {
    if (Cper != nullptr && Cper->Header.RecordLength >= sizeof(CPER_RECORD)) {
        Simulator::NoteRecord(*Cper);
    }
    return ProcessErrorRecord(Cper, Data);
}
