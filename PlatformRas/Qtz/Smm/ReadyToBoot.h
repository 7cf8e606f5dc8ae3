// Runs once, when the platform signals ready-to-boot: routes IO corrected errors and programs the UMC counters.
#pragma once

#include "Platform/Services.h"

EFI_STATUS VornRasSmmReadyToBootCallback(const EFI_GUID* Protocol, void* Interface, EFI_HANDLE Handle);
