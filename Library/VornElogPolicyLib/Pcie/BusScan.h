// A walk over the functions on a range of buses.
#pragma once

#include "Library/VornElogBaseLib/PciConfiguration.h"

// Calls Visit with the PCI_SBDF of each present function from FirstBus to LastBus, in order, until it returns true;
// true when it did. A device whose function 0 is absent is left out, and only function 0 of a single-function device
// is visited.
template <class Visitor>
bool AnyFunctionOnBuses(UINT8 Seg, UINT8 FirstBus, UINT8 LastBus, Visitor Visit) {
    for (UINT32 Bus = FirstBus; Bus <= LastBus; Bus++) {
        for (UINT8 Dev = 0; Dev < PCI_DEVICES_PER_BUS; Dev++) {
            PCI_SBDF At{Seg, static_cast<UINT8>(Bus), Dev, 0};
            if (!VornCheckDevicePresent(At.Seg, At.Bus, At.Dev, At.Func)) {
                continue;
            }
            if (Visit(At)) {
                return true;
            }
            if (!PciHeaderType::MultiFunction::Get(PciSegmentRead8(PciFunctionAddress(At, PCI_HEADER_TYPE)))) {
                continue;
            }
            for (At.Func = 1; At.Func < PCI_FUNCTIONS_PER_DEVICE; At.Func++) {
                if (VornCheckDevicePresent(At.Seg, At.Bus, At.Dev, At.Func) && Visit(At)) {
                    return true;
                }
            }
        }
    }
    return false;
}
