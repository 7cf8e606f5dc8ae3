#include "Library/VornElogChipsetLib/AddressTranslation.h"

#include "Library/RasLib/StandIn.h"

EFI_STATUS TranslateToNormalizedAddress(const RasMcaErrorInfo*, UINT8, DRAM_TO_NORMALIZED, NORMALIZED_ADDRESS*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}

UINT8 GetNumOfBABits(UINT8, UINT16, UINT8) {
    TraceStandIn();
    return 0;
}

EFI_STATUS VornUmcDisplayNormalizedAddressInfo(const NORMALIZED_ADDRESS*) {
    TraceStandIn();
    return EFI_UNSUPPORTED;
}
