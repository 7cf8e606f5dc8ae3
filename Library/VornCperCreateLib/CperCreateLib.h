// Constructor and destructor of the record library.
#pragma once

#include "Platform/Services.h"

EFI_STATUS VornCperCreateLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);
EFI_STATUS VornCperCreateLibDestructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);
