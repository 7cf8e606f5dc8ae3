// The image's entry point.
#pragma once

#include "Platform/Services.h"

// Runs the library constructors, then the driver's initialiser. Returns the initialiser's status; when that is
// an error the library destructors have run and the firmware unloads the image.
extern "C" EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);
