// Runs once, when the platform signals ready-to-boot: routes IO corrected errors and, in production mode with
// platform-first error handling, programs the memory controllers' counters.
#pragma once

#include "Platform/Services.h"

// Status of the last step: the routing's in diagnostic mode, else the counters'. EFI_UNSUPPORTED when
// platform-first error handling is off.
EFI_STATUS VornRasSmmReadyToBootCallback(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);
