#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"

void LogVendorDeviceId(const PCI_DEVICE_STATE& PciDeviceState) {
    ElogLogRegisterInfo(PCI_VENDOR_ID, CapturedRegister32(PciDeviceState.PciHeader, PCI_VENDOR_ID));
}

void LogRootPortDataOnce(const PCI_DEVICE_STATE& PciDeviceState, PCIE_ALREADY_LOGGED* pAlreadyLogged) {
    const auto& RootPort = PciDeviceState.PcieRootPortData;
    if (pAlreadyLogged->RootPortData != FALSE || RootPort.IoHubDataValid == FALSE) {
        return;
    }
    VornElogLogPcieRootPortData(&RootPort.IoHubData, RootPort.LogicalBridgePciAddress,
                                RootPort.PhysicalBridgePciAddress);
    pAlreadyLogged->RootPortData = TRUE;
}
