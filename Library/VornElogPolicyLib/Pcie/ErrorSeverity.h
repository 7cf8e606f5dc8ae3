// How error registers sort their bits: an uncorrectable status by the severity register beside it.
#pragma once

#include "Platform/Base.h"

enum class ERROR_SEVERITY : UINT8 { Fatal, NonFatal, Correctable };

// The bits of Status that have this severity. A correctable status has no severity register: all of its bits count.
constexpr UINT32 BitsOfSeverity(ERROR_SEVERITY Severity, UINT32 Status, UINT32 SeverityRegister) {
    switch (Severity) {
        case ERROR_SEVERITY::Fatal:
            return Status & SeverityRegister;
        case ERROR_SEVERITY::NonFatal:
            return Status & ~SeverityRegister;
        default:
            return Status;
    }
}
