#include "Library/VornCperCreateLib/PcieSection.h"

#include "Include/Cper.h"

UINT64 VornCperGetPcieSectionLength() {
    return sizeof(CPER_PCIE_SECTION);
}

UINT64 VornCperGetPcieRecordLength() {
    return sizeof(CPER_RECORD) + VornCperGetPcieSectionLength();
}
