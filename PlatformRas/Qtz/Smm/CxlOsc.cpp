#include "PlatformRas/Qtz/Smm/CxlOsc.h"

#include "Include/CxlRegisters.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Trace.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"

namespace {

constexpr const CHAR8* OPERATION = "KyrCxlOscCallback";

struct BIT_NAME {
    UINT32 Mask;
    const CHAR8* Name;
};
constexpr BIT_NAME SUPPORT_BITS[] = {
    {CxlOscSupport::RcdRchPortRegisterAccess::Mask, "RCD and RCH Port Register Access Supported"},
    {CxlOscSupport::VhRegisterAccess::Mask, "CXL VH Register Access Supported"},
    {CxlOscSupport::ProtocolErrorReporting::Mask, "CXL Protocol Error Reporting Supported"},
    {CxlOscSupport::NativeHotPlug::Mask, "CXL Native Hot-Plug Supported"},
    {CxlOscSupport::TimeoutAndIsolation::Mask, "CXL Timeout and Isolation Supported"},
};
constexpr BIT_NAME CONTROL_BITS[] = {
    {CxlOscControl::MemoryErrorReporting::Mask, "CXL Memory Error Reporting Control"},
    {CxlOscControl::MemoryIsolationEnable::Mask, "CXL Memory Isolation Enable Control"},
    {CxlOscControl::MemoryIsolationRecovery::Mask, "CXL Memory Isolation Recovery Control"},
    {CxlOscControl::CacheIsolationEnable::Mask, "CXL Cache Isolation Enable Control"},
    {CxlOscControl::CacheIsolationRecovery::Mask, "CXL Cache Isolation Recovery Control"},
    {CxlOscControl::IsolationNotification::Mask, "CXL Isolation Notification Control"},
};

template <UINTN Count>
void PrintBits(UINT32 Dword, const BIT_NAME (&Bits)[Count]) {
    for (const BIT_NAME& Bit : Bits) {
        TraceAs("SmmPrintCxlOscData", mSerDbgLevel, "%a:   %a %d\n", Bit.Name, (Dword & Bit.Mask) != 0 ? 1 : 0);
    }
}

// Whether the firmware keeps the error logs of memory devices although the OS could read them.
bool FirmwareKeepsErrorLogs(const KYR_PLATFORM_APEI_DATA& Platform) {
    return Platform.CxlErrorHandlingMode == CxlFirmwareFirstDebug ||
           (Platform.CxlErrorHandlingMode == CxlForcedFirmwareFirst && Platform.CxlAllDevicesHaveSecondaryMailbox);
}

// Whether the OS gets CXL Memory Error Reporting Control.
bool GrantMemoryErrorReporting(UINT32 Dword4, const KYR_PLATFORM_APEI_DATA& Platform) {
    // Meant: access to CXL 2.0 registers alone (bit 1) does not count.
    if (!CxlOscSupport::RcdRchPortRegisterAccess::Get(Dword4)) {
        TraceAs(OPERATION, mSerDbgLevel,
                "%a: Case 1 - OS does not support CXL v1.1/v2.0 register access, deny OS control\n");
        return false;
    }
    if (FirmwareKeepsErrorLogs(Platform)) {
        TraceAs(OPERATION, mSerDbgLevel,
                "%a: Case 2 - Firmware First, firmware keeps the error logs, deny OS control\n");
        return false;
    }
    // Without a secondary mailbox everywhere even forced firmware first leaves the only mailbox to the OS.
    TraceAs(OPERATION, mSerDbgLevel,
            "%a: Case 3 - OS First, or a device without secondary mailbox, grant OS control\n");
    return true;
}

// Whether the OS gets the isolation controls that exist.
bool GrantIsolation(UINT32 Dword4, const KYR_PLATFORM_APEI_DATA& Platform) {
    return CxlOscSupport::TimeoutAndIsolation::Get(Dword4) && Platform.CxlIsolationEnable;
}

// The controls, out of those that the OS asks for, that it gets.
UINT32 GrantedControls(UINT32 Dword4, UINT32 Dword5, const KYR_PLATFORM_APEI_DATA& Platform) {
    constexpr UINT32 ISOLATION[] = {CxlOscControl::MemoryIsolationEnable::Mask,
                                    CxlOscControl::IsolationNotification::Mask};
    constexpr UINT32 NOT_SUPPORTED = CxlOscControl::MemoryIsolationRecovery::Mask |
                                     CxlOscControl::CacheIsolationEnable::Mask |
                                     CxlOscControl::CacheIsolationRecovery::Mask;
    UINT32 Granted = Dword5 & ~NOT_SUPPORTED;
    if (CxlOscControl::MemoryErrorReporting::Get(Dword5) && !GrantMemoryErrorReporting(Dword4, Platform)) {
        Granted &= ~CxlOscControl::MemoryErrorReporting::Mask;
    }
    for (const UINT32 Control : ISOLATION) {
        if ((Dword5 & Control) == 0) {
            continue;
        }
        const bool Grant = GrantIsolation(Dword4, Platform);
        TraceAs(OPERATION, mSerDbgLevel, "%a: isolation control 0x%02x %a\n", Control, Grant ? "granted" : "denied");
        if (!Grant) {
            Granted &= ~Control;
        }
    }
    return Granted;
}

}  // namespace

void SmmPrintCxlOscData(UINT32 Dword4, UINT32 Dword5) {
    Trace(mSerDbgLevel, "%a: CXL _OSC Support (Dword4) 0x%08x\n", Dword4);
    PrintBits(Dword4, SUPPORT_BITS);
    Trace(mSerDbgLevel, "%a: CXL _OSC Control (Dword5) 0x%08x\n", Dword5);
    PrintBits(Dword5, CONTROL_BITS);
}

EFI_STATUS KyrCxlOscCallback(EFI_HANDLE, const FCH_SMM_SW_REGISTER_CONTEXT*, void*, UINTN*) {
    CXL_POLICY_DATA* Policy = mPlatformApeiData->CxlPolicyData;
    if (Policy == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR CxlPolicyData == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const UINT32 Dword4 = Policy->OscDword4;
    const UINT32 Dword5 = Policy->OscDword5;
    SmmPrintCxlOscData(Dword4, Dword5);
    const UINT32 Granted = GrantedControls(Dword4, Dword5, *mPlatformApeiData);
    Policy->OscDword5 = Granted;
    SmmPrintCxlOscData(Dword4, Granted);
    return EFI_SUCCESS;
}
