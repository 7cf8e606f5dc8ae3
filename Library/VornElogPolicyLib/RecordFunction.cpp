#include "Library/VornElogPolicyLib/RecordFunction.h"

#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

// The part of a section that names the function; false when the record ends before it does.
template <class Part>
static bool ReadPart(const CPER_RECORD* pCper, UINTN Offset, Part* pPart) {
    *pPart = SectionField<Part>(pCper, Offset);
    return RecordHolds(pCper, sizeof(CPER_RECORD) + Offset, sizeof(Part));
}

static bool ReadPcie(const CPER_RECORD* pCper, PCI_SBDF* pSbdf) {
    CPER_PCIE_DEVICE_ID Id;
    const bool IsRead = ReadPart(pCper, offsetof(CPER_PCIE_SECTION, DeviceId), &Id);
    *pSbdf = {static_cast<UINT8>(Id.Segment), Id.Bus, Id.Device, Id.Function};
    return IsRead;
}

static bool ReadPciComponent(const CPER_RECORD* pCper, PCI_SBDF* pSbdf) {
    CPER_PCI_COMPONENT_SECTION Section;
    const bool IsRead = ReadPart(pCper, 0, &Section);
    *pSbdf = {Section.Segment, Section.Bus, Section.Device, Section.Function};
    return IsRead;
}

static bool ReadCxlProtocol(const CPER_RECORD* pCper, PCI_SBDF* pSbdf) {
    CXL_AGENT_ADDRESS Address;
    const bool IsRead = ReadPart(pCper, offsetof(CPER_CXL_PROTOCOL_SECTION, CxlAgentAddress), &Address);
    *pSbdf = {static_cast<UINT8>(Address.Segment), Address.Bus, Address.Device, Address.Function};
    return IsRead;
}

static bool ReadCxlComponent(const CPER_RECORD* pCper, PCI_SBDF* pSbdf) {
    const auto Field8 = [pCper](UINTN Offset) { return SectionField<UINT8>(pCper, Offset); };
    *pSbdf = {Field8(offsetof(CPER_CXL_COMPONENT_SECTION, Segment)),
              Field8(offsetof(CPER_CXL_COMPONENT_SECTION, Bus)), Field8(offsetof(CPER_CXL_COMPONENT_SECTION, Device)),
              Field8(offsetof(CPER_CXL_COMPONENT_SECTION, Function))};
    return RecordHolds(pCper, sizeof(CPER_RECORD), offsetof(CPER_CXL_COMPONENT_SECTION, SlotNumber));
}

bool GetRecordFunction(const CPER_RECORD* pCper, PCI_SBDF* pSbdf) {
    const EFI_GUID Type = RecordSectionType(pCper);
    if (IsGuidEqual(Type, gCperSectionPcieGuid)) {
        return ReadPcie(pCper, pSbdf);
    }
    if (IsGuidEqual(Type, gCperSectionPciComponentGuid)) {
        return ReadPciComponent(pCper, pSbdf);
    }
    if (IsGuidEqual(Type, gCperSectionCxlProtocolGuid)) {
        return ReadCxlProtocol(pCper, pSbdf);
    }
    if (VornElogCxlCheckComponentEventSectionType(&Type) != FALSE) {
        return ReadCxlComponent(pCper, pSbdf);
    }
    *pSbdf = {};
    return false;
}
