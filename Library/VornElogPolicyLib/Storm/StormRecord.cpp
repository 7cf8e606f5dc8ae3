#include "Library/VornElogPolicyLib/Storm/StormRecord.h"

#include "Include/CxlRegisters.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/RecordFunction.h"

namespace {

struct SECTION_KIND {
    const EFI_GUID* pSectionType;
    STORM_RECORD_KIND Kind;
};
constexpr SECTION_KIND SECTION_KINDS[] = {
    {&gCperSectionPlatformMemoryGuid, StormRecordMachineCheck},
    {&gCperSectionProcessorGenericGuid, StormRecordMachineCheck},
    {&gCperSectionProcessorSpecificGuid, StormRecordMachineCheck},
    {&gCperSectionPcieGuid, StormRecordPcie},
    {&gCperSectionCxlProtocolGuid, StormRecordCxlProtocol},
    {&gCperSectionPciComponentGuid, StormRecordPciComponent},
};

}  // namespace

STORM_RECORD_KIND StormSectionKind(const EFI_GUID& SectionType) {
    for (const SECTION_KIND& Known : SECTION_KINDS) {
        if (IsGuidEqual(*Known.pSectionType, SectionType)) {
            return Known.Kind;
        }
    }
    return VornElogCxlCheckComponentEventSectionType(&SectionType) != FALSE ? StormRecordCxlComponent
                                                                            : StormRecordOther;
}

STORM_RECORD_KIND StormRecordKind(const CPER_RECORD* pCper) {
    const EFI_GUID SectionType = pCper->Descriptor.SectionType;
    return StormSectionKind(SectionType);
}

PCI_SBDF StormEntryFunction(const SMI_STORM_QUEUE_ENTRY& Entry) {
    PCI_SBDF At{};
    GetRecordFunction(EntryRecord(Entry), &At);
    return At;
}

UINT8 StormEntryEventSeverity(const SMI_STORM_QUEUE_ENTRY& Entry) {
    return CxlEventFlags::Severity::Get(EntrySectionField<UINT8>(
        Entry, offsetof(CPER_CXL_COMPONENT_SECTION, ComponentEventLog) + offsetof(CXL_EVENT_RECORD, Flags)));
}
