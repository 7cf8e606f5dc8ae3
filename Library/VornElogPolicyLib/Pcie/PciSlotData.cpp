#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS RetrieveVornPciSlotDataSmmProtocol(const EFI_GUID*, void*, EFI_HANDLE) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}
