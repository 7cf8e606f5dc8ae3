#include "Library/VornElogPolicyLib/Pcie/LegacyPciErrors.h"

#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// A status register with the bits of its control register that make an error worth handling.
struct STATUS_REGISTER {
    UINT16 Status;
    bool IsParityErrorEnabled;
    bool IsSystemErrorEnabled;
};

constexpr UINT16 TRACED_ONLY =
    PciStatus::SignaledTargetAbort | PciStatus::ReceivedTargetAbort | PciStatus::ReceivedMasterAbort;

struct PCI_DEVICE_ID_PAIR {
    UINT16 VendorId;
    UINT16 DeviceId;
};
constexpr PCI_DEVICE_ID_PAIR INTEGRATED_G200EW3 = {0x1050, 0x0750};
constexpr UINT8 CLASS_BASE_UNASSIGNED = 0xFF;

bool IsType1(const PCI_DEVICE_STATE& State) {
    return PciHeaderType::Layout::Get(State.PciHeader[PCI_HEADER_TYPE]) == PciHeaderType::Type1;
}

STATUS_REGISTER PrimaryStatus(const PCI_DEVICE_STATE& State) {
    const UINT16 Command = CapturedRegister16(State.PciHeader, PCI_COMMAND);
    return {CapturedRegister16(State.PciHeader, PCI_STATUS), (Command & PciCommand::ParityErrorResponse) != 0,
            (Command & PciCommand::SerrEnable) != 0};
}

STATUS_REGISTER SecondaryStatus(const PCI_DEVICE_STATE& State) {
    const UINT16 Control = CapturedRegister16(State.PciHeader, PCI_BRIDGE_CONTROL);
    return {CapturedRegister16(State.PciHeader, PCI_SECONDARY_STATUS),
            (Control & PciBridgeControl::ParityErrorResponseEnable) != 0,
            (Control & PciBridgeControl::SerrEnable) != 0};
}

void CheckStatus(PCI_DEVICE_STATE& State, const STATUS_REGISTER& Register, const CHAR8* Caller) {
    auto& Legacy = State.LegacyPci;
    if ((Register.Status & PciStatus::MasterDataParityError) != 0) {
        Legacy.DetectedFatal = TRUE;
        Legacy.DetectedPerr = TRUE;
        if (Register.IsParityErrorEnabled) {
            Legacy.Handle = TRUE;
        }
    }
    if ((Register.Status & PciStatus::SignaledSystemError) != 0) {
        Legacy.DetectedFatal = TRUE;
        Legacy.DetectedSerr = TRUE;
        if (Register.IsSystemErrorEnabled) {
            Legacy.Handle = TRUE;
        }
    }
    if ((Register.Status & PciStatus::DetectedParityError) != 0) {
        Legacy.DetectedFatal = TRUE;
        Legacy.DetectedPerr = TRUE;
        Legacy.Handle = TRUE;
    }
    if ((Register.Status & TRACED_ONLY) != 0) {
        const PCI_SBDF At = SbdfOf(State.PciAddress);
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X target or master abort, status 0x%04x\n", At.Seg, At.Bus, At.Dev,
                At.Func, Register.Status);
    }
}

bool IsDisplayDevice(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    const UINT8* const Header = State.PciHeader;
    if (Header[PCI_CLASS_BASE] == PciClass::DISPLAY && Header[PCI_CLASS_SUBCLASS] == PciClass::DISPLAY_VGA) {
        return true;
    }
    const UINT16 VendorId = CapturedRegister16(Header, PCI_VENDOR_ID);
    const UINT16 DeviceId = CapturedRegister16(Header, PCI_DEVICE_ID);
    if (VendorId != INTEGRATED_G200EW3.VendorId || DeviceId != INTEGRATED_G200EW3.DeviceId ||
        Header[PCI_CLASS_BASE] != CLASS_BASE_UNASSIGNED) {
        return false;
    }
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X VendorId 0x%04x DeviceId 0x%04x PCI Matrox Electronics Systems Ltd. "
            "Integrated Matrox G200eW3 Graphics Controller detected, clearing PERR status\n",
            At.Seg, At.Bus, At.Dev, At.Func, VendorId, DeviceId);
    return true;
}

}  // namespace

EFI_STATUS VornElogSmmCheckLegacyPciDeviceErrors(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const CHAR8* const Name = __func__;
    const STATUS_REGISTER Primary = PrimaryStatus(*pPciDeviceState);
    UINT16 AllStatus = Primary.Status;
    CheckStatus(*pPciDeviceState, Primary, Name);
    if (IsType1(*pPciDeviceState)) {
        const STATUS_REGISTER Secondary = SecondaryStatus(*pPciDeviceState);
        AllStatus |= Secondary.Status;
        CheckStatus(*pPciDeviceState, Secondary, Name);
    }
    auto& Legacy = pPciDeviceState->LegacyPci;
    if (Legacy.DetectedPerr != FALSE && IsDisplayDevice(*pPciDeviceState, Name)) {
        Legacy.DetectedPerr = FALSE;
        if (Legacy.DetectedSerr == FALSE) {
            Legacy.Clear = TRUE;
            Legacy.Handle = FALSE;
        }
    }
    if ((AllStatus & PciStatus::ErrorBits) != 0 && Legacy.Handle == FALSE) {
        Legacy.Clear = TRUE;
    }
    return EFI_SUCCESS;
}
