// SMM base protocol (PI 1.8, volume 4, section 4).
#pragma once

#include "Platform/Services.h"

struct EFI_SMM_BASE2_PROTOCOL {
    EFI_STATUS (*InSmm)(const EFI_SMM_BASE2_PROTOCOL* This, BOOLEAN* InSmram);
    EFI_STATUS (*GetSmstLocation)(const EFI_SMM_BASE2_PROTOCOL* This, EFI_SMM_SYSTEM_TABLE2** Smst);
};
