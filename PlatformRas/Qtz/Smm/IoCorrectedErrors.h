// Which root ports raise an SMI on corrected PCIe and CXL errors.
#pragma once

#include "Platform/Base.h"

// EFI_SUCCESS, or every port's failure ORed; a port that no IO hub decodes is none.
EFI_STATUS VornConfigureSmiForIoCorrectedErrors();
